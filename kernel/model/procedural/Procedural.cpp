// Intersection curves become C1 B-splines in their chart parametrisation;
// rolling-ball and cliff-edge blends become rational B-spline surfaces over
// their whole spine. Both are checked against the exact definition before they
// are handed out; the geometry cache keeps the result per node.
#include "Procedural.h"

#include <Standard_Failure.hxx>

#include <algorithm>

#include "CurveApprox.h"
#include "Evaluators.h"
#include "ProceduralError.h"

namespace meld::model {

procedural::Evaluators& GeometryCache::proceduralEvaluators() {
  if (!m_procedural) m_procedural = std::make_shared<procedural::Evaluators>(*this);
  return *m_procedural;
}

}  // namespace meld::model

namespace meld::model::procedural {

namespace {

// Runs one conversion; a failure of the evaluators or of OCCT becomes a
// ModelError naming the node (errors of nodes it rests on already name theirs).
template <class Build>
auto named(GeometryCache& cache, long node, Build&& build) -> decltype(build()) {
  try {
    return build();
  } catch (const ModelError&) {
    throw;
  } catch (const ProceduralError& e) {
    throw ModelError(PK_ERROR_bad_geometry, "cannot build " + cache.nodes().describe(node) + ": " + e.what());
  } catch (const Standard_Failure& e) {
    throw ModelError(PK_ERROR_bad_geometry,
                     "cannot build " + cache.nodes().describe(node) + ": OCCT failed: " + e.GetMessageString());
  }
}

}  // namespace

Handle(Geom_Curve) convertCurve(GeometryCache& cache, long node) {
  if (cache.nodes().type(node) != kIntersection) return nullptr;
  return named(cache, node, [&]() -> Handle(Geom_Curve) {
    auto chart = cache.proceduralEvaluators().intersection(node);
    return fitIntersection(chart, kTargetTolerance, kAcceptedTolerance).curve;
  });
}

Handle(Geom_Surface) convertSurface(GeometryCache& cache, long node) {
  switch (cache.nodes().type(node)) {
    case kBlendedEdge:
      return named(cache, node, [&]() -> Handle(Geom_Surface) {
        const RollingBall ball = cache.proceduralEvaluators().rollingBall(node);
        return fitRollingBall(ball, kTargetTolerance, kAcceptedTolerance).surface;
      });
    case kBlendBound:
      throw ModelError(PK_ERROR_bad_geometry, "cannot build " + cache.nodes().describe(node) +
                                                  ": a blend bound only defines curves, it is never a face's surface");
    default:
      return nullptr;
  }
}

}  // namespace meld::model::procedural
