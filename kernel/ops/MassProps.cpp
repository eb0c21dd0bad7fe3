// Mass properties and boxes of bodies and their sub-entities.
#include "Bodies.h"
#include "session/KernelError.h"

#include <BRepBndLib.hxx>
#include <BRepBuilderAPI_MakeSolid.hxx>
#include <BRepGProp.hxx>
#include <BRep_Builder.hxx>
#include <Bnd_Box.hxx>
#include <GProp_GProps.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Compound.hxx>

#include <algorithm>
#include <cstring>

using namespace meld::kernel;

namespace {

enum class Measure { volume, area, length };

struct Target {
  TopoDS_Shape shape;
  Measure measure;
};

// What a body measures: a solid its volume, a sheet its area, a wire its length.
Measure bodyMeasure(PK_BODY_type_t type) {
  if (type == PK_BODY_type_sheet_c) return Measure::area;
  if (type == PK_BODY_type_wire_c) return Measure::length;
  require(type == PK_BODY_type_solid_c, PK_ERROR_wrong_entity);
  return Measure::volume;
}

// A void region that a cavity shell encloses measures as the solid the
// shell would bound if it faced outwards.
TopoDS_Shape cavityAsSolid(const TopoDS_Shape& shell) {
  TopoDS_Shape outward = shell.Reversed();
  BRepBuilderAPI_MakeSolid maker(TopoDS::Shell(outward));
  return maker.Solid();
}

Target targetOf(PK_TOPOL_t topol) {
  const EntityTable& table = session().table;
  if (const Record* record = table.find(topol)) {
    require(record->cls == PK_CLASS_body, PK_ERROR_wrong_entity);
    const BodyData& data = std::get<BodyData>(*record->payload);
    return Target{data.shape, bodyMeasure(data.type)};
  }
  PK_BODY_t body = table.bodyOfSubEntity(topol);
  require(body != PK_ENTITY_null, PK_ERROR_not_an_entity);
  const SubEntity& entity = *bodyTopology(body).find(topol);
  switch (entity.cls) {
    case PK_CLASS_region:
      require(entity.role != SubRole::infinite, PK_ERROR_wrong_entity);
      return Target{entity.role == SubRole::cavity ? cavityAsSolid(entity.shape) : entity.shape, Measure::volume};
    case PK_CLASS_face:
      return Target{entity.shape, Measure::area};
    case PK_CLASS_edge:
      return Target{entity.shape, Measure::length};
    default:
      fail(PK_ERROR_wrong_entity);
  }
}

// Relative error the adaptive integration aims at.
double integrationEps(double accuracy) { return std::clamp(1.0 - accuracy, 1e-12, 1e-2); }

void addMeasure(const Target& target, double eps, GProp_GProps& props) {
  GProp_GProps one;
  switch (target.measure) {
    case Measure::volume: BRepGProp::VolumeProperties(target.shape, one, eps, false, true); break;
    case Measure::area: BRepGProp::SurfaceProperties(target.shape, one, eps, true); break;
    case Measure::length: BRepGProp::LinearProperties(target.shape, one, true); break;
  }
  props.Add(one);
}

// The surface area of a solid, the boundary length of faces and sheets.
double peripheryOf(const Target& target, double eps) {
  GProp_GProps props;
  if (target.measure == Measure::volume) {
    BRepGProp::SurfaceProperties(target.shape, props, eps, true);
  } else if (target.measure == Measure::area) {
    for (TopExp_Explorer ex(target.shape, TopAbs_EDGE); ex.More(); ex.Next())
      BRepGProp::LinearProperties(ex.Current(), props, true);
  }
  return props.Mass();
}

void writeInertia(const GProp_GProps& props, double m_of_i[]) {
  gp_Mat matrix = props.MatrixOfInertia();
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) m_of_i[3 * r + c] = matrix(r + 1, c + 1);
}

}  // namespace

extern "C" PK_ERROR_code_t PK_TOPOL_eval_mass_props(int n_topols, const PK_TOPOL_t topols[], double accuracy,
                                                    const PK_TOPOL_eval_mass_props_o_t* options,
                                                    double amount[], double mass[], double c_of_g[],
                                                    double m_of_i[], double periphery[]) {
  return guarded([&] {
    require(n_topols > 0, PK_ERROR_bad_value);
    requireArg(topols);
    require(accuracy >= 0.0 && accuracy <= 1.0, PK_ERROR_bad_accuracy);
    require(!options || options->o_t_version >= 1, PK_ERROR_bad_option_data);
    bool wantPeriphery = !options || options->periphery != PK_mass_periphery_no_c;
    std::vector<Target> targets;
    for (int i = 0; i < n_topols; ++i) targets.push_back(targetOf(topols[i]));
    for (const Target& t : targets) require(t.measure == targets.front().measure, PK_ERROR_different_types);
    double eps = integrationEps(accuracy);
    GProp_GProps props;
    double edge = 0;
    for (const Target& t : targets) {
      addMeasure(t, eps, props);
      if (wantPeriphery && periphery) edge += peripheryOf(t, eps);
    }
    require(props.Mass() != 0.0, PK_ERROR_mass_eq_0);
    if (amount) amount[0] = props.Mass();
    if (mass) mass[0] = props.Mass();
    if (c_of_g) {
      gp_Pnt centre = props.CentreOfMass();
      c_of_g[0] = centre.X(), c_of_g[1] = centre.Y(), c_of_g[2] = centre.Z();
    }
    if (m_of_i) writeInertia(props, m_of_i);
    if (periphery) periphery[0] = wantPeriphery ? edge : 0.0;
  });
}

extern "C" PK_ERROR_code_t PK_TOPOL_find_box(PK_TOPOL_t topol, PK_BOX_t* box) {
  return guarded([&] {
    requireArg(box);
    const EntityTable& table = session().table;
    TopoDS_Shape shape;
    if (table.find(topol)) {
      shape = bodyData(topol).shape;
    } else {
      PK_BODY_t body = table.bodyOfSubEntity(topol);
      require(body != PK_ENTITY_null, PK_ERROR_not_an_entity);
      const SubEntity& entity = *bodyTopology(body).find(topol);
      shape = entity.role == SubRole::infinite ? bodyData(body).shape : entity.shape;
    }
    Bnd_Box bounds;
    BRepBndLib::AddOptimal(shape, bounds, false, false);
    require(!bounds.IsVoid(), PK_ERROR_bad_value);
    bounds.Get(box->coord[0], box->coord[1], box->coord[2], box->coord[3], box->coord[4], box->coord[5]);
  });
}
