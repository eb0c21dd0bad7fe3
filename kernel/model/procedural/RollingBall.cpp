#include "RollingBall.h"

#include <Approx_SweepApproximation.hxx>
#include <Approx_SweepFunction.hxx>
#include <TColStd_Array1OfInteger.hxx>
#include <TColStd_Array2OfReal.hxx>
#include <TColgp_Array2OfPnt.hxx>

#include <algorithm>
#include <array>
#include <cmath>
#include <sstream>

#include "ProceduralError.h"

namespace meld::model::procedural {

namespace {

constexpr int kStations = 64;       // seeded sections along the spine
constexpr int kVerifyAlong = 40;    // verification grid
constexpr int kVerifyAcross = 10;
constexpr int kMaxDegree = 11;
constexpr int kMaxSegments = 200;
constexpr int kMaxSegmentsC0 = 1000;
// Ends of a closed spine's blend this close are one (the fit's own error is
// larger): the surface is made periodic.
constexpr double kClosedGap = 1e-8;

// The five poles and weights of the exact arc: two rational quadratic spans of
// half the angle each.
void sectionPoles(const BallSection& s, double r, gp_Pnt poles[5], double weights[5]) {
  const double quarter = s.angle / 4, w = std::cos(quarter);
  auto dir = [&](double t) { return s.x * std::cos(t) + s.y * std::sin(t); };
  for (int i = 0; i < 5; ++i) {
    const bool middle = i % 2 == 1;
    poles[i] = s.centre.Translated(dir(quarter * i) * (middle ? r / w : r));
    weights[i] = middle ? w : 1.0;
  }
}

// Seeds for the contact searches, computed once at stations along the spine by
// following the spine from its start; every later section starts from the
// nearest station, so that an evaluation does not depend on the one before.
struct Stations {
  std::vector<double> u;
  std::vector<std::array<Seed, 2>> seeds;
  Stations(const RollingBall& ball) {
    Seed running[2];
    for (int i = 0; i <= kStations; ++i) {
      const double at = ball.first + (ball.last - ball.first) * i / kStations;
      ballSection(ball, at, running);
      u.push_back(at);
      seeds.push_back({running[0], running[1]});
    }
  }
  std::array<Seed, 2> nearest(double at) const {
    const auto it = std::lower_bound(u.begin(), u.end(), at);
    size_t i = static_cast<size_t>(it - u.begin());
    if (i == u.size() || (i > 0 && at - u[i - 1] < u[i] - at)) i = i == 0 ? 0 : i - 1;
    return seeds[i];
  }
};

class BallSweep : public Approx_SweepFunction {
 public:
  BallSweep(const RollingBall& ball, const Stations& stations) : m_ball(ball), m_stations(stations) {
    for (double b : ball.spine->breaks())
      if (b > ball.first && b < ball.last) m_breaks.push_back(b);
  }
  Standard_Boolean D0(const Standard_Real u, const Standard_Real, const Standard_Real, TColgp_Array1OfPnt& poles,
                      TColgp_Array1OfPnt2d&, TColStd_Array1OfReal& weights) override {
    auto seeds = m_stations.nearest(u);
    const BallSection s = ballSection(m_ball, u, seeds.data());
    gp_Pnt p[5];
    double w[5];
    sectionPoles(s, m_ball.radius(), p, w);
    for (int i = 0; i < 5; ++i) poles(poles.Lower() + i) = p[i], weights(weights.Lower() + i) = w[i];
    return true;
  }
  // A second-order difference on the side of u that stays inside [first, last]:
  // the section is only C1 across the spine's breaks, which are interval ends.
  Standard_Boolean D1(const Standard_Real u, const Standard_Real first, const Standard_Real last,
                      TColgp_Array1OfPnt& poles, TColgp_Array1OfVec& dPoles, TColgp_Array1OfPnt2d& p2d,
                      TColgp_Array1OfVec2d&, TColStd_Array1OfReal& weights, TColStd_Array1OfReal& dWeights) override {
    D0(u, first, last, poles, p2d, weights);
    const double h = 1e-5 * (last - first), dir = u + 2 * h <= last ? 1.0 : -1.0;
    TColgp_Array1OfPnt p1(poles.Lower(), poles.Upper()), p2(poles.Lower(), poles.Upper());
    TColStd_Array1OfReal w1(weights.Lower(), weights.Upper()), w2(weights.Lower(), weights.Upper());
    D0(u + dir * h, first, last, p1, p2d, w1);
    D0(u + dir * 2 * h, first, last, p2, p2d, w2);
    for (int i = poles.Lower(); i <= poles.Upper(); ++i) {
      dPoles(i) = (gp_Vec(poles(i).XYZ()) * -3 + gp_Vec(p1(i).XYZ()) * 4 - gp_Vec(p2(i).XYZ())) / (2 * h * dir);
      dWeights(i) = (-3 * weights(i) + 4 * w1(i) - w2(i)) / (2 * h * dir);
    }
    return true;
  }
  Standard_Integer Nb2dCurves() const override { return 0; }
  void SectionShape(Standard_Integer& nbPoles, Standard_Integer& nbKnots, Standard_Integer& degree) const override {
    nbPoles = 5, nbKnots = 3, degree = 2;
  }
  void Knots(TColStd_Array1OfReal& knots) const override {
    knots(knots.Lower()) = 0, knots(knots.Lower() + 1) = 0.5, knots(knots.Lower() + 2) = 1;
  }
  void Mults(TColStd_Array1OfInteger& mults) const override {
    mults(mults.Lower()) = 3, mults(mults.Lower() + 1) = 2, mults(mults.Lower() + 2) = 3;
  }
  Standard_Boolean IsRational() const override { return true; }
  Standard_Integer NbIntervals(const GeomAbs_Shape s) const override {
    return s <= GeomAbs_C1 ? 1 : static_cast<int>(inRange().size()) + 1;
  }
  void Intervals(TColStd_Array1OfReal& t, const GeomAbs_Shape s) const override {
    int at = t.Lower();
    t(at++) = m_ball.first;
    if (s > GeomAbs_C1)
      for (double b : inRange()) t(at++) = b;
    t(at) = m_ball.last;
  }
  void SetInterval(const Standard_Real, const Standard_Real) override {}
  void GetTolerance(const Standard_Real, const Standard_Real surfTol, const Standard_Real,
                    TColStd_Array1OfReal& tol3d) const override {
    // Pole tolerances; the weights stay above cos(pi/4), which bounds how much a
    // pole error moves the surface.
    for (int i = tol3d.Lower(); i <= tol3d.Upper(); ++i) tol3d(i) = surfTol * std::cos(M_PI / 4);
  }
  void SetTolerance(const Standard_Real, const Standard_Real) override {}
  gp_Pnt BarycentreOfSurf() const override { return m_ball.spine->value((m_ball.first + m_ball.last) / 2); }
  Standard_Real MaximalSection() const override { return 2 * m_ball.radius(); }
  void GetMinimalWeight(TColStd_Array1OfReal& weights) const override { weights.Init(std::cos(M_PI / 4)); }

