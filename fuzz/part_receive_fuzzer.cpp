// libFuzzer target over the whole receive path: the input is a part file served
// by an in-memory frustrum to PK_PART_receive (codec, model layer, OCCT). Any
// input must give parts or an error code with a message, never a crash, a hang
// or a leak; a received part is written back and must read again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "pk.h"

namespace {

std::string input;                     // the file being received
std::map<int, size_t> readPositions;   // stream -> position
std::string written;                   // what transmit wrote
bool writing = false;

void fstart(int* ifail) { *ifail = 0; }
void fstop(int* ifail) { *ifail = 0; }
void fmallo(const int* n, char** memory, int* ifail) {
  *memory = static_cast<char*>(std::malloc(static_cast<size_t>(*n)));
  *ifail = *memory ? 0 : PK_FR_memory_full;
}
void fmfree(const int*, char** memory, int* ifail) {
  std::free(*memory);
  *ifail = 0;
}
void ffoprd(const int* guise, const int*, const char* name, const int* namlen, const int*, int* strid, int* ifail) {
  std::string key(name, static_cast<size_t>(*namlen));
  if (*guise != PK_FR_guise_transmit || (key != "input" && key != "again")) {
    *ifail = PK_FR_not_found;
    return;
  }
  *strid = key == "input" ? 1 : 2;
  readPositions[*strid] = 0;
  *ifail = 0;
}
void ffopwr(const int*, const int*, const char*, const int*, const char*, const int*, int* strid, int* ifail) {
  written.clear();
  writing = true;
  *strid = 3;
  *ifail = 0;
}
void ffclos(const int*, const int* strid, const int* action, int* ifail) {
  if (*strid == 3) {
    writing = false;
    if (*action == PK_FR_close_abandon) written.clear();
  }
  *ifail = 0;
}
void ffread(const int*, const int* strid, const int* nmax, char* buffer, int* nactual, int* ifail) {
  const std::string& data = *strid == 1 ? input : written;
  size_t& at = readPositions[*strid];
  size_t n = std::min(static_cast<size_t>(*nmax), data.size() - at);
  size_t eol = data.find('\n', at);
  if (eol != std::string::npos) n = std::min(n, eol + 1 - at);
  std::memcpy(buffer, data.data() + at, n);
  at += n;
  *nactual = static_cast<int>(n);
  *ifail = n > 0 ? 0 : PK_FR_end_of_file;
}
void ffwrit(const int*, const int*, const int* n, const char* buffer, int* ifail) {
  written.append(buffer, static_cast<size_t>(*n));
  *ifail = 0;
}
void ffoprb(const int*, const int*, const int*, int*, int*, int* ifail) { *ifail = PK_FR_open_fail; }
void ffseek(const int*, const int*, const int*, int* ifail) { *ifail = PK_FR_unspecified; }
void fftell(const int*, const int*, int*, int* ifail) { *ifail = PK_FR_unspecified; }

void registerOnce() {
  static bool done = false;
  if (done) return;
  // A memory fault must crash here, where the sanitizers report it, not come
  // back from the kernel as a modeller failure.
  setenv("MELD_NO_FAULT_CATCHING", "1", 1);
  PK_SESSION_frustrum_t f;
  PK_SESSION_frustrum_o_m(f);
  f.fstart = fstart;
  f.fstop = fstop;
  f.fmallo = fmallo;
  f.fmfree = fmfree;
  f.ffoprd = ffoprd;
  f.ffopwr = ffopwr;
  f.ffclos = ffclos;
  f.ffread = ffread;
  f.ffwrit = ffwrit;
  f.ffoprb = ffoprb;
  f.ffseek = ffseek;
  f.fftell = fftell;
  if (PK_SESSION_register_frustrum(&f) != 0) std::abort();
  done = true;
}

PK_ERROR_code_t receive(const char* key, int* n, PK_PART_t** parts) {
  PK_PART_receive_o_t options;
  PK_PART_receive_o_m(options);
  options.transmit_format = PK_transmit_format_text_c;
  return PK_PART_receive(key, &options, n, parts);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  registerOnce();
  input.assign(reinterpret_cast<const char*>(data), size);
  PK_SESSION_start_o_t start;
  PK_SESSION_start_o_m(start);
  if (PK_SESSION_start(&start) != 0) std::abort();
  int n = 0;
  PK_PART_t* parts = nullptr;
  PK_ERROR_code_t code = receive("input", &n, &parts);
  const char* message = nullptr;
  PK_ERROR_ask_last_message(&message);
  if (code != 0 && (!message || !*message)) std::abort();  // every failure says why
  if (code == 0) {
    PK_PART_transmit_o_t options;
    PK_PART_transmit_o_m(options);
    options.transmit_format = PK_transmit_format_text_c;
    if (PK_PART_transmit(n, parts, "again", &options) == 0) {
      int m = 0;
      PK_PART_t* again = nullptr;
      // What we wrote must read again (its geometry may still be refused by OCCT).
      PK_ERROR_code_t back = receive("again", &m, &again);
      if (back == PK_ERROR_bad_part_data || back == PK_ERROR_bad_topology) std::abort();
      if (again) PK_MEMORY_free(again);
    }
    PK_MEMORY_free(parts);
  }
  if (PK_SESSION_stop() != 0) std::abort();
  return 0;
}
