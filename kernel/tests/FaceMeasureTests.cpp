// A face's volume share and area measured on its boundary (planes, cylinders,
// cones, spheres) against the same face integrated over its surface: on
// shapes whose cuts give the boundaries every kind of edge and pcurve, and on
// every face of real parts. Union checks lean on these numbers.
#include "PartFileSupport.h"
#include "TestSupport.h"
#include "ops/Bodies.h"
#include "ops/BoundaryMeasures.h"

#include <BRepAdaptor_Curve.hxx>
#include <BRepAdaptor_Surface.hxx>
#include <BRepGProp.hxx>
#include <BRep_Tool.hxx>
#include <GCPnts_AbscissaPoint.hxx>
#include <GProp_GProps.hxx>
#include <BRepAlgoAPI_Common.hxx>
#include <BRepAlgoAPI_Cut.hxx>
#include <BRepAlgoAPI_Fuse.hxx>
#include <BRepBndLib.hxx>
#include <BRepBuilderAPI_MakeFace.hxx>
#include <BRepPrimAPI_MakeBox.hxx>
#include <BRep_Builder.hxx>
#include <Geom2d_Curve.hxx>
#include <Geom_CylindricalSurface.hxx>
#include <gp_Ax3.hxx>
#include <gp_Vec2d.hxx>
#include <BRepPrimAPI_MakeCone.hxx>
#include <BRepPrimAPI_MakeCylinder.hxx>
#include <BRepPrimAPI_MakeSphere.hxx>
#include <BRepPrimAPI_MakeTorus.hxx>
#include <Bnd_Box.hxx>
#include <ShapeAnalysis_Edge.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS.hxx>
#include <TopExp.hxx>
#include <TopoDS_Edge.hxx>
#include <TopoDS_Vertex.hxx>
#include <gp_Ax2.hxx>

#include <cmath>
#include <map>

using meld::kernel::Measures;

namespace {

// Faces measured on their boundary, by surface type, and how far they lie
// from integrating the face over its surface, as parts of what the face's
// edges allow: the two ways follow the edges' 3D curves and their pcurves,
// which may lie d apart (the largest of the edge and vertex tolerances, what
// the curves measure apart and how far their ends miss their vertices) along
// the perimeter L; that moves the area by up to d L and
// the cone from the origin by d L h, h the distance from the origin. Beyond
// that, 1e-9 of h^3 and 1e-8 of the area.
struct Agreement {
  std::map<GeomAbs_SurfaceType, int> measured;
  int integratedOnly = 0;
  double volumeGap = 0, areaGap = 0;  // 1 is the allowance
};

double perimeter(const TopoDS_Face& face, double& apart) {
  double length = 0;
  apart = BRep_Tool::Tolerance(face);
  for (TopExp_Explorer ex(face, TopAbs_EDGE); ex.More(); ex.Next()) {
    const TopoDS_Edge& edge = TopoDS::Edge(ex.Current());
    if (BRep_Tool::Degenerated(edge)) continue;
    double deviation = 0;
    ShapeAnalysis_Edge().CheckSameParameter(edge, face, deviation);
    apart = std::max({apart, BRep_Tool::Tolerance(edge), deviation});
    BRepAdaptor_Curve curve(edge);
    for (auto [vertex, t] : {std::pair{TopExp::FirstVertex(edge), curve.FirstParameter()},
                             {TopExp::LastVertex(edge), curve.LastParameter()}})
      apart = std::max({apart, BRep_Tool::Tolerance(vertex), BRep_Tool::Pnt(vertex).Distance(curve.Value(t))});
    length += GCPnts_AbscissaPoint::Length(curve);
  }
  return length;
}

void compareFaces(const TopoDS_Shape& shape, Agreement& out) {
  Bnd_Box box;
  BRepBndLib::Add(shape, box);
  double x0, y0, z0, x1, y1, z1;
  box.Get(x0, y0, z0, x1, y1, z1);
  const double h = std::hypot(std::max(std::abs(x0), std::abs(x1)), std::max(std::abs(y0), std::abs(y1)),
                              std::max(std::abs(z0), std::abs(z1)));
  for (TopExp_Explorer ex(shape, TopAbs_FACE); ex.More(); ex.Next()) {
    const TopoDS_Face& face = TopoDS::Face(ex.Current());
    Measures exact;
    if (!meld::kernel::boundaryMeasures(face, exact)) {
      ++out.integratedOnly;
      continue;
    }
    ++out.measured[BRepAdaptor_Surface(face, false).GetType()];
    GProp_GProps surface;
    BRepGProp::SurfaceProperties(face, surface, 1e-10);
    double apart = 0;
    const double slip = perimeter(face, apart) * apart;
    const double volume = meld::kernel::integratedMeasures(face).volume;
    out.volumeGap = std::max(out.volumeGap, std::abs(exact.volume - volume) / (1e-9 * h * h * h + slip * h));
    out.areaGap = std::max(out.areaGap, std::abs(exact.area - surface.Mass()) / (1e-8 * surface.Mass() + slip));
  }
}

constexpr double kPi = 3.14159265358979323846;

gp_Ax2 tilted(gp_Pnt at, gp_Dir axis) { return gp_Ax2(at, axis); }

}  // namespace

