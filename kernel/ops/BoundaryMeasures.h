// A face's volume share and area from its boundary alone, where the surface
// allows it: planes, cylinders, cones and spheres. Integrating along edges
// costs a fraction of integrating over the face, and it is exact to rounding
// where the edges are lines and circles.
#pragma once

#include "FaceMeasures.h"

#include <TopoDS_Face.hxx>

namespace meld::kernel {

// The face's share of the volume (the cone from the origin to the face,
// signed by the face's side) and its area, or false when its surface is of
// another kind or its boundary does not close in the surface's parameters.
bool boundaryMeasures(const TopoDS_Face& face, Measures& measures);

}  // namespace meld::kernel
