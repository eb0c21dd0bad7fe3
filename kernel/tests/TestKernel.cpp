#include "TestKernel.h"

#include "ops/Bodies.h"
#include "session/Session.h"

#include <BRepBndLib.hxx>
#include <BRepGProp.hxx>
#include <Bnd_Box.hxx>
#include <GProp_GProps.hxx>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kerneltest {

namespace {

struct DeltaCursor {
  bool open = false, reading = false;
  std::size_t position = 0;
};
std::map<PK_DELTA_t, DeltaCursor> cursors;
PK_DELTA_t nextKey = 1;
std::size_t filePosition = 0;

void fstart(int* ifail) {
  ++frustrumLog().fstart;
  *ifail = frustrumLog().failFstart ? PK_FR_unspecified : PK_FR_no_errors;
}
void fstop(int* ifail) {
  ++frustrumLog().fstop;
  *ifail = PK_FR_no_errors;
}
void fmallo(const int* nbytes, char** memory, int* ifail) {
  ++frustrumLog().fmallo;
  if (frustrumLog().fmallo == frustrumLog().failMalloNumber) {
    *memory = nullptr;
    *ifail = PK_FR_memory_full;
    return;
  }
  frustrumLog().liveBytes += *nbytes;
  *memory = static_cast<char*>(std::malloc(std::size_t(*nbytes)));
  *ifail = *memory ? PK_FR_no_errors : PK_FR_memory_full;
}
void fmfree(const int* nbytes, char** memory, int* ifail) {
  ++frustrumLog().fmfree;
  frustrumLog().liveBytes -= *nbytes;
  std::free(*memory);
  *ifail = PK_FR_no_errors;
}
// Stream 1 is the rollback file; streams from 2 on are files by guise and
// key, kept in FrustrumLog::files. Text reads hand out one line at a time.
constexpr int kRollbackStrid = 1;
struct MemoryStream {
  std::string name;
  int format = PK_FR_format_text;
  bool writing = false;
  std::size_t position = 0;
};
std::map<int, MemoryStream> streams;
int nextStrid = 2;

std::string memoryName(const int* guise, const char* name, const int* namlen) {
  return std::to_string(*guise) + ":" + std::string(name, std::size_t(*namlen));
}

void ffoprd(const int* guise, const int* format, const char* name, const int* namlen, const int*,
            int* strid, int* ifail) {
  std::string file = memoryName(guise, name, namlen);
  if (!frustrumLog().files.count(file)) {
    *ifail = PK_FR_not_found;
    return;
  }
  *strid = nextStrid++;
  streams[*strid] = MemoryStream{file, *format, false, 0};
  *ifail = PK_FR_no_errors;
}
void ffopwr(const int* guise, const int* format, const char* name, const int* namlen,
            const char* pd2, const int* pd2len, int* strid, int* ifail) {
  if (frustrumLog().failOpenWrite) {
    *ifail = PK_FR_could_not_open;
    return;
  }
  std::string file = memoryName(guise, name, namlen);
  frustrumLog().files[file].clear();
  frustrumLog().part2[file] = std::string(pd2, std::size_t(*pd2len));
  *strid = nextStrid++;
  streams[*strid] = MemoryStream{file, *format, true, 0};
  *ifail = PK_FR_no_errors;
}
void ffclos(const int*, const int* strid, const int* action, int* ifail) {
  auto it = streams.find(*strid);
  if (it != streams.end()) {
    if (it->second.writing && *action == PK_FR_close_abandon) frustrumLog().files.erase(it->second.name);
    streams.erase(it);
  }
  *ifail = PK_FR_no_errors;
}
void readRollback(const int* nmax, char* buffer, int* nactual, int* ifail) {
  std::string& file = frustrumLog().rollbackFile;
  // Hand out at most 7 bytes at a time: callers must cope with short reads.
  std::size_t n = std::min({std::size_t(*nmax), std::size_t(7), file.size() - filePosition});
  std::memcpy(buffer, file.data() + filePosition, n);
  filePosition += n;
  frustrumLog().fileBytesRead += long(n);
  *nactual = int(n);
  *ifail = n > 0 ? PK_FR_no_errors : PK_FR_end_of_file;
}
void ffread(const int*, const int* strid, const int* nmax, char* buffer, int* nactual, int* ifail) {
  if (*strid == kRollbackStrid) return readRollback(nmax, buffer, nactual, ifail);
  MemoryStream& stream = streams.at(*strid);
  const std::string& file = frustrumLog().files[stream.name];
  std::size_t n = std::min(std::size_t(*nmax), file.size() - stream.position);
  if (stream.format == PK_FR_format_text) {
    std::size_t eol = file.find('\n', stream.position);
    if (eol != std::string::npos) n = std::min(n, eol + 1 - stream.position);
  }
  std::memcpy(buffer, file.data() + stream.position, n);
  stream.position += n;
  *nactual = int(n);
  *ifail = n > 0 ? PK_FR_no_errors : PK_FR_end_of_file;
}
void ffwrit(const int*, const int* strid, const int* nchars, const char* buffer, int* ifail) {
  if (*strid != kRollbackStrid) {
    ++frustrumLog().writes;
    *ifail = frustrumLog().writes == frustrumLog().failWriteNumber ? PK_FR_write_fail : PK_FR_no_errors;
    if (*ifail == PK_FR_no_errors)
      frustrumLog().files[streams.at(*strid).name].append(buffer, std::size_t(*nchars));
    return;
  }
  std::string& file = frustrumLog().rollbackFile;
  if (file.size() < filePosition + std::size_t(*nchars)) file.resize(filePosition + std::size_t(*nchars));
  std::memcpy(file.data() + filePosition, buffer, std::size_t(*nchars));
  filePosition += std::size_t(*nchars);
  frustrumLog().fileBytesWritten += *nchars;
  *ifail = PK_FR_no_errors;
}
void ffoprb(const int*, const int*, const int* maxsize, int* actsize, int* strid, int* ifail) {
  ++frustrumLog().ffoprb;
  *ifail = frustrumLog().failOprb ? PK_FR_open_fail : PK_FR_no_errors;
  *actsize = *maxsize;
  *strid = kRollbackStrid;
}
void ffseek(const int*, const int*, const int* position, int* ifail) {
  filePosition = std::size_t(*position);
  *ifail = PK_FR_no_errors;
}
void fftell(const int*, const int*, int* position, int* ifail) {
  *position = int(filePosition);
  *ifail = PK_FR_no_errors;
}

PK_ERROR_code_t openForWrite(PK_PMARK_t, PK_DELTA_t* key) {
  ++deltaLog().opensForWrite;
  if (deltaLog().failOpenForWrite) return PK_ERROR_memory_full;
  *key = nextKey++;
  deltaLog().deltas[*key];
  cursors[*key] = DeltaCursor{true, false, 0};
  return 0;
}
PK_ERROR_code_t openForRead(PK_DELTA_t key) {
  ++deltaLog().opensForRead;
  auto it = cursors.find(key);
  if (it == cursors.end() || it->second.open) return PK_ERROR_bad_delta;
  it->second = DeltaCursor{true, true, 0};
  return 0;
}
PK_ERROR_code_t closeDelta(PK_DELTA_t key) {
  ++deltaLog().closes;
  auto it = cursors.find(key);
  if (it == cursors.end() || !it->second.open) return PK_ERROR_bad_delta;
  if (it->second.reading && it->second.position != deltaLog().deltas[key].size())
    ++deltaLog().closedWithDataUnread;
  it->second.open = false;
  return 0;
}
PK_ERROR_code_t writeDelta(PK_DELTA_t key, unsigned n, const char* bytes) {
  auto it = cursors.find(key);
  if (it == cursors.end() || !it->second.open || it->second.reading) return PK_ERROR_bad_delta;
  if (deltaLog().failWrites) {
    deltaLog().deltas[key].append(bytes, n / 2);  // a part went in
    return PK_ERROR_memory_full;
  }
  deltaLog().deltas[key].append(bytes, n);
  deltaLog().bytesWritten += n;
  return 0;
}
PK_ERROR_code_t readDelta(PK_DELTA_t key, unsigned n, char* bytes) {
  auto it = cursors.find(key);
  if (it == cursors.end() || !it->second.open || !it->second.reading) return PK_ERROR_bad_delta;
  const std::string& data = deltaLog().deltas[key];
  if (it->second.position + n > data.size()) return PK_ERROR_delta_read_past_end;
  std::memcpy(bytes, data.data() + it->second.position, n);
  it->second.position += n;
  deltaLog().bytesRead += n;
  return 0;
}
PK_ERROR_code_t deleteDelta(PK_DELTA_t key) {
  ++deltaLog().deletes;
  auto it = cursors.find(key);
  if (it == cursors.end() || it->second.open) return PK_ERROR_bad_delta;
  cursors.erase(it);
  deltaLog().deltas.erase(key);
  return 0;
}

}  // namespace

