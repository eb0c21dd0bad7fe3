// One union of two bodies under a rollback mark.
#include <cstdio>

#include "MeldUnite.h"
#include "NPRollbackMark.h"
#include "PSCLog.h"
#include "PSCReport.h"

namespace {

void report(const char* callee, int result, int line) {
  PSCReportFailure("st_DoUnite", 0, callee, result, kMeldSolidsSource, line);
}

void rollback(NPRollbackMark& mark, int line) {
  if (int rc = mark.Rollback()) report("NPRollbackMark::Rollback", rc, line);
}

PK_BODY_boolean_o_t uniteOptions(double default_tol, double max_tol) {
  PK_BODY_boolean_o_t options;
  PK_BODY_boolean_o_m(options);
  options.function = PK_boolean_unite_c;
  // The settings are millimetres, the kernel works in metres.
  options.default_tol = default_tol * 0.001;
  options.max_tol = max_tol * 0.001;
  return options;
}

// Steps after a plain boolean: keeps a sound union, undoes a bad one. Returns
// the final result, or 0 when the union stands (or missed) without comment.
int judgeResult(int result, NPRollbackMark& mark, PK_BODY_t target, PK_BODY_t tool,
                const PK_boolean_r_t& results) {
  if (result == PK_boolean_result_no_clash_c) {
    if (st_RefreshEntity(tool, "  Tool body becomes invalid.\n") != PK_ENTITY_null) return 0;
    result = PK_boolean_result_failed_c;
  }
  if (result == PK_boolean_result_failed_c) {
    rollback(mark, 159);
  } else if (result == PK_boolean_result_success_c) {
    if (results.n_bodies >= 2) {
      // The union fell apart into several bodies: not what uniting is for.
      rollback(mark, 171);
      result = PK_boolean_result_failed_c;
    } else if (st_HasInvalidRegion(target)) {
      PSCWriteLog(11, 0, "invalid region");
      rollback(mark, 183);
      result = PK_boolean_result_failed_c;
    } else {
      return 0;
    }
  }
  return result;
}

}  // namespace

const char* st_BooleanResultName(int result, char (&buffer)[32]) {
  switch (result) {
    case PK_boolean_result_no_clash_c: return "PK_boolean_result_no_clash_c";
    case PK_boolean_result_no_effect_c: return "PK_boolean_result_no_effect_c";
    case PK_boolean_result_failed_c: return "PK_boolean_result_failed_c";
    case PK_boolean_result_not_solid_c: return "PK_boolean_result_not_solid_c";
    case PK_boolean_result_is_tool_c: return "PK_boolean_result_is_tool_c";
    case PK_boolean_result_imprint_c: return "PK_boolean_result_imprint_c";
    default: std::snprintf(buffer, sizeof buffer, "unknown(%d)", result); return buffer;
  }
}

int st_DoUnite(PK_BODY_t target, PK_BODY_t tool, double default_tol, double max_tol) {
  NPRollbackMark mark;
  if (int rc = mark.SetMark()) {
    report("NPRollbackMark::SetMark", rc, 126);
    return PK_boolean_result_failed_c;
  }
  const PK_BODY_boolean_o_t options = uniteOptions(default_tol, max_tol);
  PK_TOPOL_track_r_t tracking{};
  PK_boolean_r_t results{};
  int result = PK_boolean_result_failed_c;
  if (int rc = PK_BODY_boolean_2(target, 1, &tool, &options, &tracking, &results))
    report("PK_BODY_boolean_2", rc, 137);
  else
    result = results.result;

  const int judged = judgeResult(result, mark, target, tool, results);
  if (judged != 0) {
    result = judged;
    if (PSCGetLogLevel() > 0) {
      char buffer[32];
      char line[64];
      std::snprintf(line, sizeof line, "%s\n", st_BooleanResultName(result, buffer));
      PSCWriteLog(11, 0, line);
    }
  }
  PK_TOPOL_track_r_f(&tracking);
  PK_boolean_r_f(&results);
  // The mark's destructor lets go of a mark still held without going back.
  return result;
}
