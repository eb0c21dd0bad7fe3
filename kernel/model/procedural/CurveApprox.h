// Turning an exact curve evaluator into a B-spline within a tolerance, and
// checking the result against the evaluator rather than trusting the
// approximator's own error estimate.
#pragma once

#include <Geom_BSplineCurve.hxx>

#include <memory>

#include "ChartCurve.h"

namespace meld::model::procedural {

struct CurveFit {
  Handle(Geom_BSplineCurve) curve;
  double deviation = 0;  // largest distance found to the exact point at the same parameter
};

// Approximates the whole chart as a C1 B-spline with the chart's parametrisation,
// aiming at `tolerance` and accepting up to `accept`. Throws ProceduralError.
CurveFit fitIntersection(const std::shared_ptr<const ChartCurve>& chart, double tolerance, double accept);

// Largest distance of `curve` from either support where that support defines
// `chart`, at the samples the fit was checked at (a measure for reports: the fit
// is accepted on its deviation).
double offSupports(const ChartCurve& chart, const Geom_Curve& curve);

// Largest deviation of `curve` from `exact` over samplesPerSegment points on
// each piece between consecutive breaks of `exact`.
double deviationFrom(const CurveEval& exact, const Geom_Curve& curve, int samplesPerSegment);

}  // namespace meld::model::procedural
