#include <ctime>
#include <regex>

#include <gtest/gtest.h>

#include "PSCDurationLogger.h"
#include "TestSupport.h"

namespace {

class DurationLoggerTest : public ::testing::Test {
 protected:
  void SetUp() override { m_stream = std::fopen("durations.txt", "w"); }
  void TearDown() override {
    PSCDurationLogger::SetLogFile(nullptr);
    PSCDurationLogger::EndLogging();
    if (m_stream) std::fclose(m_stream);
  }
  std::string written() {
    std::fflush(m_stream);
    return meldtest::readFile("durations.txt");
  }
  meldtest::ScopedWorkDir m_dir;
  FILE* m_stream = nullptr;
};

// The stamp: ctime's text with milliseconds, the year missing its last digit.
std::string stampPattern() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  const std::string year = std::to_string(local.tm_year + 1900);
  return R"([A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9]\d \d\d:\d\d:\d\d:\d{3} )" + year.substr(0, 3);
}

TEST_F(DurationLoggerTest, SilentWithoutStreamOrSwitch) {
  PSCDurationLogger::StartLogging();
  { PSCDurationLogger phase("NoStream"); }
  PSCDurationLogger::SetLogFile(m_stream);
  PSCDurationLogger::EndLogging();
  EXPECT_FALSE(PSCDurationLogger::IsLogging());
  { PSCDurationLogger phase("SwitchedOff"); }
  EXPECT_EQ(written(), "");
}

TEST_F(DurationLoggerTest, ScopeWritesPaddedStartAndEndLinesLongLabelsWhole) {
  PSCDurationLogger::SetLogFile(m_stream);
  PSCDurationLogger::IsLogging(true);
  { PSCDurationLogger phase("Receive"); }
  PSCDurationLogger::LogTime("AVeryLongPhaseNameThatExceedsThirty", "START");
  const std::string time = " \\(Time=" + stampPattern() + "\\)\n";
  const std::regex expected("#Receive_START {17}:" + time + "#Receive_END {19}:" + time +
                            "#AVeryLongPhaseNameThatExceedsThirty_START:" + time);
  EXPECT_TRUE(std::regex_match(written(), expected)) << written();
}

TEST_F(DurationLoggerTest, AssignmentCopiesTheName) {
  PSCDurationLogger::SetLogFile(m_stream);
  {
    PSCDurationLogger first("First");
    PSCDurationLogger second("Second");
    PSCDurationLogger::StartLogging();
    second = first;
  }
  const std::string text = written();
  EXPECT_EQ(text.find("Second"), std::string::npos) << text;
  EXPECT_EQ(text.rfind("#First_END", 0), 0u) << text;
  EXPECT_NE(text.find("\n#First_END"), std::string::npos) << text;
}

}  // namespace
