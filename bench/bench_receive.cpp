// Receiving XT files against decoding them alone and against OCCT's STEP reader
// on the same model (the reader a user would otherwise pick), best of several
// runs each, in the same run. Run by hand:
//   bench_receive [corpus-dir] [repeats]
// Prints one line per XT file the kernel loads, and for each file with a STEP
// twin (same stem, .step/.stp) a line `<file> receive/step=<ratio>` (below 1:
// receiving the XT file is faster).
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <IFSelect_ReturnStatus.hxx>
#include <Interface_Static.hxx>
#include <STEPControl_Reader.hxx>

#include "BenchTiming.h"
#include "Codec.h"
#include "pk.h"

namespace {

namespace fs = std::filesystem;

using meld::bench::bestTime;
using meld::bench::readWhole;

// A frustrum that serves one file from memory, a line per read as a text
// frustrum does.
std::string served;
size_t position = 0;

void ok(int* ifail) { *ifail = 0; }
void fstart(int* ifail) { ok(ifail); }
void fstop(int* ifail) { ok(ifail); }
void fmallo(const int* n, char** memory, int* ifail) {
  *memory = static_cast<char*>(std::malloc(static_cast<size_t>(*n)));
  *ifail = *memory ? 0 : PK_FR_memory_full;
}
void fmfree(const int*, char** memory, int* ifail) {
  std::free(*memory);
  ok(ifail);
}
void ffoprd(const int*, const int*, const char*, const int*, const int*, int* strid, int* ifail) {
  position = 0;
  *strid = 1;
  ok(ifail);
}
void ffopwr(const int*, const int*, const char*, const int*, const char*, const int*, int*, int* ifail) {
  *ifail = PK_FR_could_not_open;
}
void ffclos(const int*, const int*, const int*, int* ifail) { ok(ifail); }
void ffread(const int*, const int*, const int* nmax, char* buffer, int* nactual, int* ifail) {
  size_t n = std::min(static_cast<size_t>(*nmax), served.size() - position);
  size_t eol = served.find('\n', position);
  if (eol != std::string::npos) n = std::min(n, eol + 1 - position);
  std::memcpy(buffer, served.data() + position, n);
  position += n;
  *nactual = static_cast<int>(n);
  *ifail = n > 0 ? 0 : PK_FR_end_of_file;
}
void ffwrit(const int*, const int*, const int*, const char*, int* ifail) { *ifail = PK_FR_write_fail; }
void ffoprb(const int*, const int*, const int*, int*, int*, int* ifail) { *ifail = PK_FR_open_fail; }
void ffseek(const int*, const int*, const int*, int* ifail) { *ifail = PK_FR_unspecified; }
void fftell(const int*, const int*, int*, int* ifail) { *ifail = PK_FR_unspecified; }

bool startSession() {
  PK_SESSION_frustrum_t f;
  PK_SESSION_frustrum_o_m(f);
  f.fstart = fstart, f.fstop = fstop, f.fmallo = fmallo, f.fmfree = fmfree, f.ffoprd = ffoprd;
  f.ffopwr = ffopwr, f.ffclos = ffclos, f.ffread = ffread, f.ffwrit = ffwrit, f.ffoprb = ffoprb;
  f.ffseek = ffseek, f.fftell = fftell;
  PK_SESSION_start_o_t options;
  PK_SESSION_start_o_m(options);
  return PK_SESSION_register_frustrum(&f) == 0 && PK_SESSION_start(&options) == 0;
}

// Receives the served file; the parts are deleted again so that runs do not pile up.
PK_ERROR_code_t receiveOnce() {
  PK_PART_receive_o_t options;
  PK_PART_receive_o_m(options);
  options.transmit_format = PK_transmit_format_text_c;
  int n = 0;
  PK_PART_t* parts = nullptr;
  PK_ERROR_code_t code = PK_PART_receive("file", &options, &n, &parts);
  if (code == 0) {
    PK_ENTITY_delete(n, parts);
    PK_MEMORY_free(parts);
  }
  return code;
}

fs::path stepTwin(const fs::path& xt) {
  for (const char* ext : {".step", ".stp", ".STEP", ".STP"}) {
    fs::path candidate = xt;
    candidate.replace_extension(ext);
    if (fs::exists(candidate)) return candidate;
  }
  return {};
}

double stepRead(const fs::path& file) {
  STEPControl_Reader reader;
  if (reader.ReadFile(file.string().c_str()) != IFSelect_RetDone) return -1;
  reader.TransferRoots();
  return reader.OneShape().IsNull() ? -1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  const char* fromEnv = std::getenv("MELD_CORPUS_DIR");
  fs::path dir = argc > 1 ? fs::path(argv[1])
                 : fromEnv ? fs::path(fromEnv)
                           : fs::path(MELD_SOURCE_DIR) / ".." / "shared" / "corpus";
  const int repeats = argc > 2 ? std::max(1, std::atoi(argv[2])) : 5;
  if (!fs::is_directory(dir)) {
    std::fprintf(stderr, "bench_receive: no corpus folder %s\nusage: bench_receive [corpus-dir] [repeats]\n", dir.c_str());
    return 2;
  }
  if (!startSession()) {
    std::fprintf(stderr, "bench_receive: the kernel session did not start\n");
    return 1;
  }
  Interface_Static::SetCVal("xstep.cascade.unit", "M");
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(dir)) {
    const std::string ext = entry.path().extension().string();
    if (ext == ".x_t" || ext == ".xmt_txt") files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  std::printf("best of %d runs, milliseconds\n", repeats);
  for (const fs::path& file : files) {
    served = readWhole(file);
    if (receiveOnce() != 0) {
      const char* why = nullptr;
      PK_ERROR_ask_last_message(&why);
      std::printf("%s not loaded: %s\n", file.filename().c_str(), why ? why : "");
      continue;
    }
    const double decode = bestTime(repeats, [] { meld::xt::decode(served); });
    const double receive = bestTime(repeats, [] { receiveOnce(); });
    std::printf("%s decode=%.2f receive=%.2f receive/decode=%.1f\n", file.filename().c_str(), decode * 1e3,
                receive * 1e3, receive / decode);
    if (fs::path twin = stepTwin(file); !twin.empty()) {
      const double step = bestTime(repeats, [&] { stepRead(twin); });
      std::printf("%s step=%.2f receive/step=%.3f\n", file.filename().c_str(), step * 1e3, receive / step);
    }
  }
  PK_SESSION_stop();
  return 0;
}
