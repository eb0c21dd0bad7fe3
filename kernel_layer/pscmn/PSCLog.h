// The message log: the transcript and error lines of the driver and the
// modeller session layer.
//
// Levels 10..19: 10 is the transcript and always written; 11..19 are detail,
// written when (level - 10) is not above the debug level taken from "AXDBG" /
// "VTDBG". Every written message also reaches ax_ShowMessageString.
#pragma once

// Returns 0, or 1021 when the log file cannot be created.
int PSCInitializeLog(const char* logFileName, const char* messageCatalogue);
// Returns 0 (written or filtered out), 1 for a level outside 10..19, 2 when
// writing failed.
int PSCWriteLog(int level, unsigned messageId, const char* text);
int PSCGetLogLevel();
// Returns 0, or 1022 when closing the log file failed.
int PSCTerminateLog();
// Writes `text` as it is to the log (and the console echo) and to the message
// display; returns 0.
int PSCLogWriteText(const char* text);

// A filter that returns true takes the message as handled: nothing else happens.
using PSCLogFilterHook = bool (*)(int level, unsigned messageId, const char* text);
// Sees every message with a valid level before it is written (or filtered by level).
using PSCLogObserverHook = void (*)(int level, const char* text);

// Each returns the previous hook; nullptr removes the hook.
PSCLogFilterHook PSCSetLogFilterHook(PSCLogFilterHook hook);
PSCLogObserverHook PSCSetLogObserverHook(PSCLogObserverHook hook);
