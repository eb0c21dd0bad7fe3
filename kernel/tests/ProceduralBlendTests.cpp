// Rolling-ball blends and blend bounds on supports made here: the converted
// surface must be the arc of the ball that touches both supports, its rows at
// v = 0 and v = 1 the contact lines, and its normal must point away from the
// ball centre.
#include <gtest/gtest.h>

#include <GC_MakeCircle.hxx>
#include <Geom_Circle.hxx>
#include <Geom_CylindricalSurface.hxx>
#include <Geom_Line.hxx>
#include <Geom_Plane.hxx>
#include <Geom_TrimmedCurve.hxx>
#include <gp_Ax3.hxx>

#include <cmath>

#include "model/procedural/ChartCurve.h"
#include "model/procedural/CurveApprox.h"
#include "model/procedural/ProceduralError.h"
#include "model/procedural/RollingBall.h"

using namespace meld::model::procedural;

namespace {

constexpr double kPi = 3.14159265358979323846;

std::shared_ptr<const Support> plane(const gp_Pnt& origin, const gp_Dir& normal) {
  return std::make_shared<SurfaceSupport>(new Geom_Plane(origin, normal), 1);
}

struct BlendCheck {
  double tube = 0, row0 = 0, row1 = 0, tangency = 0;
  bool outward = true;
};

// Samples the surface: distance of every point from the ball centre at its u,
// boundary rows on their supports, surface normal there parallel to the
// support's normal, natural normal away from the centre. Which support the row
// v = 0 lies on follows from the orientation; it is taken from the first sample.
void expectTheBallsArc(const RollingBall& ball, const SurfaceFit& fit) {
  EXPECT_LE(fit.deviation, 1e-7);
  const Geom_Surface& surface = *fit.surface;
  Seed first;
  const int rowSupport0 = std::abs(ball.support[0]->evaluate(surface.Value(ball.first, 0), first).distance) < 1e-6 ? 0 : 1;
  BlendCheck c;
  for (int i = 0; i <= 30; ++i) {
    const double u = ball.first + (ball.last - ball.first) * i / 30;
    const gp_Pnt centre = ball.spine->value(u);
    for (int j = 0; j <= 8; ++j) {
      const double v = j / 8.0;
      gp_Pnt p;
      gp_Vec du, dv;
      surface.D1(u, v, p, du, dv);
      c.tube = std::max(c.tube, std::abs(p.Distance(centre) - ball.radius()));
      const gp_Vec n = du.Crossed(dv);
      if (n.Dot(gp_Vec(centre, p)) <= 0) c.outward = false;
      if (j == 0 || j == 8) {
        Seed seed;
        const int k = j == 0 ? rowSupport0 : 1 - rowSupport0;
        const SupportSample s = ball.support[k]->evaluate(p, seed);
        (j == 0 ? c.row0 : c.row1) = std::max(j == 0 ? c.row0 : c.row1, std::abs(s.distance));
        c.tangency = std::max(c.tangency, n.Normalized().Crossed(s.normal).Magnitude());
      }
    }
  }
  EXPECT_LT(c.tube, 1e-7);
  EXPECT_LT(c.row0, 1e-7);
  EXPECT_LT(c.row1, 1e-7);
  EXPECT_LT(c.tangency, 1e-6);
  EXPECT_TRUE(c.outward);
}

// A 10 mm ball in the corner between z = 0 and x = 0, rolling along y.
RollingBall cornerBall(double r = 0.01) {
  RollingBall ball;
  ball.spine = std::make_shared<GeomCurveEval>(new Geom_Line(gp_Pnt(r, 0, r), gp::DY()));
  ball.support[0] = plane(gp::Origin(), gp::DZ());
  ball.support[1] = plane(gp::Origin(), gp::DX());
  ball.range[0] = ball.range[1] = r;
  ball.first = -0.05, ball.last = 0.1;
  return ball;
}

// A 10 mm fillet between a 50 mm cylinder about z and the plane z = 0, outside
// the cylinder: the ball centre runs on a circle of radius 60 mm at z = 10 mm.
RollingBall filletBall(std::shared_ptr<const CurveEval> spine) {
  RollingBall ball;
  ball.spine = std::move(spine);
  ball.support[0] = std::make_shared<SurfaceSupport>(new Geom_CylindricalSurface(gp_Ax3(gp::Origin(), gp::DZ()), 0.05), 1);
  ball.support[1] = plane(gp::Origin(), gp::DZ());
  ball.range[0] = ball.range[1] = 0.01;
  ball.first = ball.spine->first(), ball.last = ball.spine->last();
  return ball;
}

}  // namespace

TEST(RollingBallBlend, CornerOfTwoPlanesIsAQuarterCylinderWhicheverWayTheSpineRuns) {
  RollingBall ball = cornerBall();
  Seed seeds[2];
  const BallSection s = ballSection(ball, 0.02, seeds);
  EXPECT_NEAR(s.angle, kPi / 2, 1e-12);
  EXPECT_LT(s.contact[0].Distance(gp_Pnt(0.01, 0.02, 0)), 1e-15);
  EXPECT_LT(s.contact[1].Distance(gp_Pnt(0, 0.02, 0.01)), 1e-15);
  EXPECT_LT(s.offsetError, 1e-15);
  EXPECT_LT(s.at(0.5).Distance(gp_Pnt(0.01 - 0.01 / std::sqrt(2.0), 0.02, 0.01 - 0.01 / std::sqrt(2.0))), 1e-15);

  const SurfaceFit plain = fitRollingBall(ball, 1e-7, 1e-6);
  expectTheBallsArc(ball, plain);
  double u1, u2, v1, v2;
  plain.surface->Bounds(u1, u2, v1, v2);
  EXPECT_DOUBLE_EQ(u1, -0.05);
  EXPECT_DOUBLE_EQ(u2, 0.1);
  // The section runs from support 0 to 1 (1 to 0 for a reversed spine); the
  // outward normal then fixes v, so both give the same surface.
  ball.spineReversed = true;
  const SurfaceFit reversed = fitRollingBall(ball, 1e-7, 1e-6);
  for (double u : {-0.05, 0.0, 0.1})
    for (double v : {0.0, 0.25, 1.0}) EXPECT_LT(plain.surface->Value(u, v).Distance(reversed.surface->Value(u, v)), 1e-7);
  // With u along the spine, v from the floor (support 0) up the wall would point
  // the normal at the ball centre: the surface starts on the wall.
  EXPECT_NEAR(plain.surface->Value(0, 0).X(), 0, 1e-7);
}

