// The graph side of procedural geometry: reads INTERSECTION, CHART, LIMIT,
// BLENDED_EDGE and BLEND_BOUND nodes and builds their exact evaluators, each
// once per node. Ordinary surfaces and curves come from the geometry cache.
#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include "../GeometryCache.h"
#include "ChartCurve.h"
#include "RollingBall.h"

namespace meld::model::procedural {

// What the converters aim at and what they still accept (metres).
inline constexpr double kTargetTolerance = 1e-7;
inline constexpr double kAcceptedTolerance = 1e-6;

class Evaluators {
 public:
  explicit Evaluators(GeometryCache& cache) : m_cache(cache) {}

  // The surface node as a support: its sensed normal, its distance function.
  std::shared_ptr<const Support> support(long surfaceNode);
  // The curve node as an exact evaluator (an INTERSECTION's chart, or the OCCT curve).
  std::shared_ptr<const CurveEval> curve(long curveNode);
  std::shared_ptr<const ChartCurve> intersection(long node);
  // A BLENDED_EDGE over its whole spine, which must then be bounded.
  RollingBall rollingBall(long node, bool bounded = true);

 private:
  class Building;  // guards against a node defined in terms of itself
  std::shared_ptr<const Support> buildSupport(long node);
  std::shared_ptr<const ChartCurve> buildIntersection(long node);
  ChartData readChart(long node);
  ChartLimit readLimit(long intersection, const char* field);

  GeometryCache& m_cache;
  std::unordered_map<long, std::shared_ptr<const Support>> m_supports;
  std::unordered_map<long, std::shared_ptr<const ChartCurve>> m_intersections;
  std::vector<long> m_building;
};

}  // namespace meld::model::procedural
