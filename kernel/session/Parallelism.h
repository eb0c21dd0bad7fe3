// How many threads OCCT algorithms may use, from the session's multi-processing
// setting (PK_SESSION_set_smp). 1 means no parallel runs.
#pragma once

#include "Session.h"

namespace meld::kernel {

int processorCount();
int threadsFor(const SmpSettings& smp);
// Applies the setting to OCCT: boolean operations' parallel mode and the size
// of OCCT's default thread pool.
void applyParallelism(int threads);
// The thread count now in force (1 outside a session).
int sessionThreads();

}  // namespace meld::kernel
