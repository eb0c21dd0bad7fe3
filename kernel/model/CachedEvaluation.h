// Evaluation of B-spline and Bezier geometry through OCCT's adaptors, which
// keep the polynomial form of the span or patch they last evaluated. Searches
// that step along a curve or across a surface mostly stay on one span, where
// this is several times cheaper than the Geom classes' own evaluation (de Boor
// from the poles at every call).
//
// An offset of such a surface is evaluated here too, from its base's cached
// derivatives, wherever the base's normal is clearly defined; at and next to a
// pole of the base the Geom class answers, with its own treatment of points
// where the normal is undefined. So do other surfaces: OCCT's adaptor has an
// offset evaluator of its own, but through it a chart of biox-Assembly ends
// 9e-5 m off its offset surface.
#pragma once

#include <GeomAdaptor_Curve.hxx>
#include <GeomAdaptor_Surface.hxx>
#include <Geom_Curve.hxx>
#include <Geom_Surface.hxx>

namespace meld::model {

class CachedSurface {
 public:
  explicit CachedSurface(const Handle(Geom_Surface)& surface);

  const GeomAdaptor_Surface& adaptor() const { return m_adaptor; }
  // A B-spline or Bezier surface itself (not an offset of one).
  bool polynomial() const { return m_mode == Mode::Cached; }

  gp_Pnt value(double u, double v) const;
  void d1(double u, double v, gp_Pnt& p, gp_Vec& su, gp_Vec& sv) const;
  void d2(double u, double v, gp_Pnt& p, gp_Vec& su, gp_Vec& sv, gp_Vec& suu, gp_Vec& svv, gp_Vec& suv) const;

 private:
  enum class Mode { Geom, Cached, Offset };
  Handle(Geom_Surface) m_surface;
  // The adaptors' caches change as they evaluate; evaluation is logically const.
  mutable GeomAdaptor_Surface m_adaptor;
  mutable GeomAdaptor_Surface m_base;  // an offset's base (Mode::Offset)
  double m_offset = 0;
  Mode m_mode = Mode::Geom;
};

class CachedCurve {
 public:
  explicit CachedCurve(const Handle(Geom_Curve)& curve);
  void d1(double t, gp_Pnt& p, gp_Vec& d) const;

 private:
  Handle(Geom_Curve) m_curve;
  mutable GeomAdaptor_Curve m_adaptor;
  bool m_cached;
};

}  // namespace meld::model
