// What xt-inspect asks the kernel besides topology and measures: colours and
// the reason a file did not load.
#include "InspectFacts.h"
#include "PSCAutoCaller.h"

namespace inspect {

std::vector<double> colourOf(PK_ENTITY_t entity) {
  PK_ATTDEF_t attdef = PK_ENTITY_null;
  if (PK_ATTDEF_find("SDL/TYSA_COLOUR", &attdef) != 0 || attdef == PK_ENTITY_null) return {};
  PK_ATTRIB_t attrib = PK_ENTITY_null;
  if (PK_ENTITY_ask_first_attrib(entity, attdef, &attrib) != 0 || attrib == PK_ENTITY_null) return {};
  int n = 0;
  double* values = nullptr;
  if (PK_ATTRIB_ask_doubles(attrib, 0, &n, &values) != 0) return {};
  PSCAutoCaller<double*, PSCPKFreeCallee> guard(values);
  return std::vector<double>(values, values + (values ? n : 0));
}

std::string lastKernelMessage(int kernelCode) {
  const char* message = nullptr;
  if (PK_ERROR_ask_last_message(&message) == 0 && message && *message) return message;
  return "kernel error " + std::to_string(kernelCode);
}

}  // namespace inspect
