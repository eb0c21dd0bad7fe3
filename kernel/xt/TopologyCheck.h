// Checks that the topology of a decoded XT graph is consistent: the rings and back
// pointers between faces, loops, fins, edges and vertices close, fins agree with
// their edges' ends, and each solid body obeys the Euler-Poincare formula. Run on
// what we write and on real files, so that what we assume about the format is tested
// against what real writers do.
#pragma once

#include <string>
#include <vector>

#include "NodeGraph.h"

namespace meld::xt {

// What the checker counted in one body.
struct BodyCounts {
  int64_t bodyIndex = 0;
  int bodyType = 0;  // 1 solid, 2 wire, 3 sheet, 6 general
  int regions = 0;
  int solidShells = 0;  // shells of solid regions: one per connected boundary
  int faces = 0;
  int loops = 0;
  int fins = 0;  // fins in loops (dummy fins are not counted)
  int edges = 0;
  int vertices = 0;
  int ringEdges = 0;  // closed edges without a vertex (circles)
};

struct TopologyReport {
  std::vector<BodyCounts> bodies;
  std::vector<std::string> problems;  // one line each, naming the node and the broken rule
  bool ok() const { return problems.empty(); }
};

// Checks every BODY of the graph. Never throws on bad data: what does not hold
// becomes a problem line (walks are bounded, missing fields read as null).
TopologyReport checkTopology(const Graph& graph);

}  // namespace meld::xt
