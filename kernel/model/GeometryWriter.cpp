#include "GeometryWriter.h"

#include "ModelError.h"

#include <Geom2dConvert.hxx>
#include <Geom2d_BSplineCurve.hxx>
#include <Geom2d_Line.hxx>
#include <Geom2d_TrimmedCurve.hxx>
#include <GeomConvert.hxx>
#include <TColgp_Array1OfPnt2d.hxx>
#include <Geom_BSplineCurve.hxx>
#include <Geom_BSplineSurface.hxx>
#include <Geom_Circle.hxx>
#include <Geom_ConicalSurface.hxx>
#include <Geom_CylindricalSurface.hxx>
#include <Geom_Ellipse.hxx>
#include <Geom_Line.hxx>
#include <Geom_OffsetCurve.hxx>
#include <Geom_OffsetSurface.hxx>
#include <Geom_Plane.hxx>
#include <Geom_RectangularTrimmedSurface.hxx>
#include <Geom_SphericalSurface.hxx>
#include <Geom_SurfaceOfLinearExtrusion.hxx>
#include <Geom_SurfaceOfRevolution.hxx>
#include <Geom_ToroidalSurface.hxx>
#include <Geom_TrimmedCurve.hxx>
#include <Precision.hxx>
#include <Standard_Failure.hxx>
#include <TColStd_Array1OfInteger.hxx>
#include <TColStd_Array1OfReal.hxx>

#include <array>
#include <cmath>
#include <vector>

