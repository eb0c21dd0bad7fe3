#include "BooleanChecks.h"

#include <BRepCheck_Analyzer.hxx>
#include <BRep_Tool.hxx>
#include <TopoDS_Edge.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Iterator.hxx>

#include <algorithm>
#include <unordered_map>

namespace meld::kernel {

namespace {

constexpr double kVolumeRelativeSlack = 1e-8;

bool heldByAnInput(const TopoDS_Shape& face, const std::vector<const BodyTopology*>& inputs) {
  return std::any_of(inputs.begin(), inputs.end(),
                     [&](const BodyTopology* input) { return input->tagOf(face) != PK_ENTITY_null; });
}

// Each edge of a closed, consistently oriented shell is used as often
// forward as reversed (a seam: both by one face), and at least once each way.
bool shellClosed(const TopoDS_Shape& shell) {
  std::unordered_map<const TopoDS_TShape*, int> balance;
  for (TopExp_Explorer faces(shell, TopAbs_FACE); faces.More(); faces.Next()) {
    for (TopExp_Explorer edges(faces.Current(), TopAbs_EDGE); edges.More(); edges.Next()) {
      const TopoDS_Edge& edge = TopoDS::Edge(edges.Current());
      if (BRep_Tool::Degenerated(edge)) continue;
      TopAbs_Orientation o = edge.Orientation();
      if (o != TopAbs_FORWARD && o != TopAbs_REVERSED) continue;  // internal or external edges
      balance[edge.TShape().get()] += o == TopAbs_FORWARD ? 1 : -1;
    }
  }
  return !balance.empty() &&
         std::all_of(balance.begin(), balance.end(), [](const auto& entry) { return entry.second == 0; });
}

}  // namespace

bool madeFacesValid(const TopoDS_Shape& result, const std::vector<const BodyTopology*>& inputs) {
  for (TopExp_Explorer ex(result, TopAbs_FACE); ex.More(); ex.Next()) {
    if (heldByAnInput(ex.Current(), inputs)) continue;
    if (!BRepCheck_Analyzer(ex.Current(), true).IsValid()) return false;
  }
  return true;
}

bool solidsClosed(const TopoDS_Shape& result) {
  int solids = 0;
  for (TopExp_Explorer ex(result, TopAbs_SOLID); ex.More(); ex.Next(), ++solids) {
    int shells = 0;
    for (TopoDS_Iterator it(ex.Current()); it.More(); it.Next()) {
      if (it.Value().ShapeType() != TopAbs_SHELL || !shellClosed(it.Value())) return false;
      ++shells;
    }
    if (shells == 0 || measure(ex.Current()).volume <= 0) return false;
  }
  return solids > 0;
}

bool volumesAgree(PK_boolean_function_t function, const Measures& target, const std::vector<Measures>& tools,
                  const Measures& result, double fuzzy) {
  double largest = target.volume, smallest = target.volume, sum = target.volume, area = target.area;
  for (const Measures& tool : tools) {
    largest = std::max(largest, tool.volume);
    smallest = std::min(smallest, tool.volume);
    sum += tool.volume;
    area += tool.area;
  }
  double slack = kVolumeRelativeSlack * sum + fuzzy * area;
  double v = result.volume;
  if (v <= 0) return false;
  switch (function) {
    case PK_boolean_unite_c: return v >= largest - slack && v <= sum + slack;
    case PK_boolean_subtract_c: return v <= target.volume + slack && v >= 2 * target.volume - sum - slack;
    case PK_boolean_intersect_c: return v <= smallest + slack;
    default: return false;
  }
}

}  // namespace meld::kernel
