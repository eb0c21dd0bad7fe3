#include "CurveApprox.h"

#include <Adaptor3d_Curve.hxx>
#include <GeomConvert_ApproxCurve.hxx>
#include <Standard_NotImplemented.hxx>
#include <TColStd_Array1OfReal.hxx>

#include <algorithm>
#include <cmath>
#include <sstream>

#include "ProceduralError.h"

namespace meld::model::procedural {

namespace {

constexpr int kMaxSegments = 1000;
constexpr int kMaxDegree = 8;
constexpr int kVerifySamples = 10;

// An exact evaluator seen by OCCT's approximation as a curve, C1 overall and
// smooth between the evaluator's breaks (where OCCT is invited to cut).
class EvalAdaptor : public Adaptor3d_Curve {
 public:
  EvalAdaptor(std::shared_ptr<const CurveEval> eval, double first, double last)
      : m_eval(std::move(eval)), m_first(first), m_last(last) {
    for (double b : m_eval->breaks())
      if (b > m_first && b < m_last) m_breaks.push_back(b);
  }
  Handle(Adaptor3d_Curve) ShallowCopy() const override { return new EvalAdaptor(m_eval, m_first, m_last); }
  double FirstParameter() const override { return m_first; }
  double LastParameter() const override { return m_last; }
  GeomAbs_Shape Continuity() const override { return GeomAbs_C1; }
  int NbIntervals(const GeomAbs_Shape s) const override {
    return s <= GeomAbs_C1 ? 1 : static_cast<int>(m_breaks.size()) + 1;
  }
  void Intervals(TColStd_Array1OfReal& t, const GeomAbs_Shape s) const override {
    int at = t.Lower();
    t(at++) = m_first;
    if (s > GeomAbs_C1)
      for (double b : m_breaks) t(at++) = b;
    t(at) = m_last;
  }
  Handle(Adaptor3d_Curve) Trim(const double first, const double last, const double) const override {
    return new EvalAdaptor(m_eval, first, last);
  }
  bool IsClosed() const override { return Value(m_first).Distance(Value(m_last)) < 1e-12; }
  bool IsPeriodic() const override { return false; }
  gp_Pnt Value(const double u) const override { return m_eval->value(u); }
  void D0(const double u, gp_Pnt& p) const override { p = m_eval->value(u); }
  void D1(const double u, gp_Pnt& p, gp_Vec& v) const override { m_eval->d1(u, p, v); }
  // Second derivative: a difference of first derivatives that stays on the
  // piece between breaks that holds u (the curve is only C1 across a break).
  void D2(const double u, gp_Pnt& p, gp_Vec& v1, gp_Vec& v2) const override {
    m_eval->d1(u, p, v1);
    auto lo = std::upper_bound(m_breaks.begin(), m_breaks.end(), u);
    const double pieceHi = lo == m_breaks.end() ? m_last : *lo;
    const double pieceLo = lo == m_breaks.begin() ? m_first : *(lo - 1);
    double h = 1e-6 * (pieceHi - pieceLo);
    if (u + h > pieceHi) h = -h;
    gp_Pnt p2;
    gp_Vec w;
    m_eval->d1(u + h, p2, w);
    v2 = (w - v1) / h;
  }
  void D3(const double u, gp_Pnt& p, gp_Vec& v1, gp_Vec& v2, gp_Vec& v3) const override {
    D2(u, p, v1, v2);
    v3 = gp_Vec(0, 0, 0);
  }
  gp_Vec DN(const double u, const int n) const override {
    gp_Pnt p;
    gp_Vec v1, v2;
    D2(u, p, v1, v2);
    if (n == 1) return v1;
    if (n == 2) return v2;
    return gp_Vec(0, 0, 0);
  }
  double Resolution(const double r3d) const override {
    gp_Pnt p;
    gp_Vec d;
    double speed = 0;
    for (int i = 0; i <= 8; ++i) {
      m_eval->d1(m_first + (m_last - m_first) * i / 8, p, d);
      speed = std::max(speed, d.Magnitude());
    }
    return speed > 0 ? r3d / speed : r3d;
  }
  GeomAbs_CurveType GetType() const override { return GeomAbs_OtherCurve; }

