#include "Evaluators.h"

#include <algorithm>
#include <cmath>

#include "ProceduralError.h"

namespace meld::model::procedural {

namespace {

[[noreturn]] void bad(const NodeAccess& n, long node, const std::string& why) {
  throw ModelError(PK_ERROR_bad_geometry, "cannot build " + n.describe(node) + ": " + why);
}

double finiteReal(const NodeAccess& n, long node, std::string_view field, size_t element = 0) {
  const double value = n.real(node, field, element);
  if (!std::isfinite(value)) bad(n, node, std::string(field) + " is null");
  return value;
}

}  // namespace

class Evaluators::Building {
 public:
  Building(Evaluators& owner, long node) : m_owner(owner) {
    auto& stack = owner.m_building;
    if (std::find(stack.begin(), stack.end(), node) != stack.end())
      bad(owner.m_cache.nodes(), node, "it is defined in terms of itself");
    stack.push_back(node);
  }
  ~Building() { m_owner.m_building.pop_back(); }
  Building(const Building&) = delete;
  Building& operator=(const Building&) = delete;

 private:
  Evaluators& m_owner;
};

std::shared_ptr<const Support> Evaluators::support(long node) {
  if (auto it = m_supports.find(node); it != m_supports.end()) return it->second;
  Building guard(*this, node);
  auto built = buildSupport(node);
  m_supports.emplace(node, built);
  return built;
}

std::shared_ptr<const Support> Evaluators::buildSupport(long node) {
  const NodeAccess& n = m_cache.nodes();
  switch (n.type(node)) {
    case kBlendedEdge: {
      // As a support a blend is the whole tube of its ball; its natural normal
      // points away from the spine.
      // Its spine may be unbounded (a cliff edge's zero-radius support rolls
      // along a line): a support needs no range.
      const RollingBall ball = rollingBall(node, false);
      return std::make_shared<BlendTubeSupport>(ball.spine, ball.radius(), m_cache.sense(node));
    }
    case kBlendBound: {
      // Bound b belongs to support 1 - b of its blend: it meets that support
      // along the blend's contact line there.
      const long blend = n.require(node, "blend", PK_ERROR_bad_geometry);
      if (n.type(blend) != kBlendedEdge) bad(n, node, "blend is not a BLENDED_EDGE");
      const int64_t b = n.integer(node, "boundary", -1);
      if (b != 0 && b != 1) bad(n, node, "boundary is neither 0 nor 1");
      const size_t own = static_cast<size_t>(1 - b), other = static_cast<size_t>(b);
      const long ownNode = n.ptr(blend, "surface", own), otherNode = n.ptr(blend, "surface", other);
      if (ownNode == kNone || otherNode == kNone) bad(n, blend, "a support is missing");
      return std::make_shared<BlendBoundSupport>(support(ownNode), finiteReal(n, blend, "range", own),
                                                 support(otherNode), finiteReal(n, blend, "range", other));
    }
    default: {
      const int sign = m_cache.sense(node) * (m_cache.reversesNormal(node) ? -1 : 1);
      return std::make_shared<SurfaceSupport>(m_cache.surface(node), sign);
    }
  }
}

std::shared_ptr<const CurveEval> Evaluators::curve(long node) {
  if (m_cache.nodes().type(node) == kIntersection) return intersection(node);
  return std::make_shared<GeomCurveEval>(m_cache.curve(node));
}

std::shared_ptr<const ChartCurve> Evaluators::intersection(long node) {
  if (auto it = m_intersections.find(node); it != m_intersections.end()) return it->second;
  Building guard(*this, node);
  auto built = buildIntersection(node);
  m_intersections.emplace(node, built);
  return built;
}

ChartLimit Evaluators::readLimit(long node, const char* field) {
  const NodeAccess& n = m_cache.nodes();
  ChartLimit limit;
  const long at = n.ptr(node, field);
  if (at == kNone) return limit;
  limit.type = n.character(at, "type");
  limit.termUse = n.character(at, "term_use");
  if (limit.type == 'T') {
    const xt::FieldView hvec = n.view(at, "hvec");
    if (hvec.reals.size() < 6 || hvec.isNull()) bad(n, node, std::string(field) + " terminator without its two points");
    limit.singular = gp_Pnt(hvec.reals[0], hvec.reals[1], hvec.reals[2]);
    if (!std::isfinite(limit.singular.X() + limit.singular.Y() + limit.singular.Z()))
      bad(n, node, std::string(field) + " terminator point is not finite");
  }
  return limit;
}

ChartData Evaluators::readChart(long node) {
  const NodeAccess& n = m_cache.nodes();
  const long chartNode = n.require(node, "chart", PK_ERROR_bad_geometry);
  ChartData chart;
  chart.baseParameter = finiteReal(n, chartNode, "base_parameter");
  chart.baseScale = finiteReal(n, chartNode, "base_scale");
  const xt::FieldView hvec = n.view(chartNode, "hvec");
  const int64_t count = n.integer(chartNode, "chart_count", -1);
  if (count < 2 || static_cast<size_t>(count) * 3 != hvec.reals.size()) bad(n, chartNode, "chart_count does not match its points");
  for (int64_t i = 0; i < count; ++i) {
    const double* p = hvec.reals.data() + 3 * i;
    if (p[0] == xt::kNullReal || !std::isfinite(p[0]) || !std::isfinite(p[1]) || !std::isfinite(p[2]))
      bad(n, chartNode, "null chart point");
    chart.points.emplace_back(p[0], p[1], p[2]);
  }
  chart.start = readLimit(node, "start");
  chart.end = readLimit(node, "end");
  return chart;
}

std::shared_ptr<const ChartCurve> Evaluators::buildIntersection(long node) {
  const NodeAccess& n = m_cache.nodes();
  ChartData chart = readChart(node);
  std::shared_ptr<const Support> supports[2];
  for (size_t k = 0; k < 2; ++k) {
    const long s = n.ptr(node, "surface", k);
    if (s == kNone) bad(n, node, "surface " + std::to_string(k) + " is null");
    chart.boundSupport[k] = n.type(s) == kBlendBound;
    supports[k] = support(s);
  }
  try {
    return std::make_shared<ChartCurve>(supports[0], supports[1], chart);
  } catch (const ProceduralError& e) {
    bad(n, node, std::string(e.what()) + " (surface 0: " + n.describe(n.ptr(node, "surface", 0)) +
                     ", surface 1: " + n.describe(n.ptr(node, "surface", 1)) + ")");
  }
}

RollingBall Evaluators::rollingBall(long node, bool bounded) {
  const NodeAccess& n = m_cache.nodes();
  if (n.type(node) != kBlendedEdge) bad(n, node, "not a BLENDED_EDGE");
  const char type = n.character(node, "blend_type");
  if (type != 'R' && type != 'E') bad(n, node, std::string("blend type '") + type + "' is not a rolling ball or cliff edge");
  if (n.ptr(node, "start") != kNone || n.ptr(node, "end") != kNone) bad(n, node, "blends with limits are not converted");
  RollingBall ball;
  const long spine = n.require(node, "spine", PK_ERROR_bad_geometry);
  ball.spine = curve(spine);
  ball.spineReversed = m_cache.sense(spine) < 0;
  for (size_t k = 0; k < 2; ++k) {
    const long s = n.ptr(node, "surface", k);
    if (s == kNone) bad(n, node, "surface " + std::to_string(k) + " is null");
    ball.support[k] = support(s);
    ball.range[k] = finiteReal(n, node, "range", k);
  }
  ball.first = ball.spine->first();
  ball.last = ball.spine->last();
  if (auto chart = std::dynamic_pointer_cast<const ChartCurve>(ball.spine)) {
    // The ball rolls along the chart itself, not along its reach past open ends.
    ball.first = chart->parameters().front();
    ball.last = chart->parameters().back();
  }
  if (bounded && !(ball.last - ball.first < 1e6)) bad(n, node, "spine is unbounded");
  return ball;
}

}  // namespace meld::model::procedural
