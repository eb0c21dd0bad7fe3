// A memory-backed frustrum and delta store for the kernel's tests, each
// counting what passes through it, and a fixture that runs a session.
#pragma once

#include "pk.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace kerneltest {

struct FrustrumLog {
  int fstart = 0, fstop = 0, fmallo = 0, fmfree = 0;
  long long liveBytes = 0;  // fmallo'ed and not yet fmfree'd
  int ffoprb = 0;
  long long fileBytesWritten = 0, fileBytesRead = 0;
  bool failFstart = false, failOprb = false;
  int failMalloNumber = 0;  // the fmallo call with this running number fails (0: none)
  std::string rollbackFile;  // the rollback file's contents
  // Other files, named "<guise>:<key>", with the part-2 data each was opened with.
  std::map<std::string, std::string> files;
  std::map<std::string, std::string> part2;
  bool failOpenWrite = false;
  int writes = 0;           // ffwrit calls on those files
  int failWriteNumber = 0;  // that call fails (0: none)
};

struct DeltaLog {
  int opensForWrite = 0, opensForRead = 0, closes = 0, deletes = 0;
  long long bytesWritten = 0, bytesRead = 0;
  int closedWithDataUnread = 0;
  std::map<PK_DELTA_t, std::string> deltas;  // live deltas and their bytes
  bool failOpenForWrite = false;             // open_for_write_fn answers a failure
  bool failWrites = false;                   // write_fn answers a failure
};

FrustrumLog& frustrumLog();
DeltaLog& deltaLog();
PK_SESSION_frustrum_t testFrustrum();
PK_DELTA_frustrum_t testDeltas();

// Forgets what was registered, as in a fresh process.
void resetRegistration();

// Registers the test frustrum and delta store and starts a session; stops it
// after the test if it still runs.
class KernelSession : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
};

// Geometry of a body, for comparing shapes before and after a roll-back.
double volumeOf(PK_BODY_t body);
std::string boxOf(PK_BODY_t body);  // "xmin ymin zmin xmax ymax zmax", 1e-6 m steps
PK_BODY_t makeBlock(double x, double y, double z, double atX = 0);
// A block of these sizes standing on (x, y, z), centred on it in x and y.
PK_BODY_t blockAt(double dx, double dy, double dz, double x, double y, double z);
// A pmark in the current partition, and going back to one.
PK_PMARK_t makePmark();
void goBackTo(PK_PMARK_t pmark);

}  // namespace kerneltest
