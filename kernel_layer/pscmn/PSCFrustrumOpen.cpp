// Opening files by the kernel's key: reading (with the header skipped on
// request) and writing (with the header written first).
#include <cstdio>
#include <string>

#include "PSCFrustrum.h"
#include "PSCFrustrumState.h"
#include "PSCPartHeader.h"

namespace {

// What both opens share: the frustrum is running, a stream is free, and the
// name built from the key is one that may be opened.
int st_PrepareOpen(int guise, int format, const char* name, int namlen, bool forWrite,
                   char* key, std::string& fileName) {
  if (!PSCFrustrumStarted()) return PK_FR_unspecified;
  if (g_frustrum.openCount >= PSC_MAX_STREAMS) return PK_FR_open_fail;
  int rc = PSCBuildFileName(guise, format, name, namlen, forWrite, key, fileName);
  if (rc != 0) return rc;
  PSCFrustrumTrace(forWrite ? 16 : 10,
                   forWrite ? ">>> Opening file \"%s\" to write at Frustrum.\n"
                            : ">>> Opening file \"%s\" to Read at Frustrum.\n",
                   fileName.c_str());
  return PSCIsBadFileName(fileName.c_str()) ? PK_FR_bad_name : PK_FR_no_errors;
}

int st_WriteLeadIn(PSCFileDescriptor* stream, const char* pd2, int pd2len) {
  // Debug reports are XML documents and carry no part-file header.
  if (stream->guise == PK_FR_guise_debug_report) {
    static const char kXmlDeclaration[] = "<?xml version=\"1.0\" ?>";
    return PSCWriteText(stream, sizeof kXmlDeclaration - 1, kXmlDeclaration);
  }
  return PSCWritePartHeader(stream, pd2, pd2len);
}

void st_ReportOpened(int level, const std::string& fileName) {
  PSCFrustrumTrace(level, ">>>         file \"%s\" opened.\n", fileName.c_str());
}

}  // namespace

void FFOPRD(const int* guise, const int* format, const char* name, const int* namlen,
            const int* skiphd, int* strid, int* ifail) {
  *strid = -1;
  char key[PSC_MAX_NAME + 1];
  std::string fileName;
  *ifail = st_PrepareOpen(*guise, *format, name, *namlen, false, key, fileName);
  if (*ifail != 0) return;
  FILE* file = std::fopen(fileName.c_str(), *format == PK_FR_format_binary ? "rb" : "r");
  if (file == nullptr) {
    *ifail = PK_FR_not_found;
    return;
  }
  PSCFileDescriptor* stream = nullptr;
  *ifail = PSCAddDescriptor(file, *guise, *format, PSC_MODE_READ, key, fileName.c_str(), &stream);
  if (*ifail != 0) return;
  // On a header failure the stream stays open until the frustrum stops.
  if (*skiphd == 1) *ifail = PSCSkipPartHeader(stream);
  if (*ifail != 0) return;
  *strid = static_cast<int>(stream->strid);
  st_ReportOpened(10, fileName);
}

void FFOPWR(const int* guise, const int* format, const char* name, const int* namlen,
            const char* pd2, const int* pd2len, int* strid, int* ifail) {
  *strid = -1;
  char key[PSC_MAX_NAME + 1];
  std::string fileName;
  *ifail = st_PrepareOpen(*guise, *format, name, *namlen, true, key, fileName);
  if (*ifail != 0) return;
  FILE* file = std::fopen(fileName.c_str(), "wb");
  if (file == nullptr) {
    *ifail = PK_FR_could_not_open;
    return;
  }
  PSCFileDescriptor* stream = nullptr;
  *ifail = PSCAddDescriptor(file, *guise, *format, PSC_MODE_WRITE, key, fileName.c_str(), &stream);
  if (*ifail != 0) return;
  *ifail = st_WriteLeadIn(stream, pd2, pd2len != nullptr ? *pd2len : 0);
  if (*ifail != 0) return;
  *strid = static_cast<int>(stream->strid);
  st_ReportOpened(16, fileName);
}
