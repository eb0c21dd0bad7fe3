// Message display: the last stop of every message the log writes.
//
// A host may register a display callback (its own console or window). Without
// one, messages go to the message writer, which by default discards them; a
// host or test may install another writer.
#pragma once

#include "KxuString.h"

using AxDisplayCallback = void (*)(int kind, int flag, const char* text);
using AxMessageWriter = void (*)(int kind, int flag, const KxuString& text);

// Installs the display callback (nullptr removes it); returns the previous one.
AxDisplayCallback ax_RegisterDisplayCallback(AxDisplayCallback callback);

// Installs the message writer (nullptr restores the discarding default);
// returns the previous one.
AxMessageWriter ax_SetMessageWriter(AxMessageWriter writer);

// Shows one message. With a display callback the callback gets it (under the
// user's numeric locale); the writer gets it as well only when
// "VTX_ALWAYS_DEBUG_STAT_DIR" has been seen set. Never throws: an exception
// from the callback or writer is reported on standard error.
void ax_ShowMessageString(int kind, int flag, const char* text);

// True once "VTX_ALWAYS_DEBUG_STAT_DIR" has been seen by ax_ShowMessageString.
// The flag stays on for the life of the process.
bool ax_IsAlwaysWriteOn();
