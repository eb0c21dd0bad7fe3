// Session-wide slots of the frustrum: start and stop, memory, the graphics
// slots this program never uses, and the record handed to the kernel.
#include "PSCFrustrum.h"

#include <cstdio>
#include <cstdlib>

#include "PSCFrustrumState.h"
#include "PSCLog.h"
#include "PSCPartHeader.h"

PSCFrustrumState g_frustrum = {};

void PSCFatalRangeError(const char* what, size_t length, size_t limit) {
  std::fprintf(stderr, "MeldSolids: fatal: %s of %zu characters exceeds the limit of %zu\n",
               what, length, limit);
  std::fflush(stderr);
  std::abort();
}

void PSCFrustrumTrace(int level, const char* format, const char* argument) {
  // Read at every call, so that tracing can be switched on for one open.
  const char* value = std::getenv("VTDBG_FRUSTRUM");
  if (value == nullptr || std::atoi(value) <= 0) return;
  char text[300];
  std::snprintf(text, sizeof text, format, argument);
  PSCWriteLog(level, 0, text);
}

void FSTART(int* ifail) {
  if (g_frustrum.startCount == 0) {
    for (unsigned& slot : g_frustrum.stridInUse) slot = 0;
    PSCBuildHeaderLines();
    g_frustrum.startCount = 1;
  } else {
    ++g_frustrum.startCount;
  }
  *ifail = PK_FR_no_errors;
}

void FABORT(int* ifail) { *ifail = PK_FR_no_errors; }

void FSTOP(int* ifail) {
  if (!PSCFrustrumStarted()) {
    *ifail = PK_FR_unspecified;
    return;
  }
  --g_frustrum.startCount;
  PSCFreeSharedLineBuffer();
  // Nested starts share the open files; only the outermost stop closes them.
  if (g_frustrum.startCount == 0) PSCCloseAllDescriptors();
  *ifail = PK_FR_no_errors;
}

void FMALLO(const int* nbytes, char** memory, int* ifail) {
  *memory = nullptr;
  if (!PSCFrustrumStarted() || *nbytes < 0) {
    *ifail = PK_FR_unspecified;
    return;
  }
  // malloc(0) may answer null; the kernel must still get a block it can free.
  *memory = static_cast<char*>(std::malloc(*nbytes > 0 ? static_cast<size_t>(*nbytes) : 1));
  *ifail = *memory != nullptr ? PK_FR_no_errors : PK_FR_memory_full;
}

void FMFREE(const int* /*nbytes*/, char** memory, int* ifail) {
  if (!PSCFrustrumStarted()) {
    *ifail = PK_FR_unspecified;
    return;
  }
  std::free(*memory);
  *memory = nullptr;
  *ifail = PK_FR_no_errors;
}

void GOSGMT(const int*, const int*, const int*, const int*, const double*, const int*,
            const int*, int* ifail) {
  *ifail = PK_FR_no_errors;
}
void GOOPSG(const int*, const int*, const int*, const int*, const double*, const int*,
            const int*, int* ifail) {
  *ifail = PK_FR_no_errors;
}
void GOCLSG(const int*, const int*, const int*, const int*, const double*, const int*,
            const int*, int* ifail) {
  *ifail = PK_FR_no_errors;
}
void GOPIXL(const int*, const double*, const int*, const int*, int* ifail) {
  *ifail = PK_FR_no_errors;
}
void GOOPPX(const int*, const double*, const int*, const int*, int* ifail) {
  *ifail = PK_FR_no_errors;
}
void GOCLPX(const int*, const double*, const int*, const int*, int* ifail) {
  *ifail = PK_FR_no_errors;
}

void PSCFillFrustrum(PK_SESSION_frustrum_t* record) {
  if (record == nullptr) return;
  PK_SESSION_frustrum_o_m(*record);
  record->fstart = FSTART;
  record->fabort = FABORT;
  record->fstop = FSTOP;
  record->fmallo = FMALLO;
  record->fmfree = FMFREE;
  record->gosgmt = GOSGMT;
  record->goopsg = GOOPSG;
  record->goclsg = GOCLSG;
  record->gopixl = GOPIXL;
  record->gooppx = GOOPPX;
  record->goclpx = GOCLPX;
  record->ffoprd = FFOPRD;
  record->ffopwr = FFOPWR;
  record->ffclos = FFCLOS;
  record->ffread = FFREAD;
  record->ffwrit = FFWRIT;
  record->ffoprb = FFOPRB;
  record->ffseek = FFSEEK;
  record->fftell = FFTELL;
}
