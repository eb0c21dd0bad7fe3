// The one-file and two-file flows.
#include <cstdio>
#include <vector>

#include "MeldProcessFiles.h"
#include "MeldUnite.h"
#include "PSCAutoCaller.h"
#include "PSCGetAllBodyInPart.h"
#include "PSCLog.h"
#include "PSCReport.h"

namespace {

using KernelArray = PSCAutoCaller<int*, PSCPKFreeCallee>;

// Solid bodies in the part; a part whose bodies cannot be collected has none.
long countSolids(PK_PART_t part) {
  int n = 0;
  PK_BODY_t* bodies = nullptr;
  if (int rc = PSCGetAllBodyInPart(part, &n, &bodies)) {
    PSCPrintError(rc, "PSCGetAllBodyInPart");
    return 0;
  }
  KernelArray guard(bodies);
  long solids = 0;
  for (int k = 0; k < n; ++k)
    if (st_IsSolidBody(bodies[k])) ++solids;
  return solids;
}

int booleanFunctionFor(int selector) {
  switch (selector) {
    case 1: return PK_boolean_subtract_c;
    case 2: return PK_boolean_intersect_c;
    default: return PK_boolean_unite_c;
  }
}

// The two-file flow stores its tolerances crosswise (the kernel's default
// tolerance gets the command line's maximum and the other way round); the
// pipelines that call it have been tuned against that.
PK_BODY_boolean_o_t twoFileOptions(const MeldSettings& settings) {
  PK_BODY_boolean_o_t options;
  PK_BODY_boolean_o_m(options);
  options.function = booleanFunctionFor(settings.booleanFunction);
  options.default_tol = settings.max_tol * 0.001;
  options.max_tol = settings.default_tol * 0.001;
  return options;
}

// One boolean per target against every tool; the result bodies are appended
// to `out`. Returns 0, or 21653 at the first kernel error.
int combineAll(const int nTargets, const PK_BODY_t* targets, const int nTools, const PK_BODY_t* tools,
               const MeldSettings& settings, std::vector<PK_BODY_t>& out) {
  const PK_BODY_boolean_o_t options = twoFileOptions(settings);
  for (int t = 0; t < nTargets; ++t) {
    PK_TOPOL_track_r_t tracking{};
    PK_boolean_r_t results{};
    const int rc = PK_BODY_boolean_2(targets[t], nTools, tools, &options, &tracking, &results);
    if (rc == 0) out.insert(out.end(), results.bodies, results.bodies + results.n_bodies);
    PK_TOPOL_track_r_f(&tracking);
    PK_boolean_r_f(&results);
    if (rc != 0) return PK_boolean_result_failed_c;
  }
  return 0;
}

}  // namespace

int st_ProcessFiles1(const char* input0, const char* output, const MeldSettings* settings) {
  PK_PART_t part = PK_ENTITY_null;
  if (int rc = LoadPsPart(input0, &part)) {
    PSCPrintError(rc, "PCHLoadPsPart");
    return 100;
  }
  if (settings->input_solid_num > 0) {
    const long solids = countSolids(part);
    if (solids != settings->input_solid_num) {
      PSCPrintError(int(solids), "invalid number of solid body");
      char text[128];
      std::snprintf(text, sizeof text, "Unexpected number of input solid, %ld (%ld expected).\n",
                    solids, long(settings->input_solid_num));
      PSCWriteLog(10, 0, text);
      return -1;
    }
  }
  if (int rc = st_UniteAllBody(part, *settings)) {
    PSCPrintError(rc, "st_UniteAllBody");
    return 200;
  }
  if (int rc = PSCTransmitParts(1, &part, output, 70)) {
    PSCPrintError(rc, "PSCTransmitParts");
    return 300;
  }
  return 0;
}

int st_ProcessFiles2(const char* input0, const char* input1, const char* output,
                     const MeldSettings* settings) {
  PK_PART_t part0 = PK_ENTITY_null, part1 = PK_ENTITY_null;
  if (int rc = LoadPsPart(input0, &part0)) {
    PSCPrintError(rc, "LoadPsPart");
    return 100;
  }
  if (int rc = LoadPsPart(input1, &part1)) {
    PSCPrintError(rc, "LoadPsPart");
    return 110;
  }
  int nTargets = 0, nTools = 0;
  PK_BODY_t *targets = nullptr, *tools = nullptr;
  if (int rc = PSCGetAllBodyInPart(part0, &nTargets, &targets)) {
    PSCPrintError(rc, "PSCGetAllBodyInPart");
    return 130;
  }
  KernelArray targetsGuard(targets);
  if (int rc = PSCGetAllBodyInPart(part1, &nTools, &tools)) {
    PSCPrintError(rc, "PSCGetAllBodyInPart");
    return 130;
  }
  KernelArray toolsGuard(tools);
  std::vector<PK_BODY_t> results;
  if (int rc = combineAll(nTargets, targets, nTools, tools, *settings, results)) return rc;
  if (results.empty()) return 0;
  if (int rc = PSCTransmitParts(int(results.size()), results.data(), output, 100)) {
    PSCPrintError(rc, "PSCTransmitParts");
    return 300;
  }
  return 0;
}
