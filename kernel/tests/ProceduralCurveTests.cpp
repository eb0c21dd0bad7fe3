// Intersection curves built from a chart of points on surfaces made here, where
// the true curve is known: every converted point must lie on both supports and
// the parametrisation must follow the chart.
#include <gtest/gtest.h>

#include <GeomAbs_Shape.hxx>
#include <Geom_CylindricalSurface.hxx>
#include <Geom_Plane.hxx>
#include <gp_Ax3.hxx>

#include <cmath>
#include <functional>

#include "model/procedural/ChartCurve.h"
#include "model/procedural/CurveApprox.h"
#include "model/procedural/ProceduralError.h"

using namespace meld::model::procedural;

namespace {

constexpr double kPi = 3.14159265358979323846;

std::shared_ptr<const Support> cylinder(const gp_Pnt& origin, const gp_Dir& axis, double radius, int sign = 1) {
  return std::make_shared<SurfaceSupport>(new Geom_CylindricalSurface(gp_Ax3(origin, axis), radius), sign);
}

std::shared_ptr<const Support> plane(const gp_Pnt& origin, const gp_Dir& normal, int sign = 1) {
  return std::make_shared<SurfaceSupport>(new Geom_Plane(origin, normal), sign);
}

ChartData chartOf(const std::function<gp_Pnt(double)>& curve, double from, double to, int count) {
  ChartData chart;
  chart.baseParameter = 2.5;
  chart.baseScale = 3.0;
  for (int i = 0; i < count; ++i) chart.points.push_back(curve(from + (to - from) * i / (count - 1)));
  return chart;
}

// Distances to both supports of the exact curve, and of a fitted curve, at
// `perSegment` samples of every chart segment.
double worstOffSupports(const ChartCurve& chart, const std::function<gp_Pnt(double)>& at, int perSegment = 10) {
  double worst = 0;
  const auto& t = chart.parameters();
  for (size_t i = 0; i + 1 < t.size(); ++i)
    for (int k = 0; k <= perSegment; ++k) {
      const double s = t[i] + (t[i + 1] - t[i]) * k / perSegment;
      const gp_Pnt p = at(s);
      for (int j = 0; j < 2; ++j) worst = std::max(worst, std::abs(chart.distanceTo(j, p, s)));
    }
  return worst;
}

// Cylinder of radius 1 about z cut by the plane z = y tan 30deg: half an ellipse,
// charted coarsely (30 degrees between points), as real files do.
struct CylinderPlane {
  double slope = std::tan(kPi / 6);
  std::shared_ptr<const Support> s0 = cylinder(gp::Origin(), gp::DZ(), 1.0);
  std::shared_ptr<const Support> s1 = plane(gp::Origin(), gp_Dir(0, -slope, 1));
  gp_Pnt at(double phi) const { return gp_Pnt(std::cos(phi), std::sin(phi), std::sin(phi) * slope); }
  ChartData chart() const { return chartOf([this](double phi) { return at(phi); }, 0, kPi, 7); }
};

}  // namespace

TEST(IntersectionCurve, FollowsBothSupportsBetweenChartPointsOnAC1Parameter) {
  CylinderPlane c;
  auto curve = std::make_shared<ChartCurve>(c.s0, c.s1, c.chart());
  const auto& t = curve->parameters();
  ASSERT_EQ(t.size(), 7u);
  EXPECT_DOUBLE_EQ(t.front(), 2.5);
  for (size_t i = 0; i < t.size(); ++i) EXPECT_LT(curve->value(t[i]).Distance(c.chart().points[i]), 1e-15);
  EXPECT_LT(worstOffSupports(*curve, [&](double s) { return curve->value(s); }), 1e-12);
  // Halfway in parameter is halfway along the chord (the plane through the chord
  // point), so the middle of a segment is not the middle of the arc in general.
  const double mid = (t[1] + t[2]) / 2;
  const gp_Pnt q = c.chart().points[1].XYZ() * 0.5 + c.chart().points[2].XYZ() * 0.5;
  const gp_Vec chord(c.chart().points[1], c.chart().points[2]);
  EXPECT_NEAR(gp_Vec(q, curve->value(mid)).Dot(chord), 0, 1e-14);
  // The parameter is C1 at chart points and runs with the chart; the first
  // chord is scaled by the base scale.
  EXPECT_NEAR(t[1] - t[0], 3.0 * c.at(0).Distance(c.at(kPi / 6)), 1e-14);
  for (size_t i = 1; i + 1 < t.size(); ++i) {
    const double h = 1e-6;
    gp_Pnt p;
    gp_Vec d;
    curve->d1(t[i], p, d);
    const gp_Vec left(curve->value(t[i] - h), p), right(p, curve->value(t[i] + h));
    EXPECT_LT((left / h - d).Magnitude(), 1e-5 * d.Magnitude()) << "node " << i;
    EXPECT_LT((right / h - d).Magnitude(), 1e-5 * d.Magnitude()) << "node " << i;
    EXPECT_GT(d.Dot(gp_Vec(c.chart().points[i], c.chart().points[i + 1])), 0);
  }
}

TEST(IntersectionCurve, FitIsC1AndWithinTolerance) {
  CylinderPlane c;
  auto curve = std::make_shared<ChartCurve>(c.s0, c.s1, c.chart());
  const CurveFit fit = fitIntersection(curve, 1e-7, 1e-6);
  ASSERT_FALSE(fit.curve.IsNull());
  EXPECT_LE(fit.deviation, 1e-7);
  EXPECT_LE(offSupports(*curve, *fit.curve), 1e-7);
  EXPECT_LE(deviationFrom(*curve, *fit.curve, 37), 1e-7);
  EXPECT_GE(fit.curve->Continuity(), GeomAbs_C1);
  EXPECT_DOUBLE_EQ(fit.curve->FirstParameter(), curve->first());
  EXPECT_DOUBLE_EQ(fit.curve->LastParameter(), curve->last());
  EXPECT_LT(worstOffSupports(*curve, [&](double s) { return fit.curve->Value(s); }, 23), 1e-7);
}

