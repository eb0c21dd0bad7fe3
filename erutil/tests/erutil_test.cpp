#include <omp.h>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "erutil.h"

namespace {

const char* const kHeader = "Index RC     FunctionName                        Comment";
const std::regex kStamp(R"(\d{4}/\d\d/\d\d \d\d:\d\d:\d\d printed in thread \d{3})");

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

std::vector<std::string> statusLines(const char* name = "erutil.stat") {
  return lines(meldtest::readFile(name));
}

void expectBlockStart(const std::vector<std::string>& got, std::size_t at, const char* title) {
  ASSERT_GT(got.size(), at + 2);
  EXPECT_EQ(got[at], title);
  EXPECT_TRUE(std::regex_match(got[at + 1], kStamp)) << got[at + 1];
  EXPECT_EQ(got[at + 2], kHeader);
}

class ErrorStackTest : public ::testing::Test {
 protected:
  void SetUp() override { resetArea(); }
  void TearDown() override { resetArea(); }
  static void resetArea() {
    erSetEcho(0);
    erClear();
    erSetStatusFileName("");
    erSetLineCallback(nullptr, nullptr);
  }
  meldtest::ScopedWorkDir m_dir;
  meldtest::ScopedEnv m_noOutfile{"ER_OUTFILE", nullptr};
  meldtest::ScopedEnv m_noAddMode{"VTX_ER_STAT_ADD_MODE", nullptr};
};

TEST_F(ErrorStackTest, BlocksAreAlwaysAppendedWithRowsInFixedColumns) {
  // An empty stack prints the three-line block whatever the append mode.
  for (const char* mode : {static_cast<const char*>(nullptr), "0", "1"}) {
    meldtest::ScopedEnv addMode("VTX_ER_STAT_ADD_MODE", mode);
    EXPECT_EQ(erPrint("./erutil.stat"), 0);
  }
  erPush("PSCStartModeller", 30, "PK_SESSION_start failed");
  erPush("f", -123456, "");
  erPrint("./erutil.stat");
  const auto got = statusLines();
  ASSERT_EQ(got.size(), 14u);
  for (std::size_t block = 0; block < 4; ++block) expectBlockStart(got, block * 3, "erPrint : ");
  EXPECT_TRUE(std::regex_search(got[1], std::regex("printed in thread 000$")));
  EXPECT_EQ(got[12], " 0th      30  PSCStartModeller                    PK_SESSION_start failed");
  EXPECT_EQ(got[13], " 1th  -123456  f                                   ");
}

TEST_F(ErrorStackTest, OutfileVariableOverridesEveryName) {
  meldtest::ScopedEnv outfile("ER_OUTFILE", "elsewhere.stat");
  erPrint("./erutil.stat");
  erPrint();  // the area's empty name is overridden too
  EXPECT_FALSE(std::filesystem::exists("erutil.stat"));
  EXPECT_EQ(statusLines("elsewhere.stat").size(), 6u);
}

TEST_F(ErrorStackTest, CapacityIsFiftyExtraPushesAreDroppedLongTextsAreCut) {
  const std::string name(40, 'n'), comment(500, 'c');
  EXPECT_EQ(erPush(name.c_str(), 0, comment.c_str()), 0);
  for (int i = 1; i < 51; ++i) EXPECT_EQ(erPush("f", i, "c"), 0);
  int count = -1;
  EXPECT_EQ(erCount(&count), 0);
  EXPECT_EQ(count, 50);
  EXPECT_EQ(erCount(nullptr), 1);
  const ErrorRecord& record = erStackArea()->records[0];
  EXPECT_EQ(std::string(record.functionName), name.substr(0, 34));
  EXPECT_EQ(std::string(record.comment), comment.substr(0, 299));
  erPrint("./erutil.stat");
  const auto got = statusLines();
  ASSERT_EQ(got.size(), 53u);
  EXPECT_EQ(got.back().substr(0, 12), "49th      49");
}

TEST_F(ErrorStackTest, ClearEmptiesAndEchoesOnlyWhenSomethingWasHeld) {
  erSetStatusFileName("echo.stat");
  erSetEcho(1);
  EXPECT_EQ(erClear(), 0);
  EXPECT_FALSE(std::filesystem::exists("echo.stat"));

  erPush("first", 1, "a");
  erPush("second", 2, "b");
  erClear();
  int count = -1;
  erCount(&count);
  EXPECT_EQ(count, 0);
  const auto got = statusLines("echo.stat");
  // Each echoing push shows only its own record; the clear shows no table.
  ASSERT_EQ(got.size(), 4u + 4u + 2u);
  expectBlockStart(got, 0, "erPush : ");
  EXPECT_EQ(got[3].substr(0, 12), " 0th       1");
  expectBlockStart(got, 4, "erPush : ");
  EXPECT_EQ(got[7].substr(0, 12), " 1th       2");
  EXPECT_EQ(got[8], "erClear : ");
  EXPECT_TRUE(std::regex_match(got[9], kStamp));
}

TEST_F(ErrorStackTest, WithoutAFileNameOnlyTheCallbackSeesTheBlockUnwritableGoesToStandardError) {
  std::vector<std::string> seen;
  erSetLineCallback([](void* user, const char* line) {
    static_cast<std::vector<std::string>*>(user)->push_back(line);
  }, &seen);
  erPush("f", 7, "lost file");
  testing::internal::CaptureStderr();
  erPrint();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_TRUE(std::filesystem::is_empty(m_dir.path()));
  ASSERT_EQ(seen.size(), 4u);
  EXPECT_EQ(seen[0], "erPrint : ");
  EXPECT_EQ(seen[2], kHeader);

  erSetLineCallback(nullptr, nullptr);
  testing::internal::CaptureStderr();
  erPrint("./no-such-folder/erutil.stat");
  const auto got = lines(testing::internal::GetCapturedStderr());
  ASSERT_EQ(got.size(), 4u);
  expectBlockStart(got, 0, "erPrint : ");
  EXPECT_EQ(got[3].substr(0, 12), " 0th       7");
}

TEST_F(ErrorStackTest, BlocksFromSeveralThreadsDoNotInterleave) {
  erPush("f", 1, "c");
  constexpr int kBlocks = 40;
#pragma omp parallel for num_threads(4)
  for (int i = 0; i < kBlocks; ++i) erPrint("./erutil.stat");
  const auto got = statusLines();
  ASSERT_EQ(got.size(), 4u * kBlocks);
  for (std::size_t at = 0; at < got.size(); at += 4) {
    expectBlockStart(got, at, "erPrint : ");
    EXPECT_EQ(got[at + 3].substr(0, 4), " 0th");
  }
}

}  // namespace
