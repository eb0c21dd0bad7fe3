// PK_BODY_check: OCCT's checker over a body, faults named by sub-entity tag.
#include "Bodies.h"
#include "session/KernelError.h"
#include "session/Memory.h"

#include <BRepCheck_Analyzer.hxx>
#include <BRep_Tool.hxx>
#include <TopExp.hxx>
#include <TopTools_IndexedMapOfShape.hxx>
#include <TopoDS.hxx>

using namespace meld::kernel;

namespace {

struct Level {
  TopAbs_ShapeEnum type;
  PK_check_state_t state;
};

// Smallest entities first, so that the first fault is where the trouble starts.
constexpr Level kLevels[] = {
    {TopAbs_VERTEX, PK_VERTEX_state_bad_c}, {TopAbs_EDGE, PK_EDGE_state_bad_c},
    {TopAbs_WIRE, PK_LOOP_state_bad_c},     {TopAbs_FACE, PK_FACE_state_bad_c},
    {TopAbs_SHELL, PK_SHELL_state_bad_c},   {TopAbs_SOLID, PK_REGION_state_bad_c},
};

PK_check_fault_t faultAt(PK_check_state_t state, PK_ENTITY_t entity, const TopoDS_Shape& shape) {
  PK_check_fault_t fault{state, entity, PK_ENTITY_null, {{0, 0, 0}}};
  if (shape.ShapeType() == TopAbs_VERTEX) {
    gp_Pnt p = BRep_Tool::Pnt(TopoDS::Vertex(shape));
    fault.position = PK_VECTOR_t{{p.X(), p.Y(), p.Z()}};
  }
  return fault;
}

// A shell is named by its solid's side, a solid by its region.
PK_ENTITY_t tagAt(const BodyTopology& topology, const TopoDS_Shape& shape) {
  SubRole role = shape.ShapeType() == TopAbs_SHELL ? SubRole::solidSide : SubRole::self;
  PK_ENTITY_t tag = topology.tagOf(shape, role);
  return tag != PK_ENTITY_null ? tag : topology.tagOf(shape, SubRole::voidSide);
}

std::vector<PK_check_fault_t> findFaults(PK_BODY_t body, std::size_t limit) {
  const BodyData& data = bodyData(body);
  std::vector<PK_check_fault_t> faults;
  if (data.shape.IsNull()) return {faultAt(PK_BODY_state_invalid_c, body, TopoDS_Shape())};
  BRepCheck_Analyzer analyzer(data.shape);
  if (analyzer.IsValid()) return faults;
  for (const Level& level : kLevels) {
    TopTools_IndexedMapOfShape subs;
    TopExp::MapShapes(data.shape, level.type, subs);
    for (int i = 1; i <= subs.Extent() && faults.size() < limit; ++i) {
      if (analyzer.IsValid(subs(i))) continue;
      faults.push_back(faultAt(level.state, tagAt(*data.topology, subs(i)), subs(i)));
    }
  }
  if (faults.empty()) faults.push_back(PK_check_fault_t{PK_BODY_state_invalid_c, body, PK_ENTITY_null, {{0, 0, 0}}});
  return faults;
}

}  // namespace

extern "C" PK_ERROR_code_t PK_BODY_check(PK_BODY_t body, const PK_BODY_check_o_t* options, int* n_faults,
                                         PK_check_fault_t** faults) {
  return guarded([&] {
    requireArg(n_faults);
    requireArg(faults);
    *n_faults = 0;
    *faults = nullptr;
    int maxFaults = options ? options->max_faults : 10;
    require(!options || options->o_t_version >= 1, PK_ERROR_bad_option_data);
    require(maxFaults >= 0, PK_ERROR_bad_option_data);
    std::vector<PK_check_fault_t> found = findFaults(body, maxFaults == 0 ? 1 : std::size_t(maxFaults));
    require(maxFaults > 0 || found.empty(), PK_ERROR_check_error);
    handOut(found, n_faults, faults);
  });
}
