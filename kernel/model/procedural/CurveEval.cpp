#include "CurveEval.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace meld::model::procedural {

namespace {

// Distance samples for the unseeded start: enough that the nearest sample lies in
// the basin of the true nearest point for the curves blends roll along.
constexpr int kProjectionSamples = 96;
constexpr int kNewtonSteps = 40;

}  // namespace

double CurveEval::project(const gp_Pnt& point, double seed, bool seeded) const {
  const double lo = first(), hi = last();
  const bool bounded = std::isfinite(lo) && std::isfinite(hi) && hi - lo < 1e6;
  double t = seed;
  if (!seeded && bounded) {
    if (m_samples.empty() || m_sampledFirst != lo || m_sampledLast != hi) {
      m_samples.clear();
      m_sampledFirst = lo, m_sampledLast = hi;
      for (int i = 0; i <= kProjectionSamples; ++i) m_samples.push_back(value(lo + (hi - lo) * i / kProjectionSamples));
    }
    double best = std::numeric_limits<double>::max();
    for (int i = 0; i <= kProjectionSamples; ++i) {
      const double d = m_samples[static_cast<size_t>(i)].SquareDistance(point);
      if (d < best) best = d, t = lo + (hi - lo) * i / kProjectionSamples;
    }
  }
  // Newton on (C(t) - X).C'(t) = 0; the second derivative comes from a
  // difference of first derivatives, taken on the side that stays in range.
  const double span = bounded ? hi - lo : 1.0;
  gp_Vec second;
  double lastMove = 0;
  for (int step = 0; step < kNewtonSteps; ++step) {
    gp_Pnt c;
    gp_Vec d;
    d1(t, c, d);
    const gp_Vec toCurve(point, c);
    const double f = toCurve.Dot(d);
    // The second derivative changes little over the short steps after the
    // first: it is differenced again only while the steps are long (each
    // difference costs one more exact evaluation of the curve).
    if (step == 0 || lastMove > 1e-4 * span) {
      double h = 1e-6 * span;
      if (bounded && !periodic() && t + h > hi) h = -h;
      gp_Pnt c2;
      gp_Vec dd;
      d1(t + h, c2, dd);
      second = (dd - d) / h;
    }
    double fp = d.SquareMagnitude() + toCurve.Dot(second);
    if (fp <= 0.1 * d.SquareMagnitude()) fp = d.SquareMagnitude();  // away from a minimum: plain descent
    double next = t - f / fp;
    if (bounded && !periodic()) next = std::clamp(next, lo, hi);
    const double moved = std::abs(next - t);
    lastMove = moved;
    t = next;
    // The difference quotient makes the convergence nearly quadratic: after a
    // step this short the parameter is exact to rounding.
    if (moved <= 1e-15 * std::max(1.0, std::abs(t)) + 1e-11 * span) break;
  }
  return t;
}

}  // namespace meld::model::procedural
