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

struct BodyTopology;
using BodyTopologyPtr = std::shared_ptr<const BodyTopology>;

struct BodyTopology {
  // The sub-entities by tag and by sub-shape. A topology edited from another
  // (a union keeps most of its target) holds only what differs from a shared
  // `base`: the base's sub-entities are its own too unless hidden here or
  // given another sub-shape here. Lookups go through find() and tagOf().
  std::unordered_map<PK_ENTITY_t, SubEntity> entities;
  std::unordered_map<SubKey, PK_ENTITY_t, SubKeyHash> byKey;
  BodyTopologyPtr base;  // never itself edited from another
  std::unordered_set<PK_ENTITY_t> hidden;
  // The topology this one was edited from, and the tags the edit dropped
  // and added: what the entity index needs to follow the change.
  std::weak_ptr<const BodyTopology> editedFrom;
  std::vector<PK_ENTITY_t> dropped, added;
  // In the body's order: regions (infinite first, then solids, then
  // cavities), shells, faces, loops, edges, vertices.
  std::vector<PK_ENTITY_t> regions, shells, faces, loops, edges, vertices;
  // A box around the body, grown by its tolerances; possibly loose (a
  // boolean's result keeps the box of its inputs), never too small. It is
  // what the booleans' cheap no-clash test looks at.
  Bnd_Box box;

  const SubEntity* find(PK_ENTITY_t tag) const;
  PK_ENTITY_t tagOf(const TopoDS_Shape& shape, SubRole role = SubRole::self) const;
  PK_ENTITY_t tagOf(const SubKey& key) const;
  // Every sub-entity's tag, in no particular order.
  void forEachTag(const std::function<void(PK_ENTITY_t)>& visit) const;
};

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

// The faces an operation took from a body's shape and the faces it gave it.
struct FaceDelta {
  std::vector<TopoDS_Shape> removed, added;
};

// The topology of a solid made from the one `from` describes by replacing
// some of its faces, derived at the cost of what changed: the other faces
// keep their sub-entities, and the loops, edges and vertices of a face that
// went go too unless a new face has them. That is right for a solid whose
// every edge lies on two faces: an edge a kept face shared with a face that
// went now lies on a new face, and so does every vertex such an edge ends
// in. Regions and shells are derived anew. Null when the shape is not a
// solid of shells of faces; the caller then derives the whole topology.
BodyTopologyPtr editTopology(const TopoDS_Shape& shape, const TagSources& sources, const BodyTopologyPtr& from,
                             const FaceDelta& delta);

}  // namespace meld::kernel
