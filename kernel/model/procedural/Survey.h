// Converts every procedural node of a graph and measures each result against
// its exact definition: what the corpus tests and the benchmark report.
#pragma once

#include <string>
#include <vector>

#include "NodeGraph.h"

namespace meld::model {
class GeometryCache;
}

namespace meld::model::procedural {

struct NodeReport {
  long node = 0;
  int type = 0;           // INTERSECTION or BLENDED_EDGE
  int64_t index = 0;
  bool converted = false;
  std::string error;      // why not, when not
  double deviation = 0;   // from the exact point at the same parameters
  double offSupport = 0;  // curves: from either support; blends: boundary rows from their supports
  double seconds = 0;
};

struct SurveyReport {
  std::vector<NodeReport> nodes;
  int count(int type, bool converted) const;
  double worstDeviation(int type) const;
  double worstOffSupport(int type) const;
  double seconds() const;
};

SurveyReport survey(const xt::Graph& graph);
// The same through a geometry cache that keeps the converted geometry.
SurveyReport survey(GeometryCache& cache);

}  // namespace meld::model::procedural
