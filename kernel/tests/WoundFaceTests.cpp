// Faces winding more than once round a periodic surface are cut into pieces
// within one turn (model/WoundFaces.h): a strip of cylinder between two
// helices three turns long, as the crest of a thread, whose helices get
// pcurves that lie on them; a whole turn with its seam is left alone.
#include <gtest/gtest.h>

#include <BRepBuilderAPI_MakeEdge.hxx>
#include <BRepBuilderAPI_MakeFace.hxx>
#include <BRepBuilderAPI_MakeWire.hxx>
#include <BRepCheck_Analyzer.hxx>
#include <BRepLib.hxx>
#include <BRepPrimAPI_MakeCylinder.hxx>
#include <BRepTools.hxx>
#include <BRepTools_WireExplorer.hxx>
#include <BRep_Builder.hxx>
#include <BRep_Tool.hxx>
#include <ShapeAnalysis_Edge.hxx>
#include <TopExp.hxx>
#include <TopoDS_Iterator.hxx>
#include <TopoDS_Wire.hxx>
#include <GCE2d_MakeSegment.hxx>
#include <Geom_CylindricalSurface.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Face.hxx>

#include <cmath>
#include <vector>

#include "ShapeMeasures.h"
#include "model/EdgePcurves.h"
#include "model/WoundFaces.h"

using namespace meld::model;

using kerneltest::shapeArea;

namespace {

constexpr double kRadius = 0.01;

// The strip between (0, 0) - (turns * 2 pi, rise) and the same line `width`
// higher, on a cylinder of radius kRadius: its helices are free-form curves
// as the edges of a thread are.
TopoDS_Face strip(double turns, double rise, double width) {
  Handle(Geom_CylindricalSurface) cylinder = new Geom_CylindricalSurface(gp_Ax3(), kRadius);
  const double end = turns * 2 * M_PI;
  const gp_Pnt2d corners[4] = {{0, 0}, {end, rise}, {end, rise + width}, {0, width}};
  BRepBuilderAPI_MakeWire wire;
  for (int i = 0; i < 4; ++i)
    wire.Add(BRepBuilderAPI_MakeEdge(GCE2d_MakeSegment(corners[i], corners[(i + 1) % 4]).Value(), cylinder).Edge());
  TopoDS_Face face = BRepBuilderAPI_MakeFace(cylinder, wire.Wire(), true).Face();
  BRepLib::BuildCurves3d(face, 1e-9);
  return face;
}

TEST(WoundFaces, AStripThreeTurnsLongIsCutIntoValidPiecesWithinHalfATurnOfTheSameArea) {
  const double turns = 3, width = 0.005;
  TopoDS_Face face = strip(turns, 0.03, width);
  ASSERT_TRUE(BRepCheck_Analyzer(face).IsValid());
  const double exact = kRadius * turns * 2 * M_PI * width;  // r du dv over the parallelogram

  Handle(ShapeBuild_ReShape) context = new ShapeBuild_ReShape;
  int cut = 0;
  TopoDS_Shape pieces = splitWoundFaces(face, context, &cut);
  EXPECT_EQ(cut, 1);
  EXPECT_TRUE(BRepCheck_Analyzer(pieces).IsValid());
  // Cut lines half a turn apart, clear of the corners: six lines, seven pieces.
  int count = 0;
  for (TopExp_Explorer x(pieces, TopAbs_FACE); x.More(); x.Next(), ++count) {
    double u0, u1, v0, v1;
    BRepTools::UVBounds(TopoDS::Face(x.Current()), u0, u1, v0, v1);
    EXPECT_LE(u1 - u0, M_PI * (1 + 1e-9));
    EXPECT_TRUE(BRepCheck_Analyzer(x.Current()).IsValid());
  }
  EXPECT_EQ(count, 7);
  EXPECT_NEAR(shapeArea(pieces, 1e-12), exact, 1e-9 * exact);
  // The face replaced by its pieces, its two helices by their parts.
  EXPECT_EQ(context->Apply(face).ShapeType(), TopAbs_COMPOUND);
  int split = 0;
  for (TopExp_Explorer x(face, TopAbs_EDGE); x.More(); x.Next()) split += context->Apply(x.Current()).ShapeType() == TopAbs_WIRE;
  EXPECT_EQ(split, 2);
}

// The strip's edges by their 3D curves alone, as a file gives them: the face
// on the cylinder, no pcurves.
TopoDS_Face withoutPcurves(const TopoDS_Face& face) {
  BRep_Builder builder;
  TopoDS_Wire wire;
  builder.MakeWire(wire);
  for (BRepTools_WireExplorer x(TopoDS::Wire(TopoDS_Iterator(face).Value()), face); x.More(); x.Next()) {
    double first = 0, last = 0;
    Handle(Geom_Curve) curve = BRep_Tool::Curve(x.Current(), first, last);
    TopoDS_Edge edge = BRepBuilderAPI_MakeEdge(curve, x.CurrentVertex(), TopExp::LastVertex(x.Current(), true), first, last);
    builder.Add(wire, x.Current().Orientation() == TopAbs_REVERSED ? edge.Reversed() : edge);
  }
  TopoDS_Face bare;
  builder.MakeFace(bare, BRep_Tool::Surface(face), 1e-7);
  builder.Add(bare, wire);
  return bare;
}

// Healing fits a free-form edge's pcurve on an elementary surface through a
// few points (5e-6 m off on a real nut); on a wound face the edges are
// followed instead and their pcurves lie on the curves.
TEST(WoundFaces, TheHelicesOfAWoundFaceOnACylinderAreFollowed) {
  TopoDS_Face bare = withoutPcurves(strip(3, 0.03, 0.005));
  FollowedPcurves followed = followPcurves(bare);
  EXPECT_EQ(followed.added, 4);
  for (TopExp_Explorer x(bare, TopAbs_EDGE); x.More(); x.Next()) {
    double deviation = 1;
    ShapeAnalysis_Edge().CheckSameParameter(TopoDS::Edge(x.Current()), bare, deviation, 2000);
    EXPECT_LT(deviation, 1e-8);
  }
}

TEST(WoundFaces, FacesWithinOneTurnAreLeftAlone) {
  // A whole turn with its seam, and a strip just under a turn long.
  TopoDS_Shape cylinder = BRepPrimAPI_MakeCylinder(kRadius, 0.02).Shape();
  TopoDS_Face shortStrip = strip(0.99, 0.01, 0.002);
  for (const TopoDS_Shape& shape : {cylinder, static_cast<TopoDS_Shape>(shortStrip)}) {
    Handle(ShapeBuild_ReShape) context = new ShapeBuild_ReShape;
    int cut = -1;
    TopoDS_Shape result = splitWoundFaces(shape, context, &cut);
    EXPECT_EQ(cut, 0);
    EXPECT_TRUE(result.IsSame(shape));
  }
}

}  // namespace
