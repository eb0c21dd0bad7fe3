// Bodies in the entity table: a shape, a body type, attributes on sub-shapes,
// and the tags of the body's sub-entities (regions, shells, faces, loops,
// edges, vertices), derived when the body's payload is built.
#pragma once

#include "ShapeHistory.h"
#include "session/Session.h"

#include <unordered_set>

namespace meld::kernel {

PK_BODY_t createBody(const TopoDS_Shape& shape, PK_BODY_type_t type);
// A body from a payload built by the caller (with sub-shape attributes); its
// topology is derived here when the caller left it empty.
PK_BODY_t createBody(BodyData data);
const BodyData& bodyData(PK_BODY_t body);
// Gives the body a new shape; the old one is journalled. Sub-shapes that
// survive (same TShape) keep their tags and attributes.
void replaceBodyShape(PK_BODY_t body, const TopoDS_Shape& shape);

// A body's shape after an operation: `absorbed` are bodies whose sub-shapes
// went into it (the tools of a union); tags and sub-shape attributes follow
// the history. Bodies built in one operation share `used`, so that no old tag
// goes to two of them.
struct BodyChange {
  const ShapeHistory* history = nullptr;
  std::vector<PK_BODY_t> absorbed;
  std::unordered_set<PK_ENTITY_t>* used = nullptr;
  const Bnd_Box* knownBox = nullptr;  // holds the new shape (see TagSources)
  // Set by an operation that kept most of the body's faces, knows which it
  // took and gave, and whose result is a solid whose every edge lies on two
  // of its faces: the new topology is then derived from the body's at the
  // cost of what changed (editTopology).
  const FaceDelta* faceDelta = nullptr;
};
void replaceBodyShape(PK_BODY_t body, const TopoDS_Shape& shape, const BodyChange& change);
// The payload of a body made of pieces of `from` (and of the absorbed
// bodies), derived from their current payloads; the table is not touched, so
// that all pieces of one operation can be derived before any is stored.
BodyData derivedBodyData(PK_BODY_t from, const TopoDS_Shape& shape, const BodyChange& change);
void replaceBodyData(PK_BODY_t body, BodyData data);

// The body's sub-entity topology; a body's own tag or a sub-entity's tag.
const BodyTopology& bodyTopology(PK_BODY_t body);
// The live sub-entity of that class (PK_ERROR_not_an_entity when the tag is
// dead, PK_ERROR_wrong_entity when it is another class), and its body.
const SubEntity& subEntity(PK_ENTITY_t tag, PK_CLASS_t cls, PK_BODY_t* body = nullptr);

}  // namespace meld::kernel
