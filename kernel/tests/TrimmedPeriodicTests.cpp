// Faces that healing put on a trimmed copy of a periodic surface go back on
// the periodic surface (model/TrimmedPeriodic.h): a band of cone closed by
// healing with its seam away from u = 0, in frames of either hand,
// comes back with its seam at u = 0; faces not on a trimmed surface are left
// alone; two faces that share one trimmed surface and edges both keep their
// pcurves.
#include <gtest/gtest.h>

#include <BRepAdaptor_Curve.hxx>
#include <BRepBuilderAPI_MakeEdge.hxx>
#include <BRepBuilderAPI_MakeFace.hxx>
#include <BRepBuilderAPI_MakeWire.hxx>
#include <BRepCheck_Analyzer.hxx>
#include <BRepLib.hxx>
#include <BRepPrimAPI_MakeCylinder.hxx>
#include <BRepTools.hxx>
#include <BRep_Builder.hxx>
#include <BRep_Tool.hxx>
#include <Geom2d_Line.hxx>
#include <Geom_ConicalSurface.hxx>
#include <Geom_CylindricalSurface.hxx>
#include <Geom_RectangularTrimmedSurface.hxx>
#include <ShapeFix_Face.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Face.hxx>
#include <TopoDS_Shell.hxx>
#include <TopoDS_Wire.hxx>

#include <cmath>

#include "ShapeMeasures.h"
#include "model/TrimmedPeriodic.h"

using namespace meld::model;

using kerneltest::shapeArea;

