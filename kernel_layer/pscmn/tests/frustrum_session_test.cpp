// Frustrum life cycle: nested starts and stops, the stream-number limit,
// memory, the record handed to the kernel, and the rollback scratch file.
#include <gtest/gtest.h>

#include <cstring>

#include "frustrum_test_helpers.h"

using namespace frutest;

namespace {

class FrustrumSession : public FrustrumTest {};

Opened openJournal(int n) {
  return openWrite(PK_FR_guise_journal, kBinary, "j" + std::to_string(n));
}

TEST(FrustrumNotStarted, EverySlotButStartAnswers99) {
  meldtest::ScopedWorkDir dir;
  EXPECT_EQ(stop(), PK_FR_unspecified);
  EXPECT_EQ(openRead(kTransmit, kText, "x").ifail, PK_FR_unspecified);
  EXPECT_EQ(openWrite(kTransmit, kText, "x").ifail, PK_FR_unspecified);
  EXPECT_EQ(openRollback().ifail, PK_FR_unspecified);
  EXPECT_EQ(close(kTransmit, 1), PK_FR_unspecified);
  int nbytes = 16, ifail = -1;
  char* memory = reinterpret_cast<char*>(&nbytes);
  FMALLO(&nbytes, &memory, &ifail);
  EXPECT_EQ(ifail, PK_FR_unspecified);
  EXPECT_EQ(memory, nullptr);
  EXPECT_FALSE(std::filesystem::exists("x.x_t"));
}

TEST_F(FrustrumSession, NestedStartsCloseFilesOnlyAtLastStop) {
  Opened out = openWrite(kTransmit, kText, "part");
  ASSERT_EQ(out.ifail, 0);
  ASSERT_EQ(start(), 0);
  ASSERT_EQ(stop(), 0);
  EXPECT_EQ(write(kTransmit, out.strid, "still open\n"), 0);
  ASSERT_EQ(stop(), 0);
  EXPECT_EQ(write(kTransmit, out.strid, "closed\n"), PK_FR_unspecified);
  EXPECT_EQ(stop(), PK_FR_unspecified);
  std::string written = fileText("result.x_t");
  EXPECT_EQ(written.substr(written.size() - 11), "still open\n");
  // A new session hands out stream numbers from 1 again.
  ASSERT_EQ(start(), 0);
  EXPECT_EQ(openJournal(0).strid, 1);
}

TEST_F(FrustrumSession, ThirtyThirdStreamIsRefusedLowestFreeNumberReused) {
  for (int n = 0; n < 32; ++n) ASSERT_EQ(openJournal(n).strid, n + 1);
  Opened refused = openJournal(32);
  EXPECT_EQ(refused.ifail, PK_FR_open_fail);
  EXPECT_EQ(refused.strid, -1);
  EXPECT_EQ(openRead(PK_FR_guise_journal, kBinary, "j0").ifail, PK_FR_open_fail);
  EXPECT_EQ(openRollback().ifail, PK_FR_open_fail);
  EXPECT_FALSE(exists("j32.jnl_bin"));
  ASSERT_EQ(close(PK_FR_guise_journal, 9), 0);
  ASSERT_EQ(close(PK_FR_guise_journal, 5), 0);
  EXPECT_EQ(openJournal(40).strid, 5);
  EXPECT_EQ(openJournal(41).strid, 9);
}

TEST_F(FrustrumSession, MemoryAndTheRecordOfNineteenSlotsInKernelOrder) {
  int nbytes = 1000, ifail = -1;
  char* memory = nullptr;
  FMALLO(&nbytes, &memory, &ifail);
  ASSERT_EQ(ifail, 0);
  ASSERT_NE(memory, nullptr);
  memory[0] = 'a';
  memory[999] = 'z';
  FMFREE(&nbytes, &memory, &ifail);
  EXPECT_EQ(ifail, 0);
  nbytes = -1;
  FMALLO(&nbytes, &memory, &ifail);
  EXPECT_EQ(ifail, PK_FR_unspecified);

  const PK_SESSION_frustrum_t expected = {
      FSTART, FABORT, FSTOP,  FMALLO, FMFREE, GOSGMT, GOOPSG, GOCLSG, GOPIXL, GOOPPX,
      GOCLPX, FFOPRD, FFOPWR, FFCLOS, FFREAD, FFWRIT, FFOPRB, FFSEEK, FFTELL,
      nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
  PK_SESSION_frustrum_t record;
  std::memset(&record, 0xff, sizeof record);
  PSCFillFrustrum(&record);
  EXPECT_EQ(std::memcmp(&record, &expected, sizeof record), 0);
  record.goopsg(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &ifail);
  EXPECT_EQ(ifail, 0);
  ifail = -1;
  record.gooppx(nullptr, nullptr, nullptr, nullptr, &ifail);
  EXPECT_EQ(ifail, 0);
}

using RollbackFile = FrustrumTest;

TEST_F(RollbackFile, SeekTellAndDeleteOnClose) {
  const std::string tmp = (m_dir.path() / "tmp").string();
  std::filesystem::create_directory(tmp);
  meldtest::ScopedEnv tmpdir("TMPDIR", tmp.c_str());  // no trailing '/'
  int actsize = 0;
  Opened scratch = openRollback(50000, &actsize);
  ASSERT_EQ(scratch.ifail, 0);
  EXPECT_EQ(actsize, 50000);
  EXPECT_TRUE(std::filesystem::exists(tmp + "/rollback.001"));

  const int guise = PK_FR_guise_rollback;
  std::string data;
  for (int i = 0; i < 100; ++i) data += static_cast<char>(i);
  ASSERT_EQ(write(guise, scratch.strid, data), 0);
  int position = -1, ifail = -1;
  FFTELL(&guise, &scratch.strid, &position, &ifail);
  EXPECT_EQ(position, 100);
  position = 10;
  FFSEEK(&guise, &scratch.strid, &position, &ifail);
  ASSERT_EQ(ifail, 0);
  EXPECT_EQ(readPiece(guise, scratch.strid, 5), data.substr(10, 5));
  FFTELL(&guise, &scratch.strid, &position, &ifail);
  EXPECT_EQ(position, 15);
  EXPECT_EQ(close(guise, scratch.strid), 0);
  EXPECT_FALSE(std::filesystem::exists(tmp + "/rollback.001"));

  // Positioning is only for the rollback guise and stream.
  scratch = openRollback();
  Opened part = openWrite(kTransmit, kText, "part");
  int rollback = PK_FR_guise_rollback, transmit = kTransmit;
  FFSEEK(&transmit, &scratch.strid, &position, &ifail);
  EXPECT_EQ(ifail, PK_FR_unspecified);
  FFTELL(&rollback, &part.strid, &position, &ifail);
  EXPECT_EQ(ifail, PK_FR_unspecified);
  position = -5;
  FFSEEK(&rollback, &scratch.strid, &position, &ifail);
  EXPECT_EQ(ifail, PK_FR_unspecified);
  int minsize = 1, maxsize = 2, strid = 0;
  FFOPRB(&transmit, &minsize, &maxsize, &actsize, &strid, &ifail);
  EXPECT_EQ(ifail, PK_FR_unspecified);
}

TEST_F(RollbackFile, TheEnvironmentNamesTheFileAndBadNamesNeverStopTheProgram) {
  struct Case {
    const char* quil;
    const char* vtx;
    std::string tmpdir;
    const char* file;  // nullptr: the open fails with PK_FR_open_fail
  };
  const std::string tooLong(300, 'r');
  const Case cases[] = {
      {"quil_scratch", nullptr, "", "quil_scratch.001"},
      {"quil_scratch", "vtx_scratch", "", "vtx_scratch.001"},  // the later variable wins
      // A temporary directory too long to build a name on, alone or with the
      // file name on it: the working directory.
      {nullptr, nullptr, "/" + std::string(260, 'd'), "rollback.001"},
      {nullptr, nullptr, "/" + std::string(250, 'd') + "/", "rollback.001"},
      {nullptr, tooLong.c_str(), "", nullptr},
      {nullptr, "no_such_dir/scratch", "", nullptr},
  };
  for (const Case& c : cases) {
    meldtest::ScopedEnv quil("QUIL_ROLBK_FILE", c.quil);
    meldtest::ScopedEnv vtx("VTX_ROLBK_FILE", c.vtx);
    meldtest::ScopedEnv tmpdir("TMPDIR", c.tmpdir.empty() ? nullptr : c.tmpdir.c_str());
    Opened scratch = openRollback();
    if (!c.file) {
      EXPECT_EQ(scratch.ifail, PK_FR_open_fail) << (c.vtx ? c.vtx : "");
      continue;
    }
    ASSERT_EQ(scratch.ifail, 0) << c.file;
    EXPECT_TRUE(exists(c.file)) << c.file;
    if (c.vtx) { EXPECT_FALSE(exists("quil_scratch.001")); }
    EXPECT_EQ(close(PK_FR_guise_rollback, scratch.strid), 0);
    EXPECT_FALSE(exists(c.file)) << c.file;
  }
}

}  // namespace