 private:
  std::shared_ptr<const CurveEval> m_eval;
  double m_first, m_last;
  std::vector<double> m_breaks;
};

std::vector<double> samplePieces(const CurveEval& exact, double first, double last, int perPiece) {
  std::vector<double> ends{first};
  for (double b : exact.breaks())
    if (b > first && b < last) ends.push_back(b);
  ends.push_back(last);
  std::vector<double> samples;
  for (size_t i = 0; i + 1 < ends.size(); ++i)
    for (int k = 0; k < perPiece; ++k) samples.push_back(ends[i] + (ends[i + 1] - ends[i]) * k / perPiece);
  samples.push_back(last);
  return samples;
}

CurveFit fitOnce(const std::shared_ptr<const ChartCurve>& chart, double first, double last, double tolerance) {
  Handle(Adaptor3d_Curve) adaptor = new EvalAdaptor(chart, first, last);
  GeomConvert_ApproxCurve approx(adaptor, tolerance, GeomAbs_C1, kMaxSegments, kMaxDegree);
  CurveFit fit;
  if (!approx.HasResult()) return fit;
  fit.curve = approx.Curve();
  for (double t : samplePieces(*chart, first, last, kVerifySamples))
    fit.deviation = std::max(fit.deviation, fit.curve->Value(t).Distance(chart->value(t)));
  return fit;
}

}  // namespace

double offSupports(const ChartCurve& chart, const Geom_Curve& curve) {
  double worst = 0;
  for (double t : samplePieces(chart, curve.FirstParameter(), curve.LastParameter(), kVerifySamples)) {
    const gp_Pnt p = curve.Value(t);
    for (int k = 0; k < 2; ++k)
      if (chart.definedBy(k, t)) worst = std::max(worst, std::abs(chart.distanceTo(k, p, t)));
  }
  return worst;
}

double deviationFrom(const CurveEval& exact, const Geom_Curve& curve, int samplesPerSegment) {
  double worst = 0;
  for (double t : samplePieces(exact, exact.first(), exact.last(), samplesPerSegment))
    worst = std::max(worst, curve.Value(t).Distance(exact.value(t)));
  return worst;
}

// Tries the target tolerance, then a tenth of it: the approximator's own error
// estimate is not trusted, each result is measured against the exact curve.
// Near a terminator the two supports touch, so the distance to them is not a
// measure there; the deviation from the exact point is.
CurveFit fitIntersection(const std::shared_ptr<const ChartCurve>& chart, double tolerance, double accept) {
  CurveFit best;
  double worstSeen = 0;
  // The reach past open ends is a convenience for edges that end there; where
  // the definition does not solve past the chart, the chart alone is converted.
  double first = chart->first(), last = chart->last();
  for (double tol : {tolerance, tolerance / 10}) {
    CurveFit fit;
    try {
      fit = fitOnce(chart, first, last, tol);
    } catch (const ProceduralError&) {
      if (first == chart->parameters().front() && last == chart->parameters().back()) throw;
      first = chart->parameters().front(), last = chart->parameters().back();
      fit = fitOnce(chart, first, last, tol);
    }
    if (fit.curve.IsNull()) continue;
    worstSeen = std::max(worstSeen, fit.deviation);
    if (best.curve.IsNull() || fit.deviation < best.deviation) best = fit;
    if (fit.deviation <= tolerance) break;
  }
  if (best.curve.IsNull() || best.deviation > accept) {
    std::ostringstream out;
    out << "intersection curve could not be approximated within " << accept << " m";
    if (!best.curve.IsNull()) out << " (best " << best.deviation << " m)";
    throw ProceduralError(out.str());
  }
  return best;
}

}  // namespace meld::model::procedural
