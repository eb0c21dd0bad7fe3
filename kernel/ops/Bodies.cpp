#include "Bodies.h"

#include "session/KernelError.h"

namespace meld::kernel {

PK_BODY_t createBody(const TopoDS_Shape& shape, PK_BODY_type_t type) {
  return session().table.create(
      Record{PK_CLASS_body, PK_ENTITY_null, PK_ENTITY_null, makePayload(BodyData{shape, type})});
}

const BodyData& bodyData(PK_BODY_t body) {
  const Record& record = session().table.get(body, PK_CLASS_body);
  return std::get<BodyData>(*record.payload);
}

void replaceBodyShape(PK_BODY_t body, const TopoDS_Shape& shape) {
  // Sub-shape attributes stay with the payload; an operation that knows its
  // history carries them to the new sub-shapes itself.
  BodyData changed = bodyData(body);
  changed.shape = shape;
  session().table.replacePayload(body, makePayload(std::move(changed)));
}

}  // namespace meld::kernel
