// Pcurves the builder follows itself before healing (model/EdgePcurves.h):
// they must run with the edge's own parameter onto the nearest foot, hold to
// a border the curve runs a hair outside, leave edges past the surface to
// healing, and on periodic surfaces put a face's holes in its outer wire's
// period. Small faces the tests build, then real free-form faces.
#include <gtest/gtest.h>

#include <BRepBuilderAPI_Copy.hxx>
#include <BRepBuilderAPI_MakeEdge.hxx>
#include <BRepBuilderAPI_MakeVertex.hxx>
#include <BRepCheck_Analyzer.hxx>
#include <BRep_Builder.hxx>
#include <BRep_Tool.hxx>
#include <GeomAPI_PointsToBSpline.hxx>
#include <GeomAPI_ProjectPointOnCurve.hxx>
#include <GeomAPI_ProjectPointOnSurf.hxx>
#include <Geom_BSplineCurve.hxx>
#include <Geom_BSplineSurface.hxx>
#include <Geom_ElementarySurface.hxx>
#include <Geom_Line.hxx>
#include <Geom_SurfaceOfRevolution.hxx>
#include <ShapeFix_Face.hxx>
#include <TColStd_Array1OfReal.hxx>
#include <TColgp_Array1OfPnt.hxx>
#include <TColgp_Array2OfPnt.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Face.hxx>
#include <TopoDS_Wire.hxx>

#include <cmath>

#include "ShapeMeasures.h"
#include "Codec.h"
#include "TestSupport.h"
#include "model/BodyBuilder.h"
#include "model/EdgePcurves.h"

using namespace meld::model;

using kerneltest::shapeArea;

namespace {

// A cubic patch over [0,1]^2 with a bump, free-form but tame.
Handle(Geom_BSplineSurface) bump() {
  TColgp_Array2OfPnt poles(1, 4, 1, 4);
  for (int i = 1; i <= 4; ++i)
    for (int j = 1; j <= 4; ++j)
      poles(i, j) = gp_Pnt(0.01 * (i - 1), 0.01 * (j - 1), (i == 2 || i == 3) && (j == 2 || j == 3) ? 0.008 : 0);
  TColStd_Array1OfReal knots(1, 2);
  knots(1) = 0, knots(2) = 1;
  TColStd_Array1OfInteger mults(1, 2);
  mults.Init(4);
  return new Geom_BSplineSurface(poles, knots, knots, mults, mults, 3, 3);
}

// A face of `surface` bounded by `edges` (joined end to end, in order).
TopoDS_Face faceOf(const Handle(Geom_Surface)& surface, const std::vector<std::vector<TopoDS_Edge>>& wires) {
  BRep_Builder b;
  TopoDS_Face face;
  b.MakeFace(face, surface, 1e-7);
  for (const auto& edges : wires) {
    TopoDS_Wire wire;
    b.MakeWire(wire);
    for (const TopoDS_Edge& e : edges) b.Add(wire, e);
    b.Add(face, wire);
  }
  return face;
}

// The nearest point of the surface's range to p: a stationary point inside or
// a nearest point on a border of a bounded direction, taken on the surface
// itself (an offset's iso curve only approximates it).
gp_Pnt nearestOn(const Handle(Geom_Surface)& s, const gp_Pnt& p) {
  double b[4];
  s->Bounds(b[0], b[1], b[2], b[3]);
  gp_Pnt best = s->Value(b[0], b[2]);
  auto consider = [&](const gp_Pnt& q) { best = p.Distance(q) < p.Distance(best) ? q : best; };
  GeomAPI_ProjectPointOnSurf inside(p, s);
  for (int i = 1; i <= inside.NbPoints(); ++i) consider(inside.Point(i));
  for (int k = 0; k < 4; ++k) {
    const bool uFixed = k < 2;
    if (uFixed ? s->IsUPeriodic() : s->IsVPeriodic()) continue;
    Handle(Geom_Curve) iso = uFixed ? s->UIso(b[k]) : s->VIso(b[k]);
    auto at = [&](double x) { return uFixed ? s->Value(b[k], x) : s->Value(x, b[k]); };
    consider(at(iso->FirstParameter()));
    consider(at(iso->LastParameter()));
    GeomAPI_ProjectPointOnCurve onBorder(p, iso);
    for (int i = 1; i <= onBorder.NbPoints(); ++i) consider(at(onBorder.Parameter(i)));
  }
  return best;
}

// How much nearer than the pcurve's point at t the nearest point of the
// surface's range comes to the curve point at t, at worst over the edge.
double offNearestFoot(const TopoDS_Edge& edge, const TopoDS_Face& face) {
  double f = 0, l = 0, f2 = 0, l2 = 0;
  Handle(Geom_Curve) curve = BRep_Tool::Curve(edge, f, l);
  Handle(Geom2d_Curve) pcurve = BRep_Tool::CurveOnSurface(edge, face, f2, l2);
  if (pcurve.IsNull()) return INFINITY;
  Handle(Geom_Surface) surface = BRep_Tool::Surface(face);
  double worst = 0;
  for (int i = 0; i <= 40; ++i) {
    const double t = f + (l - f) * i / 40;
    const gp_Pnt2d uv = pcurve->Value(t);
    const gp_Pnt p = curve->Value(t);
    worst = std::max(worst, surface->Value(uv.X(), uv.Y()).Distance(p) - nearestOn(surface, p).Distance(p));
  }
  return worst;
}

}  // namespace

