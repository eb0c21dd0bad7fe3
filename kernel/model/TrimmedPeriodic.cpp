#include "TrimmedPeriodic.h"

#include <BRepTools.hxx>
#include <BRep_Builder.hxx>
#include <BRep_Tool.hxx>
#include <Geom2d_Curve.hxx>
#include <Geom_ElementarySurface.hxx>
#include <Geom_RectangularTrimmedSurface.hxx>
#include <TopExp.hxx>
#include <TopExp_Explorer.hxx>
#include <TopTools_IndexedMapOfShape.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Edge.hxx>
#include <TopoDS_Face.hxx>
#include <TopoDS_Iterator.hxx>

#include <algorithm>
#include <cmath>
#include <optional>
#include <unordered_map>
#include <vector>

namespace meld::model {
namespace {

// A seam's two pcurves are one line a period apart, to within this.
constexpr double kSeamTolerance = 1e-9;

// The u-periodic elementary surface under a trimmed one, or null.
Handle(Geom_ElementarySurface) periodicBasis(const Handle(Geom_Surface)& surface) {
  Handle(Geom_Surface) basis = surface;
  bool trimmed = false;
  while (auto t = Handle(Geom_RectangularTrimmedSurface)::DownCast(basis)) {
    basis = t->BasisSurface();
    trimmed = true;
  }
  auto elementary = Handle(Geom_ElementarySurface)::DownCast(basis);
  if (!trimmed || elementary.IsNull() || !elementary->IsUPeriodic()) return {};
  return elementary;
}

// A copy of `surface` whose frame is turned about its axis by `angle`, so
// that the copy at u is the surface at u + angle (whichever way the frame
// is handed).
Handle(Geom_ElementarySurface) turned(const Handle(Geom_ElementarySurface)& surface, double angle) {
  auto copy = Handle(Geom_ElementarySurface)::DownCast(surface->Copy());
  if (angle == 0) return copy;
  const gp_Ax3& frame = surface->Position();
  gp_Dir x(std::cos(angle) * frame.XDirection().XYZ() + std::sin(angle) * frame.YDirection().XYZ());
  gp_Ax3 rotated(frame.Location(), frame.Direction(), x);
  if (!frame.Direct()) rotated.YReverse();
  copy->SetPosition(rotated);
  return copy;
}

Handle(Geom2d_Curve) shifted(const Handle(Geom2d_Curve)& pcurve, double du) {
  if (du == 0) return pcurve;
  Handle(Geom2d_Curve) copy = Handle(Geom2d_Curve)::DownCast(pcurve->Copy());
  copy->Translate(gp_Vec2d(du, 0));
  return copy;
}

// An edge's pcurves on a face (two on its seam) and their range.
struct Pcurves {
  TopoDS_Edge edge;
  Handle(Geom2d_Curve) forward, reversed;
  double first = 0, last = 0;
};

// The pcurves of every edge of `face`, or nothing when an edge has none. An
// edge is the face's seam when the face uses it both ways; an edge between
// two faces on one trimmed surface has two pcurves there too, and the face
// takes the one its own use of the edge gives.
std::optional<std::vector<Pcurves>> pcurvesOf(const TopoDS_Face& face) {
  // Each edge as the face first uses it, and whether it uses it both ways.
  std::vector<std::pair<TopoDS_Edge, bool>> uses;
  for (TopExp_Explorer x(face, TopAbs_EDGE); x.More(); x.Next()) {
    const TopoDS_Edge& used = TopoDS::Edge(x.Current());
    auto seen = std::find_if(uses.begin(), uses.end(), [&](const auto& u) { return u.first.IsSame(used); });
    if (seen == uses.end()) uses.emplace_back(used, false);
    else seen->second |= seen->first.Orientation() != used.Orientation();
  }
  std::vector<Pcurves> out;
  for (const auto& [used, seam] : uses) {
    Pcurves p;
    p.edge = TopoDS::Edge(used.Oriented(TopAbs_FORWARD));
    p.forward = BRep_Tool::CurveOnSurface(seam ? p.edge : used, face, p.first, p.last);
    if (seam) {
      double first = 0, last = 0;
      p.reversed = BRep_Tool::CurveOnSurface(TopoDS::Edge(p.edge.Reversed()), face, first, last);
      if (p.reversed.IsNull()) return std::nullopt;
    }
    if (p.forward.IsNull()) return std::nullopt;
    out.push_back(p);
  }
  return out;
}

// Where the face's seam along v lies (the smaller u of its two pcurves),
// when it has one and that is not already u = 0; otherwise 0. The box of a
// face's pcurves is no guide: on B-spline pcurves it is looser than this.
double seamStart(const std::vector<Pcurves>& pcurves, double period) {
  for (const Pcurves& p : pcurves) {
    if (p.reversed.IsNull()) continue;
    const double mid = 0.5 * (p.first + p.last);
    const gp_Pnt2d a = p.forward->Value(mid), b = p.reversed->Value(mid);
    if (std::abs(std::abs(a.X() - b.X()) - period) > kSeamTolerance || std::abs(a.Y() - b.Y()) > kSeamTolerance)
      continue;
    const double start = std::min(a.X(), b.X());
    return std::abs(start) > kSeamTolerance ? start : 0;
  }
  return 0;
}

// Gives every edge its pcurves on `to`, moved by `du` along u, with the same
// range; those on `from`'s trimmed surface go when no other face is on it.
void movePcurves(const std::vector<Pcurves>& pcurves, const TopoDS_Face& from, const TopoDS_Face& to, double du,
                 bool surfaceShared) {
  BRep_Builder builder;
  for (const Pcurves& p : pcurves) {
    const double tolerance = BRep_Tool::Tolerance(p.edge);
    if (!surfaceShared) builder.UpdateEdge(p.edge, Handle(Geom2d_Curve)(), from, tolerance);
    if (p.reversed.IsNull())
      builder.UpdateEdge(p.edge, shifted(p.forward, du), to, tolerance);
    else
      builder.UpdateEdge(p.edge, shifted(p.forward, du), shifted(p.reversed, du), to, tolerance);
    builder.Range(p.edge, to, p.first, p.last);
  }
}

// How many faces lie on each surface (healing may put several on one
// trimmed surface).
using SurfaceUses = std::unordered_map<const Geom_Surface*, int>;

SurfaceUses surfaceUses(const TopTools_IndexedMapOfShape& faces) {
  SurfaceUses uses;
  TopLoc_Location where;
  for (int i = 1; i <= faces.Extent(); ++i) ++uses[BRep_Tool::Surface(TopoDS::Face(faces(i)), where).get()];
  return uses;
}

// The face on its periodic surface, or null when it is not on a trimmed one.
TopoDS_Face untrimmed(const TopoDS_Face& face, const SurfaceUses& surfaces) {
  TopLoc_Location where;
  const Handle(Geom_Surface)& surface = BRep_Tool::Surface(face, where);
  Handle(Geom_ElementarySurface) basis = periodicBasis(surface);
  if (basis.IsNull()) return {};
  const TopoDS_Face forward = TopoDS::Face(face.Oriented(TopAbs_FORWARD));
  std::optional<std::vector<Pcurves>> pcurves = pcurvesOf(forward);
  if (!pcurves) return {};
  const double period = basis->UPeriod();
  const double start = seamStart(*pcurves, period);
  // Turning by the start's place within its period puts the seam at u = 0;
  // the pcurves move back by the whole start.
  const double angle = start - std::floor(start / period) * period;

  BRep_Builder builder;
  TopoDS_Face moved = TopoDS::Face(forward.EmptyCopied());
  builder.UpdateFace(moved, turned(basis, angle), where, BRep_Tool::Tolerance(forward));
  movePcurves(*pcurves, forward, moved, -start, surfaces.at(surface.get()) > 1);
  for (TopoDS_Iterator wire(forward); wire.More(); wire.Next()) builder.Add(moved, wire.Value());
  moved.Orientation(face.Orientation());
  return moved;
}

}  // namespace

TopoDS_Shape untrimPeriodicFaces(const TopoDS_Shape& shape, const Handle(ShapeBuild_ReShape)& context, int* moved) {
  int count = 0;
  TopTools_IndexedMapOfShape faces;
  TopExp::MapShapes(shape, TopAbs_FACE, faces);
  const SurfaceUses surfaces = surfaceUses(faces);
  for (int i = 1; i <= faces.Extent(); ++i) {
    TopoDS_Face face = untrimmed(TopoDS::Face(faces(i)), surfaces);
    if (face.IsNull()) continue;
    context->Replace(faces(i), face);
    ++count;
  }
  if (moved) *moved = count;
  return count > 0 ? context->Apply(shape) : shape;
}

}  // namespace meld::model
