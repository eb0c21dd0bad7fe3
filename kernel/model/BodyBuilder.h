// One XT BODY node -> one OCCT shape: regions, shells, faces, loops, fins, edges
// and vertices with the senses the format defines, tolerant edges and vertices
// with their tolerances, then OCCT's shape healing for what the format leaves
// implicit (pcurves, seam edges of periodic faces).
#pragma once

#include "EdgePcurves.h"
#include "GeometryCache.h"

#include <TopoDS_Edge.hxx>
#include <TopoDS_Face.hxx>
#include <TopoDS_Shape.hxx>
#include <TopoDS_Vertex.hxx>

#include <unordered_map>
#include <vector>

namespace meld::model {

struct BuiltBody {
  TopoDS_Shape shape;
  PK_BODY_type_t type = PK_BODY_type_solid_c;
  // The OCCT shape each XT topology node became (faces, edges, vertices, loops,
  // shells, regions), after healing: attributes of those nodes follow them.
  std::unordered_map<long, TopoDS_Shape> topology;
};

class BodyBuilder {
 public:
  explicit BodyBuilder(GeometryCache& cache) : m_cache(cache), m_n(cache.nodes()) {}

  // Throws ModelError naming the node that cannot be built.
  BuiltBody build(long body);
  // What the last build found of its pcurves itself (the rest healing projects).
  const FollowedPcurves& followed() const { return m_followed; }

 private:
  struct Edge {
    TopoDS_Edge edge;
    bool flipped = false;  // the OCCT edge runs against the XT edge
  };

  TopoDS_Vertex vertex(long node);
  Edge edge(long node);
  Edge edgeOnCurve(long node, long curveNode, long start, long end, double tol);
  Edge edgeFromFins(long node, long start, long end, double tol);
  void attachFinCurves(long node, const Edge& built, long curveNode);
  bool faceFlipped(long face) const;
  TopoDS_Face face(long node);
  TopoDS_Shape loopWire(long loop, bool faceFlipped, const TopoDS_Face& onFace);

  std::vector<long> chain(long first, std::string_view next, int type);
  void checkType(long node, int type) const;
  [[noreturn]] void badTopology(long node, const std::string& why) const;

  GeometryCache& m_cache;
  const NodeAccess& m_n;
  std::unordered_map<long, TopoDS_Vertex> m_vertices;
  std::unordered_map<long, Edge> m_edges;
  std::unordered_map<long, TopoDS_Face> m_faces;
  std::unordered_map<long, TopoDS_Shape> m_topology;
  FollowedPcurves m_followed;
};

}  // namespace meld::model
