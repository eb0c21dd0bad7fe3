// Transforms and moving bodies.
#include "Bodies.h"
#include "session/KernelError.h"

#include <BRepBuilderAPI_Transform.hxx>
#include <BRepTools_History.hxx>
#include <TopTools_ListOfShape.hxx>
#include <TopLoc_Location.hxx>
#include <gp_Trsf.hxx>

#include <cmath>
#include <cstring>

using namespace meld::kernel;

namespace {

constexpr double kScaleTolerance = 1e-9;

// Whether the 3x3 part is a rotation (or reflection) times a uniform scale:
// its columns are orthogonal and of one length.
bool isScaledOrthogonal(const double (&m)[4][4]) {
  double dot[3][3];
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) dot[i][j] = m[0][i] * m[0][j] + m[1][i] * m[1][j] + m[2][i] * m[2][j];
  double square = dot[0][0];
  if (!(square > 0)) return false;
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      if (std::abs(dot[i][j] - (i == j ? square : 0.0)) > kScaleTolerance * square) return false;
  return true;
}

// Rotation (possibly with a uniform scale) plus translation; perspective terms,
// a non-unit homogeneous term and shears are refused.
gp_Trsf toTrsf(const double (&m)[4][4]) {
  for (int j = 0; j < 3; ++j) require(m[3][j] == 0.0, PK_ERROR_bad_transf);
  require(m[3][3] == 1.0, PK_ERROR_bad_transf);
  for (const auto& row : m)
    for (double v : row) require(std::isfinite(v), PK_ERROR_bad_transf);
  require(isScaledOrthogonal(m), PK_ERROR_bad_transf);
  gp_Trsf trsf;
  try {
    trsf.SetValues(m[0][0], m[0][1], m[0][2], m[0][3], m[1][0], m[1][1], m[1][2], m[1][3], m[2][0],
                   m[2][1], m[2][2], m[2][3]);
  } catch (const Standard_Failure&) {
    fail(PK_ERROR_bad_transf);  // not a rotation times a uniform scale
  }
  return trsf;
}

const TransfData& transfData(PK_TRANSF_t transf) {
  return std::get<TransfData>(*session().table.get(transf, PK_CLASS_transf).payload);
}

bool isRigid(const gp_Trsf& trsf) { return std::abs(std::abs(trsf.ScaleFactor()) - 1) < kScaleTolerance && trsf.ScaleFactor() > 0; }

// A rigid motion only changes the shape's location, sharing its topology. The
// motion is composed with the location into one transformation: chaining a
// location per call (TopoDS_Shape::Moved) makes every later call, and every
// use of the shape, walk a chain as long as the number of moves.
TopoDS_Shape relocated(const TopoDS_Shape& shape, const gp_Trsf& motion) {
  gp_Trsf composed = motion * shape.Location().Transformation();
  return shape.Located(TopLoc_Location(composed));
}

}  // namespace

extern "C" PK_ERROR_code_t PK_TRANSF_create(const PK_TRANSF_sf_t* transf_sf, PK_TRANSF_t* transf) {
  return guarded([&] {
    requireArg(transf_sf);
    requireArg(transf);
    SessionState& s = session();
    toTrsf(transf_sf->matrix);
    TransfData data;
    std::memcpy(data.matrix, transf_sf->matrix, sizeof data.matrix);
    *transf = s.table.create(Record{PK_CLASS_transf, PK_ENTITY_null, PK_ENTITY_null, makePayload(data)});
  });
}

extern "C" PK_ERROR_code_t PK_TRANSF_ask(PK_TRANSF_t transf, PK_TRANSF_sf_t* transf_sf) {
  return guarded([&] {
    requireArg(transf_sf);
    std::memcpy(transf_sf->matrix, transfData(transf).matrix, sizeof transf_sf->matrix);
  });
}

extern "C" PK_ERROR_code_t PK_BODY_transform_2(PK_BODY_t body, PK_TRANSF_t transf, double tolerance,
                                               const PK_BODY_transform_o_t* options) {
  return guarded([&] {
    (void)tolerance;
    require(!options || options->o_t_version >= 1, PK_ERROR_bad_option_data);
    const TopoDS_Shape& shape = bodyData(body).shape;
    gp_Trsf trsf = toTrsf(transfData(transf).matrix);
    // A rigid motion only changes the shape's location, sharing its topology
    // (every sub-entity keeps its tag); a scale rebuilds the geometry, and
    // the sub-entities follow it through the rebuild's history.
    if (isRigid(trsf)) {
      replaceBodyShape(body, relocated(shape, trsf));
      return;
    }
    BRepBuilderAPI_Transform scaled(shape, trsf, true);
    TopTools_ListOfShape arguments;
    arguments.Append(shape);
    Handle(BRepTools_History) history = new BRepTools_History(arguments, scaled);
    ShapeHistory followed(history, {shape});
    replaceBodyShape(body, scaled.Shape(), BodyChange{&followed, {}, nullptr});
  });
}
