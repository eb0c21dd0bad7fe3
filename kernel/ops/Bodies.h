// Bodies in the entity table: a shape and a body type.
#pragma once

#include "session/Session.h"

namespace meld::kernel {

PK_BODY_t createBody(const TopoDS_Shape& shape, PK_BODY_type_t type);
const BodyData& bodyData(PK_BODY_t body);
// Gives the body a new shape; the old one is journalled.
void replaceBodyShape(PK_BODY_t body, const TopoDS_Shape& shape);

}  // namespace meld::kernel