FrustrumLog& frustrumLog() {
  static FrustrumLog log;
  return log;
}

DeltaLog& deltaLog() {
  static DeltaLog log;
  return log;
}

PK_SESSION_frustrum_t testFrustrum() {
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
  return f;
}

PK_DELTA_frustrum_t testDeltas() {
  return PK_DELTA_frustrum_t{openForWrite, openForRead, closeDelta, writeDelta, readDelta, deleteDelta};
}

void resetRegistration() {
  meld::kernel::Registry& r = meld::kernel::registry();
  r.frustrum.reset();
  r.deltaFns.reset();
}

void KernelSession::SetUp() {
  frustrumLog() = FrustrumLog{};
  deltaLog() = DeltaLog{};
  cursors.clear();
  streams.clear();
  filePosition = 0;
  resetRegistration();
  PK_SESSION_frustrum_t f = testFrustrum();
  ASSERT_EQ(PK_SESSION_register_frustrum(&f), PK_ERROR_no_errors);
  PK_DELTA_frustrum_t d = testDeltas();
  ASSERT_EQ(PK_DELTA_register_callbacks(&d), PK_ERROR_no_errors);
  PK_SESSION_start_o_t options;
  PK_SESSION_start_o_m(options);
  ASSERT_EQ(PK_SESSION_start(&options), PK_ERROR_no_errors);
}

