#include "SurfaceGrid.h"

#include <GeomAdaptor_Surface.hxx>
#include <Geom_BSplineSurface.hxx>
#include <TColStd_Array1OfReal.hxx>

#include <algorithm>
#include <limits>


namespace meld::model {
namespace {

// Nodes per B-spline span and per direction of a Bezier patch, and a cap per
// direction (beyond it, spans are sampled once each, then merged).
constexpr size_t kPerSpan = 3;
constexpr size_t kUniform = 24;
constexpr size_t kMaxPerDirection = 150;

// Parameters from lo to hi: each span between knots cut in kPerSpan, or
// kUniform pieces without knots; past the cap one node per span, and past it
// again spans taken together.
std::vector<double> samples(double lo, double hi, const TColStd_Array1OfReal* knots) {
  std::vector<double> breaks{lo};
  if (knots)
    for (int i = knots->Lower(); i <= knots->Upper(); ++i)
      if ((*knots)(i) > lo && (*knots)(i) < hi) breaks.push_back((*knots)(i));
  breaks.push_back(hi);
  const size_t spans = breaks.size() - 1;
  const size_t pieces = knots ? kPerSpan : kUniform;
  const size_t per = spans * pieces > kMaxPerDirection ? 1 : pieces;
  const size_t stride = (spans + kMaxPerDirection - 1) / kMaxPerDirection;
  std::vector<double> out;
  for (size_t i = 0; i < spans; i += stride) {
    const double a = breaks[i], b = breaks[std::min(i + stride, spans)];
    for (size_t k = 0; k < per; ++k) out.push_back(a + (b - a) * static_cast<double>(k) / static_cast<double>(per));
  }
  out.push_back(hi);
  return out;
}

}  // namespace

SurfaceGrid::SurfaceGrid(const CachedSurface& surface) {
  if (!surface.polynomial()) return;
  // Both kinds are bounded in both directions.
  const GeomAdaptor_Surface& a = surface.adaptor();
  const Handle(Geom_BSplineSurface) spline = a.GetType() == GeomAbs_BSplineSurface ? a.BSpline() : nullptr;
  m_u = samples(a.FirstUParameter(), a.LastUParameter(), spline.IsNull() ? nullptr : &spline->UKnots());
  m_v = samples(a.FirstVParameter(), a.LastVParameter(), spline.IsNull() ? nullptr : &spline->VKnots());
  m_points.reserve(m_u.size() * m_v.size());
  for (double u : m_u)
    for (double v : m_v) m_points.push_back(surface.value(u, v));
}

std::optional<gp_Pnt2d> SurfaceGrid::nearest(const gp_Pnt& point) const {
  if (m_points.empty()) return std::nullopt;
  size_t best = 0;
  double bestSquared = std::numeric_limits<double>::infinity();
  for (size_t i = 0; i < m_points.size(); ++i)
    if (const double d = m_points[i].SquareDistance(point); d < bestSquared) bestSquared = d, best = i;
  return gp_Pnt2d(m_u[best / m_v.size()], m_v[best % m_v.size()]);
}

}  // namespace meld::model
