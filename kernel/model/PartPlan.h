// What a part file holds, built in full before the session sees any of it: the
// bodies as shapes, the assemblies with their instances and transforms, the
// attribute definitions and attributes. Receiving registers a plan in one go,
// so that a file that fails anywhere leaves the session as it was.
#pragma once

#include "NodeGraph.h"
#include "session/Payload.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace meld::model {

using kernel::AttribValue;

struct AttdefSpec {
  std::string name;
  std::vector<PK_ATTRIB_field_t> fields;
  kernel::AttdefXt xt;
};

struct AttribSpec {
  size_t attdef = 0;  // into PartPlan::attdefs
  std::vector<AttribValue> fields;
  bool onGeometry = false;  // on the geometry of the sub-shape it is kept with
};

struct PartRef {
  enum Kind { Body, Assembly } kind = Body;
  size_t index = 0;  // into PartPlan::bodies or PartPlan::assemblies
};

struct InstanceSpec {
  PartRef part;
  std::optional<std::array<std::array<double, 4>, 4>> matrix;  // as PK_TRANSF_sf_t; none: identity
  std::vector<AttribSpec> attribs;
};

struct BodySpec {
  TopoDS_Shape shape;
  PK_BODY_type_t type = PK_BODY_type_solid_c;
  std::vector<AttribSpec> attribs;
  std::vector<std::pair<TopoDS_Shape, AttribSpec>> subshapeAttribs;
};

struct AssemblySpec {
  std::vector<InstanceSpec> instances;
  std::vector<AttribSpec> attribs;
};

struct PartPlan {
  std::vector<AttdefSpec> attdefs;
  std::vector<BodySpec> bodies;
  std::vector<AssemblySpec> assemblies;
  std::vector<PartRef> roots;  // what the file transmits, in order
  // Attributes the plan could not place (features, geometry no topology uses).
  int attributesDropped = 0;
};

// Builds everything the graph holds. Throws ModelError naming the node where it
// stops.
PartPlan readParts(const xt::Graph& graph);

}  // namespace meld::model