// Whole primitives (seams, poles, an apex) and cuts that bound cylinder, cone
// and sphere faces by lines, circles, ellipses and intersection B-splines,
// kept and reversed (a cavity). A torus face is integrated.
TEST(FaceMeasures, BoundaryFormsAgreeWithIntegrationOnCutPrimitives) {
  TopoDS_Shape block = BRepPrimAPI_MakeBox(gp_Pnt(-1, -1, -1), 2, 2, 2).Shape();
  TopoDS_Shape cylinder = BRepPrimAPI_MakeCylinder(tilted(gp_Pnt(-2, 0.2, -0.3), gp_Dir(1, 0.3, 0.2)), 0.6, 4).Shape();
  TopoDS_Shape cone = BRepPrimAPI_MakeCone(tilted(gp_Pnt(0.1, -2, 0), gp_Dir(0.2, 1, 0.1)), 0.9, 0.2, 3.5).Shape();
  TopoDS_Shape pointed = BRepPrimAPI_MakeCone(gp_Ax2(gp_Pnt(0, 0, 0.5), gp_Dir(0, 0, 1)), 0.7, 0, 1.2).Shape();
  TopoDS_Shape sphere = BRepPrimAPI_MakeSphere(gp_Pnt(0.9, 0.8, 0.7), 0.75).Shape();
  TopoDS_Shape cavity = BRepPrimAPI_MakeSphere(gp_Pnt(0.1, 0, 0), 0.4).Shape();
  TopoDS_Shape crossing = BRepPrimAPI_MakeCylinder(tilted(gp_Pnt(0, -2, 0.1), gp_Dir(0, 1, 0)), 0.5, 4).Shape();

  Agreement agreement;
  for (const TopoDS_Shape& shape :
       {cylinder, cone, pointed, sphere, BRepAlgoAPI_Common(block, cylinder).Shape(),
        BRepAlgoAPI_Cut(block, cone).Shape(), BRepAlgoAPI_Fuse(block, sphere).Shape(),
        BRepAlgoAPI_Cut(block, cavity).Shape(), BRepAlgoAPI_Fuse(cylinder, crossing).Shape(),
        BRepAlgoAPI_Common(sphere, block).Shape(), BRepAlgoAPI_Cut(pointed, block).Shape()})
    compareFaces(shape, agreement);
  EXPECT_LT(agreement.volumeGap, 1);
  EXPECT_LT(agreement.areaGap, 1);
  for (GeomAbs_SurfaceType type : {GeomAbs_Plane, GeomAbs_Cylinder, GeomAbs_Cone, GeomAbs_Sphere})
    EXPECT_GT(agreement.measured[type], 2) << "surface type " << type;

  Agreement torus;
  compareFaces(BRepPrimAPI_MakeTorus(2, 0.5).Shape(), torus);
  EXPECT_EQ(torus.integratedOnly, 1);

  // Half a cylinder whose one edge has its pcurve a period further on: the
  // same face in 3D, but its boundary no longer closes in the parameters.
  TopoDS_Face half = BRepBuilderAPI_MakeFace(new Geom_CylindricalSurface(gp_Ax3(), 1), 0, kPi, 0, 1, 1e-7).Face();
  Measures measures;
  EXPECT_TRUE(meld::kernel::boundaryMeasures(half, measures));
  TopoDS_Edge edge = TopoDS::Edge(TopExp_Explorer(half, TopAbs_EDGE).Current());
  double t0, t1;
  Handle(Geom2d_Curve) pcurve = BRep_Tool::CurveOnSurface(edge, half, t0, t1);
  Handle(Geom2d_Curve) shifted = Handle(Geom2d_Curve)::DownCast(pcurve->Translated(gp_Vec2d(2 * kPi, 0)));
  BRep_Builder().UpdateEdge(edge, shifted, half, 1e-7);
  EXPECT_FALSE(meld::kernel::boundaryMeasures(half, measures));
}

using FaceMeasuresOnRealParts = kerneltest::KernelSession;

// Every face of real parts: cylinders and cones bounded by converted
// intersection curves, tolerant edges, pcurves on periodic surfaces.
TEST_F(FaceMeasuresOnRealParts, BoundaryFormsAgreeWithIntegration) {
  MELD_REQUIRE_CORPUS(corpus);
  Agreement agreement;
  for (const char* file : {"nxcmp-Brake_Piston.x_t", "zero-Assembly 1.x_t", "ansgeo-blockhole_M.x_t",
                           "geneva-Geneva drive.x_t", "nxcmp-model3.x_t"}) {
    if (!std::filesystem::exists(corpus / file)) continue;
    SCOPED_TRACE(file);
    kerneltest::putPartFile(file, meldtest::readFile(corpus / file));
    std::vector<PK_PART_t> parts;
    ASSERT_EQ(kerneltest::receive(file, &parts), PK_ERROR_no_errors) << kerneltest::lastMessage();
    for (PK_BODY_t body : kerneltest::bodiesOf(parts)) compareFaces(meld::kernel::bodyData(body).shape, agreement);
  }
  std::printf("boundary-measured faces: plane %d, cylinder %d, cone %d, sphere %d; integrated %d; "
              "largest gaps as parts of their allowance: volume %.2f, area %.2f\n",
              agreement.measured[GeomAbs_Plane], agreement.measured[GeomAbs_Cylinder],
              agreement.measured[GeomAbs_Cone], agreement.measured[GeomAbs_Sphere], agreement.integratedOnly,
              agreement.volumeGap, agreement.areaGap);
  EXPECT_LT(agreement.volumeGap, 1);
  EXPECT_LT(agreement.areaGap, 1);
  EXPECT_GT(agreement.measured[GeomAbs_Cylinder], 100);
  EXPECT_GT(agreement.measured[GeomAbs_Cone], 10);
}
