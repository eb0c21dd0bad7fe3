#include "PSCGetAllBodyInPart.h"

#include <algorithm>

#include "PSCAutoCaller.h"
#include "PSCPerformanceAnalyzer.h"
#include "PSCReport.h"

namespace {

const char kSource[] = "kernel_layer\\src\\pscmn\\PSCGetAllBodyInPart";

}  // namespace

int sp_CollectBodyRecur(PK_ENTITY_t part, std::set<PK_ENTITY_t>& bodies) {
  PSCPerformanceAnalyzer analyzer("sp_CollectBodyRecur");
  if (part == PK_ENTITY_null) return 5;
  int isAssembly = 1;
  if (int rc = PSCCheckPartIsAssembly(part, &isAssembly)) {
    PSCReportFailure("sp_CollectBodyRecur", 10, "PSCCheckPartIsAssembly", rc, kSource, 33);
    return 10;
  }
  if (!isAssembly) {
    bodies.insert(part);
    return 0;
  }
  int n = 0;
  PK_PART_t* parts = nullptr;
  if (int rc = PK_ASSEMBLY_ask_parts(part, &n, &parts)) {
    PSCReportFailure("sp_CollectBodyRecur", 20, "PK_ASSEMBLY_ask_parts", rc, kSource, 38);
    return 20;
  }
  PSCAutoCaller<int*, PSCPKFreeCallee> partsGuard(parts);
  int result = 0;
  // One bad sub-part does not stop the walk: the others are still collected.
  for (int i = 0; i < n; ++i) {
    if (int rc = sp_CollectBodyRecur(parts[i], bodies)) {
      PSCReportFailure("sp_CollectBodyRecur", 30, "sp_CollectBodyRecur", rc, kSource, 41);
      result = 30;
    }
  }
  return result;
}

int PSCGetAllBodyInPart(PK_ENTITY_t part, int* count, PK_ENTITY_t** bodies) {
  PSCPerformanceAnalyzer analyzer("PSCGetAllBodyInPart");
  if (part == PK_ENTITY_null || !count || !bodies) return 10;
  std::set<PK_ENTITY_t> collected;
  if (int rc = sp_CollectBodyRecur(part, collected)) {
    PSCReportFailure("PSCGetAllBodyInPart", 20, "sp_CollectBodyRecur", rc, kSource, 59);
    return 20;
  }
  *count = static_cast<int>(collected.size());
  if (collected.empty()) return 0;
  void* memory = nullptr;
  if (int rc = PK_MEMORY_alloc(collected.size() * sizeof(PK_ENTITY_t), &memory)) {
    PSCReportFailure("PSCGetAllBodyInPart", 30, "PK_MEMORY_alloc", rc, kSource, 63);
    return 30;
  }
  *bodies = static_cast<PK_ENTITY_t*>(memory);
  std::copy(collected.begin(), collected.end(), *bodies);
  return 0;
}
