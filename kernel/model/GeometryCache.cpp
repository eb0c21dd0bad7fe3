#include "GeometryCache.h"

#include "procedural/Procedural.h"

#include <Geom2d_BSplineCurve.hxx>
#include <Geom_BSplineCurve.hxx>
#include <Geom_BSplineSurface.hxx>
#include <Geom_Circle.hxx>
#include <Geom_ConicalSurface.hxx>
#include <Geom_CylindricalSurface.hxx>
#include <Geom_Ellipse.hxx>
#include <Geom_Line.hxx>
#include <Geom_OffsetSurface.hxx>
#include <Geom_Plane.hxx>
#include <Geom_SphericalSurface.hxx>
#include <Geom_SurfaceOfLinearExtrusion.hxx>
#include <Geom_SurfaceOfRevolution.hxx>
#include <Geom_ToroidalSurface.hxx>
#include <Geom_TrimmedCurve.hxx>
#include <Standard_Failure.hxx>
#include <TColStd_Array1OfInteger.hxx>
#include <TColStd_Array1OfReal.hxx>
#include <TColStd_Array2OfReal.hxx>
#include <TColgp_Array1OfPnt.hxx>
#include <TColgp_Array1OfPnt2d.hxx>
#include <TColgp_Array2OfPnt.hxx>
#include <gp_Ax2.hxx>
#include <gp_Ax3.hxx>

#include <algorithm>
#include <cmath>
#include <functional>

