// Primitive solids: block, cylinder, sphere, each placed by an optional basis.
#include "Bodies.h"
#include "session/KernelError.h"

#include <BRepPrimAPI_MakeBox.hxx>
#include <BRepPrimAPI_MakeCylinder.hxx>
#include <BRepPrimAPI_MakeSphere.hxx>
#include <gp_Ax2.hxx>

#include <cmath>

using namespace meld::kernel;

namespace {

constexpr double kSizeBox = 1000.0;        // metres
constexpr double kLinearResolution = 1e-8;  // metres
constexpr double kUnitTolerance = 1e-9;

gp_Vec vec(const PK_VECTOR_t& v) { return gp_Vec(v.coord[0], v.coord[1], v.coord[2]); }

// The basis must be a unit axis and a unit reference direction at right angles.
gp_Ax2 frame(const PK_AXIS2_sf_t* basis) {
  if (!basis) return gp_Ax2();
  gp_Vec z = vec(basis->axis), x = vec(basis->ref_direction);
  require(std::abs(z.Magnitude() - 1) < kUnitTolerance && std::abs(x.Magnitude() - 1) < kUnitTolerance,
          PK_ERROR_bad_value);
  require(std::abs(z.Dot(x)) < kUnitTolerance, PK_ERROR_bad_value);
  const PK_VECTOR_t& p = basis->location;
  for (double c : p.coord) require(std::isfinite(c) && std::abs(c) <= kSizeBox, PK_ERROR_bad_value);
  return gp_Ax2(gp_Pnt(p.coord[0], p.coord[1], p.coord[2]), gp_Dir(z), gp_Dir(x));
}

void checkSize(double size) {
  require(std::isfinite(size) && size > kLinearResolution && size <= kSizeBox, PK_ERROR_bad_value);
}

void makeSolid(PK_BODY_t* body, const TopoDS_Shape& shape) {
  *body = createBody(shape, PK_BODY_type_solid_c);
}

}  // namespace

extern "C" PK_ERROR_code_t PK_BODY_create_solid_block(double x, double y, double z,
                                                      const PK_AXIS2_sf_t* basis_set,
                                                      PK_BODY_t* body) {
  return guarded([&] {
    requireArg(body);
    session();
    for (double size : {x, y, z}) checkSize(size);
    gp_Ax2 axes = frame(basis_set);
    // The block stands on the basis point, centred on it in x and y.
    gp_Pnt corner = axes.Location().Translated(-gp_Vec(axes.XDirection()) * (x / 2) -
                                               gp_Vec(axes.YDirection()) * (y / 2));
    gp_Ax2 cornerAxes(corner, axes.Direction(), axes.XDirection());
    makeSolid(body, BRepPrimAPI_MakeBox(cornerAxes, x, y, z).Shape());
  });
}

extern "C" PK_ERROR_code_t PK_BODY_create_solid_cyl(double radius, double height,
                                                    const PK_AXIS2_sf_t* basis_set, PK_BODY_t* body) {
  return guarded([&] {
    requireArg(body);
    session();
    checkSize(radius);
    checkSize(height);
    makeSolid(body, BRepPrimAPI_MakeCylinder(frame(basis_set), radius, height).Shape());
  });
}

extern "C" PK_ERROR_code_t PK_BODY_create_solid_sphere(double radius, const PK_AXIS2_sf_t* basis_set,
                                                       PK_BODY_t* body) {
  return guarded([&] {
    requireArg(body);
    session();
    checkSize(radius);
    makeSolid(body, BRepPrimAPI_MakeSphere(frame(basis_set), radius).Shape());
  });
}
