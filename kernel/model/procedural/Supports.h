// Evaluators for the surfaces that procedural geometry is defined on. Each one
// answers, for a point in space, the signed distance to the surface along its
// sensed normal, that normal and the foot point. The intersection and blend
// converters need nothing else from their supports, which lets an ordinary OCCT
// surface, a rolling-ball tube and a blend bound stand in the same place.
#pragma once

#include <Geom_Surface.hxx>
#include <gp_Pnt.hxx>
#include <gp_Vec.hxx>

#include <memory>

#include "../CachedEvaluation.h"
#include "../SurfaceGrid.h"

namespace meld::model::procedural {

class CurveEval;

// Where the last foot-point search ended: surface (u,v) in a,b, or a spine
// parameter in a; a blend bound keeps its second support's seed in c,d.
// Searches start from a seed and update it, so that neighbouring evaluations
// follow the same sheet of the surface.
struct Seed {
  double a = 0, b = 0, c = 0, d = 0;
  bool set = false, setSecond = false;
};

struct SupportSample {
  double distance = 0;  // signed, along the sensed normal
  gp_Vec normal;        // sensed, unit
  gp_Pnt foot;
  double gradient = 1;  // an implicit support's: the length of its function's gradient
};

class Support {
 public:
  virtual ~Support() = default;
  // Throws ProceduralError (without naming a node) when no foot is found.
  virtual SupportSample evaluate(const gp_Pnt& point, Seed& seed) const = 0;
  // Global start for a seed: the nearest foot, found without a seed.
  virtual void initialiseSeed(const gp_Pnt& point, Seed& seed) const = 0;
  // Moves `sample`, taken at a point nearby, to `point`: the distance exact,
  // the normal as cheaply as the support allows (an implicit support keeps the
  // one it had, which costs it six evaluations fewer).
  virtual void update(const gp_Pnt& point, Seed& seed, SupportSample& sample) const { sample = evaluate(point, seed); }
};

// An OCCT surface; sign = +1 when the sensed normal is OCCT's natural normal.
class SurfaceSupport : public Support {
 public:
  SurfaceSupport(Handle(Geom_Surface) surface, int sign);
  SupportSample evaluate(const gp_Pnt& point, Seed& seed) const override;
  void initialiseSeed(const gp_Pnt& point, Seed& seed) const override;
  const Handle(Geom_Surface)& surface() const { return m_surface; }
  int sign() const { return m_sign; }

 private:
  // Where the last Newton step started: the surface point and first
  // derivatives there, and the step taken from it.
  struct FootStep {
    gp_Pnt point;
    gp_Vec su, sv;
    double du = 0, dv = 0;
  };
  bool newtonFoot(const gp_Pnt& point, double& u, double& v, FootStep& last) const;
  bool newtonSteps(const gp_Pnt& point, double& u, double& v, FootStep& last) const;
  // The foot found from the nearest node of the surface's grid as seed; false
  // on surfaces without a grid and for points off the surface.
  bool seedFromGrid(const gp_Pnt& point, Seed& seed) const;
  // A search over the whole surface by OCCT's projector.
  void projectGlobally(const gp_Pnt& point, Seed& seed) const;
  Handle(Geom_Surface) m_surface;
  CachedSurface m_eval;  // what Newton evaluates
  mutable std::unique_ptr<SurfaceGrid> m_grid;  // built at the first global search
  int m_sign;
};

// The tube swept by a ball of radius `radius` along `spine`: a rolling-ball
// blend seen as a support. Its natural normal points away from the spine.
class BlendTubeSupport : public Support {
 public:
  BlendTubeSupport(std::shared_ptr<const CurveEval> spine, double radius, int sign);
  SupportSample evaluate(const gp_Pnt& point, Seed& seed) const override;
  void initialiseSeed(const gp_Pnt& point, Seed& seed) const override;

 private:
  std::shared_ptr<const CurveEval> m_spine;
  double m_radius;
  int m_sign;
};

// The construction surface whose intersection with `own` is the contact line of
// a blend on `own`: points whose foot on `own`, moved by ownOffset along the
// sensed normal there, lies at signed distance otherOffset from `other`.
// Distance and normal come from that implicit function and its gradient.
class BlendBoundSupport : public Support {
 public:
  BlendBoundSupport(std::shared_ptr<const Support> own, double ownOffset,
                    std::shared_ptr<const Support> other, double otherOffset);
  SupportSample evaluate(const gp_Pnt& point, Seed& seed) const override;
  void initialiseSeed(const gp_Pnt& point, Seed& seed) const override;
  void update(const gp_Pnt& point, Seed& seed, SupportSample& sample) const override;

 private:
  double value(const gp_Pnt& point, Seed& seed) const;
  std::shared_ptr<const Support> m_own, m_other;
  double m_ownOffset, m_otherOffset;
};

}  // namespace meld::model::procedural
