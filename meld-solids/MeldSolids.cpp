// The program's run: log, modeller, banner, flow, exit code.
#include "MeldSolids.h"

#include <cstdio>

#include "MeldProcessFiles.h"
#include "PSCFileHelpers.h"
#include "PSCLog.h"
#include "PSCModeller.h"
#include "PSCReport.h"
#include "erutil.h"

namespace {

const char* orNull(const std::string& text) { return text.empty() ? nullptr : text.c_str(); }

void writeBanner(const MeldCommandLine& line) {
  const MeldSettings& s = line.settings;
  char text[128];
  PSCWriteLog(10, 0, "Input File 0 : ");
  PSCWriteLog(10, 0, line.input0.c_str());
  PSCWriteLog(10, 0, "\nInput File 1 : ");
  PSCWriteLog(10, 0, line.input1.c_str());
  PSCWriteLog(10, 0, "\nOutput File : ");
  PSCWriteLog(10, 0, line.output.c_str());
  PSCWriteLog(10, 0, "\n");
  PSCWriteLog(10, 0, "----------------------------------------\n");
  std::snprintf(text, sizeof text, "default_tol = %g[mm]\n", s.default_tol);
  PSCWriteLog(10, 0, text);
  std::snprintf(text, sizeof text, "max_tol = %g[mm]\n", s.max_tol);
  PSCWriteLog(10, 0, text);
  std::snprintf(text, sizeof text, "input_solid_num = %ld\n", long(s.input_solid_num));
  PSCWriteLog(10, 0, text);
  PSCWriteLog(10, 0, "----------------------------------------\n");
}

// Runs the flow the inputs call for; returns the exit code it earns.
int runFlow(const MeldCommandLine& line) {
  const bool twoFiles = !line.input1.empty();
  const int result = twoFiles ? st_ProcessFiles2(line.input0.c_str(), line.input1.c_str(),
                                                 line.output.c_str(), &line.settings)
                              : st_ProcessFiles1(line.input0.c_str(), line.output.c_str(),
                                                 &line.settings);
  if (result == 0) return 0;
  const int exitCode = twoFiles ? 220 : 210;
  PSCReportFailure("main", exitCode, twoFiles ? "st_ProcessFiles2" : "st_ProcessFiles1", result,
                   kMeldSolidsSource, twoFiles ? 861 : 854);
  return exitCode;
}

}  // namespace

int MeldSolidsMain(int argc, const char* const* argv) {
  MeldCommandLine line;
  if (!MeldParseCommandLine(argc, argv, line)) return 1;
  const bool withLog = !line.logFile.empty();
  if (withLog) PSCInitializeLog(line.logFile.c_str(), nullptr);
  PSCSetSchemaDirectory(orNull(line.schemaDir));
  if (int rc = PSCStartModeller(false, true)) {
    // The log stays open and the kernel is not stopped: nothing was started.
    PSCPrintError(rc, "PSCStartModeller");
    return 110;
  }
  writeBanner(line);
  const int exitCode = runFlow(line);
  if (int rc = PSCEndModeller()) PSCPrintError(rc, "PSCEndModeller");
  if (withLog) PSCTerminateLog();
  return exitCode;
}