namespace {

bool onTrimmedSurface(const TopoDS_Face& face) {
  return !Handle(Geom_RectangularTrimmedSurface)::DownCast(BRep_Tool::Surface(face)).IsNull();
}

// How far the face's pcurves, on its surface, lie from its edges' curves.
double pcurveDeviation(const TopoDS_Face& face) {
  double worst = 0;
  for (TopExp_Explorer x(face, TopAbs_EDGE); x.More(); x.Next()) {
    const TopoDS_Edge& edge = TopoDS::Edge(x.Current());
    BRepAdaptor_Curve curve(edge), onFace(edge, face);
    for (int i = 0; i <= 20; ++i) {
      const double t = curve.FirstParameter() + i * (curve.LastParameter() - curve.FirstParameter()) / 20;
      worst = std::max(worst, curve.Value(t).Distance(onFace.Value(t)));
    }
  }
  return worst;
}

// A band of cone between two circles whose loops start at u = `start`, with
// no seam, healed as receiving heals a face: healing closes it with a seam
// away from u = 0 and puts it on a trimmed surface.
TopoDS_Face healedBand(bool directFrame, double start) {
  gp_Ax3 frame(gp_Pnt(0.01, -0.02, 0.03), gp_Dir(0.2, 0.3, 1), gp_Dir(1, 0, -0.2));
  if (!directFrame) frame.YReverse();
  Handle(Geom_ConicalSurface) cone = new Geom_ConicalSurface(frame, 0.3, 0.02);
  const double height = 0.01;
  auto loop = [&](double v, bool up) {
    Handle(Geom2d_Line) line = new Geom2d_Line(gp_Pnt2d(start, v), gp_Dir2d(1, 0));
    TopoDS_Edge edge = BRepBuilderAPI_MakeEdge(line, cone, start, start + 2 * M_PI).Edge();
    BRepLib::BuildCurves3d(edge, 1e-9);
    return BRepBuilderAPI_MakeWire(up ? edge : TopoDS::Edge(edge.Reversed())).Wire();
  };
  BRepBuilderAPI_MakeFace make(cone, loop(0, true));
  make.Add(loop(height, false));
  ShapeFix_Face fix(make.Face());
  fix.Perform();
  return fix.Face();
}

TEST(TrimmedPeriodic, AHealedClosedFaceGoesBackOnItsSurfaceWithItsSeamAtZero) {
  for (bool direct : {true, false}) {
    SCOPED_TRACE(direct ? "direct frame" : "indirect frame");
    const TopoDS_Face healed = healedBand(direct, 4.0);
    ASSERT_TRUE(BRepCheck_Analyzer(healed).IsValid());
    ASSERT_TRUE(onTrimmedSurface(healed));
    double u0, u1, v0, v1;
    BRepTools::UVBounds(healed, u0, u1, v0, v1);
    ASSERT_GT(std::abs(std::remainder(u0, 2 * M_PI)), 0.1);  // a seam away from u = 0
    const double before = shapeArea(healed, 1e-12);

    Handle(ShapeBuild_ReShape) context = new ShapeBuild_ReShape;
    int moved = 0;
    const TopoDS_Face face = TopoDS::Face(untrimPeriodicFaces(healed, context, &moved));
    EXPECT_EQ(moved, 1);
    EXPECT_FALSE(onTrimmedSurface(face));
    EXPECT_TRUE(BRep_Tool::Surface(face)->IsUPeriodic());
    EXPECT_TRUE(BRepCheck_Analyzer(face).IsValid());
    BRepTools::UVBounds(face, u0, u1, v0, v1);
    EXPECT_NEAR(u0, 0, 1e-9);
    EXPECT_NEAR(u1, 2 * M_PI, 1e-6);  // the box of B-spline pcurves is loose
    EXPECT_LT(pcurveDeviation(face), 1e-9);
    EXPECT_NEAR(shapeArea(face, 1e-12), before, 1e-9 * before);
  }
}

// Faces already on a periodic surface, or on planes, are not touched: a
// solid cylinder as OCCT builds it comes back as the same shape.
TEST(TrimmedPeriodic, FacesNotOnATrimmedSurfaceAreLeftAlone) {
  const TopoDS_Shape cylinder = BRepPrimAPI_MakeCylinder(gp_Ax2(gp_Pnt(0, 0, 0), gp_Dir(0, 1, 1)), 0.01, 0.02).Shape();
  Handle(ShapeBuild_ReShape) context = new ShapeBuild_ReShape;
  int moved = -1;
  const TopoDS_Shape out = untrimPeriodicFaces(cylinder, context, &moved);
  EXPECT_EQ(moved, 0);
  EXPECT_TRUE(out.IsEqual(cylinder));
}

// Two halves of a band of cylinder on one trimmed surface, built as healing
// may leave them: the edges between them have both their pcurves on that
// surface, one for each face.
TopoDS_Shell halvesOnOneTrimmedSurface(double start) {
  Handle(Geom_CylindricalSurface) cylinder = new Geom_CylindricalSurface(gp_Ax3(), 0.01);
  Handle(Geom_RectangularTrimmedSurface) trimmed =
      new Geom_RectangularTrimmedSurface(cylinder, start, start + 2 * M_PI, 0, 0.02);
  const double tolerance = 1e-7, middle = start + M_PI, end = start + 2 * M_PI;
  BRep_Builder builder;
  auto vertex = [&](double u, double v) {
    TopoDS_Vertex made;
    builder.MakeVertex(made, trimmed->Value(u, v), tolerance);
    return made;
  };
  const TopoDS_Vertex low0 = vertex(start, 0), high0 = vertex(start, 0.02);
  const TopoDS_Vertex lowMid = vertex(middle, 0), highMid = vertex(middle, 0.02);
  // Half circles along u (their parameter is u) and lines up the surface.
  auto arc = [&](double from, double v, const TopoDS_Vertex& a, const TopoDS_Vertex& b) {
    return BRepBuilderAPI_MakeEdge(cylinder->VIso(v), a, b, from, from + M_PI).Edge();
  };
  auto line = [&](double u, const TopoDS_Vertex& low, const TopoDS_Vertex& high) {
    return BRepBuilderAPI_MakeEdge(cylinder->UIso(u), low, high, 0, 0.02).Edge();
  };
  const TopoDS_Edge bottomA = arc(start, 0, low0, lowMid), topA = arc(start, 0.02, high0, highMid);
  const TopoDS_Edge bottomB = arc(middle, 0, lowMid, low0), topB = arc(middle, 0.02, highMid, high0);
  const TopoDS_Edge atMiddle = line(middle, lowMid, highMid), atStart = line(start, low0, high0);

  TopoDS_Face a, b;
  builder.MakeFace(a, trimmed, tolerance);
  builder.MakeFace(b, trimmed, tolerance);
  auto straight = [](double u, double v, double du, double dv) {
    return Handle(Geom2d_Line)(new Geom2d_Line(gp_Pnt2d(u, v), gp_Dir2d(du, dv)));
  };
  builder.UpdateEdge(bottomA, straight(0, 0, 1, 0), a, tolerance);
  builder.UpdateEdge(topA, straight(0, 0.02, 1, 0), a, tolerance);
  builder.UpdateEdge(bottomB, straight(0, 0, 1, 0), b, tolerance);
  builder.UpdateEdge(topB, straight(0, 0.02, 1, 0), b, tolerance);
  // Face a runs up the middle line, face b down it; the start line is face
  // b's way up at the end and face a's way down at the start.
  builder.UpdateEdge(atMiddle, straight(middle, 0, 0, 1), straight(middle, 0, 0, 1), a, tolerance);
  builder.UpdateEdge(atStart, straight(end, 0, 0, 1), straight(start, 0, 0, 1), a, tolerance);
  auto wire = [&](std::initializer_list<TopoDS_Shape> edges) {
    TopoDS_Wire made;
    builder.MakeWire(made);
    for (const TopoDS_Shape& e : edges) builder.Add(made, e);
    return made;
  };
  builder.Add(a, wire({bottomA, atMiddle, topA.Reversed(), atStart.Reversed()}));
  builder.Add(b, wire({bottomB, atStart, topB.Reversed(), atMiddle.Reversed()}));
  TopoDS_Shell shell;
  builder.MakeShell(shell);
  builder.Add(shell, a);
  builder.Add(shell, b);
  return shell;
}

TEST(TrimmedPeriodic, FacesSharingATrimmedSurfaceAndEdgesBothKeepTheirPcurves) {
  const TopoDS_Shell shell = halvesOnOneTrimmedSurface(1.0);
  ASSERT_TRUE(BRepCheck_Analyzer(shell).IsValid());
  const double before = shapeArea(shell, 1e-12);

  Handle(ShapeBuild_ReShape) context = new ShapeBuild_ReShape;
  int moved = 0;
  const TopoDS_Shape out = untrimPeriodicFaces(shell, context, &moved);
  EXPECT_EQ(moved, 2);
  EXPECT_TRUE(BRepCheck_Analyzer(out).IsValid());
  for (TopExp_Explorer x(out, TopAbs_FACE); x.More(); x.Next()) {
    const TopoDS_Face& face = TopoDS::Face(x.Current());
    EXPECT_FALSE(onTrimmedSurface(face));
    EXPECT_LT(pcurveDeviation(face), 1e-9);
  }
  EXPECT_NEAR(shapeArea(out, 1e-12), before, 1e-9 * before);
}

}  // namespace
