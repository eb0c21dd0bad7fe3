// Volume and area of shapes as sums of per-face contributions, each face's
// integrated once (adaptive, 1e-9 relative) and remembered: a boolean's
// result shares most faces with its inputs, so measuring it costs what the
// boolean made new.
#pragma once

#include <TopoDS_Shape.hxx>

namespace meld::kernel {

struct Measures {
  double volume = 0;  // enclosed by the shape's faces as they are oriented in it
  double area = 0;
};

Measures measure(const TopoDS_Shape& shape);

}  // namespace meld::kernel
