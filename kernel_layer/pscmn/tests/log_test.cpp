// The leveled message log: file, levels, echo, catalogue and hooks.
#include <gtest/gtest.h>

#include <vector>

#include "PSCLog.h"
#include "TestSupport.h"
#include "ax_Message.h"

namespace {

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

class MessageLogTest : public ::testing::Test {
 protected:
  void TearDown() override {
    PSCTerminateLog();
    PSCSetLogFilterHook(nullptr);
    PSCSetLogObserverHook(nullptr);
    ax_RegisterDisplayCallback(nullptr);
  }
  static std::string logText() { return meldtest::readFile("run.log"); }

  meldtest::ScopedWorkDir m_dir;
  meldtest::ScopedEnv m_axdbg{"AXDBG", nullptr};
  meldtest::ScopedEnv m_vtdbg{"VTDBG", nullptr};
  meldtest::ScopedEnv m_quil{"QUIL_DBG_PRINT", nullptr};
  meldtest::ScopedEnv m_echoOff{"VTX_DBG_PRINT", "0"};  // echo survives terminate; reset it
};

TEST_F(MessageLogTest, DefaultNameIsUsedAndOpeningTruncatesAlsoWhenAlreadyOpen) {
  meldtest::writeFile("ps_trans.out", "old contents");
  ASSERT_EQ(PSCInitializeLog(nullptr, nullptr), 0);
  EXPECT_EQ(meldtest::readFile("ps_trans.out"), "");
  PSCWriteLog(10, 0, "first\n");
  CaptureStdout();
  EXPECT_EQ(PSCInitializeLog("", nullptr), 0);
  EXPECT_EQ(GetCapturedStdout(), "/PSCInitializeLog/ log file already opend !!\n");
  EXPECT_EQ(meldtest::readFile("ps_trans.out"), "");
  PSCWriteLog(10, 0, "line\n");
  EXPECT_EQ(PSCTerminateLog(), 0);
  EXPECT_EQ(meldtest::readFile("ps_trans.out"), "line\n");
}

// The later of AXDBG and VTDBG sets the debug level; level 10+n needs n.
TEST_F(MessageLogTest, TheLaterDebugVariableSetsTheLevelDetailLinesNeed) {
  struct Case {
    const char* axdbg;
    const char* vtdbg;
    int level;
    const char* log;
  } cases[] = {{nullptr, nullptr, 0, "transcript\n"},
               {"3", "0", 0, "transcript\n"},
               {"3", nullptr, 3, "transcript\neleven\ntwelve\nthirteen\n"},
               {nullptr, "2", 2, "transcript\neleven\ntwelve\n"}};
  for (const Case& c : cases) {
    meldtest::ScopedEnv axdbg("AXDBG", c.axdbg), vtdbg("VTDBG", c.vtdbg);
    ASSERT_EQ(PSCInitializeLog("run.log", nullptr), 0);
    EXPECT_EQ(PSCGetLogLevel(), c.level);
    EXPECT_EQ(PSCWriteLog(10, 0, "transcript\n"), 0);
    EXPECT_EQ(PSCWriteLog(11, 0, "eleven\n"), 0);
    PSCWriteLog(12, 0, "twelve\n");
    PSCWriteLog(13, 0, "thirteen\n");
    EXPECT_EQ(logText(), c.log);
    EXPECT_EQ(PSCTerminateLog(), 0);
    EXPECT_EQ(PSCGetLogLevel(), 0);
  }
}

TEST_F(MessageLogTest, OnlyTheTranscriptIsCutTo1029Characters) {
  meldtest::ScopedEnv vtdbg("VTDBG", "1");
  PSCInitializeLog("run.log", nullptr);
  const std::string longText(2000, 'a');
  PSCWriteLog(10, 0, longText.c_str());
  EXPECT_EQ(logText(), longText.substr(0, 1029));
  PSCWriteLog(11, 0, longText.c_str());
  EXPECT_EQ(logText(), longText.substr(0, 1029) + longText);
}

TEST_F(MessageLogTest, ConsoleEchoFollowsTheLaterVariableAndNeedsAnOpenLog) {
  {
    meldtest::ScopedEnv quil("QUIL_DBG_PRINT", "1");  // VTX_DBG_PRINT "0" overrides it
    PSCInitializeLog("run.log", nullptr);
    CaptureStdout();
    PSCWriteLog(10, 0, "quiet\n");
    EXPECT_EQ(GetCapturedStdout(), "");
    PSCTerminateLog();
  }
  meldtest::ScopedEnv echo("VTX_DBG_PRINT", "1");
  PSCInitializeLog("run.log", nullptr);
  CaptureStdout();
  PSCWriteLog(10, 0, "shown\n");
  PSCTerminateLog();
  PSCWriteLog(10, 0, "closed\n");
  EXPECT_EQ(GetCapturedStdout(), "shown\n");
}

TEST_F(MessageLogTest, UncreatableLogGives1021AndStillDisplays) {
  static std::vector<std::string> displayed;
  displayed.clear();
  ax_RegisterDisplayCallback([](int, int, const char* text) { displayed.push_back(text); });
  EXPECT_EQ(PSCInitializeLog("no-such-folder/run.log", nullptr), 1021);
  EXPECT_EQ(PSCWriteLog(10, 0, "to display\n"), 0);
  EXPECT_EQ(displayed, std::vector<std::string>{"to display\n"});
}

TEST_F(MessageLogTest, CatalogueFormatsNumberedTranscriptMessagesWhileTheLogIsOpen) {
  meldtest::writeFile("messages.cat", "1004 Phase: %s\n");
  ASSERT_EQ(PSCInitializeLog("run.log", "messages.cat"), 0);
  PSCWriteLog(10, 1004, "load");
  PSCWriteLog(10, 77, "|unknown id stays");
  PSCTerminateLog();
  EXPECT_EQ(logText(), "Phase: load|unknown id stays");
  PSCInitializeLog("run.log", nullptr);  // the catalogue was closed with the log
  PSCWriteLog(10, 1004, "load");
  EXPECT_EQ(logText(), "load");
}

TEST_F(MessageLogTest, InvalidLevelsAreRefusedFilterTakesMessagesObserverSeesValidOnes) {
  static std::vector<std::string> observed;
  observed.clear();
  PSCSetLogFilterHook([](int level, unsigned, const char*) { return level == 12; });
  PSCSetLogObserverHook([](int level, const char* text) {
    observed.push_back(std::to_string(level) + text);
  });
  PSCInitializeLog("run.log", nullptr);
  EXPECT_EQ(PSCWriteLog(12, 0, "filtered"), 0);
  EXPECT_EQ(PSCWriteLog(11, 0, "below debug level"), 0);
  EXPECT_EQ(PSCWriteLog(10, 0, "kept"), 0);
  CaptureStdout();
  EXPECT_EQ(PSCWriteLog(9, 0, "x"), 1);
  EXPECT_EQ(PSCWriteLog(20, 0, "x"), 1);
  EXPECT_EQ(GetCapturedStdout(),
            "/PSCWriteLog/ Invalid call PSCWriteLog for 'iMessageLevel'=9 !!\n"
            "/PSCWriteLog/ Invalid call PSCWriteLog for 'iMessageLevel'=20 !!\n");
  EXPECT_EQ(observed, (std::vector<std::string>{"11below debug level", "10kept"}));
  EXPECT_EQ(logText(), "kept");
}

}  // namespace
