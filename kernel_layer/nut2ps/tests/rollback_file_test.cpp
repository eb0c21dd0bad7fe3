// The rollback-file road and the driver's rollback front object, against the
// real kernel and frustrum.
#include <gtest/gtest.h>

#include "../../pscmn/tests/session_test_helpers.h"
#include "NPOptions.h"
#include "NPRollBack.h"
#include "NPRollbackMark.h"

namespace {

using sessiontest::exists;
using sessiontest::makeBlock;
using sessiontest::RunningModeller;

const char kSizeBox[] =
    "\n\n-------------------------------------------------\n"
    "   Rollback file size is too large or too small !\n"
    "   Please set up the environment variable        \n"
    "   `ROLBK' (default 1024), and execute this       \n"
    "   Translator Program again.                     \n"
    "-------------------------------------------------\n\n";

const char kOpenBox[] =
    "\n\n-------------------------------------------------\n"
    "   Rollback file can't be opened !               \n"
    "   Please check the environment variable         \n"
    "   `VTX_ROLBK_FILE'  (default : rollback).       \n"
    "-------------------------------------------------\n\n";

class RollbackFile : public testing::Test {
 protected:
  void SetUp() override {
    NPSetOption(NP_OPTION_ROLLBACK_WITH_MARKS, 0);
    NPRollBackResetForTesting();
  }
  void TearDown() override { NPSetOption(NP_OPTION_ROLLBACK_WITH_MARKS, 0); }
};

TEST_F(RollbackFile, SizeComesFromRolbkInMillionsAndWraps) {
  struct Case {
    const char* value;
    int size;
  } cases[] = {{nullptr, 1024000000}, {"2", 2000000}, {"abc", 0}, {" 7x", 7000000},
               {"3000", -1294967296}};
  for (const Case& c : cases) {
    meldtest::ScopedEnv env("ROLBK", c.value);
    EXPECT_EQ(NPRollBackFileSize(), c.size) << (c.value ? c.value : "unset");
  }
}

TEST_F(RollbackFile, KernelMarkModeTouchesNoKernelFunction) {
  // No session runs: any kernel call would fail.
  NPSetOption(NP_OPTION_ROLLBACK_WITH_MARKS, 1);
  EXPECT_EQ(st_RollBackInit(), 0);
  EXPECT_EQ(NPRollBackSetMark(), 0);
  EXPECT_EQ(NPRollBack(), 0);
  NPRollbackMark mark;
  EXPECT_TRUE(mark.UsesKernelMarks());
}

TEST_F(RollbackFile, FrontObjectRollsBackThroughTheFile) {
  RunningModeller modeller;
  ASSERT_EQ(modeller.startResult, 0);
  meldtest::ScopedEnv file("VTX_ROLBK_FILE", (modeller.path() / "scratch").c_str());
  PK_BODY_t kept = makeBlock();
  PK_BODY_t created = PK_ENTITY_null;

  NPRollbackMark mark;
  EXPECT_FALSE(mark.UsesKernelMarks());
  ASSERT_EQ(mark.SetMark(), 0);
  EXPECT_TRUE(mark.FileMarkSet());
  EXPECT_TRUE(std::filesystem::exists(modeller.path() / "scratch.001"));
  created = makeBlock();
  ASSERT_EQ(PK_ENTITY_delete(1, &kept), 0);
  ASSERT_EQ(mark.Rollback(), 0);
  EXPECT_FALSE(mark.FileMarkSet());
  EXPECT_TRUE(exists(kept));
  EXPECT_FALSE(exists(created));
  EXPECT_EQ(modeller.log(), "");
}

// A failed initialisation is told with its box and its error record, and is not
// tried again: after a refused size the next mark goes straight to the kernel;
// after an unopenable file the mark itself fails, told with the size box.
TEST_F(RollbackFile, FailedInitialisationIsToldWithItsBoxOnceAndNotRetried) {
  struct Case {
    const char* size;
    const char* file;
    const char* box;
    const char* otherBox;
    int kernelCode;
    int nextMark;
    std::string nextLog;
  } cases[] = {{"3000", "scratch", kSizeBox, kOpenBox, KI_rollback_size_bad, 0, ""},
               {nullptr, "/nonexistent-dir/sub/rollback", kOpenBox, kSizeBox, KI_cant_open_rollback,
                2110, std::string(kSizeBox) + "NPRollBackSetMark = 2110 : KI_ROLSMK = 928"}};
  for (const Case& c : cases) {
    NPRollBackResetForTesting();
    RunningModeller modeller;
    ASSERT_EQ(modeller.startResult, 0);
    meldtest::ScopedEnv file("VTX_ROLBK_FILE", c.file);
    {
      meldtest::ScopedEnv size("ROLBK", c.size);
      EXPECT_EQ(NPRollBackSetMark(), 2010);
    }
    const std::string log = modeller.log();
    EXPECT_EQ(log.find(c.box), 0u) << log;
    EXPECT_EQ(log.find(c.otherBox), std::string::npos) << log;
    EXPECT_NE(log.find(sessiontest::errorRecord("st_RollBackInit", 2110, "KI_SEINTP", c.kernelCode,
                                                "kernel_layer\\src\\nut2ps\\NPRollBack", 74)),
              std::string::npos);
    EXPECT_NE(log.find("NPRollBackSetMark = 2010 : st_RollBackInit = 2110"), std::string::npos);

    EXPECT_EQ(NPRollBackSetMark(), c.nextMark);
    EXPECT_EQ(modeller.log().substr(log.size()).rfind(c.nextLog, 0), 0u) << modeller.log();
  }
}

}  // namespace
