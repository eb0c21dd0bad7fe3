// OCCT's measures of shapes the model-layer tests build or receive.
#pragma once

#include <BRepGProp.hxx>
#include <GProp_GProps.hxx>
#include <TopoDS_Shape.hxx>

namespace kerneltest {

// The area of the shape's faces: by adaptive integration to this relative
// precision when one is given, else by OCCT's default Gauss order.
inline double shapeArea(const TopoDS_Shape& shape, double precision = 0) {
  GProp_GProps props;
  if (precision > 0) BRepGProp::SurfaceProperties(shape, props, precision);
  else BRepGProp::SurfaceProperties(shape, props);
  return props.Mass();
}

}  // namespace kerneltest