 private:
  const std::vector<double>& inRange() const { return m_breaks; }
  const RollingBall& m_ball;
  const Stations& m_stations;
  std::vector<double> m_breaks;
};

Handle(Geom_BSplineSurface) sweep(const RollingBall& ball, const Stations& stations, double tolerance,
                                  GeomAbs_Shape continuity) {
  Handle(Approx_SweepFunction) function = new BallSweep(ball, stations);
  Approx_SweepApproximation approx(function);
  const int segments = continuity == GeomAbs_C0 ? kMaxSegmentsC0 : kMaxSegments;
  approx.Perform(ball.first, ball.last, tolerance, tolerance, 1e-9, 1e-6, continuity, kMaxDegree, segments);
  if (!approx.IsDone()) return {};
  int uDegree, vDegree, nbUPoles, nbVPoles, nbUKnots, nbVKnots;
  approx.SurfShape(uDegree, vDegree, nbUPoles, nbVPoles, nbUKnots, nbVKnots);
  TColgp_Array2OfPnt poles(1, nbUPoles, 1, nbVPoles);
  TColStd_Array2OfReal weights(1, nbUPoles, 1, nbVPoles);
  TColStd_Array1OfReal uKnots(1, nbUKnots), vKnots(1, nbVKnots);
  TColStd_Array1OfInteger uMults(1, nbUKnots), vMults(1, nbVKnots);
  approx.Surface(poles, weights, uKnots, vKnots, uMults, vMults);
  // The sweep runs U across the section and V along the spine; the blend's u is
  // the spine parameter.
  Handle(Geom_BSplineSurface) surface = new Geom_BSplineSurface(poles, weights, uKnots, vKnots, uMults, vMults, uDegree, vDegree);
  surface->ExchangeUV();
  return surface;
}

// The blend's natural normal points away from the ball centre.
bool orientOutward(const RollingBall& ball, Geom_BSplineSurface& surface) {
  const double u = (ball.first + ball.last) / 2;
  gp_Pnt p;
  gp_Vec du, dv;
  surface.D1(u, 0.5, p, du, dv);
  if (du.Crossed(dv).Dot(gp_Vec(ball.spine->value(u), p)) >= 0) return false;
  surface.VReverse();
  return true;
}

// A blend around a closed spine closes on itself: OCCT wants such a face on a
// surface that is periodic in that direction (it then has a seam edge), so the
// first and last rows of poles, equal up to rounding, are made one.
void closeAroundSpine(const RollingBall& ball, Geom_BSplineSurface& surface) {
  if (ball.spine->value(ball.first).Distance(ball.spine->value(ball.last)) > kClosedGap) return;
  const int last = surface.NbUPoles();
  for (int j = 1; j <= surface.NbVPoles(); ++j)
    if (surface.Pole(1, j).Distance(surface.Pole(last, j)) > kClosedGap ||
        std::abs(surface.Weight(1, j) - surface.Weight(last, j)) > 1e-9)
      return;
  for (int j = 1; j <= surface.NbVPoles(); ++j) {
    const gp_Pnt mid((surface.Pole(1, j).XYZ() + surface.Pole(last, j).XYZ()) / 2);
    const double weight = (surface.Weight(1, j) + surface.Weight(last, j)) / 2;
    surface.SetPole(1, j, mid, weight);
    surface.SetPole(last, j, mid, weight);
  }
  surface.SetUPeriodic();
}

SurfaceFit measure(const RollingBall& ball, const Stations& stations, Handle(Geom_BSplineSurface) surface, bool reversed) {
  SurfaceFit fit;
  fit.surface = surface;
  for (int i = 0; i <= kVerifyAlong; ++i) {
    const double u = ball.first + (ball.last - ball.first) * i / kVerifyAlong;
    auto seeds = stations.nearest(u);
    const BallSection s = ballSection(ball, u, seeds.data());
    fit.offsetError = std::max(fit.offsetError, s.offsetError);
    for (int j = 0; j <= kVerifyAcross; ++j) {
      const double v = double(j) / kVerifyAcross;
      if (surface.IsNull()) break;
      const gp_Pnt exact = s.at(reversed ? 1 - v : v);
      fit.deviation = std::max(fit.deviation, surface->Value(u, v).Distance(exact));
    }
  }
  return fit;
}

}  // namespace

double RollingBall::radius() const { return std::abs(range[0]); }

gp_Pnt BallSection::at(double v) const {
  // Same arc as sectionPoles, evaluated span by span.
  gp_Pnt p[5];
  double w[5];
  sectionPoles(*this, radius, p, w);
  const int span = v < 0.5 ? 0 : 1;
  const double s = span == 0 ? 2 * v : 2 * v - 1;
  const double b[3] = {(1 - s) * (1 - s), 2 * s * (1 - s), s * s};
  gp_XYZ sum(0, 0, 0);
  double weight = 0;
  for (int k = 0; k < 3; ++k) {
    sum += p[2 * span + k].XYZ() * (b[k] * w[2 * span + k]);
    weight += b[k] * w[2 * span + k];
  }
  return gp_Pnt(sum / weight);
}

BallSection ballSection(const RollingBall& ball, double u, Seed seeds[2]) {
  BallSection s;
  s.radius = ball.radius();
  s.centre = ball.spine->value(u);
  gp_Vec toContact[2];
  for (int k = 0; k < 2; ++k) {
    const SupportSample sample = ball.support[k]->evaluate(s.centre, seeds[k]);
    s.contact[k] = sample.foot;
    s.offsetError = std::max(s.offsetError, std::abs(sample.distance - ball.range[k]));
    toContact[k] = gp_Vec(s.centre, sample.foot);
    if (toContact[k].Magnitude() < 1e-12) throw ProceduralError("ball centre lies on a support");
    toContact[k].Normalize();
  }
  const gp_Vec& from = toContact[ball.spineReversed ? 1 : 0];
  const gp_Vec& to = toContact[ball.spineReversed ? 0 : 1];
  s.x = from;
  gp_Vec y = to - from * to.Dot(from);
  if (y.Magnitude() < 1e-12) {
    // Both contacts coincide where the supports become tangent (the end of a
    // vanishing blend): the section shrinks to that point. Opposite contacts
    // leave the arc's side undefined.
    if (to.Dot(from) < 0) throw ProceduralError("blend section is a half circle with no side to bulge to");
    gp_Pnt p;
    gp_Vec tangent;
    ball.spine->d1(u, p, tangent);
    y = tangent.Crossed(from);
    if (y.Magnitude() < 1e-12) y = gp_Vec(from.Y(), -from.X(), 0).Magnitude() > 0.1 ? gp_Vec(from.Y(), -from.X(), 0) : gp_Vec(0, from.Z(), -from.Y());
  }
  s.y = y / y.Magnitude();
  s.angle = std::atan2(to.Dot(s.y), to.Dot(s.x));
  if (ball.spineReversed) std::swap(s.contact[0], s.contact[1]);
  return s;
}

SurfaceFit fitRollingBall(const RollingBall& ball, double tolerance, double accept) {
  if (std::abs(std::abs(ball.range[0]) - std::abs(ball.range[1])) > 1e-9)
    throw ProceduralError("rolling ball with two different radii");
  if (!(ball.radius() > 0)) throw ProceduralError("rolling ball of zero radius");
  if (!(ball.last > ball.first)) throw ProceduralError("empty spine range");
  const Stations stations(ball);
  // The spine must sit at the blend's offsets from both supports; where it
  // does not, a support (or the spine) is not what the file meant.
  const SurfaceFit probe = measure(ball, stations, nullptr, false);
  if (probe.offsetError > accept) {
    std::ostringstream out;
    out << "spine is " << probe.offsetError << " m off its offsets from the supports";
    throw ProceduralError(out.str());
  }
  SurfaceFit best;
  // C1 first. A support that is itself only C0 (an offset of a B-surface with
  // creases) kinks the contact line; the blend is then no smoother than that
  // and a C0 surface, cut where the kinks are, is the faithful one.
  const std::pair<double, GeomAbs_Shape> attempts[] = {
      {tolerance, GeomAbs_C1}, {tolerance / 10, GeomAbs_C1}, {tolerance, GeomAbs_C0}};
  for (const auto& [tol, continuity] : attempts) {
    Handle(Geom_BSplineSurface) surface = sweep(ball, stations, tol, continuity);
    if (surface.IsNull()) continue;
    const bool reversed = orientOutward(ball, *surface);
    closeAroundSpine(ball, *surface);
    SurfaceFit fit = measure(ball, stations, surface, reversed);
    if (best.surface.IsNull() || fit.deviation < best.deviation) best = fit;
    if (fit.deviation <= tolerance) break;
  }
  if (best.surface.IsNull() || best.deviation > accept) {
    std::ostringstream out;
    out << "rolling-ball blend could not be approximated within " << accept << " m";
    if (!best.surface.IsNull()) out << " (best " << best.deviation << " m)";
    throw ProceduralError(out.str());
  }
  return best;
}

}  // namespace meld::model::procedural