TEST(IntersectionCurve, ClosedRingOfTwoCylindersClosesOnItself) {
  // Radius 0.5 about x through a radius-1 cylinder about z: a closed ring at x > 0.
  auto s0 = cylinder(gp::Origin(), gp::DZ(), 1.0);
  auto s1 = cylinder(gp::Origin(), gp::DX(), 0.5);
  auto at = [](double psi) {
    const double y = 0.5 * std::cos(psi), z = 0.5 * std::sin(psi);
    return gp_Pnt(std::sqrt(1 - y * y), y, z);
  };
  ChartData chart = chartOf(at, 0, 2 * kPi, 9);
  chart.points.back() = chart.points.front();
  chart.start.type = chart.end.type = 'H';
  auto curve = std::make_shared<ChartCurve>(s0, s1, chart);
  EXPECT_TRUE(curve->closed());
  EXPECT_EQ(curve->segments(), 8u);
  EXPECT_LT(worstOffSupports(*curve, [&](double s) { return curve->value(s); }), 1e-12);
  const CurveFit fit = fitIntersection(curve, 1e-7, 1e-6);
  EXPECT_LE(fit.deviation, 1e-7);
  EXPECT_LT(fit.curve->Value(fit.curve->FirstParameter()).Distance(fit.curve->Value(fit.curve->LastParameter())), 1e-9);
  EXPECT_LT(worstOffSupports(*curve, [&](double s) { return fit.curve->Value(s); }, 17), 1e-7);
}

TEST(IntersectionCurve, TerminatorPieceReachesTheSingularPoint) {
  // Two unit cylinders about y and x touch at (0, 0, 1); the branch y = x runs
  // from there. The chart starts just beyond the singular point.
  auto s0 = cylinder(gp::Origin(), gp::DY(), 1.0);
  auto s1 = cylinder(gp::Origin(), gp::DX(), 1.0);
  auto at = [](double x) { return gp_Pnt(x, x, std::sqrt(1 - x * x)); };
  ChartData chart = chartOf(at, 0.05, 0.95, 5);
  chart.start.type = 'T';
  chart.start.termUse = 'F';
  chart.start.singular = gp_Pnt(0, 0, 1);
  auto curve = std::make_shared<ChartCurve>(s0, s1, chart);
  ASSERT_EQ(curve->parameters().size(), 6u);
  EXPECT_LT(curve->first(), 2.5);
  EXPECT_LT(curve->value(curve->first()).Distance(gp_Pnt(0, 0, 1)), 1e-15);
  const double t0 = curve->parameters()[0], t1 = curve->parameters()[1];
  for (int k = 1; k < 10; ++k) {
    const gp_Pnt p = curve->value(t0 + (t1 - t0) * k / 10);
    EXPECT_NEAR(p.X(), p.Y(), 1e-12);
    EXPECT_NEAR(p.X() * p.X() + p.Z() * p.Z(), 1, 1e-12);
  }
  const CurveFit fit = fitIntersection(curve, 1e-7, 1e-6);
  EXPECT_LE(fit.deviation, 1e-7);
}

TEST(IntersectionCurve, ChartPointsOffTheSupportsAreMovedOntoThemOrRefusedAndEndsMoveHoweverFar) {
  // A small error (an extended surface the writer evaluated differently) is
  // corrected by the shortest move onto both supports; a point that would have
  // to move by a good part of the chart's spacing is refused.
  CylinderPlane c;
  ChartData chart = c.chart();
  chart.points[3].SetZ(chart.points[3].Z() + 1e-4);
  auto curve = std::make_shared<ChartCurve>(c.s0, c.s1, chart);
  EXPECT_NEAR(curve->shifts()[3], 1e-4, 1e-9);  // across the curve, which runs along x there
  EXPECT_EQ(curve->shifts()[2], 0.0);
  EXPECT_LT(worstOffSupports(*curve, [&](double s) { return curve->value(s); }), 1e-12);
  chart.points[3].SetZ(chart.points[3].Z() + 0.3);
  try {
    ChartCurve refused(c.s0, c.s1, chart);
    FAIL() << "accepted a chart point far off its supports";
  } catch (const ProceduralError& e) {
    EXPECT_NE(std::string(e.what()).find("chart point 3"), std::string::npos) << e.what();
  }
  chart = c.chart();
  chart.points.resize(1);
  EXPECT_THROW(ChartCurve(c.s0, c.s1, chart), ProceduralError);

  // Ends are where charts run past a support's extent: an end point moves
  // however far, and the points before it keep their parameters.
  const ChartCurve exact(c.s0, c.s1, c.chart());
  chart = c.chart();
  chart.points.back().SetZ(chart.points.back().Z() + 0.02);
  const ChartCurve moved(c.s0, c.s1, chart);
  EXPECT_GT(moved.shifts().back(), 0.01);
  ASSERT_EQ(moved.parameters().size(), 7u);
  for (size_t i = 0; i < 6; ++i) EXPECT_DOUBLE_EQ(moved.parameters()[i], exact.parameters()[i]);
  EXPECT_LT(worstOffSupports(moved, [&](double s) { return moved.value(s); }), 1e-12);
}
