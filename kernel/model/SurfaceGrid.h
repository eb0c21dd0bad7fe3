// A coarse net of points over a B-spline or Bezier surface, for the start of a
// foot-point search that has no neighbour to start from. OCCT's projector
// builds and searches a finer net, a fresh one per call where answers must not
// depend on earlier calls; a net built once per surface and a local Newton
// from its nearest node find the same feet for a fraction of the time. Other
// surfaces are left to the projector: on an offset next to a pole of its base
// (biox-Assembly) the nearest node leads Newton to another foot.
#pragma once

#include <gp_Pnt.hxx>
#include <gp_Pnt2d.hxx>

#include <optional>
#include <vector>

#include "CachedEvaluation.h"

namespace meld::model {

class SurfaceGrid {
 public:
  // Empty for other surfaces.
  explicit SurfaceGrid(const CachedSurface& surface);
  // The parameters of the node nearest `point`; none on an empty grid.
  std::optional<gp_Pnt2d> nearest(const gp_Pnt& point) const;

 private:
  std::vector<double> m_u, m_v;
  std::vector<gp_Pnt> m_points;  // u-major: index i * m_v.size() + j
};

}  // namespace meld::model
