// Entity names: the name attribute of a kernel entity as narrow text.
#pragma once

#include <string>

#include "pk.h"

// The Unicode name ("SDL/TYSA_UNAME", converted to the locale's narrow
// encoding, unmappable characters substituted) when `tryUnicode` is set and it
// is not empty, otherwise the narrow name ("SDL/TYSA_NAME"). `name` is
// overwritten only when a name was found. Returns 0 (a name was stored), -1
// (no name attribute), 100/110/120 (the Unicode name could not be asked), 10
// (the narrow name could not be asked).
int PSCGetEntityName(PK_ENTITY_t entity, std::string& name, bool tryUnicode);

// The first string field of the first attribute of definition `attdefName` on
// the entity. Returns 0; -1 when the entity has no such attribute; 10, 20, 40
// when a kernel call failed; 50 when the attribute holds no string.
int st_GetStringAttrib(const char* attdefName, PK_ENTITY_t entity, std::string& value);
