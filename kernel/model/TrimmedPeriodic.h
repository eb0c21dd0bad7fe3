// Faces that healing put on a trimmed copy of a periodic surface. Where a
// face goes right round a cylinder, cone, sphere or torus, healing closes it
// with a seam where the file's loops happen to meet and wraps the surface in
// a trimmed surface whose u range starts there, often past a period
// (jack-3D Scissor Jack's bolt: a cone from u = 5.76 to 12.04). The trimmed
// surface is not periodic, and OCCT's booleans put curves they cut on such a
// face a period off: an invalid face, then an empty union of the bolt and
// the block it passes through. Each such face is put back on the periodic
// surface itself; a face closed by its seam also has the surface's frame
// turned about its axis so that the seam lies at u = 0 and the face spans
// exactly 0..2pi, as OCCT's own periodic faces do. Both are exact: the
// surface is the same point set, and the pcurves only move along u.
#pragma once

#include <ShapeBuild_ReShape.hxx>
#include <TopoDS_Shape.hxx>

namespace meld::model {

// The shape with such faces replaced (their replacements go to `context`);
// the edges of a replaced face get their pcurves on the new surface in place.
// `moved`, when given, counts the faces replaced.
TopoDS_Shape untrimPeriodicFaces(const TopoDS_Shape& shape, const Handle(ShapeBuild_ReShape)& context,
                                 int* moved = nullptr);

}  // namespace meld::model
