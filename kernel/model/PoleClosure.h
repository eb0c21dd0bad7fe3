// Faces on a surface of revolution whose profile starts on the axis and that
// are bounded by one ring edge (a dome: mixer-assem's tank bottom). The file
// gives only the ring; OCCT needs the face's parameter rectangle closed by a
// seam along the profile and a degenerate edge at the pole.
#pragma once

#include <TopoDS_Face.hxx>

namespace meld::model {

// The face closed at its pole, sharing the ring edge (and its vertex) with
// the rest of the body; a null face when it is not such a dome, or when the
// closed face would not be valid.
TopoDS_Face closedAtPole(const TopoDS_Face& face);

}  // namespace meld::model
