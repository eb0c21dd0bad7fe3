// Whether a boolean's result is right, checked at the cost of what the
// boolean changed: OCCT's checker on the faces it made (not on the faces it
// kept from its inputs), a topological pass that every shell is closed and
// consistently oriented, and the volume invariants of the operation.
#pragma once

#include "FaceMeasures.h"
#include "session/BodyTopology.h"

#include <TopoDS_Shape.hxx>

#include <vector>

namespace meld::kernel {

// Every face of the result that no input holds passes OCCT's checker, and
// every solid of the result is closed, consistently oriented and of positive
// volume.
bool madeFacesValid(const TopoDS_Shape& result, const std::vector<const BodyTopology*>& inputs);
bool solidsClosed(const TopoDS_Shape& result);

// Volume invariants: a union lies between its largest input and the sum of
// its inputs, a subtraction within its target, an intersection within its
// smallest input; each within integration error plus the fuzzy value times
// the inputs' area (faces that meet within the fuzzy value may move by it).
bool volumesAgree(PK_boolean_function_t function, const Measures& target, const std::vector<Measures>& tools,
                  const Measures& result, double fuzzy);

}  // namespace meld::kernel
