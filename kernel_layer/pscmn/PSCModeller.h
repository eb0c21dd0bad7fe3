// Starting and stopping the modeller session for the whole run.
#pragma once

// Registers the frustrum (and, with `useDeltas`, the in-memory delta store),
// starts the kernel session, switches its self-intersection and continuity
// checks off and, with `useSmp`, lets it run on several threads.
// Returns 0, or the step code of the failing call: 10 register frustrum,
// 20 register delta callbacks, 30 start, 40 and 50 the checks, 60 threads.
int PSCStartModeller(bool useSmp, bool useDeltas);

// Stops the session and the delta store. Returns 0, 10 when the modeller was
// never started, 20 when the kernel refused to stop.
int PSCEndModeller();

// While set, start and stop do nothing and rollback works with plain marks.
// Nothing in this program sets it.
bool PSCIsPlainMarkMode();

// The thread count asked of the kernel when multi-processing is on, from
// "NUMBER_OF_PROCESSORS": unset 2; a positive number, capped at 8; else 1.
int PSCSmpThreadCount();
