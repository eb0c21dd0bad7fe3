#include "PoleClosure.h"

#include <BRep_Builder.hxx>
#include <Geom2d_Line.hxx>
#include <BRepCheck_Analyzer.hxx>
#include <BRep_Tool.hxx>
#include <Geom2d_Curve.hxx>
#include <Geom_SurfaceOfRevolution.hxx>
#include <TopExp.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Edge.hxx>
#include <TopoDS_Vertex.hxx>
#include <TopoDS_Wire.hxx>
#include <gp_Lin.hxx>

#include <cmath>
#include <optional>

namespace meld::model {
namespace {

constexpr double kTwoPi = 2 * M_PI;
constexpr double kParamTolerance = 1e-9;

// The face's only edge, when it has exactly one, used once.
std::optional<TopoDS_Edge> onlyEdge(const TopoDS_Face& face) {
  std::optional<TopoDS_Edge> only;
  for (TopExp_Explorer x(face, TopAbs_EDGE); x.More(); x.Next()) {
    if (only) return std::nullopt;
    only = TopoDS::Edge(x.Current());
  }
  return only;
}

// Its pcurve's ends on the face, when it is a full turn at one v.
std::optional<std::pair<gp_Pnt2d, gp_Pnt2d>> fullTurn(const TopoDS_Edge& ring, const TopoDS_Face& face) {
  double first = 0, last = 0;
  Handle(Geom2d_Curve) pcurve = BRep_Tool::CurveOnSurface(ring, face, first, last);
  if (pcurve.IsNull()) return std::nullopt;
  gp_Pnt2d a = pcurve->Value(first), b = pcurve->Value(last);
  if (std::abs(a.Y() - b.Y()) > kParamTolerance || std::abs(std::abs(b.X() - a.X()) - kTwoPi) > kParamTolerance)
    return std::nullopt;
  return std::make_pair(a, b);
}

// The end of the profile that lies on the axis, on the far side of the ring.
std::optional<double> poleParameter(const Geom_SurfaceOfRevolution& surface, double vRing, double tolerance) {
  const Handle(Geom_Curve)& profile = surface.BasisCurve();
  gp_Lin axis(surface.Axis());
  double v0 = profile->FirstParameter(), v1 = profile->LastParameter();
  if (!std::isfinite(v0) || !std::isfinite(v1)) return std::nullopt;
  if (vRing > v0 && axis.Distance(profile->Value(v0)) <= tolerance) return v0;
  if (vRing < v1 && axis.Distance(profile->Value(v1)) <= tolerance) return v1;
  return std::nullopt;
}

// A straight pcurve from `from` along `direction`.
Handle(Geom2d_Line) line(gp_Pnt2d from, gp_Dir2d direction) { return new Geom2d_Line(from, direction); }

// The face's parameter rectangle u0..u0+2pi by vLow..vHigh, the ring at one
// v end and the pole at the other, closed by a seam at u0 (and u0 + 2pi) and a
// degenerate edge at the pole; its wire runs anticlockwise in (u, v).
TopoDS_Face closedFace(const Handle(Geom_SurfaceOfRevolution)& surface, const TopoDS_Edge& ring, bool ringRunsUp,
                       double u0, double vRing, double vPole, double tolerance) {
  BRep_Builder builder;
  const double vLow = std::min(vRing, vPole), vHigh = std::max(vRing, vPole);
  TopoDS_Face face;
  builder.MakeFace(face, surface, tolerance);
  builder.NaturalRestriction(face, Standard_False);

  TopoDS_Vertex ringVertex = TopExp::FirstVertex(ring), pole;
  builder.MakeVertex(pole, surface->Value(u0, vPole), tolerance);

  // The seam: the profile at u0, used up the rectangle's right side (its first
  // pcurve) and down its left side.
  TopoDS_Edge seam;
  builder.MakeEdge(seam, surface->UIso(u0), tolerance);
  builder.UpdateEdge(seam, line(gp_Pnt2d(u0 + kTwoPi, 0), gp_Dir2d(0, 1)), line(gp_Pnt2d(u0, 0), gp_Dir2d(0, 1)),
                     face, tolerance);
  builder.Range(seam, vLow, vHigh);
  const bool poleLow = vPole < vRing;
  builder.Add(seam, (poleLow ? pole : ringVertex).Oriented(TopAbs_FORWARD));
  builder.Add(seam, (poleLow ? ringVertex : pole).Oriented(TopAbs_REVERSED));

  // The pole: a degenerate edge along u.
  TopoDS_Edge degenerate;
  builder.MakeEdge(degenerate);
  builder.UpdateEdge(degenerate, line(gp_Pnt2d(0, vPole), gp_Dir2d(1, 0)), face, tolerance);
  builder.Range(degenerate, u0, u0 + kTwoPi);
  builder.Degenerated(degenerate, Standard_True);
  builder.Add(degenerate, pole.Oriented(TopAbs_FORWARD));
  builder.Add(degenerate, pole.Oriented(TopAbs_REVERSED));

  // Anticlockwise: along the low side with u, up the right, back along the
  // high side, down the left.
  auto along = [](const TopoDS_Edge& edge, bool forward) {
    return TopoDS::Edge(edge.Oriented(forward ? TopAbs_FORWARD : TopAbs_REVERSED));
  };
  const TopoDS_Edge& low = poleLow ? degenerate : ring;
  const TopoDS_Edge& high = poleLow ? ring : degenerate;
  const bool lowUp = poleLow ? true : ringRunsUp, highUp = poleLow ? ringRunsUp : true;
  TopoDS_Wire wire;
  builder.MakeWire(wire);
  builder.Add(wire, along(low, lowUp));
  builder.Add(wire, along(seam, true));
  builder.Add(wire, along(high, !highUp));
  builder.Add(wire, along(seam, false));
  builder.Add(face, wire);
  return face;
}

}  // namespace

TopoDS_Face closedAtPole(const TopoDS_Face& face) {
  TopLoc_Location where;
  Handle(Geom_Surface) surface = BRep_Tool::Surface(face, where);
  Handle(Geom_SurfaceOfRevolution) revolution = Handle(Geom_SurfaceOfRevolution)::DownCast(surface);
  if (revolution.IsNull() || !where.IsIdentity()) return {};
  std::optional<TopoDS_Edge> ring = onlyEdge(face);
  if (!ring) return {};
  std::optional<std::pair<gp_Pnt2d, gp_Pnt2d>> ends = fullTurn(*ring, face);
  if (!ends) return {};
  const double vRing = ends->first.Y(), u0 = std::min(ends->first.X(), ends->second.X());
  const double tolerance = BRep_Tool::Tolerance(*ring);
  std::optional<double> vPole = poleParameter(*revolution, vRing, tolerance);
  if (!vPole) return {};

  const bool ringRunsUp = ends->second.X() > ends->first.X();
  TopoDS_Face closed = closedFace(revolution, TopoDS::Edge(ring->Oriented(TopAbs_FORWARD)), ringRunsUp, u0, vRing,
                                  *vPole, tolerance);
  closed.Orientation(face.Orientation());
  if (!BRepCheck_Analyzer(closed).IsValid()) return {};
  return closed;
}

}  // namespace meld::model
