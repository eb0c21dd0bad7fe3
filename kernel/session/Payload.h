// What an entity carries besides its class. Payloads are immutable once they
// are in the entity table: a change builds a new payload and replaces the old
// one, which the undo journal keeps alive for as long as a mark can go back to
// it.
#pragma once

#include "BodyTopology.h"
#include "pk.h"

#include <TopoDS_Shape.hxx>

#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace meld::kernel {

using AttribValue = std::variant<std::monostate, std::string, std::u16string>;

// An attribute held on a sub-shape of a body (a face's colour, an edge's
// name): it follows its sub-shape when the body's shape changes.
struct SubshapeAttrib {
  TopoDS_Shape shape;
  PK_ATTDEF_t attdef = PK_ENTITY_null;
  std::vector<AttribValue> fields;
};

struct BodyData {
  TopoDS_Shape shape;
  PK_BODY_type_t type = PK_BODY_type_solid_c;
  std::vector<SubshapeAttrib> subshapeAttribs;
  // Regions, shells, faces, loops, edges, vertices and their tags.
  BodyTopologyPtr topology;
};

struct AssemblyData {};

// An instance's assembly is its owner and its part its referent (Record).
struct InstanceData {
  PK_TRANSF_t transf = PK_ENTITY_null;
};

struct TransfData {
  double matrix[4][4] = {};
};

struct AttdefData {
  std::string name;
  std::vector<PK_ATTRIB_field_t> fields;
};

// An attribute's owner is the entity it is attached to, its referent its
// definition.
struct AttribData {
  std::vector<AttribValue> fields;
};

// Partitions, pmarks and marks carry nothing.
using Payload =
    std::variant<std::monostate, BodyData, AssemblyData, InstanceData, TransfData, AttdefData, AttribData>;
using PayloadPtr = std::shared_ptr<const Payload>;

template <class T>
PayloadPtr makePayload(T value) {
  return std::make_shared<const Payload>(std::move(value));
}

}  // namespace meld::kernel
