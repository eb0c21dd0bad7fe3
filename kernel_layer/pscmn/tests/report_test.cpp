#include <gtest/gtest.h>

#include "PSCLog.h"
#include "PSCReport.h"
#include "TestSupport.h"
#include "erutil.h"

namespace {

class FailureReportTest : public ::testing::Test {
 protected:
  void TearDown() override { PSCTerminateLog(); }
  static int stackCount() {
    int count = -1;
    erCount(&count);
    return count;
  }
  meldtest::ScopedWorkDir m_dir;
  meldtest::ScopedEnv m_axdbg{"AXDBG", nullptr};
  meldtest::ScopedEnv m_outfile{"ER_OUTFILE", nullptr};
  meldtest::ScopedEnv m_echoOff{"VTX_DBG_PRINT", "0"};
};

TEST_F(FailureReportTest, SilentAtDebugLevelZeroButClears) {
  meldtest::ScopedEnv vtdbg("VTDBG", nullptr);
  PSCInitializeLog("run.log", nullptr);
  erPush("PSCStartModeller", 10, "pushed");
  PSCReportFailure("PSCStartModeller", 10, "PK_SESSION_start", 3, "PSCModeller.cpp", 42);
  EXPECT_EQ(stackCount(), 0);
  EXPECT_FALSE(std::filesystem::exists("erutil.stat"));
  EXPECT_EQ(meldtest::readFile("run.log"), "");
}

TEST_F(FailureReportTest, WritesTheRecordAndTheStatusBlock) {
  meldtest::ScopedEnv vtdbg("VTDBG", "1");
  PSCInitializeLog("run.log", nullptr);
  erPush("sp_Load", 20, "open");
  PSCReportFailure("st_ProcessFiles1", 20, "PK_PART_receive", 1009,
                   "kernel_layer\\src\\pscmn\\PSCModeller", 311);
  EXPECT_EQ(meldtest::readFile("run.log"),
            "st_ProcessFiles1 = 20 : PK_PART_receive = 1009 \n"
            "      [kernel_layer\\src\\pscmn\\PSCModeller],[311]\n");
  const std::string status = meldtest::readFile("erutil.stat");
  EXPECT_EQ(status.rfind("erPrint : \n", 0), 0u);
  EXPECT_NE(status.find("\n 0th      20  sp_Load                             open\n"), std::string::npos);
  EXPECT_EQ(stackCount(), 0);
}

}  // namespace
