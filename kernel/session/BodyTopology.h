// The sub-entities of a body (regions, shells, faces, loops, edges, vertices)
// and their tags, derived from the body's shape when its payload is built.
//
// A body's topology is immutable and travels inside the body's payload, so an
// enquiry hands out tags without changing anything and a roll-back, which
// brings an old payload back, brings its tags back with it.
//
// Regions and shells follow the format's view of a solid: one infinite void
// region, one solid region per OCCT solid, one void region per cavity. Each
// closed OCCT shell is seen from both sides, so it gives two shells: the one
// on the side of its solid and the one on the side of the void next to it.
#pragma once

#include "pk.h"

#include <Bnd_Box.hxx>
#include <TopoDS_Shape.hxx>
#include <TopoDS_TShape.hxx>

#include <cstdint>
#include <functional>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace meld::kernel {

// Which sub-entity of an OCCT sub-shape is meant: the face, edge, vertex,
// loop or solid itself, one side of a shell, or the void region a cavity
// shell encloses. The infinite region has no shape.
enum class SubRole : std::uint8_t { self, solidSide, voidSide, cavity, infinite };

struct SubKey {
  const TopoDS_TShape* tshape = nullptr;
  SubRole role = SubRole::self;
  bool operator==(const SubKey& other) const { return tshape == other.tshape && role == other.role; }
};

struct SubKeyHash {
  std::size_t operator()(const SubKey& key) const {
    return std::hash<const void*>()(key.tshape) * 31 + std::size_t(key.role);
  }
};

struct SubEntity {
  PK_CLASS_t cls = 0;
  SubRole role = SubRole::self;
  // The sub-shape as it lies in the body (with its orientation there); a
  // region's solid or cavity shell; null for the infinite region.
  TopoDS_Shape shape;
  // Shells: the region they bound and its side of them.
  PK_REGION_t region = PK_ENTITY_null;
  PK_SHELL_sign_t sign = 0;
  // Regions: their shells, and whether they are solid.
  std::vector<PK_SHELL_t> shells;
  bool solid = false;
};

struct BodyTopology {
  std::unordered_map<PK_ENTITY_t, SubEntity> entities;
  std::unordered_map<SubKey, PK_ENTITY_t, SubKeyHash> byKey;
  // In the body's order: regions (infinite first, then solids, then
  // cavities), shells, faces, loops, edges, vertices.
  std::vector<PK_ENTITY_t> regions, shells, faces, loops, edges, vertices;
  // A box around the body, grown by its tolerances; possibly loose (a
  // boolean's result keeps the box of its inputs), never too small. It is
  // what the booleans' cheap no-clash test looks at.
  Bnd_Box box;

  const SubEntity* find(PK_ENTITY_t tag) const;
  PK_ENTITY_t tagOf(const TopoDS_Shape& shape, SubRole role = SubRole::self) const;
};

using BodyTopologyPtr = std::shared_ptr<const BodyTopology>;

// Where the new topology's tags come from: tags of the previous topologies
// (the body's own first, then those of bodies it absorbs) for sub-shapes they
// share (same TShape), the operation's history for pieces made from an old
// sub-shape (`origin` names the old TShape of a new one, or null), the
// session's counter for the rest. An old tag is given to one piece only, also
// across several topologies derived together when they share `used`.
struct TagSources {
  std::vector<const BodyTopology*> previous;
  std::unordered_set<PK_ENTITY_t>* used = nullptr;
  std::function<const TopoDS_TShape*(const TopoDS_Shape&)> origin;
  std::function<PK_ENTITY_t()> fresh;
  // A box known to hold the shape (from the operation's inputs); when there
  // is none, the shape's own box is computed.
  const Bnd_Box* knownBox = nullptr;
};

BodyTopologyPtr deriveTopology(const TopoDS_Shape& shape, const TagSources& sources);

}  // namespace meld::kernel
