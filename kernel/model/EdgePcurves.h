// Pcurves the builder finds itself before healing. Files store pcurves for
// few edges; healing would project every other one with a global search per
// sample, which is most of the time a procedural-heavy body takes to build.
// Here an edge is followed across its face instead: one foot point is found
// (from the wire neighbour's end, or one global search), the rest by a local
// Newton from the previous foot, and the feet are joined by a C1 cubic in the
// edge's own parameter, refined until it keeps to the feet.
//
// Only surfaces with one foot per point get this: a direction that closes
// must be periodic (each wire is then followed in one period, its holes
// moved into the outer wire's; a wire may go once round, and healing then
// adds the seam of the band), and the surface not degenerate where the edge
// runs (a foot there has no unique (u,v)). Edges it cannot follow
// confidently (past the surface's range, off it, or used twice by a face,
// as a seam is) are left without a pcurve for healing to project.
#pragma once

#include <TopoDS_Shape.hxx>

namespace meld::model {

struct FollowedPcurves {
  int added = 0;  // pcurves computed here
  int left = 0;   // edges on eligible faces left to healing
};

// Adds the pcurves of `shape`'s edges on eligible faces in place (the edges'
// TShapes are updated). Edges that already have a pcurve on a face keep it.
FollowedPcurves followPcurves(const TopoDS_Shape& shape);

// How far a pcurve found here may stray from the feet it joins (metres).
inline constexpr double kPcurveFitTolerance = 1e-9;

}  // namespace meld::model
