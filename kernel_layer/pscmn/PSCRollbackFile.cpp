// The rollback scratch file: one binary file that the kernel writes, seeks in
// and reads back, deleted when it is closed.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "PSCFrustrum.h"
#include "PSCFrustrumState.h"

namespace {

// With its trailing '/'; empty when it is too long to build a name on.
std::string st_TemporaryDirectory() {
  const char* tmpdir = std::getenv("TMPDIR");
  std::string directory = tmpdir != nullptr && tmpdir[0] != '\0' ? tmpdir : "/tmp/";
  if (directory.back() != '/') directory += '/';
  return directory.size() + std::string("rollback.001").size() <= PSC_MAX_NAME ? directory
                                                                              : std::string();
}

// Key and file name; the environment may name the file (the later variable
// wins), else it lives in the temporary directory, else in the working one.
// Returns false when the name is too long to keep: the scratch file is then
// simply not creatable, which the user can mend through the environment.
bool st_RollbackNames(std::string& key, std::string& fileName) {
  const char* chosen = nullptr;
  for (const char* variable : {"QUIL_ROLBK_FILE", "VTX_ROLBK_FILE"}) {
    if (const char* value = std::getenv(variable)) chosen = value;
  }
  if (chosen != nullptr) {
    key = chosen;
    fileName = key + ".001";
  } else {
    std::string directory = st_TemporaryDirectory();
    key = directory + "rollback";
    fileName = directory + "rollback.001";
  }
  return fileName.size() <= PSC_MAX_NAME;
}

// The scratch stream for a positioning call, or null.
PSCFileDescriptor* st_RollbackStream(const int* guise, const int* strid) {
  if (*guise != PK_FR_guise_rollback) return nullptr;
  PSCFileDescriptor* stream = PSCFindDescriptor(*strid);
  return stream != nullptr && stream->guise == PK_FR_guise_rollback ? stream : nullptr;
}

}  // namespace

void FFOPRB(const int* guise, const int* /*minsize*/, const int* maxsize, int* actsize,
            int* strid, int* ifail) {
  *strid = -1;
  if (*guise != PK_FR_guise_rollback || !PSCFrustrumStarted()) {
    *ifail = PK_FR_unspecified;
    return;
  }
  if (g_frustrum.openCount >= PSC_MAX_STREAMS) {
    *ifail = PK_FR_open_fail;
    return;
  }
  std::string key, fileName;
  FILE* file = st_RollbackNames(key, fileName) ? std::fopen(fileName.c_str(), "wb+") : nullptr;
  if (file == nullptr) {
    *ifail = PK_FR_open_fail;
    return;
  }
  PSCFileDescriptor* stream = nullptr;
  *ifail = PSCAddDescriptor(file, *guise, PK_FR_format_binary, PSC_MODE_SCRATCH, key.c_str(),
                            fileName.c_str(), &stream);
  if (*ifail != 0) return;
  *actsize = *maxsize;
  *strid = static_cast<int>(stream->strid);
}

void FFSEEK(const int* guise, const int* strid, const int* position, int* ifail) {
  PSCFileDescriptor* stream = st_RollbackStream(guise, strid);
  bool moved = stream != nullptr && *position >= 0 &&
               std::fseek(stream->file, *position, SEEK_SET) == 0;
  *ifail = moved ? PK_FR_no_errors : PK_FR_unspecified;
}

void FFTELL(const int* guise, const int* strid, int* position, int* ifail) {
  PSCFileDescriptor* stream = st_RollbackStream(guise, strid);
  long where = stream != nullptr ? std::ftell(stream->file) : -1;
  if (where < 0) {
    *ifail = PK_FR_unspecified;
    return;
  }
  *position = static_cast<int>(where);
  *ifail = PK_FR_no_errors;
}
