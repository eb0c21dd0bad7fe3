// A curve that procedural geometry is built along (a blend's spine): either an
// OCCT curve or the exact evaluator of an intersection curve. Exposes what the
// converters need: points, first derivatives, the parameters where the second
// derivative may jump, and the nearest parameter to a point.
#pragma once

#include <Geom_Curve.hxx>
#include <gp_Pnt.hxx>
#include <gp_Vec.hxx>

#include <vector>

namespace meld::model::procedural {

class CurveEval {
 public:
  virtual ~CurveEval() = default;
  virtual double first() const = 0;
  virtual double last() const = 0;
  virtual bool periodic() const { return false; }
  virtual void d1(double t, gp_Pnt& point, gp_Vec& derivative) const = 0;
  virtual gp_Pnt value(double t) const {
    gp_Pnt p;
    gp_Vec d;
    d1(t, p, d);
    return p;
  }
  // Parameters strictly inside (first, last) where the curve is only C1.
  virtual std::vector<double> breaks() const { return {}; }
  // Parameter of the point nearest to `point`: a local search from `seed` when
  // `seeded`, otherwise from the best of a sampling of the whole range.
  double project(const gp_Pnt& point, double seed, bool seeded) const;

 private:
  // The sampling of the whole range behind unseeded projections, made once: each
  // sample is an exact (for an intersection, costly) evaluation.
  mutable std::vector<gp_Pnt> m_samples;
  mutable double m_sampledFirst = 0, m_sampledLast = 0;
};

class GeomCurveEval : public CurveEval {
 public:
  explicit GeomCurveEval(Handle(Geom_Curve) curve) : m_curve(std::move(curve)) {}
  double first() const override { return m_curve->FirstParameter(); }
  double last() const override { return m_curve->LastParameter(); }
  bool periodic() const override { return m_curve->IsPeriodic(); }
  void d1(double t, gp_Pnt& point, gp_Vec& derivative) const override { m_curve->D1(t, point, derivative); }

 private:
  Handle(Geom_Curve) m_curve;
};

}  // namespace meld::model::procedural
