// What an entity carries besides its class. Payloads are immutable once they
// are in the entity table: a change builds a new payload and replaces the old
// one, which the undo journal keeps alive for as long as a mark can go back to
// it.
#pragma once

#include "BodyTopology.h"
#include "pk.h"

#include <TopoDS_Shape.hxx>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace meld::kernel {

// A field value: strings, Unicode strings, or arrays of integers (integer, tag,
// pointer fields) or doubles (real fields, and three per point, vector,
// direction or axis).
using AttribValue = std::variant<std::monostate, std::string, std::u16string, std::vector<int64_t>,
                                 std::vector<double>>;

// An attribute on a face, edge, vertex, loop, shell or solid of a body: these
// are not entities of the table, so the body carries them with the sub-shape.
// onGeometry: the file had it on the sub-shape's geometry (the surface of a
// face, the curve of an edge, the point of a vertex), where it is written back.
struct SubshapeAttrib {
  TopoDS_Shape shape;
  PK_ATTDEF_t attdef = PK_ENTITY_null;
  std::vector<AttribValue> fields;
  bool onGeometry = false;
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

// What a part file says about a definition besides its name and fields, kept so
// that writing it back loses nothing: its numeric class (8001.. system, 9000
// user), the action per event, the owner types allowed.
struct AttdefXt {
  int64_t typeId = 9000;
  std::array<int64_t, 8> actions{};
  std::vector<int64_t> legalOwners;  // 14 flags, by owner type
};

struct AttdefData {
  std::string name;
  std::vector<PK_ATTRIB_field_t> fields;
  AttdefXt xt;
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
