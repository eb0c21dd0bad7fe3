#include "PSCModeller.h"

#include <cstdlib>

#include "PSCDeltaStore.h"
#include "PSCFrustrum.h"
#include "PSCPerformanceAnalyzer.h"
#include "PSCReport.h"
#include "pk.h"

namespace {

const char kSource[] = "kernel_layer\\src\\pscmn\\PSCModeller";

int g_started = 0;
bool g_plainMarkMode = false;
bool g_deltasRegistered = false;

// Reports a failed start step and hands its code back.
int startFailed(int code, const char* callee, int result, int line) {
  PSCReportFailure("PSCStartModeller", code, callee, result, kSource, line);
  return code;
}

int registerDeltaStore() {
  g_deltasRegistered = true;
  FRU__delta_init(1);
  PK_DELTA_frustrum_t deltas;
  PSCFillDeltaFrustrum(&deltas);
  return PK_DELTA_register_callbacks(&deltas);
}

int enableSmp() {
  PK_SESSION_smp_o_t options;
  PK_SESSION_smp_o_m(options);
  options.o_t_version = 1;
  options.thread_format = PK_thread_absolute_c;
  options.n_threads = PSCSmpThreadCount();
  options.on_single_processor = PK_LOGICAL_false;
  return PK_SESSION_set_smp(&options);
}

}  // namespace

int PSCSmpThreadCount() {
  const char* value = std::getenv("NUMBER_OF_PROCESSORS");
  if (!value) return 2;
  int processors = std::atoi(value);
  if (processors <= 0) return 1;
  return processors > 8 ? 8 : processors;
}

bool PSCIsPlainMarkMode() { return g_plainMarkMode; }

int PSCStartModeller(bool useSmp, bool useDeltas) {
  PSCPerformanceAnalyzer analyzer("PSCStartModeller");
  if (!g_plainMarkMode) {
    PK_SESSION_frustrum_t frustrum;
    PSCFillFrustrum(&frustrum);
    if (int rc = PK_SESSION_register_frustrum(&frustrum))
      return startFailed(10, "PK_SESSION_register_frustrum", rc, 72);

    if (useDeltas) {
      if (int rc = registerDeltaStore())
        return startFailed(20, "PK_DELTA_register_callbacks", rc, 85);
    }

    PK_SESSION_start_o_t options;
    PK_SESSION_start_o_m(options);
    options.o_t_version = 1;
    options.journal_file = nullptr;
    options.user_field = 0;
    options.reserved = 1;
    if (int rc = PK_SESSION_start(&options)) return startFailed(30, "PK_SESSION_start", rc, 91);
    if (int rc = PK_SESSION_set_check_self_int(PK_LOGICAL_false))
      return startFailed(40, "PK_SESSION_set_check_self_int", rc, 93);
    if (int rc = PK_SESSION_set_check_continuity(PK_LOGICAL_false))
      return startFailed(50, "PK_SESSION_set_check_continuity", rc, 94);
    if (useSmp) {
      if (int rc = enableSmp()) return startFailed(60, "PK_SESSION_set_smp", rc, 113);
    }
  }
  g_started = 1;
  return 0;
}

int PSCEndModeller() {
  PSCPerformanceAnalyzer analyzer("PSCEndModeller");
  if (g_plainMarkMode) return 0;
  if (g_started != 1) {
    PSCReportFailure("PSCEndModeller", 0, "modeller don't start yet !", 0, kSource, 127);
    return 10;
  }
  // The flag stays set once deltas were registered in this process: a later
  // run without deltas still asks the store to stop, and the store says it
  // was not running.
  if (g_deltasRegistered) FRU__delta_init(2);
  if (int rc = PK_SESSION_stop()) {
    PSCReportFailure("PSCEndModeller", 20, "PK_SESSION_stop", rc, kSource, 134);
    return 20;
  }
  g_started = 0;
  return 0;
}
