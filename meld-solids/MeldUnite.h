// Uniting the solid bodies of one part, pass by pass, each union guarded by a
// rollback mark.
#pragma once

#include "MeldSettings.h"
#include "pk.h"

// Unites the part's solids until one is left or a pass unites nothing, strips
// inner shells when the settings ask, and gives each surviving body one new
// instance in the part. Returns 0; 130 when the bodies cannot be collected;
// 150 when inner-shell removal fails.
int st_UniteAllBody(PK_PART_t part, const MeldSettings& settings);

// One guarded union of tool into target (tolerances in millimetres). Returns
// the boolean result token; a union that failed, split the target or left it
// without a proper solid region is rolled back and answers failed (21653).
int st_DoUnite(PK_BODY_t target, PK_BODY_t tool, double default_tol, double max_tol);

// Whether the body is a solid; a kernel error counts as not solid.
bool st_IsSolidBody(PK_BODY_t body);

// The entity when it still exists, otherwise 0 (writing `message` at level 11
// when it is not null).
PK_ENTITY_t st_RefreshEntity(PK_ENTITY_t entity, const char* message);

// True when no solid region of the body holds a positive shell, or when the
// kernel cannot tell: such a union is to be rejected.
bool st_HasInvalidRegion(PK_BODY_t body);

// Strips the cavities of a body with more than two regions: keeps the faces
// that bound the outside (the only region without a positive shell) and
// deletes every other face in one call. Returns 0, or 100-150 for the failing
// kernel call.
int st_RemoveInnerShellInBody(PK_BODY_t body);

// The name written for a boolean result token.
const char* st_BooleanResultName(int result, char (&buffer)[32]);
