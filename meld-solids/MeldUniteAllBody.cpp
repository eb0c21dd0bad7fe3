// Uniting all solid bodies of a part, pass after pass.
#include <cstdio>
#include <set>
#include <string>

#include "MeldUnite.h"
#include "NPOptions.h"
#include "PSCAutoCaller.h"
#include "PSCGetAllBodyInPart.h"
#include "PSCGetEntityName.h"
#include "PSCLog.h"
#include "PSCReport.h"
#include "erutil.h"

namespace {

void writeLog(int level, const char* format, long a, long b = 0) {
  char text[128];
  std::snprintf(text, sizeof text, format, a, b);
  PSCWriteLog(level, 0, text);
}

// The body's old instances go: the survivors get fresh ones at the end of the
// pass. Each instance's turn deletes the whole array again, and what the
// kernel says to the repeats is of no interest.
void dropInstances(PK_BODY_t body) {
  int n = 0;
  PK_INSTANCE_t* instances = nullptr;
  if (int rc = PK_PART_ask_ref_instances(body, &n, &instances)) {
    PSCPrintError(rc, "PK_PART_ask_ref_instances");
    return;
  }
  PSCAutoCaller<int*, PSCPKFreeCallee> guard(instances);
  for (int k = 0; k < n; ++k) PK_ENTITY_delete(n, instances);
}

void announce(long index, PK_BODY_t body) {
  if (PSCGetLogLevel() <= 0) return;
  writeLog(10, "[%ld]", index);
  std::string name;
  if (PSCGetEntityName(body, name, true) != 0) {
    erClear();
    name.clear();
  }
  if (!name.empty()) PSCWriteLog(10, 0, ("(" + name + ")").c_str());
  PSCWriteLog(10, 0, "\n");
}

// Tries every later body against the target in slot i; united tools leave
// their slot empty and the target moves to the slot of the last one.
void uniteIntoSlot(PK_BODY_t* slots, int n, int i, const MeldSettings& settings) {
  const PK_BODY_t target = slots[i];
  std::set<PK_BODY_t> tried{target};
  int last = i;
  for (int j = i + 1; j < n; ++j) {
    const PK_BODY_t tool = slots[j];
    if (tool == PK_ENTITY_null) continue;
    if (!st_IsSolidBody(tool)) {
      if (PSCGetLogLevel() > 5) writeLog(16, "atBody[%ld] is not solid\n", j);
      continue;
    }
    if (!tried.insert(tool).second) continue;
    const int result = st_DoUnite(target, tool, settings.default_tol, settings.max_tol);
    if (result == PK_boolean_result_success_c) {
      slots[j] = PK_ENTITY_null;
      last = j;
      writeLog(11, "succeeded(%ld,%ld)\n", i, j);
    } else if (result != PK_boolean_result_no_clash_c) {
      writeLog(11, "failed(%ld,%ld)\n", i, j);
      if (result == PK_boolean_result_failed_c) {
        slots[i] = st_RefreshEntity(target, "  Target body becomes invalid.\n");
        slots[j] = st_RefreshEntity(tool, "  Tool body becomes invalid.\n");
        if (slots[i] == PK_ENTITY_null) break;
      }
    }
  }
  if (last > i && slots[i] != PK_ENTITY_null && slots[last] == PK_ENTITY_null) {
    slots[last] = slots[i];
    slots[i] = PK_ENTITY_null;
  }
}

// Clears duplicates, strips inner shells, instances the survivors in the
// part. Returns 0 or 150; `survivors` counts the bodies kept.
int settleSurvivors(PK_PART_t part, PK_BODY_t* slots, int n, const MeldSettings& settings,
                    long& survivors) {
  survivors = 0;
  for (int k = 0; k < n; ++k) {
    const PK_BODY_t body = slots[k];
    if (body == PK_ENTITY_null) continue;
    for (int later = k + 1; later < n; ++later)
      if (slots[later] == body) slots[later] = PK_ENTITY_null;
    if (settings.removeInnerShells) {
      if (int rc = st_RemoveInnerShellInBody(body)) {
        PSCPrintError(rc, "st_RemoveInnerShellInBody");
        return 150;
      }
    }
    PK_INSTANCE_sf_t sf{part, body, PK_ENTITY_null};
    PK_INSTANCE_t instance = PK_ENTITY_null;
    if (int rc = PK_INSTANCE_create(&sf, &instance)) {
      PSCPrintError(rc, "PK_INSTANCE_create");
      writeLog(11, "  PK_INSTANCE_create was failed for iBody = %ld\n", k);
    }
    ++survivors;
  }
  return 0;
}

// One pass. Returns 0 when uniting is over, 1 when another pass is due, or a
// failure code.
int unitePass(PK_PART_t part, const MeldSettings& settings) {
  int n = 0;
  PK_BODY_t* slots = nullptr;
  if (int rc = PSCGetAllBodyInPart(part, &n, &slots)) {
    PSCPrintError(rc, "PSCGetAllBodyInPart");
    return 130;
  }
  PSCAutoCaller<int*, PSCPKFreeCallee> guard(slots);
  NPSetOption(NP_OPTION_ROLLBACK_WITH_MARKS, 1);
  for (int k = 0; k < n; ++k) {
    dropInstances(slots[k]);
    announce(k, slots[k]);
  }
  for (int i = 0; i < n; ++i)
    if (slots[i] != PK_ENTITY_null && st_IsSolidBody(slots[i])) uniteIntoSlot(slots, n, i, settings);
  long survivors = 0;
  if (int rc = settleSurvivors(part, slots, n, settings, survivors)) return rc;
  if (survivors == 1 || survivors == n) {
    writeLog(10, "totally %ld bodies are remained.\n", survivors);
    return 0;
  }
  return 1;
}

}  // namespace

int st_UniteAllBody(PK_PART_t part, const MeldSettings& settings) {
  for (;;) {
    const int rc = unitePass(part, settings);
    if (rc != 1) return rc;
  }
}
