// Foot points on B-surfaces, where the converters spend most of their time:
// whatever the seed, the foot, normal and distance must be those of the exact
// surface the B-surface was made from.
#include <gtest/gtest.h>

#include <GeomConvert.hxx>
#include <Geom_BSplineSurface.hxx>
#include <Geom_OffsetSurface.hxx>
#include <Geom_RectangularTrimmedSurface.hxx>
#include <Geom_SphericalSurface.hxx>
#include <Geom_ToroidalSurface.hxx>
#include <TColStd_Array1OfInteger.hxx>
#include <TColStd_Array1OfReal.hxx>
#include <TColgp_Array2OfPnt.hxx>
#include <gp_Ax3.hxx>

#include <cmath>

#include "model/procedural/Supports.h"

using namespace meld::model::procedural;

namespace {

Handle(Geom_Surface) asBSpline(const Handle(Geom_Surface)& surface, double u1, double u2, double v1, double v2) {
  return GeomConvert::SurfaceToBSplineSurface(new Geom_RectangularTrimmedSurface(surface, u1, u2, v1, v2));
}

// Points off the torus `exact` along its normal by less than its minor radius
// have that foot on `support`, whatever the seed.
void expectExactFeet(const SurfaceSupport& support, const Handle(Geom_Surface)& exact) {
  for (double u : {0.4, 1.3, 2.6})
    for (double v : {0.3, 1.9, 3.5})
      for (double d : {0.0, 1e-3, -0.2, 0.3}) {
        gp_Pnt foot;
        gp_Vec du, dv;
        exact->D1(u, v, foot, du, dv);
        const gp_Vec normal = du.Crossed(dv).Normalized();
        const gp_Pnt point = foot.Translated(normal * d);
        // No seed, a neighbour's, one a quarter turn round the tube away, and
        // one farther off both ways (inside the patch).
        Seed none, near{u + 0.05, v - 0.05, 0, 0, true, false}, far{u, v + 1.5, 0, 0, true, false};
        Seed across{u < 1.5 ? u + 0.8 : u - 0.8, v < 2 ? v + 2.0 : v - 2.0, 0, 0, true, false};
        for (Seed* seed : {&none, &near, &far, &across}) {
          SCOPED_TRACE(testing::Message() << "u " << u << " v " << v << " d " << d << " seed " << seed->a << "," << seed->b);
          const SupportSample sample = support.evaluate(point, *seed);
          EXPECT_LT(sample.foot.Distance(foot), 1e-11);
          EXPECT_NEAR(sample.distance, d, 1e-11);
          EXPECT_GT(sample.normal.Dot(normal), 1 - 1e-12);
        }
      }
}

}  // namespace

TEST(SurfaceSupport, FeetOnARationalBSurfaceAreTheExactOnesFromNearFarOrNoSeed) {
  // A torus patch (major radius 2, minor 0.5) as a rational B-surface.
  const Handle(Geom_ToroidalSurface) torus = new Geom_ToroidalSurface(gp_Ax3(), 2.0, 0.5);
  const SurfaceSupport support(asBSpline(torus, 0, 3, 0, 4), 1);
  expectExactFeet(support, torus);
  // The sense given with the support turns normal and distance round.
  const SurfaceSupport reversed(asBSpline(torus, 0, 3, 0, 4), -1);
  Seed seed;
  const SupportSample sample = reversed.evaluate(gp_Pnt(2.8, 0.5, 0.1), seed);
  Seed again;
  const SupportSample forward = support.evaluate(gp_Pnt(2.8, 0.5, 0.1), again);
  EXPECT_NEAR(sample.distance, -forward.distance, 1e-14);
  EXPECT_LT((sample.normal + forward.normal).Magnitude(), 1e-14);
}

TEST(SurfaceSupport, FeetOnAnOffsetOfABSurfaceAreTheExactOnes) {
  // The torus patch offset by 0.1 outwards and 0.2 inwards: tori of minor
  // radius 0.6 and 0.3 (the base is evaluated through its cache here).
  const Handle(Geom_Surface) base = asBSpline(new Geom_ToroidalSurface(gp_Ax3(), 2.0, 0.5), 0, 3, 0, 4);
  for (double offset : {0.1, -0.2}) {
    SCOPED_TRACE(testing::Message() << "offset " << offset);
    const Handle(Geom_ToroidalSurface) exact = new Geom_ToroidalSurface(gp_Ax3(), 2.0, 0.5 + offset);
    expectExactFeet(SurfaceSupport(new Geom_OffsetSurface(base, offset), 1), exact);
  }
}

