// Rolling-ball blends: the surface swept by the arc of a ball of constant radius
// whose centre runs along the spine and which touches both supports. Each
// section is exact (a rational quadratic arc between the two contact points);
// OCCT's sweep approximation joins the sections into one B-spline surface.
#pragma once

#include <Geom_BSplineSurface.hxx>

#include <memory>

#include "CurveEval.h"
#include "Supports.h"

namespace meld::model::procedural {

struct RollingBall {
  std::shared_ptr<const CurveEval> spine;
  bool spineReversed = false;  // a '-' spine runs the section from support 1 to support 0
  std::shared_ptr<const Support> support[2];
  double range[2] = {0, 0};    // signed offsets of the spine from each support
  double first = 0, last = 0;  // spine parameters to cover
  double radius() const;
};

struct BallSection {
  gp_Pnt centre;
  gp_Pnt contact[2];      // foot of the centre on support 0 and 1
  double offsetError = 0; // largest |signed distance - range| of the centre
  gp_Vec x, y;            // unit frame: the arc runs from x towards y
  double angle = 0;       // the arc's angle, in (0, pi)
  double radius = 0;
  gp_Pnt at(double v) const;  // the exact section at its own parameter v in [0, 1]
};

// The exact section at spine parameter u, seeded from `seeds`, which it updates.
BallSection ballSection(const RollingBall& ball, double u, Seed seeds[2]);

struct SurfaceFit {
  Handle(Geom_BSplineSurface) surface;
  double deviation = 0;    // largest distance found to the exact section point
  double offsetError = 0;  // largest spine offset error found (a check of the file's data)
};

// u runs along the spine (its parameter), v across the arc; the natural normal
// points away from the spine. Throws ProceduralError.
SurfaceFit fitRollingBall(const RollingBall& ball, double tolerance, double accept);

}  // namespace meld::model::procedural
