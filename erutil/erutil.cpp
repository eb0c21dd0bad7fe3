#include "erutil.h"

#include <omp.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

// Copies at most size-1 characters and always terminates.
void copyCut(char* destination, std::size_t size, const char* source) {
  const char* text = source ? source : "";
  const std::size_t length = std::min(std::strlen(text), size - 1);
  std::memcpy(destination, text, length);
  destination[length] = '\0';
}

void closeIfOpened(FILE* fp) {
  if (fp != nullptr) std::fclose(fp);
}

// One block: a title line, the time stamp, and optionally table rows.
// Every open-write-close sequence goes through here so that blocks written
// from several threads never interleave.
void writeBlock(const char* fileName, bool forceWrite, const char* title, bool withTable, int first,
                int last) {
#pragma omp critical(erutil_status_file)
  {
    FILE* fp = nullptr;
    const int opened = erOpenStatusFile(fileName, &fp, "a");
    const int write = forceWrite ? 1 : opened;
    erEmitLine(fp, write, title);
    erPrintTimeStamp(fp, write);
    if (withTable) erPrintTable(fp, write, first, last);
    closeIfOpened(fp);
  }
}

}  // namespace

ErrorStackArea* erStackArea() { return &KxuGetDiagnosticsData()->errorStack; }

void erSetStatusFileName(const char* fileName) {
  ErrorStackArea* area = erStackArea();
  copyCut(area->statusFileName, sizeof area->statusFileName, fileName);
}

void erSetLineCallback(ErrorLineCallback callback, void* userValue) {
  ErrorStackArea* area = erStackArea();
  area->lineCallback = callback;
  area->callbackUserValue = userValue;
}

void erSetEcho(int echo) { erStackArea()->echo = echo; }

int erOpenStatusFile(const char* name, FILE** out, const char* defaultMode) {
  *out = nullptr;
  const char* mode = defaultMode;
  // This build always appends: the variable is honoured only in the direction
  // that changes nothing, so a status file is never truncated.
  const char* addMode = std::getenv("VTX_ER_STAT_ADD_MODE");
  if (addMode != nullptr && std::atoi(addMode) >= 1) mode = "a";
  const char* overrideName = std::getenv("ER_OUTFILE");
  if (overrideName != nullptr) {
    name = overrideName;
  } else if (name == nullptr) {
    return 1;
  } else if (name[0] == '\0') {
    return 0;
  }
  *out = std::fopen(name, mode);
  return 1;
}

void erEmitLine(FILE* fp, int write, const char* line) {
  const ErrorStackArea* area = erStackArea();
  if (area->lineCallback != nullptr) area->lineCallback(area->callbackUserValue, line);
  if (write != 0) std::fprintf(fp ? fp : stderr, "%s\n", line);
}

void erPrintTimeStamp(FILE* fp, int write) {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char line[96];
  std::snprintf(line, sizeof line, "%04d/%02d/%02d %02d:%02d:%02d printed in thread %03d",
                local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
                local.tm_sec, omp_get_thread_num());
  erEmitLine(fp, write, line);
}

void erPrintTable(FILE* fp, int write, int first, int last) {
  const ErrorStackArea* area = erStackArea();
  if (first < 0 || last >= area->count) return;
  if (last == -1) last = area->count - 1;
  erEmitLine(fp, write, "Index RC     FunctionName                        Comment");
  for (int i = first; i <= last; ++i) {
    const ErrorRecord& record = area->records[i];
    char row[32 + kErrorFunctionNameSize + kErrorCommentSize];
    std::snprintf(row, sizeof row, "%2ldth  %6ld  %-35s %s", static_cast<long>(i),
                  static_cast<long>(record.returnCode), record.functionName, record.comment);
    erEmitLine(fp, write, row);
  }
}

int erPush(const char* functionName, int rc, const char* comment) {
  ErrorStackArea* area = erStackArea();
  if (area->count >= kErrorStackCapacity) return 0;  // full: dropped on purpose
  ErrorRecord& record = area->records[area->count];
  copyCut(record.functionName, sizeof record.functionName, functionName);
  record.returnCode = rc;
  copyCut(record.comment, sizeof record.comment, comment);
  area->count += 1;
  if (area->echo == 0) return 0;
  writeBlock(area->statusFileName, false, "erPush : ", true, area->count - 1, area->count - 1);
  return 0;
}

int erPrint(const char* fileName) {
  writeBlock(fileName, true, "erPrint : ", true, 0, -1);
  return 0;
}

int erPrint() {
  writeBlock(erStackArea()->statusFileName, false, "erPrint : ", true, 0, -1);
  return 0;
}

int erClear() {
  ErrorStackArea* area = erStackArea();
  if (area->count == 0) return 0;
  area->count = 0;  // the records themselves are left as they are
  if (area->echo != 0) writeBlock(area->statusFileName, false, "erClear : ", false, 0, 0);
  return 0;
}

int erCount(int* out) {
  if (out == nullptr) return 1;
  *out = erStackArea()->count;
  return 0;
}