TEST(CachedSurface, AnOffsetAtAPoleOfItsBaseIsWhereOcctPutsIt) {
  // A sphere as a B-surface: its v ends are poles, where the base has no
  // normal of its own and the offset point lies on the axis.
  const Handle(Geom_Surface) base =
      asBSpline(new Geom_SphericalSurface(gp_Ax3(), 1.0), 0, 2 * M_PI, -M_PI / 2, M_PI / 2);
  const Handle(Geom_OffsetSurface) offset = new Geom_OffsetSurface(base, 0.25);
  const meld::model::CachedSurface cached(offset);
  for (double v : {-M_PI / 2, M_PI / 2, 0.3}) {
    SCOPED_TRACE(testing::Message() << "v " << v);
    EXPECT_LT(cached.value(1.0, v).Distance(offset->Value(1.0, v)), 1e-12);
    EXPECT_NEAR(cached.value(1.0, v).Distance(gp_Pnt(0, 0, 0)), 1.25, 1e-9);
  }
}

TEST(SurfaceSupport, AStepThatOvershootsIsCutBackAndTheSearchGoesOnFromWhereItStands) {
  // Points three radii from the centre of a sphere patch (as a rational
  // B-surface), seeded more than a quarter turn round: the first Gauss-Newton
  // steps overshoot and are halved until the distance falls.
  const Handle(Geom_SphericalSurface) sphere = new Geom_SphericalSurface(gp_Ax3(), 1.0);
  const SurfaceSupport support(asBSpline(sphere, 0, 5, -1.2, 1.2), 1);
  for (double u : {0.5, 2.0, 4.5})
    for (double v : {-0.8, 0.0, 0.9}) {
      const gp_Pnt foot = sphere->Value(u, v);
      const gp_Pnt point(foot.XYZ() * 3);
      Seed seed{u < 2.5 ? u + 2.0 : u - 2.0, -v, 0, 0, true, false};
      SCOPED_TRACE(testing::Message() << "u " << u << " v " << v);
      const SupportSample sample = support.evaluate(point, seed);
      EXPECT_LT(sample.foot.Distance(foot), 1e-11);
      EXPECT_NEAR(std::abs(sample.distance), 2.0, 1e-11);  // the converted patch faces inwards
    }
}

TEST(SurfaceSupport, AFirstFootFromTheGridIsTheNearestOneOnAFoldedSheet) {
  // A sheet folded back on itself, degree 1 across the fold: wall A along
  // y = 0 in one span, wall B 1 mm above it in two, so that B's grid nodes lie
  // between A's. Next to a point of A, B has the nearest node; the search from
  // there ends on B, 1 mm off, which is a foot but not the nearest one.
  TColgp_Array2OfPnt poles(1, 5, 1, 2);
  const double xs[5] = {0, 0.1, 0.1, 0.05, 0}, ys[5] = {0, 0, 0.001, 0.001, 0.001};
  for (int i = 1; i <= 5; ++i)
    for (int j = 1; j <= 2; ++j) poles(i, j) = gp_Pnt(xs[i - 1], ys[i - 1], 0.01 * (j - 1));
  TColStd_Array1OfReal uKnots(1, 5), vKnots(1, 2);
  TColStd_Array1OfInteger uMults(1, 5), vMults(1, 2);
  const double us[5] = {0, 1, 1.01, 1.51, 2.01};
  for (int i = 1; i <= 5; ++i) uKnots(i) = us[i - 1], uMults(i) = i == 1 || i == 5 ? 2 : 1;
  vKnots(1) = 0, vKnots(2) = 1, vMults(1) = vMults(2) = 2;
  const SurfaceSupport support(new Geom_BSplineSurface(poles, uKnots, vKnots, uMults, vMults, 1, 1), 1);
  // On wall A a sixth of the way along, and 0.3 mm off it towards B.
  for (double off : {0.0, 0.0003}) {
    SCOPED_TRACE(testing::Message() << "off " << off);
    const gp_Pnt point(0.1 / 6, off, 0.005);
    Seed none;
    const SupportSample sample = support.evaluate(point, none);
    EXPECT_NEAR(std::abs(sample.distance), off, 1e-12);
    EXPECT_LT(sample.foot.Distance(gp_Pnt(0.1 / 6, 0, 0.005)), 1e-12);
  }
}
