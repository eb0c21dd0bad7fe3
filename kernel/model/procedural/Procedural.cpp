// No procedural converter is wired in yet: every such node is refused by the
// cache with a message naming it.
#include "Procedural.h"

namespace meld::model::procedural {

Handle(Geom_Curve) convertCurve(GeometryCache&, long) { return nullptr; }
Handle(Geom_Surface) convertSurface(GeometryCache&, long) { return nullptr; }

}  // namespace meld::model::procedural