TEST(EdgePcurves, FollowedPcurvesRunWithTheEdgesParameterOntoTheNearestFoot) {
  // A three-sided face: a curve across the bump (a 3D B-spline through surface
  // points, in its own parameter), then two iso curves back. An iso curve's
  // pcurve is known exactly: (t, 0.8) and (0.2, t).
  Handle(Geom_BSplineSurface) s = bump();
  TColgp_Array1OfPnt across(1, 41);
  TColStd_Array1OfReal ts(1, 41);
  for (int i = 1; i <= 41; ++i) {
    ts(i) = 0.2 + 0.6 * (i - 1) / 40;
    across(i) = s->Value(ts(i), ts(i) + 0.1 * std::sin(M_PI * (ts(i) - 0.2) / 0.6));
  }
  Handle(Geom_BSplineCurve) diagonal = GeomAPI_PointsToBSpline(across, ts, 3, 8, GeomAbs_C2, 1e-9).Curve();
  const TopoDS_Vertex v00 = BRepBuilderAPI_MakeVertex(s->Value(0.2, 0.2)), v11 = BRepBuilderAPI_MakeVertex(s->Value(0.8, 0.8)),
                      v01 = BRepBuilderAPI_MakeVertex(s->Value(0.2, 0.8));
  const TopoDS_Edge acrossEdge = BRepBuilderAPI_MakeEdge(diagonal, v00, v11, 0.2, 0.8);
  const TopoDS_Edge topEdge = BRepBuilderAPI_MakeEdge(s->VIso(0.8), v01, v11, 0.2, 0.8);
  const TopoDS_Edge leftEdge = BRepBuilderAPI_MakeEdge(s->UIso(0.2), v00, v01, 0.2, 0.8);
  const TopoDS_Face face =
      faceOf(s, {{acrossEdge, TopoDS::Edge(topEdge.Reversed()), TopoDS::Edge(leftEdge.Reversed())}});

  const FollowedPcurves count = followPcurves(face);
  EXPECT_EQ(count.added, 3);
  EXPECT_EQ(count.left, 0);
  EXPECT_LT(offNearestFoot(acrossEdge, face), 2e-9);
  for (const auto& [edge, iso] : {std::pair{topEdge, 1}, std::pair{leftEdge, 0}}) {
    double f = 0, l = 0;
    Handle(Geom2d_Curve) pcurve = BRep_Tool::CurveOnSurface(edge, face, f, l);
    ASSERT_FALSE(pcurve.IsNull());
    for (double t = 0.2; t <= 0.8; t += 0.0125) {
      const gp_Pnt2d exact = iso ? gp_Pnt2d(t, 0.8) : gp_Pnt2d(0.2, t);
      EXPECT_LT(pcurve->Value(t).Distance(exact), 1e-9) << t;
    }
  }
  EXPECT_TRUE(BRepCheck_Analyzer(face).IsValid());
}

