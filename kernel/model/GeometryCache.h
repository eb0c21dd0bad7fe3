// XT geometry nodes -> OCCT geometry, one to one, each node converted once (faces
// share surfaces, edges share curves). Surfaces and curves come back in their
// natural parametrisation; senses are the caller's business (sense()).
//
// Procedural nodes (intersection curves, blends, foreign geometry) have no OCCT
// twin: they go to the converters of procedural/Procedural.h, which convert the
// geometry they rest on through this cache again.
#pragma once

#include "NodeAccess.h"

#include <Geom2d_Curve.hxx>
#include <Geom_Curve.hxx>
#include <Geom_Surface.hxx>

#include <memory>
#include <unordered_map>

namespace meld::model {

namespace procedural {
class Evaluators;
}

class GeometryCache {
 public:
  explicit GeometryCache(const xt::Graph& graph) : m_nodes(graph) {}
  GeometryCache(const GeometryCache&) = delete;
  GeometryCache& operator=(const GeometryCache&) = delete;

  const NodeAccess& nodes() const { return m_nodes; }
  const xt::Graph& graph() const { return m_nodes.graph(); }

  // Throw ModelError (PK_ERROR_bad_geometry, or PK_ERROR_unsupported_geometry for
  // a node type nothing converts) naming the node.
  Handle(Geom_Surface) surface(long node);
  Handle(Geom_Curve) curve(long node);
  // A conversion made elsewhere (the survey, which measures its own fits),
  // kept as the node's so that it is not converted again.
  void keep(long node, const Handle(Geom_Surface)& surface) { m_surfaces.emplace(node, surface); }
  void keep(long node, const Handle(Geom_Curve)& curve) { m_curves.emplace(node, curve); }
  // The 2D curve of an SP_CURVE, in the parameters of the OCCT twin of its surface.
  Handle(Geom2d_Curve) spCurve2d(long spCurve);
  gp_Pnt point(long node);

  // +1 or -1: the node's sense field ('+' when absent).
  int sense(long node) const { return m_nodes.character(node, "sense") == '-' ? -1 : 1; }
  // Whether the OCCT twin's natural normal points against the XT one (spun
  // surfaces swap their parameters, and offsets of them inherit that).
  bool reversesNormal(long surfaceNode) const;
  // The exact evaluators of procedural geometry met so far (supports, spines,
  // intersection charts), kept with the cache so each node is evaluated from
  // one object however many nodes rest on it.
  procedural::Evaluators& proceduralEvaluators();

 private:
  Handle(Geom_Surface) buildSurface(long node);
  Handle(Geom_Curve) buildCurve(long node);

  NodeAccess m_nodes;
  std::unordered_map<long, Handle(Geom_Surface)> m_surfaces;
  std::unordered_map<long, Handle(Geom_Curve)> m_curves;
  std::unordered_map<long, Handle(Geom2d_Curve)> m_curves2d;
  std::vector<long> m_building;  // nodes being converted: a cycle is refused, not recursed
  std::shared_ptr<procedural::Evaluators> m_procedural;
};

}  // namespace meld::model
