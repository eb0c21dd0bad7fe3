// What OCCT's algorithms change in place when allowed to modify their
// arguments: the tolerances, points, flags and curve representations (with
// their ranges and end points) of vertices, edges and faces. Taken before
// such a run, it puts the shapes back as they were after it (what the run
// left alone is set to the value it already has). Containers (wires, shells, solids) are not
// recorded: OCCT never edits an argument's containers, it builds new ones.
#pragma once

#include <BRep_CurveRepresentation.hxx>
#include <BRep_PointRepresentation.hxx>
#include <BRep_TEdge.hxx>
#include <BRep_TFace.hxx>
#include <BRep_TVertex.hxx>
#include <Geom2d_Curve.hxx>
#include <Geom_Curve.hxx>
#include <Geom_Surface.hxx>
#include <TopoDS_Shape.hxx>
#include <gp_Pnt.hxx>
#include <gp_Pnt2d.hxx>

#include <vector>

namespace meld::kernel {

class ShapeSnapshot {
 public:
  explicit ShapeSnapshot(const std::vector<TopoDS_Shape>& shapes);

  // Puts every vertex, edge and face back as it was taken.
  void restore() const;

 private:
  struct PointState {
    Handle(BRep_PointRepresentation) rep;
    double parameter = 0, parameter2 = 0;
  };
  struct VertexState {
    Handle(BRep_TVertex) vertex;
    gp_Pnt point;
    double tolerance = 0;
    std::vector<PointState> points;
  };
  struct CurveState {
    Handle(BRep_CurveRepresentation) rep;
    TopLoc_Location location;
    double first = 0, last = 0;
    Handle(Geom_Curve) curve;
    Handle(Geom2d_Curve) pcurve, pcurve2;
    gp_Pnt2d uv[4];
    GeomAbs_Shape continuity = GeomAbs_C0;
  };
  struct EdgeState {
    Handle(BRep_TEdge) edge;
    double tolerance = 0;
    bool sameParameter = false, sameRange = false, degenerated = false;
    std::vector<CurveState> curves;
  };
  struct FaceState {
    Handle(BRep_TFace) face;
    Handle(Geom_Surface) surface;
    TopLoc_Location location;
    double tolerance = 0;
    bool naturalRestriction = false;
  };

  static VertexState take(const Handle(BRep_TVertex)& vertex);
  static EdgeState take(const Handle(BRep_TEdge)& edge);
  static FaceState take(const Handle(BRep_TFace)& face);
  static CurveState take(const Handle(BRep_CurveRepresentation)& rep);
  static void put(const VertexState& state);
  static void put(const EdgeState& state);
  static void put(const FaceState& state);
  static void put(const CurveState& state);

  std::vector<VertexState> vertices_;
  std::vector<EdgeState> edges_;
  std::vector<FaceState> faces_;
};

}  // namespace meld::kernel