namespace meld::model {
namespace {

[[noreturn]] void bad(const NodeAccess& n, long node, const std::string& why) {
  throw ModelError(PK_ERROR_bad_geometry, "cannot build " + n.describe(node) + ": " + why);
}

gp_Dir direction(const NodeAccess& n, long node, std::string_view field) {
  gp_Vec v = n.vec(node, field);
  if (v.Magnitude() < 1e-12) bad(n, node, std::string(field) + " is not a direction");
  return gp_Dir(v);
}

// An axis frame from a location, a z direction and an x direction; x is made
// exactly perpendicular (the file's are within angular resolution).
gp_Ax3 frame(const NodeAccess& n, long node, std::string_view origin, std::string_view axis,
             std::string_view xAxis) {
  gp_Dir z = direction(n, node, axis), x = direction(n, node, xAxis);
  if (z.IsParallel(x, 1e-9)) bad(n, node, "x axis parallel to the axis");
  return gp_Ax3(n.pnt(node, origin), z, x);
}

double positiveReal(const NodeAccess& n, long node, std::string_view field) {
  double value = n.real(node, field);
  if (!(value > 0) || !std::isfinite(value)) bad(n, node, std::string(field) + " must be positive");
  return value;
}

// ---- B-splines -------------------------------------------------------------

struct Knots {
  std::vector<double> values;
  std::vector<int> mults;
  int total() const {
    int sum = 0;
    for (int m : mults) sum += m;
    return sum;
  }
};

// The distinct knots and their multiplicities; the nodes can hold more entries than
// n_knots (real 2D curves do), of which only the first n_knots count.
Knots readKnots(const NodeAccess& n, long nurbs, std::string_view multField, std::string_view setField,
                int64_t count) {
  long multNode = n.ptr(nurbs, multField), setNode = n.ptr(nurbs, setField);
  if (multNode == kNone || setNode == kNone) bad(n, nurbs, "knots missing");
  xt::FieldView mult = n.view(multNode, "mult"), set = n.view(setNode, "knots");
  if (count < 2 || static_cast<size_t>(count) > mult.ints.size() || static_cast<size_t>(count) > set.reals.size())
    bad(n, nurbs, "knot count " + std::to_string(count) + " does not fit its knot nodes");
  Knots k;
  for (int64_t i = 0; i < count; ++i) {
    double value = set.reals[static_cast<size_t>(i)];
    int64_t m = mult.ints[static_cast<size_t>(i)];
    if (!std::isfinite(value) || m < 1 || m > 64) bad(n, nurbs, "bad knot or multiplicity");
    if (!k.values.empty() && !(value > k.values.back())) bad(n, nurbs, "knots do not increase");
    k.values.push_back(value);
    k.mults.push_back(static_cast<int>(m));
  }
  return k;
}

// The periodic form OCCT evaluates like the file: the knots of the base range
// [F[d], F[n]] of the flat knot vector F with their full multiplicities, the first
// and last made equal, and as many leading control points as the multiplicities
// (all but the last) count.
struct PeriodicKnots {
  Knots knots;
  int poles = 0;
};

PeriodicKnots periodicKnots(const Knots& k, int degree, int nPoles) {
  std::vector<double> flat;
  for (size_t i = 0; i < k.values.size(); ++i) flat.insert(flat.end(), static_cast<size_t>(k.mults[i]), k.values[i]);
  PeriodicKnots out;
  double lo = flat[static_cast<size_t>(degree)], hi = flat[static_cast<size_t>(nPoles)];
  for (size_t i = 0; i < k.values.size(); ++i)
    if (k.values[i] >= lo && k.values[i] <= hi) {
      out.knots.values.push_back(k.values[i]);
      out.knots.mults.push_back(k.mults[i]);
    }
  if (out.knots.values.size() < 2) return out;
  out.knots.mults.back() = out.knots.mults.front();
  out.poles = out.knots.total() - out.knots.mults.back();
  return out;
}

TColStd_Array1OfReal realArray(const std::vector<double>& v) {
  TColStd_Array1OfReal a(1, static_cast<int>(v.size()));
  for (size_t i = 0; i < v.size(); ++i) a.SetValue(static_cast<int>(i) + 1, v[i]);
  return a;
}
TColStd_Array1OfInteger intArray(const std::vector<int>& v) {
  TColStd_Array1OfInteger a(1, static_cast<int>(v.size()));
  for (size_t i = 0; i < v.size(); ++i) a.SetValue(static_cast<int>(i) + 1, v[i]);
  return a;
}

// The control points of a NURBS node as rows of `dim` doubles (homogeneous when
// rational): checked against the declared counts.
std::span<const double> controlPoints(const NodeAccess& n, long nurbs, size_t count, int dim) {
  long verts = n.ptr(nurbs, "bspline_vertices");
  if (verts == kNone) bad(n, nurbs, "control points missing");
  xt::FieldView view = n.view(verts, "vertices");
  if (count == 0 || view.reals.size() != count * static_cast<size_t>(dim))
    bad(n, nurbs, "control point count does not match its vertices");
  for (double v : view.reals)
    if (!std::isfinite(v)) bad(n, nurbs, "control point not finite");
  return view.reals;
}

struct Pole {
  double xyz[3] = {0, 0, 0};
  double weight = 1;
};

Pole pole(std::span<const double> data, size_t i, int coords, bool rational) {
  const int dim = coords + (rational ? 1 : 0);
  Pole p;
  const double* row = data.data() + i * static_cast<size_t>(dim);
  p.weight = rational ? row[coords] : 1.0;
  if (!(p.weight > 0)) throw std::domain_error("weight not positive");
  for (int c = 0; c < coords; ++c) p.xyz[c] = row[c] / p.weight;
  return p;
}

struct CurveData {
  int degree = 0, nPoles = 0;
  bool rational = false, periodic = false;
  Knots knots;
  std::vector<Pole> poles;
};

CurveData readCurveData(const NodeAccess& n, long bcurve, int coords) {
  long nurbs = n.ptr(bcurve, "nurbs");
  if (nurbs == kNone) bad(n, bcurve, "no NURBS data");
  CurveData c;
  c.degree = static_cast<int>(n.integer(nurbs, "degree"));
  c.nPoles = static_cast<int>(n.integer(nurbs, "n_vertices"));
  c.rational = n.integer(nurbs, "rational") != 0;
  c.periodic = n.integer(nurbs, "periodic") != 0;
  int dim = static_cast<int>(n.integer(nurbs, "vertex_dim"));
  if (c.degree < 1 || c.degree > 25 || c.nPoles < 2 || dim != coords + (c.rational ? 1 : 0))
    bad(n, bcurve, "degree, control point count or dimension out of range");
  c.knots = readKnots(n, nurbs, "knot_mult", "knots", n.integer(nurbs, "n_knots"));
  if (c.knots.total() != c.nPoles + c.degree + 1) bad(n, bcurve, "knot multiplicities do not add up");
  auto data = controlPoints(n, nurbs, static_cast<size_t>(c.nPoles), dim);
  try {
    for (int i = 0; i < c.nPoles; ++i) c.poles.push_back(pole(data, static_cast<size_t>(i), coords, c.rational));
  } catch (const std::domain_error& e) {
    bad(n, bcurve, e.what());
  }
  return c;
}

// Builds a curve (3D or 2D) from its data: periodic in OCCT's form when the file
// says periodic and that form holds, otherwise as the file's plain B-spline.
template <class Result>
Result makeBSpline(const CurveData& c, const std::function<Result(const Knots&, int)>& build) {
  if (c.periodic) {
    PeriodicKnots p = periodicKnots(c.knots, c.degree, c.nPoles);
    if (p.poles >= 2 && p.poles <= c.nPoles) {
      try {
        return build(p.knots, p.poles);
      } catch (const Standard_Failure&) {
      }
    }
  }
  return build(c.knots, c.nPoles);
}

Handle(Geom_Curve) bCurve(const NodeAccess& n, long node) {
  CurveData c = readCurveData(n, node, 3);
  std::function<Handle(Geom_Curve)(const Knots&, int)> build = [&](const Knots& k, int count) -> Handle(Geom_Curve) {
    TColgp_Array1OfPnt poles(1, count);
    TColStd_Array1OfReal weights(1, count);
    for (int i = 0; i < count; ++i) {
      const Pole& p = c.poles[static_cast<size_t>(i)];
      poles.SetValue(i + 1, gp_Pnt(p.xyz[0], p.xyz[1], p.xyz[2]));
      weights.SetValue(i + 1, p.weight);
    }
    bool periodic = count != c.nPoles;
    if (c.rational) return new Geom_BSplineCurve(poles, weights, realArray(k.values), intArray(k.mults), c.degree, periodic);
    return new Geom_BSplineCurve(poles, realArray(k.values), intArray(k.mults), c.degree, periodic);
  };
  return makeBSpline(c, build);
}

Handle(Geom_Surface) bSurface(const NodeAccess& n, long node) {
  long nurbs = n.ptr(node, "nurbs");
  if (nurbs == kNone) bad(n, node, "no NURBS data");
  int du = static_cast<int>(n.integer(nurbs, "u_degree")), dv = static_cast<int>(n.integer(nurbs, "v_degree"));
  int nu = static_cast<int>(n.integer(nurbs, "n_u_vertices")), nv = static_cast<int>(n.integer(nurbs, "n_v_vertices"));
  bool rational = n.integer(nurbs, "rational") != 0;
  int dim = static_cast<int>(n.integer(nurbs, "vertex_dim"));
  if (du < 1 || dv < 1 || du > 25 || dv > 25 || nu < 2 || nv < 2 || dim != (rational ? 4 : 3))
    bad(n, node, "degree, control point count or dimension out of range");
  Knots uk = readKnots(n, nurbs, "u_knot_mult", "u_knots", n.integer(nurbs, "n_u_knots"));
  Knots vk = readKnots(n, nurbs, "v_knot_mult", "v_knots", n.integer(nurbs, "n_v_knots"));
  if (uk.total() != nu + du + 1 || vk.total() != nv + dv + 1) bad(n, node, "knot multiplicities do not add up");
  auto data = controlPoints(n, nurbs, static_cast<size_t>(nu) * static_cast<size_t>(nv), dim);

  // The file's control points run with v fastest.
  auto build = [&](const Knots& ku, int cu, bool pu, const Knots& kv, int cv, bool pv) -> Handle(Geom_Surface) {
    TColgp_Array2OfPnt poles(1, cu, 1, cv);
    TColStd_Array2OfReal weights(1, cu, 1, cv);
    for (int i = 0; i < cu; ++i)
      for (int j = 0; j < cv; ++j) {
        Pole p = pole(data, static_cast<size_t>(i) * static_cast<size_t>(nv) + static_cast<size_t>(j), 3, rational);
        poles.SetValue(i + 1, j + 1, gp_Pnt(p.xyz[0], p.xyz[1], p.xyz[2]));
        weights.SetValue(i + 1, j + 1, p.weight);
      }
    if (rational)
      return new Geom_BSplineSurface(poles, weights, realArray(ku.values), realArray(kv.values), intArray(ku.mults),
                                     intArray(kv.mults), du, dv, pu, pv);
    return new Geom_BSplineSurface(poles, realArray(ku.values), realArray(kv.values), intArray(ku.mults),
                                   intArray(kv.mults), du, dv, pu, pv);
  };
  try {
    bool pu = n.integer(nurbs, "u_periodic") != 0, pv = n.integer(nurbs, "v_periodic") != 0;
    if (pu || pv) {
      PeriodicKnots ppu = periodicKnots(uk, du, nu), ppv = periodicKnots(vk, dv, nv);
      bool okU = !pu || (ppu.poles >= 2 && ppu.poles <= nu), okV = !pv || (ppv.poles >= 2 && ppv.poles <= nv);
      if (okU && okV) {
        try {
          return build(pu ? ppu.knots : uk, pu ? ppu.poles : nu, pu, pv ? ppv.knots : vk, pv ? ppv.poles : nv, pv);
        } catch (const Standard_Failure&) {
        }
      }
    }
    return build(uk, nu, false, vk, nv, false);
  } catch (const std::domain_error& e) {
    bad(n, node, e.what());
  } catch (const Standard_Failure& e) {
    bad(n, node, std::string("OCCT refused it: ") + e.GetMessageString());
  }
}

// ---- analytic surfaces -----------------------------------------------------

Handle(Geom_Surface) torus(const NodeAccess& n, long node) {
  gp_Ax3 axes = frame(n, node, "centre", "axis", "x_axis");
  double a = n.real(node, "major_radius"), b = positiveReal(n, node, "minor_radius");
  if (!std::isfinite(a)) bad(n, node, "major radius is null");
  if (a > 0) return new Geom_ToroidalSurface(axes, a, b);
  // A lemon (a < 0) or a degenerate torus: the profile circle spun about the axis
  // has the same parametrisation, R = C + (X cos u + Y sin u)(a + b cos v) + b A sin v.
  gp_Pnt centre = axes.Location().Translated(gp_Vec(axes.XDirection()) * a);
  gp_Ax2 profileAxes(centre, -gp_Dir(axes.YDirection()), axes.XDirection());
  Handle(Geom_Circle) profile = new Geom_Circle(profileAxes, b);
  return new Geom_SurfaceOfRevolution(profile, gp_Ax1(axes.Location(), axes.Direction()));
}

}  // namespace

bool GeometryCache::reversesNormal(long node) const {
  switch (m_nodes.type(node)) {
    case kSpunSurf: return true;
    case kOffsetSurf: {
      long base = m_nodes.ptr(node, "surface");
      return base != kNone && base != node && reversesNormal(base);
    }
    default: return false;
  }
}

gp_Pnt GeometryCache::point(long node) {
  if (m_nodes.type(node) != kPoint) bad(m_nodes, node, "not a POINT");
  return m_nodes.pnt(node, "pvec");
}

Handle(Geom_Surface) GeometryCache::surface(long node) {
  if (auto it = m_surfaces.find(node); it != m_surfaces.end()) return it->second;
  if (std::find(m_building.begin(), m_building.end(), node) != m_building.end())
    bad(m_nodes, node, "it is defined in terms of itself");
  m_building.push_back(node);
  Handle(Geom_Surface) built;
  try {
    built = buildSurface(node);
  } catch (...) {
    m_building.pop_back();
    throw;
  }
  m_building.pop_back();
  m_surfaces.emplace(node, built);
  return built;
}

Handle(Geom_Curve) GeometryCache::curve(long node) {
  if (auto it = m_curves.find(node); it != m_curves.end()) return it->second;
  if (std::find(m_building.begin(), m_building.end(), node) != m_building.end())
    bad(m_nodes, node, "it is defined in terms of itself");
  m_building.push_back(node);
  Handle(Geom_Curve) built;
  try {
    built = buildCurve(node);
  } catch (...) {
    m_building.pop_back();
    throw;
  }
  m_building.pop_back();
  m_curves.emplace(node, built);
  return built;
}

Handle(Geom_Surface) GeometryCache::buildSurface(long node) {
  const NodeAccess& n = m_nodes;
  try {
    switch (n.type(node)) {
      case kPlane: return new Geom_Plane(frame(n, node, "pvec", "normal", "x_axis"));
      case kCylinder:
        return new Geom_CylindricalSurface(frame(n, node, "pvec", "axis", "x_axis"), positiveReal(n, node, "radius"));
      case kCone: {
        // The radius grows along the stored axis (real files say so, whatever the
        // printed formula says); OCCT's v is the file's v over cos(half angle).
        double s = n.real(node, "sin_half_angle"), c = n.real(node, "cos_half_angle");
        double radius = n.real(node, "radius");
        if (!std::isfinite(s) || !std::isfinite(c) || !(c > 0) || std::abs(s) < 1e-11 || !(radius >= 0))
          bad(n, node, "half angle or radius out of range");
        return new Geom_ConicalSurface(frame(n, node, "pvec", "axis", "x_axis"), std::atan2(s, c), radius);
      }
      case kSphere:
        return new Geom_SphericalSurface(frame(n, node, "centre", "axis", "x_axis"), positiveReal(n, node, "radius"));
      case kTorus: return torus(n, node);
      case kBSurface: return bSurface(n, node);
      case kOffsetSurf: {
        long base = n.require(node, "surface", PK_ERROR_bad_geometry);
        double d = n.real(node, "offset");
        if (!std::isfinite(d)) bad(n, node, "offset is null");
        // Along the base's sensed normal, as OCCT sees that normal.
        double occtOffset = d * sense(base) * (reversesNormal(base) ? -1 : 1);
        return new Geom_OffsetSurface(surface(base), occtOffset, true);
      }
      case kSweptSurf: {
        long section = n.require(node, "section", PK_ERROR_bad_geometry);
        return new Geom_SurfaceOfLinearExtrusion(curve(section), direction(n, node, "sweep"));
      }
      case kSpunSurf: {
        long profile = n.require(node, "profile", PK_ERROR_bad_geometry);
        return new Geom_SurfaceOfRevolution(curve(profile), gp_Ax1(n.pnt(node, "base"), direction(n, node, "axis")));
      }
      default: break;
    }
  } catch (const Standard_Failure& e) {
    bad(n, node, std::string("OCCT refused it: ") + e.GetMessageString());
  }
  if (Handle(Geom_Surface) s = procedural::convertSurface(*this, node)) return s;
  throw ModelError(PK_ERROR_unsupported_geometry,
                   "no converter for " + n.describe(node) + " (procedural or foreign surface)");
}

Handle(Geom_Curve) GeometryCache::buildCurve(long node) {
  const NodeAccess& n = m_nodes;
  try {
    switch (n.type(node)) {
      case kLine: return new Geom_Line(n.pnt(node, "pvec"), direction(n, node, "direction"));
      case kCircle: {
        gp_Ax3 axes = frame(n, node, "centre", "normal", "x_axis");
        return new Geom_Circle(axes.Ax2(), positiveReal(n, node, "radius"));
      }
      case kEllipse: {
        gp_Ax3 axes = frame(n, node, "centre", "normal", "x_axis");
        double a = positiveReal(n, node, "major_radius"), b = positiveReal(n, node, "minor_radius");
        if (a < b) bad(n, node, "major radius below minor radius");
        return new Geom_Ellipse(axes.Ax2(), a, b);
      }
      case kBCurve: return bCurve(n, node);
      case kTrimmedCurve: {
        long basis = n.require(node, "basis_curve", PK_ERROR_bad_geometry);
        double p1 = n.real(node, "parm_1"), p2 = n.real(node, "parm_2");
        if (!std::isfinite(p1) || !std::isfinite(p2) || p1 == p2) bad(n, node, "trim parameters");
        Handle(Geom_Curve) onto = curve(basis);
        double lo = std::min(p1, p2), hi = std::max(p1, p2);
        // A converted basis (an intersection) ends at its chart's end parameter as
        // we compute it, which may differ from the writer's in the last digits.
        if (!onto->IsPeriodic()) {
          const double slack = 1e-5 * (onto->LastParameter() - onto->FirstParameter());
          if (lo < onto->FirstParameter() && lo > onto->FirstParameter() - slack) lo = onto->FirstParameter();
          if (hi > onto->LastParameter() && hi < onto->LastParameter() + slack) hi = onto->LastParameter();
        }
        return new Geom_TrimmedCurve(onto, lo, hi);
      }
      default: break;
    }
  } catch (const Standard_Failure& e) {
    bad(n, node, std::string("OCCT refused it: ") + e.GetMessageString());
  }
  if (Handle(Geom_Curve) c = procedural::convertCurve(*this, node)) return c;
  throw ModelError(PK_ERROR_unsupported_geometry,
                   "no converter for " + n.describe(node) + " (procedural or foreign curve)");
}

Handle(Geom2d_Curve) GeometryCache::spCurve2d(long sp) {
  if (auto it = m_curves2d.find(sp); it != m_curves2d.end()) return it->second;
  const NodeAccess& n = m_nodes;
  if (n.type(sp) != kSpCurve) bad(n, sp, "not an SP_CURVE");
  long surfaceNode = n.require(sp, "surface", PK_ERROR_bad_geometry);
  long planar = n.require(sp, "b_curve", PK_ERROR_bad_geometry);
  CurveData c = readCurveData(n, planar, 2);
  // The file's (u, v) in the OCCT twin's parameters: a cone's v is along its
  // slant in OCCT, a spun surface has u and v the other way round.
  double vScale = 1;
  bool swap = n.type(surfaceNode) == kSpunSurf;
  if (n.type(surfaceNode) == kCone) vScale = 1.0 / n.real(surfaceNode, "cos_half_angle");
  if (!std::isfinite(vScale)) bad(n, surfaceNode, "cone half angle is null");
  std::function<Handle(Geom2d_Curve)(const Knots&, int)> build = [&](const Knots& k, int count) -> Handle(Geom2d_Curve) {
    TColgp_Array1OfPnt2d poles(1, count);
    TColStd_Array1OfReal weights(1, count);
    for (int i = 0; i < count; ++i) {
      const Pole& p = c.poles[static_cast<size_t>(i)];
      double u = p.xyz[0], v = p.xyz[1] * vScale;
      poles.SetValue(i + 1, swap ? gp_Pnt2d(v, u) : gp_Pnt2d(u, v));
      weights.SetValue(i + 1, p.weight);
    }
    bool periodic = count != c.nPoles;
    if (c.rational) return new Geom2d_BSplineCurve(poles, weights, realArray(k.values), intArray(k.mults), c.degree, periodic);
    return new Geom2d_BSplineCurve(poles, realArray(k.values), intArray(k.mults), c.degree, periodic);
  };
  Handle(Geom2d_Curve) built;
  try {
    built = makeBSpline(c, build);
  } catch (const Standard_Failure& e) {
    bad(n, planar, std::string("OCCT refused it: ") + e.GetMessageString());
  }
  m_curves2d.emplace(sp, built);
  return built;
}

}  // namespace meld::model
