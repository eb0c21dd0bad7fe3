#include "Survey.h"

#include <Standard_ErrorHandler.hxx>
#include <Standard_Failure.hxx>

#include <algorithm>
#include <chrono>

#include "../GeometryCache.h"
#include "CurveApprox.h"
#include "Evaluators.h"
#include "ProceduralError.h"

namespace meld::model::procedural {

namespace {

// Distance of the boundary rows of a converted blend to the supports they
// should lie on (whichever way round the orientation put them).
double rowsOffSupports(const RollingBall& ball, const Geom_Surface& surface) {
  double asIs = 0, swapped = 0;
  Seed seeds[2][2];
  for (int i = 0; i <= 40; ++i) {
    const double u = ball.first + (ball.last - ball.first) * i / 40;
    const gp_Pnt row[2] = {surface.Value(u, 0), surface.Value(u, 1)};
    for (int r = 0; r < 2; ++r) {
      asIs = std::max(asIs, std::abs(ball.support[r]->evaluate(row[r], seeds[0][r]).distance));
      swapped = std::max(swapped, std::abs(ball.support[1 - r]->evaluate(row[r], seeds[1][r]).distance));
    }
  }
  return std::min(asIs, swapped);
}

void convertOne(GeometryCache& cache, NodeReport& report) {
  Evaluators& eval = cache.proceduralEvaluators();
  if (report.type == kIntersection) {
    const auto chart = eval.intersection(report.node);
    const CurveFit fit = fitIntersection(chart, kTargetTolerance, kAcceptedTolerance);
    report.deviation = fit.deviation, report.offSupport = offSupports(*chart, *fit.curve);
    cache.keep(report.node, fit.curve);
  } else {
    const RollingBall ball = eval.rollingBall(report.node);
    const SurfaceFit fit = fitRollingBall(ball, kTargetTolerance, kAcceptedTolerance);
    report.deviation = fit.deviation;
    report.offSupport = rowsOffSupports(ball, *fit.surface);
    cache.keep(report.node, fit.surface);
  }
  report.converted = true;
}

}  // namespace

int SurveyReport::count(int type, bool converted) const {
  return static_cast<int>(std::count_if(nodes.begin(), nodes.end(), [&](const NodeReport& r) { return r.type == type && r.converted == converted; }));
}

double SurveyReport::worstDeviation(int type) const {
  double worst = 0;
  for (const NodeReport& r : nodes)
    if (r.type == type && r.converted) worst = std::max(worst, r.deviation);
  return worst;
}

double SurveyReport::worstOffSupport(int type) const {
  double worst = 0;
  for (const NodeReport& r : nodes)
    if (r.type == type && r.converted) worst = std::max(worst, r.offSupport);
  return worst;
}

double SurveyReport::seconds() const {
  double sum = 0;
  for (const NodeReport& r : nodes) sum += r.seconds;
  return sum;
}

SurveyReport survey(const xt::Graph& graph) {
  GeometryCache cache(graph);
  return survey(cache);
}

SurveyReport survey(GeometryCache& cache) {
  const xt::Graph& graph = cache.graph();
  SurveyReport out;
  for (size_t i = 0; i < graph.size(); ++i) {
    const int type = graph.nodes()[i].type;
    if (type != kIntersection && type != kBlendedEdge) continue;
    // A blend that is no face's surface (the zero-radius support of a cliff
    // edge, a construction surface of curves) only ever serves as a support.
    const long owner = cache.nodes().ptr(static_cast<long>(i), "owner");
    if (type == kBlendedEdge && (owner == kNone || cache.nodes().type(owner) != kFace)) continue;
    NodeReport report;
    report.node = static_cast<long>(i), report.type = type, report.index = graph.nodes()[i].index;
    const auto start = std::chrono::steady_clock::now();
    try {
      OCC_CATCH_SIGNALS
      convertOne(cache, report);
    } catch (const ModelError& e) {
      report.error = e.what();
    } catch (const ProceduralError& e) {
      report.error = cache.nodes().describe(report.node) + ": " + e.what();
    } catch (const Standard_Failure& e) {
      report.error = cache.nodes().describe(report.node) + ": OCCT failed: " + e.GetMessageString();
    }
    report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    out.nodes.push_back(std::move(report));
  }
  return out;
}

}  // namespace meld::model::procedural