// A fillet of a cylinder and a plane, its spine a circle and the same circle
// given as the intersection of the offset supports (cylinder of 60 mm, plane
// z = 10 mm), charted every 45 degrees.
TEST(RollingBallBlend, FilletOfCylinderAndPlaneOnACircularOrAnIntersectionSpine) {
  Handle(Geom_Circle) circle = new Geom_Circle(gp_Ax2(gp_Pnt(0, 0, 0.01), gp::DZ()), 0.06);
  const RollingBall onCircle = filletBall(std::make_shared<GeomCurveEval>(circle));
  expectTheBallsArc(onCircle, fitRollingBall(onCircle, 1e-7, 1e-6));

  auto s0 = std::make_shared<SurfaceSupport>(new Geom_CylindricalSurface(gp_Ax3(gp::Origin(), gp::DZ()), 0.06), 1);
  auto s1 = plane(gp_Pnt(0, 0, 0.01), gp::DZ());
  ChartData chart;
  for (int i = 0; i <= 8; ++i)
    chart.points.emplace_back(0.06 * std::cos(i * kPi / 4), 0.06 * std::sin(i * kPi / 4), 0.01);
  chart.start.type = chart.end.type = 'H';
  const RollingBall onChart = filletBall(std::make_shared<ChartCurve>(s0, s1, chart));
  const SurfaceFit fit = fitRollingBall(onChart, 1e-7, 1e-6);
  EXPECT_LT(fit.offsetError, 1e-12);
  expectTheBallsArc(onChart, fit);
}

TEST(RollingBallBlend, RefusesBallsItCannotRoll) {
  RollingBall ball = cornerBall();
  ball.range[1] = 0.02;
  EXPECT_THROW(fitRollingBall(ball, 1e-7, 1e-6), ProceduralError);
  ball = cornerBall();
  ball.last = ball.first;
  EXPECT_THROW(fitRollingBall(ball, 1e-7, 1e-6), ProceduralError);
}

TEST(BlendBound, ItsIntersectionWithTheOwnSupportIsTheContactLine) {
  // Bound 1 of the corner blend belongs to support 0 (z = 0): its curve with that
  // plane is the contact line x = r, z = 0; with the other plane the chart
  // would not lie on the bound at all.
  const RollingBall ball = cornerBall();
  auto bound = std::make_shared<BlendBoundSupport>(ball.support[0], ball.range[0], ball.support[1], ball.range[1]);
  ChartData chart;
  for (int i = 0; i < 3; ++i) chart.points.emplace_back(0.01, 0.05 * i, 0);
  chart.boundSupport[0] = true;
  auto curve = std::make_shared<ChartCurve>(bound, ball.support[0], chart);
  const CurveFit fit = fitIntersection(curve, 1e-7, 1e-6);
  for (int i = 0; i <= 20; ++i) {
    const gp_Pnt p = fit.curve->Value(curve->first() + (curve->last() - curve->first()) * i / 20);
    EXPECT_NEAR(p.X(), 0.01, 1e-9);
    EXPECT_NEAR(p.Z(), 0, 1e-9);
  }
  auto swapped = std::make_shared<BlendBoundSupport>(ball.support[1], ball.range[1], ball.support[0], ball.range[0]);
  EXPECT_THROW(ChartCurve(swapped, ball.support[0], chart), ProceduralError);
}

TEST(BlendTube, CapOfAFilletIsAnArcAtTheBallRadius) {
  // The fillet's tube cut by the plane y = 0: an arc of radius 10 mm about the
  // spine point (0.06, 0, 0.01), from the plane contact to the cylinder contact.
  Handle(Geom_Circle) circle = new Geom_Circle(gp_Ax2(gp_Pnt(0, 0, 0.01), gp::DZ()), 0.06);
  auto tube = std::make_shared<BlendTubeSupport>(std::make_shared<GeomCurveEval>(circle), 0.01, 1);
  auto cap = plane(gp::Origin(), gp::DY());
  ChartData chart;
  for (int i = 0; i <= 4; ++i) {
    const double a = -kPi / 2 + i * kPi / 8;
    chart.points.emplace_back(0.06 + 0.01 * std::cos(a + kPi), 0, 0.01 + 0.01 * std::sin(a + kPi));
  }
  auto curve = std::make_shared<ChartCurve>(tube, cap, chart);
  const CurveFit fit = fitIntersection(curve, 1e-7, 1e-6);
  EXPECT_LE(fit.deviation, 1e-7);
  for (int i = 0; i <= 20; ++i) {
    const gp_Pnt p = fit.curve->Value(curve->first() + (curve->last() - curve->first()) * i / 20);
    EXPECT_NEAR(p.Distance(gp_Pnt(0.06, 0, 0.01)), 0.01, 1e-7);
    EXPECT_NEAR(p.Y(), 0, 1e-7);
  }
}
