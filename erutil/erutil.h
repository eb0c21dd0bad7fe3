// Error stack and status file.
//
// A fixed stack of up to 50 error records (function, return code, comment)
// that can be appended, with a time stamp, to a plain-text status file. No
// function here throws or reports a failure: an unopenable file sends the
// lines to standard error instead.
#pragma once

#include <cstdio>

#include "KxuDiagnosticsData.h"

int erPush(const char* functionName, int rc, const char* comment);
int erPrint(const char* fileName);  // the whole stack, appended to fileName
int erPrint();                      // the same, to the area's status file
int erClear();
int erCount(int* out);  // 1 when out is null

// The process-wide area, taken from the diagnostics data block.
ErrorStackArea* erStackArea();

// Settings of the area; the program itself leaves them at their defaults
// (no file name, no callback, echo off).
void erSetStatusFileName(const char* fileName);  // cut to 255 characters
void erSetLineCallback(ErrorLineCallback callback, void* userValue);
void erSetEcho(int echo);

// Building blocks of the operations above.
// Picks the file ("ER_OUTFILE" overrides `name`) and opens it for appending.
// Returns the "write" flag: 1 when lines are to be written (to *out, or to
// standard error when *out is null), 0 when nothing is written (empty name).
int erOpenStatusFile(const char* name, FILE** out, const char* defaultMode);
void erEmitLine(FILE* fp, int write, const char* line);
void erPrintTimeStamp(FILE* fp, int write);
// Rows first..last inclusive; last == -1 means up to the newest record.
void erPrintTable(FILE* fp, int write, int first, int last);
