#include "PSCGetAllBodyInPart.h"
#include "PSCPerformanceAnalyzer.h"
#include "PSCReport.h"

namespace {

const char kSource[] = "kernel_layer\\src\\pscmn\\PSCCheckPartIsAssembly";

// The class held before the kernel answers: a value no kernel class has, so
// an unanswered call never reads as an assembly.
constexpr PK_CLASS_t kUnknownClass = 500;

}  // namespace

int PSCCheckPartIsAssembly(PK_ENTITY_t part, int* isAssembly) {
  PSCPerformanceAnalyzer analyzer("PSCCheckPartIsAssembly");
  if (!isAssembly) return 100;
  *isAssembly = 0;
  PK_CLASS_t klass = kUnknownClass;
  if (int rc = PK_ENTITY_ask_class(part, &klass)) {
    PSCReportFailure("PSCCheckPartIsAssembly", 200, "PK_ENTITY_ask_class", rc, kSource, 33);
    return 200;
  }
  if (klass == PK_CLASS_assembly) *isAssembly = 1;
  return 0;
}
