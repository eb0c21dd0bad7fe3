// Evaluation of B-spline and Bezier geometry through OCCT's adaptors, which
// keep the polynomial form of the span or patch they last evaluated. Searches
// that step along a curve or across a surface mostly stay on one span, where
// this is several times cheaper than the Geom classes' own evaluation (de Boor
// from the poles at every call). Other geometry is evaluated as it is: the
// adaptor's own offset evaluator finds other feet next to a pole of the base
// (biox-Assembly).
#pragma once

#include <GeomAdaptor_Curve.hxx>
#include <GeomAdaptor_Surface.hxx>
#include <Geom_Curve.hxx>
#include <Geom_Surface.hxx>

namespace meld::model {

class CachedSurface {
 public:
  explicit CachedSurface(const Handle(Geom_Surface)& surface)
      : m_surface(surface),
        m_adaptor(surface),
        m_cached(m_adaptor.GetType() == GeomAbs_BSplineSurface || m_adaptor.GetType() == GeomAbs_BezierSurface) {}

  const GeomAdaptor_Surface& adaptor() const { return m_adaptor; }

  gp_Pnt value(double u, double v) const { return m_cached ? m_adaptor.Value(u, v) : m_surface->Value(u, v); }
  void d1(double u, double v, gp_Pnt& p, gp_Vec& su, gp_Vec& sv) const {
    if (m_cached) m_adaptor.D1(u, v, p, su, sv);
    else m_surface->D1(u, v, p, su, sv);
  }
  void d2(double u, double v, gp_Pnt& p, gp_Vec& su, gp_Vec& sv, gp_Vec& suu, gp_Vec& svv, gp_Vec& suv) const {
    if (m_cached) m_adaptor.D2(u, v, p, su, sv, suu, svv, suv);
    else m_surface->D2(u, v, p, su, sv, suu, svv, suv);
  }

 private:
  Handle(Geom_Surface) m_surface;
  // The adaptor's cache changes as it evaluates; evaluation is logically const.
  mutable GeomAdaptor_Surface m_adaptor;
  bool m_cached;
};

class CachedCurve {
 public:
  explicit CachedCurve(const Handle(Geom_Curve)& curve)
      : m_curve(curve),
        m_adaptor(curve),
        m_cached(m_adaptor.GetType() == GeomAbs_BSplineCurve || m_adaptor.GetType() == GeomAbs_BezierCurve) {}

  void d1(double t, gp_Pnt& p, gp_Vec& d) const {
    if (m_cached) m_adaptor.D1(t, p, d);
    else m_curve->D1(t, p, d);
  }

 private:
  Handle(Geom_Curve) m_curve;
  mutable GeomAdaptor_Curve m_adaptor;
  bool m_cached;
};

}  // namespace meld::model
