// Converters for XT geometry that OCCT has no twin for (intersection curves,
// rolling-ball blends, blend bounds, foreign geometry). The geometry cache calls
// them for every node type it does not convert itself; they convert the geometry
// a node rests on (supports, spines, basis surfaces) back through the cache.
//
// Each returns null when it does not handle the node's type: the cache then
// refuses the body with PK_ERROR_unsupported_geometry naming the node. A
// converter that handles the type but cannot build it throws ModelError.
#pragma once

#include "../GeometryCache.h"

namespace meld::model::procedural {

Handle(Geom_Curve) convertCurve(GeometryCache& cache, long node);
Handle(Geom_Surface) convertSurface(GeometryCache& cache, long node);

}  // namespace meld::model::procedural
