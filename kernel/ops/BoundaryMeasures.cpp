#include "BoundaryMeasures.h"

#include <BRepAdaptor_Curve.hxx>
#include <BRepAdaptor_Curve2d.hxx>
#include <BRepAdaptor_Surface.hxx>
#include <BRep_Tool.hxx>
#include <TColStd_Array1OfReal.hxx>
#include <TopExp.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Edge.hxx>
#include <TopoDS_Vertex.hxx>
#include <gp_Circ.hxx>
#include <math.hxx>
#include <math_Vector.hxx>

#include <cmath>
#include <functional>
#include <vector>

namespace meld::kernel {

namespace {

constexpr double kPi = 3.14159265358979323846;
// Pcurve ends further apart than this (in the surface's parameters) leave the
// boundary open there, as pcurves placed in different periods do (they miss
// by a whole period, 2 pi in u). Tolerant edges miss by their tolerance (up
// to 7e-5 on the corpus), which moves the area by as little as the edges'
// own 3D curves and pcurves disagree.
constexpr double kParameterGap = 1e-3;

// Gauss-Legendre with 10 points: exact on polynomials up to degree 19, so on
// a B-spline's knot span the integrands below are exact or nearly.
struct GaussRule {
  double x[10], w[10];
  GaussRule() {
    math_Vector points(1, 10), weights(1, 10);
    math::GaussPoints(10, points);
    math::GaussWeights(10, weights);
    for (int i = 0; i < 10; ++i) x[i] = points(i + 1), w[i] = weights(i + 1);
  }
};

using Integrand = std::function<gp_XYZ(double)>;

gp_XYZ gaussPiece(const Integrand& f, double a, double b, double& size) {
  static const GaussRule rule;
  const double half = 0.5 * (b - a), mid = 0.5 * (a + b);
  gp_XYZ sum(0, 0, 0);
  size = 0;
  for (int i = 0; i < 10; ++i) {
    gp_XYZ value = f(mid + half * rule.x[i]);
    sum += value * rule.w[i];
    size += rule.w[i] * (std::abs(value.X()) + std::abs(value.Y()) + std::abs(value.Z()));
  }
  size *= std::abs(half);
  return sum * half;
}

// Halves a piece until halving changes its integral by less than 1e-13 of
// the integral of the integrand's size: on a smooth piece once, to check.
gp_XYZ refined(const Integrand& f, double a, double b, const gp_XYZ& whole, int depth) {
  const double m = 0.5 * (a + b);
  double sizeA = 0, sizeB = 0;
  gp_XYZ left = gaussPiece(f, a, m, sizeA), right = gaussPiece(f, m, b, sizeB);
  gp_XYZ halves = left + right;
  if (depth >= 12 || (halves - whole).Modulus() <= 1e-13 * (sizeA + sizeB)) return halves;
  return refined(f, a, m, left, depth + 1) + refined(f, m, b, right, depth + 1);
}

// The integral over [t0, t1] cut at the curve's own breaks (a B-spline's
// knots), with pieces of at most an eighth of a turn.
gp_XYZ integrateAlong(const Integrand& f, std::vector<double> breaks) {
  gp_XYZ total(0, 0, 0);
  for (std::size_t i = 0; i + 1 < breaks.size(); ++i) {
    const double a = breaks[i], b = breaks[i + 1];
    const int pieces = std::max(1, int(std::ceil((b - a) / (kPi / 4))));
    for (int k = 0; k < pieces; ++k) {
      double p = a + (b - a) * k / pieces, q = a + (b - a) * (k + 1) / pieces, size = 0;
      total += refined(f, p, q, gaussPiece(f, p, q, size), 0);
    }
  }
  return total;
}

template <class Curve>
std::vector<double> breaksOf(const Curve& curve, double t0, double t1) {
  std::vector<double> breaks{t0};
  const int n = curve.NbIntervals(GeomAbs_CN);
  if (n > 1) {
    TColStd_Array1OfReal knots(1, n + 1);
    curve.Intervals(knots, GeomAbs_CN);
    for (int i = 1; i <= n + 1; ++i)
      if (knots(i) > t0 && knots(i) < t1) breaks.push_back(knots(i));
  }
  breaks.push_back(t1);
  return breaks;
}

// The integral of (r - from) x dr along an edge as the face runs through it:
// closed form for lines and circles, by quadrature otherwise.
gp_XYZ sweptVector(const TopoDS_Edge& edge, const gp_XYZ& from) {
  BRepAdaptor_Curve curve(edge);
  const double t0 = curve.FirstParameter(), t1 = curve.LastParameter();
  gp_XYZ swept;
  if (curve.GetType() == GeomAbs_Line) {
    swept = (curve.Value(t0).XYZ() - from).Crossed(curve.Value(t1).XYZ() - from);
  } else if (curve.GetType() == GeomAbs_Circle) {
    // r = c + R (cos t x + sin t y): r x r' = R c x (-sin t x + cos t y) + R^2 z.
    gp_Circ circle = curve.Circle();
    const gp_Ax2& frame = circle.Position();
    gp_XYZ c = frame.Location().XYZ() - from, x = frame.XDirection().XYZ(), y = frame.YDirection().XYZ();
    double radius = circle.Radius();
    gp_XYZ chord = x * (std::cos(t1) - std::cos(t0)) + y * (std::sin(t1) - std::sin(t0));
    swept = c.Crossed(chord) * radius + frame.Direction().XYZ() * (radius * radius * (t1 - t0));
  } else {
    swept = integrateAlong(
        [&](double t) {
          gp_Pnt p;
          gp_Vec d;
          curve.D1(t, p, d);
          return (p.XYZ() - from).Crossed(d.XYZ());
        },
        breaksOf(curve, t0, t1));
  }
  if (edge.Orientation() == TopAbs_REVERSED) swept.Reverse();
  return swept;
}

bool runsAlongFace(const TopoDS_Edge& edge) {
  return edge.Orientation() == TopAbs_FORWARD || edge.Orientation() == TopAbs_REVERSED;
}

// Half the sum of r x dr over the face's edges: its area times its normal
// (the face as oriented), for any surface. Internal edges cancel out. The
// sum does not depend on where r is measured from while the edges close up;
// measured from a point of the face, ends that miss each other (tolerant
// edges) cost their gap times the face's size, not times its distance from
// the origin.
gp_XYZ areaVector(const TopoDS_Face& face) {
  gp_XYZ sum(0, 0, 0), from(0, 0, 0);
  bool first = true;
  for (TopExp_Explorer ex(face, TopAbs_EDGE); ex.More(); ex.Next()) {
    const TopoDS_Edge& edge = TopoDS::Edge(ex.Current());
    if (!runsAlongFace(edge) || BRep_Tool::Degenerated(edge)) continue;
    if (first) from = BRep_Tool::Pnt(TopExp::FirstVertex(edge)).XYZ(), first = false;
    sum += sweptVector(edge, from);
  }
  return sum * 0.5;
}

// The area element of a surface of revolution is g(v) du dv, so by Green's
// theorem its area is the integral of -G(v) du round the boundary in the
// parameter plane, G' = g. `G` is a polynomial of degree two at most when
// `quadratic`, so Simpson's rule is exact along a straight pcurve.
struct AreaForm {
  std::function<double(double)> G;
  bool quadratic = false;
};

// The integral of -G(v) du along the face's pcurves (the face taken forward,
// so that the boundary runs counter-clockwise round the domain), or false
// when the pcurves do not join up into closed loops.
bool parameterArea(const TopoDS_Face& face, const AreaForm& form, double& area) {
  const TopoDS_Face forward = TopoDS::Face(face.Oriented(TopAbs_FORWARD));
  std::vector<gp_Pnt2d> starts, ends;
  area = 0;
  for (TopExp_Explorer ex(forward, TopAbs_EDGE); ex.More(); ex.Next()) {
    const TopoDS_Edge& edge = TopoDS::Edge(ex.Current());
    if (!runsAlongFace(edge)) continue;
    BRepAdaptor_Curve2d pcurve(edge, forward);
    double t0 = pcurve.FirstParameter(), t1 = pcurve.LastParameter();
    gp_Pnt2d a = pcurve.Value(t0), b = pcurve.Value(t1);
    double along = 0;
    if (pcurve.GetType() == GeomAbs_Line && (form.quadratic || std::abs(b.Y() - a.Y()) < 1e-15)) {
      double mid = 0.5 * (a.Y() + b.Y());
      along = -(b.X() - a.X()) * (form.G(a.Y()) + 4 * form.G(mid) + form.G(b.Y())) / 6;
    } else {
      along = integrateAlong(
                  [&](double t) {
                    gp_Pnt2d p;
                    gp_Vec2d d;
                    pcurve.D1(t, p, d);
                    return gp_XYZ(-form.G(p.Y()) * d.X(), 0, 0);
                  },
                  breaksOf(pcurve, t0, t1))
                  .X();
    }
    if (edge.Orientation() == TopAbs_REVERSED) std::swap(a, b), along = -along;
    area += along;
    starts.push_back(a);
    ends.push_back(b);
  }
  // Every pcurve must end where another starts.
  std::vector<bool> taken(starts.size());
  for (const gp_Pnt2d& end : ends) {
    std::size_t j = 0;
    while (j < starts.size() && (taken[j] || end.Distance(starts[j]) > kParameterGap)) ++j;
    if (j == starts.size()) return false;
    taken[j] = true;
  }
  return area > 0;
}

// Which way the face's normal points relative to `away` (from the axis or the
// centre) at a point of the face: +1 away, -1 towards, 0 when it cannot say.
int sideOf(const TopoDS_Face& face, const BRepAdaptor_Surface& surface,
           const std::function<gp_Vec(const gp_Pnt&)>& away) {
  for (TopExp_Explorer ex(face, TopAbs_EDGE); ex.More(); ex.Next()) {
    const TopoDS_Edge& edge = TopoDS::Edge(ex.Current());
    if (BRep_Tool::Degenerated(edge)) continue;
    BRepAdaptor_Curve2d pcurve(edge, face);
    gp_Pnt2d uv = pcurve.Value(0.5 * (pcurve.FirstParameter() + pcurve.LastParameter()));
    gp_Pnt p;
    gp_Vec du, dv;
    surface.D1(uv.X(), uv.Y(), p, du, dv);
    gp_Vec normal = du.Crossed(dv);
    if (face.Orientation() == TopAbs_REVERSED) normal.Reverse();
    const double dot = normal.Dot(away(p));
    const double scale = normal.Magnitude() * away(p).Magnitude();
    if (scale > 0 && std::abs(dot) > 1e-6 * scale) return dot > 0 ? 1 : -1;
  }
  return 0;
}

}  // namespace

bool boundaryMeasures(const TopoDS_Face& face, Measures& measures) {
  BRepAdaptor_Surface surface(face, false);
  switch (surface.GetType()) {
    case GeomAbs_Plane: {
      // A plane point dotted with the area vector is three times the cone's volume.
      gp_XYZ area = areaVector(face);
      measures = Measures{surface.Plane().Location().XYZ().Dot(area) / 3.0, area.Modulus()};
      return true;
    }
    case GeomAbs_Cylinder: {
      // (P - axis point) . n = +-R: the share is a third of (O . A + -R area).
      const gp_Cylinder cyl = surface.Cylinder();
      const double r = cyl.Radius();
      double area = 0;
      if (!parameterArea(face, {[r](double v) { return r * v; }, true}, area)) return false;
      const gp_Ax1 axis = cyl.Axis();
      int side = sideOf(face, surface, [&](const gp_Pnt& p) {
        gp_Vec off(axis.Location(), p);
        return off - gp_Vec(axis.Direction()) * off.Dot(gp_Vec(axis.Direction()));
      });
      if (side == 0) return false;
      measures = Measures{(axis.Location().XYZ().Dot(areaVector(face)) + side * r * area) / 3.0, area};
      return true;
    }
    case GeomAbs_Cone: {
      // Every line from the apex lies on the cone: (P - apex) . n = 0.
      const gp_Cone cone = surface.Cone();
      const double r = cone.RefRadius(), s = std::sin(cone.SemiAngle());
      double area = 0;
      if (!parameterArea(face, {[r, s](double v) { return r * v + 0.5 * s * v * v; }, true}, area)) return false;
      measures = Measures{cone.Apex().XYZ().Dot(areaVector(face)) / 3.0, area};
      return true;
    }
    case GeomAbs_Sphere: {
      // (P - centre) . n = +-R, and the area element is R^2 cos v du dv.
      const gp_Sphere sphere = surface.Sphere();
      const double r = sphere.Radius();
      double area = 0;
      if (!parameterArea(face, {[r](double v) { return r * r * std::sin(v); }, false}, area)) return false;
      const gp_Pnt centre = sphere.Location();
      int side = sideOf(face, surface, [&](const gp_Pnt& p) { return gp_Vec(centre, p); });
      if (side == 0) return false;
      measures = Measures{(centre.XYZ().Dot(areaVector(face)) + side * r * area) / 3.0, area};
      return true;
    }
    default:
      return false;
  }
}

}  // namespace meld::kernel
