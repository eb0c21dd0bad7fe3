// Reading the XT node graph by field name: a node is its position in the graph;
// pointers hold node indices, which `at` turns back into positions.
#pragma once

#include "ModelError.h"
#include "NodeGraph.h"

#include <gp_Pnt.hxx>
#include <gp_Vec.hxx>

#include <string>
#include <string_view>

namespace meld::model {

// Node type codes the model layer reads or writes.
enum NodeType : int {
  kAssembly = 10, kInstance = 11, kBody = 12, kShell = 13, kFace = 14, kLoop = 15, kEdge = 16,
  kHalfedge = 17, kVertex = 18, kRegion = 19, kPoint = 29, kLine = 30, kCircle = 31, kEllipse = 32,
  kIntersection = 38, kBsplineVertices = 45, kPlane = 50, kCylinder = 51, kCone = 52, kSphere = 53,
  kTorus = 54, kBlendedEdge = 56, kBlendBound = 59, kOffsetSurf = 60, kSweptSurf = 67, kSpunSurf = 68,
  kList = 70, kPointerLisBlock = 74, kAttDefId = 79, kAttribDef = 80, kAttribute = 81, kIntValues = 82,
  kRealValues = 83, kCharValues = 84, kPointValues = 85, kVectorValues = 86, kAxisValues = 87,
  kTagValues = 88, kDirectionValues = 89, kUnicodeValues = 98, kFieldNames = 99, kTransform = 100,
  kPeSurf = 120, kBSurface = 124, kSurfaceData = 125, kNurbsSurf = 126, kKnotMult = 127, kKnotSet = 128,
  kPeCurve = 130, kTrimmedCurve = 133, kBCurve = 134, kCurveData = 135, kNurbsCurve = 136, kSpCurve = 137,
  kGeometricOwner = 141, kPartXmtBlock = 176, kPolyline = 200, kMesh = 201,
};

inline constexpr long kNone = -1;

class NodeAccess {
 public:
  explicit NodeAccess(const xt::Graph& graph) : m_graph(graph) {}

  const xt::Graph& graph() const { return m_graph; }
  // A node position that is not in the graph (a null pointer followed) is bad data.
  const xt::Graph::Node& node(long node) const {
    if (node < 0 || static_cast<size_t>(node) >= m_graph.size())
      throw ModelError(PK_ERROR_bad_topology, "a required pointer is null or leads nowhere");
    return m_graph.nodes()[static_cast<size_t>(node)];
  }
  int type(long n) const { return node(n).type; }
  int64_t index(long n) const { return node(n).index; }
  std::string typeName(long n) const { return node(n).layout->name; }
  // "FACE node 42": how messages name a node.
  std::string describe(long node) const { return typeName(node) + " node " + std::to_string(index(node)); }

  bool has(long node, std::string_view field) const { return view(node, field).def; }
  // The node a pointer field names, or kNone when it is null (or the field absent).
  long ptr(long node, std::string_view field, size_t element = 0) const {
    xt::FieldView view = this->view(node, field);
    if (!view.def || element >= view.ints.size() || view.ints[element] == 0) return kNone;
    return m_graph.find(view.ints[element]);
  }
  int64_t integer(long node, std::string_view field, int64_t fallback = 0) const {
    xt::FieldView view = this->view(node, field);
    return view.def && !view.ints.empty() ? view.ints[0] : fallback;
  }
  char character(long node, std::string_view field) const {
    return static_cast<char>(integer(node, field, '?'));
  }
  // A real field; NaN when null or absent.
  double real(long node, std::string_view field, size_t element = 0) const {
    xt::FieldView view = this->view(node, field);
    if (!view.def || element >= view.reals.size() || view.reals[element] == xt::kNullReal) return nan();
    return view.reals[element];
  }
  bool isNull(long node, std::string_view field) const {
    xt::FieldView view = this->view(node, field);
    return !view.def || view.isNull();
  }
  gp_Vec vec(long node, std::string_view field) const {
    xt::FieldView view = this->view(node, field);
    if (!view.def || view.reals.size() < 3 || view.isNull())
      throw ModelError(PK_ERROR_bad_geometry, describe(node) + ": field " + std::string(field) + " is null");
    return gp_Vec(view.reals[0], view.reals[1], view.reals[2]);
  }
  gp_Pnt pnt(long node, std::string_view field) const { return gp_Pnt(vec(node, field).XYZ()); }
  xt::FieldView view(long n, std::string_view field) const {
    node(n);
    return m_graph.field(static_cast<size_t>(n), field);
  }
  // A pointer that must be there and lead to a node of one of the given types.
  long require(long node, std::string_view field, PK_ERROR_code_t code) const {
    long target = ptr(node, field);
    if (target == kNone)
      throw ModelError(code, describe(node) + ": field " + std::string(field) + " is null");
    return target;
  }

  static double nan() { return std::numeric_limits<double>::quiet_NaN(); }

 private:
  const xt::Graph& m_graph;
};

}  // namespace meld::model
