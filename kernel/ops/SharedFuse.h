// Unions that share their intersection work. When the driver unites many
// overlapping solids one pair at a time, intersecting each pair again is most
// of the cost; instead, OCCT splits the faces of all of them against each
// other once and records which split faces lie inside which solid. A union
// of bodies made of those solids is then bounded by the split faces of each
// that lie inside none of the other's solids. The context is a cache
// outside the journal: a body is served by it while its shape is one the
// context knows (a solid it split, or a union it made); anything else takes
// the pairwise path.
#pragma once

#include "FaceMeasures.h"
#include "ShapeHistory.h"
#include "session/BodyTopology.h"
#include "pk.h"

#include <TopoDS_Shape.hxx>

#include <memory>

namespace meld::kernel {

struct SharedUnion {
  enum class Kind {
    notServed,  // take the pairwise path
    noClash,    // the bodies do not meet
    joined      // `solid` is the union, checked as a boolean's result is
  };
  Kind kind = Kind::notServed;
  TopoDS_Shape solid;
  std::unique_ptr<ShapeHistory> history;
  FaceDelta faceDelta;  // the target's faces that went, and the tool's that came
};

// The union of two solid bodies from the session's fuse context, building
// the context first when none serves the session and at least three solid
// bodies (these two among them) have overlapping boxes. Changes nothing in
// the entity table; a joined solid is remembered as a member, so that the
// body that takes it is served again.
SharedUnion uniteShared(PK_BODY_t target, PK_BODY_t tool, double fuzzy);

// How many unions the session's current fuse context has answered (0 when
// there is none): what tests and benchmarks look at.
int sharedUnionsAnswered();

}  // namespace meld::kernel
