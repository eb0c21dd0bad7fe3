#include "CachedEvaluation.h"

#include <Geom_OffsetSurface.hxx>

#include <algorithm>
#include <cmath>

namespace meld::model {
namespace {

bool polynomialType(GeomAbs_SurfaceType type) { return type == GeomAbs_BSplineSurface || type == GeomAbs_BezierSurface; }

// Below this sine-like measure (the cross product of the base's derivatives,
// each shortened to at most unit length) the base's normal is left to OCCT. Its
// own offset evaluation switches to its treatment of singular points at 1e-9;
// this keeps well clear of the switch.
constexpr double kClearBaseNormal = 1e-6;

// Whether the base's normal at (u,v) is clear of a pole, from its derivatives.
bool clearNormal(const gp_Vec& bu, const gp_Vec& bv) {
  const double lu = std::max(1.0, bu.Magnitude()), lv = std::max(1.0, bv.Magnitude());
  return bu.Crossed(bv).Magnitude() / (lu * lv) > kClearBaseNormal;
}

}  // namespace

CachedSurface::CachedSurface(const Handle(Geom_Surface)& surface) : m_surface(surface), m_adaptor(surface) {
  if (polynomialType(m_adaptor.GetType())) {
    m_mode = Mode::Cached;
  } else if (auto offset = Handle(Geom_OffsetSurface)::DownCast(surface)) {
    m_base.Load(offset->BasisSurface());
    if (polynomialType(m_base.GetType())) {
      m_offset = offset->Offset();
      m_mode = Mode::Offset;
    }
  }
}

gp_Pnt CachedSurface::value(double u, double v) const {
  switch (m_mode) {
    case Mode::Cached: return m_adaptor.Value(u, v);
    case Mode::Offset: {
      gp_Pnt p;
      gp_Vec bu, bv;
      m_base.D1(u, v, p, bu, bv);
      if (!clearNormal(bu, bv)) break;
      return p.Translated(bu.Crossed(bv).Normalized() * m_offset);
    }
    case Mode::Geom: break;
  }
  return m_surface->Value(u, v);
}

// The offset's derivatives: with n = Bu x Bv and N = n/|n|, dN = (dn - N (N.dn))/|n|.
void CachedSurface::d1(double u, double v, gp_Pnt& p, gp_Vec& su, gp_Vec& sv) const {
  switch (m_mode) {
    case Mode::Cached: m_adaptor.D1(u, v, p, su, sv); return;
    case Mode::Offset: {
      gp_Vec bu, bv, buu, bvv, buv;
      m_base.D2(u, v, p, bu, bv, buu, bvv, buv);
      if (!clearNormal(bu, bv)) break;
      const gp_Vec n = bu.Crossed(bv);
      const double length = n.Magnitude();
      const gp_Vec normal = n / length;
      const gp_Vec nu = buu.Crossed(bv) + bu.Crossed(buv), nv = buv.Crossed(bv) + bu.Crossed(bvv);
      su = bu + (nu - normal * normal.Dot(nu)) * (m_offset / length);
      sv = bv + (nv - normal * normal.Dot(nv)) * (m_offset / length);
      p.Translate(normal * m_offset);
      return;
    }
    case Mode::Geom: break;
  }
  m_surface->D1(u, v, p, su, sv);
}

// Second derivatives of an offset need the base's third ones, which the cache
// does not keep; searches ask for them rarely.
void CachedSurface::d2(double u, double v, gp_Pnt& p, gp_Vec& su, gp_Vec& sv, gp_Vec& suu, gp_Vec& svv,
                       gp_Vec& suv) const {
  if (m_mode == Mode::Cached) m_adaptor.D2(u, v, p, su, sv, suu, svv, suv);
  else m_surface->D2(u, v, p, su, sv, suu, svv, suv);
}

CachedCurve::CachedCurve(const Handle(Geom_Curve)& curve)
    : m_curve(curve),
      m_adaptor(curve),
      m_cached(m_adaptor.GetType() == GeomAbs_BSplineCurve || m_adaptor.GetType() == GeomAbs_BezierCurve) {}

void CachedCurve::d1(double t, gp_Pnt& p, gp_Vec& d) const {
  if (m_cached) m_adaptor.D1(t, p, d);
  else m_curve->D1(t, p, d);
}

}  // namespace meld::model