TEST(EdgePcurves, ACurveAHairPastTheBorderIsHeldOnItOnesFarPastOrThroughAnApexGoToHealing) {
  // The patch cut at v = 0.7. Along that border runs an iso curve of the whole
  // patch at v = 0.7 + 5e-6 (0.15 um outside); across it, an iso at u = 0.5
  // up to v = 0.95, far past.
  Handle(Geom_BSplineSurface) whole = bump();
  Handle(Geom_BSplineSurface) cut = Handle(Geom_BSplineSurface)::DownCast(whole->Copy());
  cut->Segment(0, 1, 0, 0.7);
  const TopoDS_Edge along = BRepBuilderAPI_MakeEdge(whole->VIso(0.7 + 5e-6), 0.1, 0.9);
  const TopoDS_Edge past = BRepBuilderAPI_MakeEdge(whole->UIso(0.5), 0.1, 0.95);
  const TopoDS_Face face = faceOf(cut, {{along}, {past}});

  const FollowedPcurves count = followPcurves(face);
  EXPECT_EQ(count.added, 1);
  EXPECT_EQ(count.left, 1);
  double f = 0, l = 0;
  EXPECT_TRUE(BRep_Tool::CurveOnSurface(past, face, f, l).IsNull());
  Handle(Geom2d_Curve) held = BRep_Tool::CurveOnSurface(along, face, f, l);
  ASSERT_FALSE(held.IsNull());
  EXPECT_LT(offNearestFoot(along, face), 2e-9);
  for (double t = 0.1; t <= 0.9; t += 0.05) EXPECT_NEAR(held->Value(t).Y(), 0.7, 1e-12) << t;

  // The patch with its v = 0 row drawn into one point, the apex of a blend
  // whose supports meet: an edge from there has no one (u, v) to start at.
  TColgp_Array2OfPnt poles = whole->Poles();
  for (int i = 1; i <= 4; ++i) poles(i, 1) = gp_Pnt(0.015, 0, 0);
  Handle(Geom_BSplineSurface) apex = new Geom_BSplineSurface(poles, whole->UKnots(), whole->VKnots(),
                                                             whole->UMultiplicities(), whole->VMultiplicities(), 3, 3);
  const TopoDS_Edge fromApex = BRepBuilderAPI_MakeEdge(apex->UIso(0.5), 0, 0.6);
  EXPECT_EQ(followPcurves(faceOf(apex, {{fromApex}})).added, 0);
}

TEST(EdgePcurves, OnAPeriodicSurfaceHolesGoInTheOuterWiresPeriodAndBandsOfRingsAreFollowed) {
  // A cylinder of radius 0.02 as a surface of revolution (u the angle). A
  // patch across the seam, u 5.8 .. 6.8, v 0 .. 0.01, with a hole u 6.1 .. 6.5,
  // v 0.003 .. 0.007, whose first foot falls in the period before: only a
  // hole moved by 2 pi leaves the right area.
  Handle(Geom_Surface) s = new Geom_SurfaceOfRevolution(new Geom_Line(gp_Pnt(0.02, 0, 0), gp_Dir(0, 0, 1)), gp::OZ());
  auto rectangle = [&](double u1, double u2, double v1, double v2, bool reversed) {
    const TopoDS_Vertex c[4] = {BRepBuilderAPI_MakeVertex(s->Value(u1, v1)), BRepBuilderAPI_MakeVertex(s->Value(u2, v1)),
                                BRepBuilderAPI_MakeVertex(s->Value(u2, v2)), BRepBuilderAPI_MakeVertex(s->Value(u1, v2))};
    std::vector<TopoDS_Edge> edges = {
        BRepBuilderAPI_MakeEdge(s->VIso(v1), c[0], c[1], u1, u2), BRepBuilderAPI_MakeEdge(s->UIso(u2), c[1], c[2], v1, v2),
        TopoDS::Edge(BRepBuilderAPI_MakeEdge(s->VIso(v2), c[3], c[2], u1, u2).Edge().Reversed()),
        TopoDS::Edge(BRepBuilderAPI_MakeEdge(s->UIso(u1), c[0], c[3], v1, v2).Edge().Reversed())};
    if (reversed) {
      std::reverse(edges.begin(), edges.end());
      for (auto& e : edges) e.Reverse();
    }
    return edges;
  };
  // The hole runs round the other way and starts at its corner u = 6.5 - 2 pi,
  // so its first foot falls a period before the outer wire's.
  std::vector<TopoDS_Edge> hole = rectangle(6.1 - 2 * M_PI, 6.5 - 2 * M_PI, 0.003, 0.007, true);
  std::rotate(hole.begin(), hole.begin() + 2, hole.end());
  const TopoDS_Face holed = faceOf(s, {rectangle(5.8, 6.8, 0, 0.01, false), hole});
  EXPECT_EQ(followPcurves(holed).added, 8);
  for (const TopoDS_Edge& e : hole) {
    double f = 0, l = 0;
    Handle(Geom2d_Curve) pcurve = BRep_Tool::CurveOnSurface(e, holed, f, l);
    ASSERT_FALSE(pcurve.IsNull());
    EXPECT_GT(std::min(pcurve->Value(f).X(), pcurve->Value(l).X()), 6.1 - 1e-9);
    EXPECT_LT(std::max(pcurve->Value(f).X(), pcurve->Value(l).X()), 6.5 + 1e-9);
  }
  EXPECT_TRUE(BRepCheck_Analyzer(holed).IsValid());
  EXPECT_NEAR(shapeArea(holed, 1e-10), 0.02 * (1.0 * 0.01 - 0.4 * 0.004), 1e-12);

  // Round the surface: a band closed by its seam (an edge used twice) is
  // healing's; a band of two rings, as files store it, gets both rings
  // followed once round, and healing adds the seam that OCCT needs.
  const TopoDS_Vertex v0 = BRepBuilderAPI_MakeVertex(s->Value(0, 0)), v1 = BRepBuilderAPI_MakeVertex(s->Value(0, 0.01));
  const TopoDS_Edge low = BRepBuilderAPI_MakeEdge(s->VIso(0), v0, v0, 0, 2 * M_PI);
  const TopoDS_Edge high = BRepBuilderAPI_MakeEdge(s->VIso(0.01), v1, v1, 0, 2 * M_PI);
  const TopoDS_Edge seam = BRepBuilderAPI_MakeEdge(s->UIso(0), v0, v1, 0, 0.01);
  const TopoDS_Face sewn = faceOf(s, {{low, seam, TopoDS::Edge(high.Reversed()), TopoDS::Edge(seam.Reversed())}});
  EXPECT_EQ(followPcurves(sewn).added, 0);
  double f = 0, l = 0;
  EXPECT_TRUE(BRep_Tool::CurveOnSurface(low, sewn, f, l).IsNull());
  const TopoDS_Face rings = faceOf(s, {{low}, {TopoDS::Edge(high.Reversed())}});
  EXPECT_EQ(followPcurves(rings).added, 2);
  Handle(Geom2d_Curve) ring = BRep_Tool::CurveOnSurface(high, rings, f, l);
  ASSERT_FALSE(ring.IsNull());
  EXPECT_NEAR(std::abs(ring->Value(l).X() - ring->Value(f).X()), 2 * M_PI, 1e-9);
  Handle(ShapeFix_Face) fix = new ShapeFix_Face(rings);
  fix->Perform();
  EXPECT_TRUE(BRepCheck_Analyzer(fix->Face()).IsValid());
  EXPECT_NEAR(shapeArea(fix->Face(), 1e-10), 2 * M_PI * 0.02 * 0.01, 1e-12);
}

