// Loading and writing part files through the kernel.
#include <cstdio>
#include <cstring>

#include "MeldProcessFiles.h"
#include "PSCAutoCaller.h"
#include "PSCFileHelpers.h"
#include "PSCReport.h"

namespace {

constexpr std::size_t kNameCapacity = 300;

void report(const char* callee, int result, int line) {
  PSCReportFailure("PSCTransmitParts", 0, callee, result, kMeldSolidsSource, line);
}

}  // namespace

int LoadPsPart(const char* filename, PK_PART_t* part) {
  if (!filename) filename = "";
  char key[kNameCapacity + 1] = {0};
  const char* extension = PSCFindPartFileExtension(filename);
  const std::size_t keyLength = extension ? std::size_t(extension - filename) : std::strlen(filename);
  std::snprintf(key, sizeof key, "%.*s", int(keyLength), filename);

  int nParts = 0;
  PK_PART_t* parts = nullptr;
  if (PSCReceivePartFile(key, extension, &nParts, &parts) != 0) {
    std::printf("Cannot load part.\n");
    PSCPrintError(110, "PK_PART_receive");
    return 0;
  }
  PSCAutoCaller<int*, PSCPKFreeCallee> guard(parts);
  if (nParts <= 0) {
    std::printf("PS file has read, but there is no part.\n");
    PSCPrintError(120, "No Part");
    return 0;
  }
  if (nParts > 1) std::printf("PS file has %d pars.\nUse Fisrt Part.\n", nParts);
  *part = parts[0];
  return 0;
}

int PSCTransmitParts(int count, const PK_ENTITY_t* entities, const char* filename,
                     int transmitVersion) {
  if (!filename) filename = "";
  if (std::strlen(filename) >= kNameCapacity) {
    report("too long filename", 0, 548);
    return 1;
  }
  char base[kNameCapacity] = {0};
  std::snprintf(base, sizeof base, "%s", filename);
  const char* extension = PSCFindPartFileExtension(base);
  PSCSetTransmitExtension(extension);
  const int format = PSCTransmitFormatFor(2, extension);
  if (extension) base[extension - base] = '\0';
  char key[kNameCapacity + 1] = {0};
  PSCSetOutputFile(base, key);

  PK_PART_transmit_o_t options{4, format, PK_LOGICAL_true, transmitVersion, PK_LOGICAL_false,
                               PK_LOGICAL_false, PK_transmit_meshes_separate_c};
  if (int rc = PK_PART_transmit(count, entities, key, &options)) {
    report("PK_PART_transmit", rc, 577);
    return rc;
  }
  return 0;
}
