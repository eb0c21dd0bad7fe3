#include "PSCReport.h"

#include <cstdio>

#include "PSCLog.h"
#include "erutil.h"

namespace {

constexpr int kErrorRecordSize = 512;
constexpr int kErrorRecordLevel = 11;

const char* orEmpty(const char* text) { return text ? text : ""; }

}  // namespace

void PSCReportFailure(const char* function, int code, const char* callee, int result,
                      const char* sourceFile, int line) {
  if (PSCGetLogLevel() > 0) {
    char text[kErrorRecordSize];
    std::snprintf(text, sizeof text, "%s = %d : %s = %d \n      [%s],[%d]\n", orEmpty(function), code,
                  orEmpty(callee), result, orEmpty(sourceFile), line);
    PSCWriteLog(kErrorRecordLevel, 0, text);
    erPrint("./erutil.stat");
  }
  erClear();
}

void PSCPrintError(int rc, const char* what) {
  std::printf("ERROR : rc = %d, %s\n", rc, orEmpty(what));
}
