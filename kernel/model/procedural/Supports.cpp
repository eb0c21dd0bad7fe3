#include "Supports.h"

#include <ElSLib.hxx>
#include <GeomAPI_ProjectPointOnSurf.hxx>
#include <GeomLib.hxx>
#include <Standard_Failure.hxx>
#include <gp_Dir.hxx>

#include <cmath>
#include <limits>

#include "CurveEval.h"
#include "ProceduralError.h"

namespace meld::model::procedural {

namespace {

constexpr int kFootSteps = 60;
constexpr int kGaussNewtonSteps = 12;
// A foot is found when the last Newton step moved it less than this (metres).
constexpr double kFootStep = 1e-14;
// Steps still this small after all iterations: a foot rocking across a crease.
constexpr double kFootCrease = 1e-10;
// Below this sine of the angle between the derivatives a foot's normal is
// estimated as at a pole.
constexpr double kClearNormal = 1e-8;
// How near its surface a point must be for a foot found from the grid to count.
constexpr double kGridFootReach = 1e-6;
// Step of the central differences that give a blend bound's gradient (metres).
constexpr double kGradientStep = 1e-7;

// Where the surface has no normal of its own (a pole, a crease of a C0 base
// under an offset) the direction from the foot to the point stands in for it,
// oriented like the normal nearby.
gp_Vec sensedNormal(const Handle(Geom_Surface)& surface, double u, double v, int sign, const gp_Pnt& point) {
  gp_Dir normal;
  if (GeomLib::NormEstim(surface, gp_Pnt2d(u, v), 1e-12, normal) < 2) return gp_Vec(normal) * sign;
  const gp_Vec away(surface->Value(u, v), point);
  if (away.Magnitude() < 1e-12) throw ProceduralError("no surface normal at a foot point");
  gp_Dir nearby;
  const double du = 1e-7 * (1 + std::abs(u)), dv = 1e-7 * (1 + std::abs(v));
  if (GeomLib::NormEstim(surface, gp_Pnt2d(u + du, v + dv), 1e-12, nearby) >= 2) throw ProceduralError("no surface normal at a foot point");
  const gp_Vec n = away.Normalized();
  return n.Dot(gp_Vec(nearby) * sign) >= 0 ? n : -n;
}

}  // namespace

SurfaceSupport::SurfaceSupport(Handle(Geom_Surface) surface, int sign)
    : m_surface(std::move(surface)), m_eval(m_surface), m_sign(sign) {}

// Newton on the foot conditions (S - X).Su = (S - X).Sv = 0 with the full
// Hessian, Gauss-Newton where the Hessian is not positive, and every step cut
// back until the distance decreases: a plain Newton step from a seed a quarter
// turn away on a cylinder or cone lands on the far side (a stationary point that
// is not the foot). A step's end is evaluated with its derivatives, which the
// next step starts from when the step stands.
bool SurfaceSupport::newtonFoot(const gp_Pnt& point, double& u, double& v, FootStep& last) const {
  // A step from a seed far round a tube, for a point near the tube's centre
  // line, can land far past a B-surface's range, where OCCT refuses to
  // evaluate (an offset's normal there): the search has failed, and the
  // caller starts another.
  try {
    return newtonSteps(point, u, v, last);
  } catch (const Standard_Failure&) {
    return false;
  }
}

bool SurfaceSupport::newtonSteps(const gp_Pnt& point, double& u, double& v, FootStep& last) const {
  auto squared = [&](double uu, double vv) { return m_eval.value(uu, vv).SquareDistance(point); };
  bool stalled = false, evaluated = false;
  gp_Pnt s;
  gp_Vec su, sv, suu, svv, suv;
  for (int step = 0; step < kFootSteps; ++step) {
    // Gauss-Newton first: points near the surface (all the converters ask
    // about) converge fast without second derivatives, which cost most on
    // offsets of B-surfaces; full Newton only if that stalls.
    const bool secondOrder = step >= kGaussNewtonSteps || stalled;
    if (secondOrder) m_eval.d2(u, v, s, su, sv, suu, svv, suv);
    else if (!evaluated) m_eval.d1(u, v, s, su, sv);
    evaluated = false;
    last = FootStep{s, su, sv, 0, 0};
    const gp_Vec r(point, s);
    const double gu = r.Dot(su), gv = r.Dot(sv);
    double a = su.Dot(su), b = su.Dot(sv), c = sv.Dot(sv);
    if (secondOrder) a += r.Dot(suu), b += r.Dot(suv), c += r.Dot(svv);
    double det = a * c - b * b;
    if (a <= 0 || det <= 1e-12 * su.SquareMagnitude() * sv.SquareMagnitude()) {
      a = su.Dot(su), b = su.Dot(sv), c = sv.Dot(sv);
      det = a * c - b * b;
    }
    double du = 0, dv = 0;
    if (det > 1e-24 * a * c) {
      du = -(c * gu - b * gv) / det, dv = -(a * gv - b * gu) / det;
    } else if (std::max(a, c) > 0) {
      // The surface collapses along one parameter here (a pole, an apex): the
      // foot moves along the other one alone.
      if (a >= c) du = -gu / a;
      else dv = -gv / c;
    } else {
      return false;
    }
    if (!std::isfinite(du) || !std::isfinite(dv)) return false;
    // A step below the accuracy sought ends the search unchecked.
    if ((su * du + sv * dv).Magnitude() < kFootStep) {
      u += du, v += dv;
      last.du = du, last.dv = dv;
      return true;
    }
    const double limit = r.SquareMagnitude() * (1 + 1e-12) + 1e-30;
    gp_Pnt ahead;
    gp_Vec aheadU, aheadV;
    m_eval.d1(u + du, v + dv, ahead, aheadU, aheadV);
    int cut = 0;
    if (ahead.SquareDistance(point) > limit)
      for (cut = 1; cut < 40; ++cut) {
        du /= 2, dv /= 2;
        if (squared(u + du, v + dv) <= limit) break;
      }
    // No step lowers the distance: the foot is on a crease of the surface (an
    // offset of a C0 base), where the foot conditions have no smooth root.
    if (cut == 40) {
      if (secondOrder) return true;
      stalled = true;
      continue;
    }
    u += du, v += dv;
    last.du = du, last.dv = dv;
    if (cut == 0) s = ahead, su = aheadU, sv = aheadV, evaluated = true;
    const double moved = (last.su * du + last.sv * dv).Magnitude();
    if (moved < kFootStep || (step == kFootSteps - 1 && moved < kFootCrease)) return true;
  }
  return false;
}

// Elementary surfaces give the parameters of a point's foot in closed form (the
// cone's and torus's near enough for Newton); the others need a global search.
void SurfaceSupport::initialiseSeed(const gp_Pnt& point, Seed& seed) const {
  switch (m_eval.adaptor().GetType()) {
    case GeomAbs_Plane: ElSLib::Parameters(m_eval.adaptor().Plane(), point, seed.a, seed.b); break;
    case GeomAbs_Cylinder: ElSLib::Parameters(m_eval.adaptor().Cylinder(), point, seed.a, seed.b); break;
    case GeomAbs_Cone: ElSLib::Parameters(m_eval.adaptor().Cone(), point, seed.a, seed.b); break;
    case GeomAbs_Sphere: ElSLib::Parameters(m_eval.adaptor().Sphere(), point, seed.a, seed.b); break;
    case GeomAbs_Torus: ElSLib::Parameters(m_eval.adaptor().Torus(), point, seed.a, seed.b); break;
    default:
      if (!seedFromGrid(point, seed)) projectGlobally(point, seed);
      return;
  }
  seed.set = true;
}

// A local search from the grid's nearest node may end at a stationary point
// that is not the nearest foot (the next turn of a jack's threaded B-surface,
// 8 mm off); only a foot on the surface is sure to be the nearest one.
bool SurfaceSupport::seedFromGrid(const gp_Pnt& point, Seed& seed) const {
  if (!m_grid) m_grid = std::make_unique<SurfaceGrid>(m_eval);
  const std::optional<gp_Pnt2d> node = m_grid->nearest(point);
  if (!node) return false;
  double u = node->X(), v = node->Y();
  FootStep last;
  if (!newtonFoot(point, u, v, last) || m_eval.value(u, v).Distance(point) > kGridFootReach) return false;
  seed.a = u, seed.b = v;
  seed.set = true;
  return true;
}

// A projector of its own for every search: one kept per surface answers
// differently for the same point depending on what it was asked before
// (biox-Assembly, next to a pole of an offset's base). Each one samples the
// whole surface again, so it is the last resort, after the grid.
void SurfaceSupport::projectGlobally(const gp_Pnt& point, Seed& seed) const {
  double u1, u2, v1, v2;
  m_surface->Bounds(u1, u2, v1, v2);
  GeomAPI_ProjectPointOnSurf projector(point, m_surface, u1, u2, v1, v2);
  if (!projector.IsDone() || projector.NbPoints() == 0) {
    auto mid = [](double lo, double hi) { return std::isfinite(lo) && std::isfinite(hi) && hi - lo < 1e6 ? (lo + hi) / 2 : 0.0; };
    seed.a = mid(u1, u2), seed.b = mid(v1, v2);
  } else {
    projector.LowerDistanceParameters(seed.a, seed.b);
  }
  seed.set = true;
}

SupportSample SurfaceSupport::evaluate(const gp_Pnt& point, Seed& seed) const {
  if (!seed.set) initialiseSeed(point, seed);
  double u = seed.a, v = seed.b;
  FootStep last;
  // Where the seed's search fails, the grid's node and then OCCT's projector
  // start new ones.
  auto restart = [&](bool occt) {
    if (occt) projectGlobally(point, seed);
    else if (!seedFromGrid(point, seed)) return false;
    u = seed.a, v = seed.b;
    return newtonFoot(point, u, v, last);
  };
  if (!newtonFoot(point, u, v, last) && !restart(false) && !restart(true))
    throw ProceduralError("no foot point on a support surface");
  seed.a = u, seed.b = v;
  SupportSample out;
  // The last step was below 1e-14 m (1e-10 m on a crease, none when no step
  // helped there): the derivatives where it started give the foot and normal
  // to rounding, without evaluating the surface again.
  const gp_Vec cross = last.su.Crossed(last.sv);
  if (cross.Magnitude() > kClearNormal * last.su.Magnitude() * last.sv.Magnitude()) {
    out.foot = last.point.Translated(last.su * last.du + last.sv * last.dv);
    out.normal = cross.Normalized() * m_sign;
  } else {
    out.foot = m_eval.value(u, v);
    out.normal = sensedNormal(m_surface, u, v, m_sign, point);
  }
  out.distance = gp_Vec(out.foot, point).Dot(out.normal);
  return out;
}

BlendTubeSupport::BlendTubeSupport(std::shared_ptr<const CurveEval> spine, double radius, int sign)
    : m_spine(std::move(spine)), m_radius(radius), m_sign(sign) {}

void BlendTubeSupport::initialiseSeed(const gp_Pnt& point, Seed& seed) const {
  seed.a = m_spine->project(point, 0, false);
  seed.set = true;
}

SupportSample BlendTubeSupport::evaluate(const gp_Pnt& point, Seed& seed) const {
  seed.a = m_spine->project(point, seed.a, seed.set);
  seed.set = true;
  const gp_Pnt centre = m_spine->value(seed.a);
  const gp_Vec out(centre, point);
  const double rho = out.Magnitude();
  SupportSample sample;
  if (rho < 1e-12) {
    // Only a zero-radius tube (the sharp edge a cliff-edge ball touches) has
    // points on its spine; any direction across the spine serves as normal there.
    if (m_radius > 1e-12) throw ProceduralError("point on the spine of a rolling-ball support");
    gp_Pnt p;
    gp_Vec tangent;
    m_spine->d1(seed.a, p, tangent);
    gp_Vec across = tangent.Crossed(gp_Vec(0, 0, 1));
    if (across.Magnitude() < 1e-9 * tangent.Magnitude()) across = tangent.Crossed(gp_Vec(1, 0, 0));
    sample.normal = across.Normalized() * m_sign;
    sample.foot = centre;
    sample.distance = 0;
    return sample;
  }
  sample.normal = out / rho * m_sign;
  sample.foot = centre.Translated(out * (m_radius / rho));
  sample.distance = (rho - m_radius) * m_sign;
  return sample;
}

BlendBoundSupport::BlendBoundSupport(std::shared_ptr<const Support> own, double ownOffset,
                                     std::shared_ptr<const Support> other, double otherOffset)
    : m_own(std::move(own)), m_other(std::move(other)), m_ownOffset(ownOffset), m_otherOffset(otherOffset) {}

double BlendBoundSupport::value(const gp_Pnt& point, Seed& seed) const {
  Seed own{seed.a, seed.b, 0, 0, seed.set, false};
  Seed other{seed.c, seed.d, 0, 0, seed.setSecond, false};
  const SupportSample onOwn = m_own->evaluate(point, own);
  const gp_Pnt centre = onOwn.foot.Translated(onOwn.normal * m_ownOffset);
  const SupportSample onOther = m_other->evaluate(centre, other);
  seed = Seed{own.a, own.b, other.a, other.b, true, true};
  return onOther.distance - m_otherOffset;
}

void BlendBoundSupport::initialiseSeed(const gp_Pnt& point, Seed& seed) const {
  seed.set = seed.setSecond = false;
  value(point, seed);
}

SupportSample BlendBoundSupport::evaluate(const gp_Pnt& point, Seed& seed) const {
  const double g = value(point, seed);
  gp_Vec gradient;
  for (int axis = 1; axis <= 3; ++axis) {
    gp_XYZ step(0, 0, 0);
    step.SetCoord(axis, kGradientStep);
    Seed plus = seed, minus = seed;
    const double gp = value(gp_Pnt(point.XYZ() + step), plus);
    const double gm = value(gp_Pnt(point.XYZ() - step), minus);
    gradient.SetCoord(axis, (gp - gm) / (2 * kGradientStep));
  }
  const double norm = gradient.Magnitude();
  if (!(norm > 1e-12)) throw ProceduralError("blend bound has no gradient at a point");
  SupportSample sample;
  sample.normal = gradient / norm;
  sample.distance = g / norm;
  sample.foot = point.Translated(sample.normal * -sample.distance);
  sample.gradient = norm;
  return sample;
}

void BlendBoundSupport::update(const gp_Pnt& point, Seed& seed, SupportSample& sample) const {
  sample.distance = value(point, seed) / sample.gradient;
  sample.foot = point.Translated(sample.normal * -sample.distance);
}

}  // namespace meld::model::procedural
