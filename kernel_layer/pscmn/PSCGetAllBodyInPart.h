// Body collection: the flat, sorted list of the body tags a part holds,
// walking assemblies depth first.
#pragma once

#include <set>

#include "pk.h"

// `*bodies` receives `*count` tags in ascending order, in an array from
// PK_MEMORY_alloc that the caller frees with PK_MEMORY_free; it is not written
// when the part holds no body. Every part that is not an assembly counts as a
// body. Returns 0; 10 for a null part or output; 20 when a part of the tree
// could not be walked (nothing is returned then); 30 when the array could not
// be allocated.
int PSCGetAllBodyInPart(PK_ENTITY_t part, int* count, PK_ENTITY_t** bodies);

// Adds the bodies under `part` to `bodies`. Returns 0; 5 for a null part; 10
// when the class cannot be asked; 20 when the assembly's parts cannot be
// asked; 30 when some sub-part failed (the others are still collected).
int sp_CollectBodyRecur(PK_ENTITY_t part, std::set<PK_ENTITY_t>& bodies);

// `*isAssembly` := 1 when the part is an assembly, else 0. Returns 0; 100 for
// a null output; 200 when the kernel cannot tell the part's class.
int PSCCheckPartIsAssembly(PK_ENTITY_t part, int* isAssembly);
