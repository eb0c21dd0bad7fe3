// OCCT geometry -> XT geometry nodes: analytic types to their twins, B-splines
// as B_CURVE / B_SURFACE, offsets, extrusions and revolutions to OFFSET_SURF,
// SWEPT_SURF and SPUN_SURF, everything else converted to a B-spline. Each
// written node is chained (next/previous) in the body's boundary chains.
#pragma once

#include "GraphSink.h"

#include <Geom2d_Curve.hxx>
#include <Geom_Curve.hxx>
#include <Geom_Surface.hxx>
#include <gp_Pnt.hxx>

#include <vector>

namespace meld::model {

class GeometryWriter {
 public:
  explicit GeometryWriter(GraphSink& sink) : m_sink(sink) {}

  struct Surface {
    int64_t node = 0;
    bool reversesNormal = false;  // the XT natural normal points against OCCT's
    // OCCT (u, v) -> the file's: u and v swapped (revolutions), or v scaled (a
    // cone's v runs along its axis in the file, a turned-round frame flips v).
    bool swapUV = false;
    double vScale = 1;
  };
  // Throws ModelError (PK_ERROR_unsupported_geometry) for geometry it cannot write.
  Surface surface(const Handle(Geom_Surface)& surface, int64_t owner);
  // The curve of an edge running from `first` to `last` in its parameter.
  int64_t curve(const Handle(Geom_Curve)& curve, double first, double last, int64_t owner);
  int64_t point(const gp_Pnt& p, int64_t owner);
  // A pcurve as the 2D B_CURVE of an SP-curve on `on`, parameters kept; 0 when it
  // cannot be written with its parameters kept.
  int64_t curve2d(const Handle(Geom2d_Curve)& curve, double first, double last, const Surface& on);

  // A TRIMMED_CURVE of a written curve between two of its parameters.
  int64_t trimmed(int64_t basis, double first, double last, const gp_Pnt& p1, const gp_Pnt& p2, int64_t owner);
  // An SP_CURVE: a written 2D B_CURVE on a written surface.
  int64_t spCurve(int64_t surface, int64_t curve2d);

  // Heads of the chains (0 when empty): BODY.boundary_surface/_curve/_point.
  int64_t surfaces() const { return m_surfaces.empty() ? 0 : m_surfaces.front(); }
  int64_t curves() const { return m_curves.empty() ? 0 : m_curves.front(); }
  int64_t points() const { return m_points.empty() ? 0 : m_points.front(); }

 private:
  void chain(std::vector<int64_t>& list, int64_t node);

  GraphSink& m_sink;
  std::vector<int64_t> m_surfaces, m_curves, m_points;
};

}  // namespace meld::model
