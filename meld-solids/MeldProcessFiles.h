// The two processing flows and the part-file loader and writer they share.
#pragma once

#include "MeldSettings.h"
#include "pk.h"

// Receives the file's parts and sets `*part` to the first one; leaves it alone
// when the file cannot be loaded or holds no part (the console says why).
// Always returns 0: callers learn of a failed load from the null part.
int LoadPsPart(const char* filename, PK_PART_t* part);

// Writes the entities to `filename` (its extension chooses text or binary).
// Returns 0, 1 when the name is too long, or the kernel's code.
int PSCTransmitParts(int count, const PK_ENTITY_t* entities, const char* filename,
                     int transmitVersion);

// One file: unite its solids and write the part. Returns 0, -1 (unexpected
// number of solids), 100, 200 or 300.
int st_ProcessFiles1(const char* input0, const char* output, const MeldSettings* settings);

// Two files: one boolean of each body of file 0 with all bodies of file 1;
// writes the resulting bodies. Returns 0, 100, 110, 130, 300 or 21653.
int st_ProcessFiles2(const char* input0, const char* input1, const char* output,
                     const MeldSettings* settings);