namespace meld::model {
namespace {

gp_XYZ xyz(const gp_Pnt& p) { return p.XYZ(); }
gp_XYZ xyz(const gp_Dir& d) { return d.XYZ(); }

std::vector<int64_t> ints(const TColStd_Array1OfInteger& a) {
  std::vector<int64_t> out;
  for (int i = a.Lower(); i <= a.Upper(); ++i) out.push_back(a(i));
  return out;
}
std::vector<double> reals(const TColStd_Array1OfReal& a) {
  std::vector<double> out;
  for (int i = a.Lower(); i <= a.Upper(); ++i) out.push_back(a(i));
  return out;
}

// An axis frame as the format wants it: z = x cross y, so that y = z cross x. A
// left-handed OCCT frame gets its z turned round; `flipped` says so.
struct Frame {
  gp_XYZ origin, axis, xAxis;
  bool flipped = false;
};
Frame frameOf(const gp_Ax3& ax) {
  Frame f;
  f.origin = ax.Location().XYZ();
  f.xAxis = ax.XDirection().XYZ();
  f.axis = ax.XDirection().XYZ().Crossed(ax.YDirection().XYZ());
  f.flipped = !ax.Direct();
  return f;
}

// Knots as the file holds them: distinct values and multiplicities. A periodic
// OCCT B-spline (N poles, first and last multiplicity equal) becomes the
// format's unclamped periodic form: N + degree control points (the first
// `degree` repeated at the end) over the flat knots of one period with `degree`
// knots of the period before and degree + 1 of the period after it.
struct FileKnots {
  std::vector<double> values;
  std::vector<int64_t> mults;
  int extraPoles = 0;  // leading control points repeated at the end
};

FileKnots fileKnots(const TColStd_Array1OfReal& knots, const TColStd_Array1OfInteger& mults, int degree, bool periodic) {
  FileKnots out;
  if (!periodic) {
    out.values = reals(knots);
    out.mults = ints(mults);
    return out;
  }
  std::vector<double> period;  // one period of flat knots, the last knot left out
  for (int i = knots.Lower(); i < knots.Upper(); ++i) period.insert(period.end(), static_cast<size_t>(mults(i)), knots(i));
  const double length = knots(knots.Upper()) - knots(knots.Lower());
  const size_t n = period.size(), d = static_cast<size_t>(degree);
  std::vector<double> flat;
  for (size_t i = n - d; i < n; ++i) flat.push_back(period[i % n] - length);
  flat.insert(flat.end(), period.begin(), period.end());
  for (size_t i = 0; i <= d; ++i) flat.push_back(period[i % n] + length);
  for (double v : flat) {
    if (!out.values.empty() && out.values.back() == v) ++out.mults.back();
    else {
      out.values.push_back(v);
      out.mults.push_back(1);
    }
  }
  out.extraPoles = degree;
  return out;
}

[[noreturn]] void unsupported(const std::string& what) {
  throw ModelError(PK_ERROR_unsupported_geometry, "cannot write " + what + " to a part file");
}

// A B-spline curve, 3D or 2D, as its NURBS_CURVE node: the file's knot form
// and homogeneous vertices. `place` gives a pole's `dim` coordinates (a 2D
// pole is placed in the surface's parameters).
template <class Spline, class Place>
int64_t nurbsCurveNode(GraphSink& sink, const Spline& b, int dim, Place place) {
  TColStd_Array1OfReal knots(1, b->NbKnots());
  TColStd_Array1OfInteger mults(1, b->NbKnots());
  b->Knots(knots);
  b->Multiplicities(mults);
  FileKnots k = fileKnots(knots, mults, b->Degree(), b->IsPeriodic());
  const int n = b->NbPoles() + k.extraPoles;
  const bool rational = b->IsRational();
  std::vector<double> vertices;
  for (int i = 0; i < n; ++i) {
    const int at = i % b->NbPoles() + 1;
    const double w = rational ? b->Weight(at) : 1.0;
    for (double x : place(b->Pole(at))) vertices.push_back(x * w);
    if (rational) vertices.push_back(w);
  }
  int64_t verts = sink.add("BSPLINE_VERTICES", {}, vertices);
  int64_t multNode = sink.add("KNOT_MULT", {}, k.mults);
  int64_t knotNode = sink.add("KNOT_SET", {}, k.values);
  return sink.add("NURBS_CURVE", {{"degree", int64_t{b->Degree()}}, {"n_vertices", int64_t{n}},
                                  {"vertex_dim", int64_t{rational ? dim + 1 : dim}},
                                  {"n_knots", static_cast<int64_t>(k.values.size())},
                                  {"knot_type", int64_t{1}}, {"rational", int64_t{rational}},
                                  {"periodic", int64_t{b->IsPeriodic()}}, {"closed", int64_t{b->IsPeriodic()}},
                                  {"curve_form", int64_t{1}}, {"bspline_vertices", verts},
                                  {"knot_mult", multNode}, {"knots", knotNode}});
}

}  // namespace

void GeometryWriter::chain(std::vector<int64_t>& list, int64_t node) {
  if (!list.empty()) {
    m_sink.set(list.back(), "next", node);
    m_sink.set(node, "previous", list.back());
  }
  list.push_back(node);
}

int64_t GeometryWriter::point(const gp_Pnt& p, int64_t owner) {
  int64_t node = m_sink.add("POINT", {{"owner", owner}, {"pvec", xyz(p)}});
  m_sink.set(node, "node_id", node);
  chain(m_points, node);
  return node;
}

int64_t GeometryWriter::curve(const Handle(Geom_Curve)& input, double first, double last, int64_t owner) {
  Handle(Geom_Curve) c = input;
  while (auto trimmed = Handle(Geom_TrimmedCurve)::DownCast(c)) c = trimmed->BasisCurve();
  int64_t node = 0;
  if (auto line = Handle(Geom_Line)::DownCast(c)) {
    node = m_sink.add("LINE", {{"pvec", xyz(line->Lin().Location())}, {"direction", xyz(line->Lin().Direction())}});
  } else if (auto circle = Handle(Geom_Circle)::DownCast(c)) {
    const gp_Ax2& ax = circle->Position();
    node = m_sink.add("CIRCLE", {{"centre", xyz(ax.Location())}, {"normal", xyz(ax.Direction())},
                                 {"x_axis", xyz(ax.XDirection())}, {"radius", circle->Radius()}});
  } else if (auto ellipse = Handle(Geom_Ellipse)::DownCast(c)) {
    const gp_Ax2& ax = ellipse->Position();
    node = m_sink.add("ELLIPSE", {{"centre", xyz(ax.Location())}, {"normal", xyz(ax.Direction())},
                                  {"x_axis", xyz(ax.XDirection())}, {"major_radius", ellipse->MajorRadius()},
                                  {"minor_radius", ellipse->MinorRadius()}});
  } else {
    Handle(Geom_BSplineCurve) b = Handle(Geom_BSplineCurve)::DownCast(c);
    try {
      if (b.IsNull()) b = GeomConvert::CurveToBSplineCurve(new Geom_TrimmedCurve(c, first, last));
      else b = Handle(Geom_BSplineCurve)::DownCast(b->Copy());
    } catch (const Standard_Failure& e) {
      unsupported(std::string("a curve (") + e.GetMessageString() + ")");
    }
    int64_t nurbs = nurbsCurveNode(m_sink, b, 3, [](const gp_Pnt& p) { return std::array{p.X(), p.Y(), p.Z()}; });
    node = m_sink.add("B_CURVE", {{"nurbs", nurbs}});
  }
  m_sink.set(node, "node_id", node);
  m_sink.set(node, "owner", owner);
  m_sink.set(node, "sense", sense(true));
  chain(m_curves, node);
  return node;
}

int64_t GeometryWriter::trimmed(int64_t basis, double first, double last, const gp_Pnt& p1, const gp_Pnt& p2,
                                int64_t owner) {
  int64_t node = m_sink.add("TRIMMED_CURVE", {{"owner", owner}, {"sense", sense(true)}, {"basis_curve", basis},
                                              {"point_1", xyz(p1)}, {"point_2", xyz(p2)}, {"parm_1", first},
                                              {"parm_2", last}});
  m_sink.set(node, "node_id", node);
  chain(m_curves, node);
  return node;
}

int64_t GeometryWriter::spCurve(int64_t surface, int64_t curve2d) {
  int64_t node = m_sink.add("SP_CURVE", {{"sense", sense(true)}, {"surface", surface}, {"b_curve", curve2d}});
  m_sink.set(node, "node_id", node);
  chain(m_curves, node);
  return node;
}

int64_t GeometryWriter::curve2d(const Handle(Geom2d_Curve)& input, double first, double last, const Surface& on) {
  Handle(Geom2d_Curve) c = input;
  while (auto trimmed = Handle(Geom2d_TrimmedCurve)::DownCast(c)) c = trimmed->BasisCurve();
  Handle(Geom2d_BSplineCurve) b;
  try {
    if (auto line = Handle(Geom2d_Line)::DownCast(c)) {
      TColgp_Array1OfPnt2d poles(1, 2);
      poles(1) = line->Value(first);
      poles(2) = line->Value(last);
      TColStd_Array1OfReal knots(1, 2);
      knots(1) = first;
      knots(2) = last;
      TColStd_Array1OfInteger mults(1, 2);
      mults.Init(2);
      b = new Geom2d_BSplineCurve(poles, knots, mults, 1);
    } else if (auto spline = Handle(Geom2d_BSplineCurve)::DownCast(c)) {
      b = spline;
    } else {
      b = Geom2dConvert::CurveToBSplineCurve(new Geom2d_TrimmedCurve(c, first, last));
    }
    // Only a curve with the same parameters is the same pcurve.
    for (int i = 0; i <= 4; ++i) {
      double t = first + (last - first) * i / 4.0;
      if (b->Value(t).Distance(input->Value(t)) > 1e-9) return 0;
    }
  } catch (const Standard_Failure&) {
    return 0;
  }
  int64_t nurbs = nurbsCurveNode(m_sink, b, 2, [&on](const gp_Pnt2d& p) {
    return on.swapUV ? std::array{p.Y(), p.X()} : std::array{p.X(), p.Y() * on.vScale};
  });
  return m_sink.add("B_CURVE", {{"nurbs", nurbs}, {"sense", sense(true)}});
}

GeometryWriter::Surface GeometryWriter::surface(const Handle(Geom_Surface)& input, int64_t owner) {
  Handle(Geom_Surface) s = input;
  while (auto trimmed = Handle(Geom_RectangularTrimmedSurface)::DownCast(s)) s = trimmed->BasisSurface();
  Surface out;
  if (auto plane = Handle(Geom_Plane)::DownCast(s)) {
    Frame f = frameOf(plane->Position());
    out.node = m_sink.add("PLANE", {{"pvec", f.origin}, {"normal", f.axis}, {"x_axis", f.xAxis}});
  } else if (auto cyl = Handle(Geom_CylindricalSurface)::DownCast(s)) {
    Frame f = frameOf(cyl->Position());
    out.reversesNormal = f.flipped;  // v runs against the axis
    out.vScale = f.flipped ? -1 : 1;
    out.node = m_sink.add("CYLINDER", {{"pvec", f.origin}, {"axis", f.axis}, {"radius", cyl->Radius()}, {"x_axis", f.xAxis}});
  } else if (auto cone = Handle(Geom_ConicalSurface)::DownCast(s)) {
    Frame f = frameOf(cone->Position());
    out.reversesNormal = f.flipped;
    double angle = f.flipped ? -cone->SemiAngle() : cone->SemiAngle();
    out.vScale = (f.flipped ? -1 : 1) * std::cos(angle);
    out.node = m_sink.add("CONE", {{"pvec", f.origin}, {"axis", f.axis}, {"radius", cone->RefRadius()},
                                   {"sin_half_angle", std::sin(angle)}, {"cos_half_angle", std::cos(angle)},
                                   {"x_axis", f.xAxis}});
  } else if (auto sphere = Handle(Geom_SphericalSurface)::DownCast(s)) {
    Frame f = frameOf(sphere->Position());
    out.reversesNormal = f.flipped;
    out.vScale = f.flipped ? -1 : 1;
    out.node = m_sink.add("SPHERE", {{"centre", f.origin}, {"radius", sphere->Radius()}, {"axis", f.axis}, {"x_axis", f.xAxis}});
  } else if (auto torus = Handle(Geom_ToroidalSurface)::DownCast(s)) {
    Frame f = frameOf(torus->Position());
    out.reversesNormal = f.flipped;
    out.vScale = f.flipped ? -1 : 1;
    out.node = m_sink.add("TORUS", {{"centre", f.origin}, {"axis", f.axis}, {"major_radius", torus->MajorRadius()},
                                    {"minor_radius", torus->MinorRadius()}, {"x_axis", f.xAxis}});
  } else if (auto offset = Handle(Geom_OffsetSurface)::DownCast(s)) {
    Surface base = surface(offset->BasisSurface(), 0);
    out.reversesNormal = base.reversesNormal;
    out.swapUV = base.swapUV;
    out.vScale = base.vScale;
    double d = base.reversesNormal ? -offset->Offset() : offset->Offset();
    out.node = m_sink.add("OFFSET_SURF", {{"check", int64_t{'U'}}, {"surface", base.node}, {"offset", d}});
  } else if (auto swept = Handle(Geom_SurfaceOfLinearExtrusion)::DownCast(s)) {
    Handle(Geom_Curve) section = swept->BasisCurve();
    int64_t c = curve(section, section->FirstParameter(), section->LastParameter(), 0);
    out.node = m_sink.add("SWEPT_SURF", {{"section", c}, {"sweep", xyz(swept->Direction())}});
  } else if (auto spun = Handle(Geom_SurfaceOfRevolution)::DownCast(s)) {
    Handle(Geom_Curve) profile = spun->BasisCurve();
    double f = profile->FirstParameter(), l = profile->LastParameter();
    if (Precision::IsInfinite(f) || Precision::IsInfinite(l)) unsupported("a revolution of an unbounded profile");
    int64_t c = curve(profile, f, l, 0);
    // The format's u runs along the profile and v round the axis: the other way
    // round from OCCT, so the natural normal turns round.
    out.reversesNormal = true;
    out.swapUV = true;
    out.node = m_sink.add("SPUN_SURF", {{"profile", c}, {"base", xyz(spun->Axis().Location())},
                                        {"axis", xyz(spun->Axis().Direction())}});
  } else {
    Handle(Geom_BSplineSurface) b = Handle(Geom_BSplineSurface)::DownCast(s);
    try {
      if (b.IsNull()) b = GeomConvert::SurfaceToBSplineSurface(s);
      else b = Handle(Geom_BSplineSurface)::DownCast(b->Copy());
    } catch (const Standard_Failure& e) {
      unsupported(std::string("a surface (") + e.GetMessageString() + ")");
    }
    TColStd_Array1OfReal uk(1, b->NbUKnots()), vk(1, b->NbVKnots());
    TColStd_Array1OfInteger um(1, b->NbUKnots()), vm(1, b->NbVKnots());
    b->UKnots(uk);
    b->VKnots(vk);
    b->UMultiplicities(um);
    b->VMultiplicities(vm);
    FileKnots ku = fileKnots(uk, um, b->UDegree(), b->IsUPeriodic());
    FileKnots kv = fileKnots(vk, vm, b->VDegree(), b->IsVPeriodic());
    const int nu = b->NbUPoles() + ku.extraPoles, nv = b->NbVPoles() + kv.extraPoles;
    const bool rational = b->IsURational() || b->IsVRational();
    std::vector<double> vertices;
    for (int i = 0; i < nu; ++i)  // v varies fastest
      for (int j = 0; j < nv; ++j) {
        const int pi = i % b->NbUPoles() + 1, pj = j % b->NbVPoles() + 1;
        const gp_Pnt p = b->Pole(pi, pj);
        const double w = rational ? b->Weight(pi, pj) : 1.0;
        vertices.insert(vertices.end(), {p.X() * w, p.Y() * w, p.Z() * w});
        if (rational) vertices.push_back(w);
      }
    int64_t verts = m_sink.add("BSPLINE_VERTICES", {}, vertices);
    int64_t umult = m_sink.add("KNOT_MULT", {}, ku.mults), vmult = m_sink.add("KNOT_MULT", {}, kv.mults);
    int64_t uknots = m_sink.add("KNOT_SET", {}, ku.values), vknots = m_sink.add("KNOT_SET", {}, kv.values);
    int64_t nurbs = m_sink.add("NURBS_SURF", {{"u_degree", int64_t{b->UDegree()}}, {"v_degree", int64_t{b->VDegree()}},
                                              {"n_u_vertices", int64_t{nu}}, {"n_v_vertices", int64_t{nv}},
                                              {"u_knot_type", int64_t{1}}, {"v_knot_type", int64_t{1}},
                                              {"n_u_knots", static_cast<int64_t>(ku.values.size())},
                                              {"n_v_knots", static_cast<int64_t>(kv.values.size())},
                                              {"u_periodic", int64_t{b->IsUPeriodic()}}, {"v_periodic", int64_t{b->IsVPeriodic()}},
                                              {"u_closed", int64_t{b->IsUPeriodic()}}, {"v_closed", int64_t{b->IsVPeriodic()}},
                                              {"rational", int64_t{rational}}, {"surface_form", int64_t{1}},
                                              {"vertex_dim", int64_t{rational ? 4 : 3}}, {"bspline_vertices", verts},
                                              {"u_knot_mult", umult}, {"v_knot_mult", vmult},
                                              {"u_knots", uknots}, {"v_knots", vknots}});
    out.node = m_sink.add("B_SURFACE", {{"nurbs", nurbs}});
  }
  m_sink.set(out.node, "node_id", out.node);
  m_sink.set(out.node, "owner", owner);
  m_sink.set(out.node, "sense", sense(true));
  chain(m_surfaces, out.node);
  return out;
}

}  // namespace meld::model
