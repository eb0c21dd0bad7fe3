// Faces that wind more than once round a periodic surface: the crest of a
// thread, a strip of cylinder between two helices many turns long
// (nxcmp-Brake_Piston's nut, jack-3D Scissor Jack's screw and nut). The file
// gives one face whose parameter range spans many periods. OCCT cannot work
// with such a face: its booleans put the curves they cut on it into the wrong
// turn (empty or invalid results), and its area and volume integrals go wrong
// (the jack's screw measured 6 % too large, with a face of negative area).
// Each such face is cut along iso-lines half a period apart into faces that
// each lie within one turn; the cut edges are exact iso-curves of the surface
// and the boundary edges are split, not approximated.
#pragma once

#include <ShapeBuild_ReShape.hxx>
#include <TopoDS_Shape.hxx>

namespace meld::model {

// How far past a whole period a face's parameter range must reach to count
// as winding round its surface (a share of the period). Less is a band or a
// whole turn: with 1e-6, and faces with a seam not passed over, posi-Part1
// written and read again had a whole turn cut and its body spoilt.
inline constexpr double kWoundShare = 1e-3;

// The shape with its wound faces cut into pieces; replacements (a face by a
// compound of its pieces, an edge by a wire of its parts) go to `context`.
// A wound face with inner loops, or whose cut cannot be traced, stays whole.
// `cut`, when given, counts the faces that were cut.
TopoDS_Shape splitWoundFaces(const TopoDS_Shape& shape, const Handle(ShapeBuild_ReShape)& context,
                             int* cut = nullptr);

}  // namespace meld::model
