#include "ShapeSnapshot.h"

#include <BRep_CurveOnClosedSurface.hxx>
#include <BRep_CurveOnSurface.hxx>
#include <BRep_GCurve.hxx>
#include <BRep_PointOnSurface.hxx>
#include <TopExp_Explorer.hxx>

#include <unordered_set>

namespace meld::kernel {

ShapeSnapshot::ShapeSnapshot(const std::vector<TopoDS_Shape>& shapes) {
  std::unordered_set<const TopoDS_TShape*> seen;
  for (const TopoDS_Shape& shape : shapes) {
    for (TopExp_Explorer x(shape, TopAbs_FACE); x.More(); x.Next())
      if (seen.insert(x.Current().TShape().get()).second)
        faces_.push_back(take(Handle(BRep_TFace)::DownCast(x.Current().TShape())));
    for (TopExp_Explorer x(shape, TopAbs_EDGE); x.More(); x.Next())
      if (seen.insert(x.Current().TShape().get()).second)
        edges_.push_back(take(Handle(BRep_TEdge)::DownCast(x.Current().TShape())));
    for (TopExp_Explorer x(shape, TopAbs_VERTEX); x.More(); x.Next())
      if (seen.insert(x.Current().TShape().get()).second)
        vertices_.push_back(take(Handle(BRep_TVertex)::DownCast(x.Current().TShape())));
  }
}

void ShapeSnapshot::restore() const {
  for (const VertexState& v : vertices_) put(v);
  for (const EdgeState& e : edges_) put(e);
  for (const FaceState& f : faces_) put(f);
}

ShapeSnapshot::VertexState ShapeSnapshot::take(const Handle(BRep_TVertex)& vertex) {
  VertexState state;
  state.vertex = vertex;
  state.point = vertex->Pnt();
  state.tolerance = vertex->Tolerance();
  for (const Handle(BRep_PointRepresentation)& rep : vertex->Points()) {
    PointState point{rep, rep->Parameter(), 0};
    if (rep->IsPointOnSurface()) point.parameter2 = rep->Parameter2();
    state.points.push_back(point);
  }
  return state;
}

ShapeSnapshot::CurveState ShapeSnapshot::take(const Handle(BRep_CurveRepresentation)& rep) {
  CurveState state;
  state.rep = rep;
  state.location = rep->Location();
  if (auto g = Handle(BRep_GCurve)::DownCast(rep)) g->Range(state.first, state.last);
  if (rep->IsCurve3D()) state.curve = rep->Curve3D();
  if (auto s = Handle(BRep_CurveOnSurface)::DownCast(rep)) {
    state.pcurve = s->PCurve();
    s->UVPoints(state.uv[0], state.uv[1]);
  }
  if (auto c = Handle(BRep_CurveOnClosedSurface)::DownCast(rep)) {
    state.pcurve2 = c->PCurve2();
    c->UVPoints2(state.uv[2], state.uv[3]);
  }
  if (rep->IsRegularity()) state.continuity = rep->Continuity();
  return state;
}

ShapeSnapshot::EdgeState ShapeSnapshot::take(const Handle(BRep_TEdge)& edge) {
  EdgeState state;
  state.edge = edge;
  state.tolerance = edge->Tolerance();
  state.sameParameter = edge->SameParameter();
  state.sameRange = edge->SameRange();
  state.degenerated = edge->Degenerated();
  for (const Handle(BRep_CurveRepresentation)& rep : edge->Curves()) state.curves.push_back(take(rep));
  return state;
}

ShapeSnapshot::FaceState ShapeSnapshot::take(const Handle(BRep_TFace)& face) {
  return {face, face->Surface(), face->Location(), face->Tolerance(), face->NaturalRestriction()};
}

void ShapeSnapshot::put(const VertexState& state) {
  const Handle(BRep_TVertex)& vertex = state.vertex;
  vertex->Pnt(state.point);
  vertex->Tolerance(state.tolerance);
  BRep_ListOfPointRepresentation& points = vertex->ChangePoints();
  points.Clear();
  for (const PointState& point : state.points) {
    point.rep->Parameter(point.parameter);
    if (point.rep->IsPointOnSurface()) point.rep->Parameter2(point.parameter2);
    points.Append(point.rep);
  }
}

// The representation object itself is the one taken; what OCCT sets on it
// in place (range, end points, curves, location) is set back.
void ShapeSnapshot::put(const CurveState& state) {
  const Handle(BRep_CurveRepresentation)& rep = state.rep;
  rep->Location(state.location);
  if (!state.curve.IsNull()) rep->Curve3D(state.curve);
  auto onSurface = Handle(BRep_CurveOnSurface)::DownCast(rep);
  auto onClosed = Handle(BRep_CurveOnClosedSurface)::DownCast(rep);
  if (onSurface) onSurface->PCurve(state.pcurve);
  if (onClosed) onClosed->PCurve2(state.pcurve2);
  if (rep->IsRegularity()) rep->Continuity(state.continuity);
  // Setting the range recomputes the end points from the pcurves, so the
  // end points as taken go back after it.
  if (auto g = Handle(BRep_GCurve)::DownCast(rep)) g->SetRange(state.first, state.last);
  if (onSurface) onSurface->SetUVPoints(state.uv[0], state.uv[1]);
  if (onClosed) onClosed->SetUVPoints2(state.uv[2], state.uv[3]);
}

void ShapeSnapshot::put(const EdgeState& state) {
  const Handle(BRep_TEdge)& edge = state.edge;
  edge->Tolerance(state.tolerance);
  edge->SameParameter(state.sameParameter);
  edge->SameRange(state.sameRange);
  edge->Degenerated(state.degenerated);
  BRep_ListOfCurveRepresentation& curves = edge->ChangeCurves();
  curves.Clear();
  for (const CurveState& curve : state.curves) {
    put(curve);
    curves.Append(curve.rep);
  }
}

void ShapeSnapshot::put(const FaceState& state) {
  const Handle(BRep_TFace)& face = state.face;
  face->Surface(state.surface);
  face->Location(state.location);
  face->Tolerance(state.tolerance);
  face->NaturalRestriction(state.naturalRestriction);
}

}  // namespace meld::kernel