void KernelSession::TearDown() {
  if (meld::kernel::registry().session) {
    EXPECT_EQ(PK_SESSION_stop(), PK_ERROR_no_errors);
  }
  resetRegistration();
}

double volumeOf(PK_BODY_t body) {
  GProp_GProps props;
  BRepGProp::VolumeProperties(meld::kernel::bodyData(body).shape, props);
  return props.Mass();
}

std::string boxOf(PK_BODY_t body) {
  Bnd_Box box;
  BRepBndLib::AddOptimal(meld::kernel::bodyData(body).shape, box, false, false);
  double c[6];
  box.Get(c[0], c[1], c[2], c[3], c[4], c[5]);
  char text[200];
  std::snprintf(text, sizeof text, "%.6f %.6f %.6f %.6f %.6f %.6f", c[0], c[1], c[2], c[3], c[4], c[5]);
  return text;
}

PK_BODY_t makeBlock(double x, double y, double z, double atX) { return blockAt(x, y, z, atX, 0, 0); }

PK_BODY_t blockAt(double dx, double dy, double dz, double x, double y, double z) {
  PK_AXIS2_sf_t basis{{{x, y, z}}, {{0, 0, 1}}, {{1, 0, 0}}};
  PK_BODY_t body = PK_ENTITY_null;
  EXPECT_EQ(PK_BODY_create_solid_block(dx, dy, dz, &basis, &body), PK_ERROR_no_errors);
  return body;
}

PK_PMARK_t makePmark() {
  PK_PARTITION_t partition = 0;
  EXPECT_EQ(PK_SESSION_ask_curr_partition(&partition), PK_ERROR_no_errors);
  PK_PMARK_t pmark = 0;
  EXPECT_EQ(PK_PARTITION_make_pmark(partition, &pmark), PK_ERROR_no_errors);
  return pmark;
}

void goBackTo(PK_PMARK_t pmark) {
  PK_PMARK_goto_o_t options;
  PK_PMARK_goto_o_m(options);
  int n[3];
  int* lists[3];
  ASSERT_EQ(PK_PMARK_goto_2(pmark, &options, &n[0], &lists[0], &n[1], &lists[1], &n[2], &lists[2]),
            PK_ERROR_no_errors);
  for (int* list : lists) PK_MEMORY_free(list);
}

}  // namespace kerneltest
