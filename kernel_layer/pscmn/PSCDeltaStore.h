// The in-memory store for partition deltas.
//
// The kernel writes the journal of each partition mark into a "delta" that the
// application keeps, and reads it back when it goes back to the mark. Deltas
// live here, in chains of fixed-size blocks, for the life of the session.
#pragma once

#include <cstdint>

#include "pk.h"

// Action 1 starts the store, 2 stops it (freeing every delta still held).
// Returns 1 for success, 0 for failure.
int FRU__delta_init(int action);

// The delta callbacks registered with the kernel. Each returns a kernel error
// code: 0, PK_ERROR_bad_delta (565) for a bad key or wrong state,
// PK_ERROR_memory_full (901), PK_ERROR_delta_read_past_end (1082).
PK_ERROR_code_t FRU_delta_open_for_write(PK_PMARK_t pmark, PK_DELTA_t* key);
PK_ERROR_code_t FRU_delta_open_for_read(PK_DELTA_t key);
PK_ERROR_code_t FRU_delta_close(PK_DELTA_t key);
PK_ERROR_code_t FRU_delta_write(PK_DELTA_t key, unsigned int n_bytes, const char* bytes);
PK_ERROR_code_t FRU_delta_read(PK_DELTA_t key, unsigned int n_bytes, char* bytes);
PK_ERROR_code_t FRU_delta_delete(PK_DELTA_t key);

// Fills a delta frustrum with the six callbacks above.
void PSCFillDeltaFrustrum(PK_DELTA_frustrum_t* record);

// What the store holds, for tests and diagnostics.
struct PSCDeltaStoreStats {
  bool running;
  unsigned capacity;        // slots in the delta table
  unsigned liveDeltas;      // slots in use
  std::uint64_t bytesReleased;
};
PSCDeltaStoreStats PSCGetDeltaStoreStats();
// Number of blocks in the chain of a live delta (0 for none or a bad key).
unsigned PSCDeltaBlockCount(PK_DELTA_t key);
