// Volume and area of shapes as sums of per-face contributions, each face's
// measured once and remembered (on its boundary where the surface allows,
// BoundaryMeasures.h; else integrated adaptively, 1e-9 relative): a boolean's
// result shares most faces with its inputs, so measuring it costs what the
// boolean made new.
#pragma once

#include <TopoDS_Face.hxx>
#include <TopoDS_Shape.hxx>

namespace meld::kernel {

struct Measures {
  double volume = 0;  // enclosed by the shape's faces as they are oriented in it
  double area = 0;
};

Measures measure(const TopoDS_Shape& shape);

// A face's share of the volume is that of the cone from the origin to the
// face (signed by the face's side), so that the shares of a closed shell's
// faces add up to its volume whichever shell they are in. This one always
// integrates over the face (adaptive, 1e-9 relative), uncached.
Measures integratedMeasures(const TopoDS_Face& face);

}  // namespace meld::kernel