TEST(EdgePcurves, RealFreeFormFacesGetPcurvesOnTheNearestFoot) {
  // biox-Assembly: converted blends, offsets of B-surfaces, curves that run
  // along and past their faces' borders. Each body is built, then its
  // free-form faces lose the pcurves of edges they bound once and get them
  // followed again: every one followed lies on the nearest foot of its curve.
  MELD_REQUIRE_CORPUS(corpus);
  const auto graph = meld::xt::decode(meldtest::readFile(corpus / "biox-Assembly.x_t"));
  GeometryCache cache(graph);
  int followed = 0, checked = 0;
  for (size_t i = 0; i < graph.size(); ++i) {
    if (graph.nodes()[i].type != kBody) continue;
    BodyBuilder builder(cache);
    const TopoDS_Shape body = BRepBuilderAPI_Copy(builder.build(static_cast<long>(i)).shape).Shape();
    followed += builder.followed().added;
    for (TopExp_Explorer x(body, TopAbs_FACE); x.More(); x.Next()) {
      const TopoDS_Face& face = TopoDS::Face(x.Current());
      TopLoc_Location where;
      Handle(Geom_Surface) surface = BRep_Tool::Surface(face, where);
      if (surface->IsKind(STANDARD_TYPE(Geom_ElementarySurface))) continue;
      for (TopExp_Explorer e(face, TopAbs_EDGE); e.More(); e.Next())
        if (!BRep_Tool::IsClosed(TopoDS::Edge(e.Current()), face))
          BRep_Builder().UpdateEdge(TopoDS::Edge(e.Current()), Handle(Geom2d_Curve)(), surface, where, 0);
      followPcurves(face);
      for (TopExp_Explorer e(face, TopAbs_EDGE); e.More(); e.Next()) {
        double f = 0, l = 0;
        if (BRep_Tool::CurveOnSurface(TopoDS::Edge(e.Current()), face, f, l).IsNull()) continue;
        EXPECT_LT(offNearestFoot(TopoDS::Edge(e.Current()), face), 1e-8);
        ++checked;
      }
    }
  }
  EXPECT_GE(followed, 50);
  EXPECT_GE(checked, 50);
}
