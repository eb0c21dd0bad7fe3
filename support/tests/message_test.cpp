#include <clocale>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KxuLocale.h"
#include "TestSupport.h"
#include "ax_Message.h"
#include "ax_MessageCatalogue.h"

namespace {

struct Seen {
  int kind;
  int flag;
  std::string text;
  std::string locale;
};

std::vector<Seen> g_written;
std::vector<Seen> g_displayed;

std::string numericLocale() { return std::setlocale(LC_NUMERIC, nullptr); }

void recordWriter(int kind, int flag, const KxuString& text) {
  g_written.push_back({kind, flag, text.c_str(), numericLocale()});
}
void recordDisplay(int kind, int flag, const char* text) {
  g_displayed.push_back({kind, flag, text, numericLocale()});
}
void throwingDisplay(int, int, const char*) { throw std::runtime_error("host failed"); }

class MessageDisplayTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_written.clear();
    g_displayed.clear();
    ax_SetMessageWriter(recordWriter);
    ax_RegisterDisplayCallback(nullptr);
  }
  void TearDown() override {
    ax_SetMessageWriter(nullptr);
    ax_RegisterDisplayCallback(nullptr);
    std::setlocale(LC_NUMERIC, "C");
  }
  meldtest::ScopedEnv m_noAlwaysWrite{"VTX_ALWAYS_DEBUG_STAT_DIR", nullptr};
};

// Must run before anything switches the sticky always-write flag on.
TEST_F(MessageDisplayTest, CallbackAloneGetsTheMessageUnlessAlwaysWriteIsSet) {
  ASSERT_FALSE(ax_IsAlwaysWriteOn()) << "run this case in a fresh process";
  ax_RegisterDisplayCallback(recordDisplay);
  ax_ShowMessageString(0, 1, "to the host\n");
  ASSERT_EQ(g_displayed.size(), 1u);
  EXPECT_EQ(g_displayed[0].text, "to the host\n");
  EXPECT_EQ(g_displayed[0].kind, 0);
  EXPECT_EQ(g_displayed[0].flag, 1);
  EXPECT_TRUE(g_written.empty());

  meldtest::ScopedEnv always("VTX_ALWAYS_DEBUG_STAT_DIR", "");
  ax_ShowMessageString(0, 1, "both");
  EXPECT_EQ(g_displayed.size(), 2u);
  ASSERT_EQ(g_written.size(), 1u);
  EXPECT_EQ(g_written[0].text, "both");
  EXPECT_TRUE(ax_IsAlwaysWriteOn());
}

TEST_F(MessageDisplayTest, WithoutCallbackTheWriterGetsTheTextUnderClassicLocale) {
  if (std::setlocale(LC_NUMERIC, "C.UTF-8") == nullptr) GTEST_SKIP() << "C.UTF-8 not installed";
  ax_ShowMessageString(3, 0, "plain");
  ASSERT_EQ(g_written.size(), 1u);
  EXPECT_EQ(g_written[0].text, "plain");
  EXPECT_EQ(g_written[0].kind, 3);
  EXPECT_EQ(g_written[0].locale, "C");
  EXPECT_NE(numericLocale(), "C");  // given back afterwards
}

TEST_F(MessageDisplayTest, CallbackRunsUnderTheUsersLocale) {
  const char* user = std::setlocale(LC_NUMERIC, "C.UTF-8");
  if (user == nullptr) GTEST_SKIP() << "C.UTF-8 not installed";
  const std::string userName = user;
  ax_RegisterDisplayCallback(recordDisplay);
  {
    KxuAutoRestoreLocale outputScope;
    ax_ShowMessageString(0, 1, "x");
    EXPECT_EQ(numericLocale(), "C");
  }
  ASSERT_EQ(g_displayed.size(), 1u);
  EXPECT_EQ(g_displayed[0].locale, userName);
}

TEST_F(MessageDisplayTest, ExceptionIsReportedNotPropagated) {
  ax_RegisterDisplayCallback(throwingDisplay);
  testing::internal::CaptureStderr();
  EXPECT_NO_THROW(ax_ShowMessageString(0, 1, "boom"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "ax_ShowMessageString : unknown exception\n");
  EXPECT_EQ(KxuLocaleGuardDepth(), 0);
}

class MessageCatalogueTest : public ::testing::Test {
 protected:
  void TearDown() override { ax_CloseMessageCatalogue(); }
  int open(const std::string& content) {
    meldtest::writeFile(m_dir.path() / "messages.cat", content);
    return ax_OpenMessageCatalogue((m_dir.path() / "messages.cat").c_str());
  }
  meldtest::ScopedWorkDir m_dir;
};

TEST_F(MessageCatalogueTest, WithoutCatalogueTheBufferStaysAsGiven) {
  char buffer[kAxMessageBufferSize] = "as given";
  EXPECT_EQ(ax_GetMessageFormat(1004, 1, buffer), 1);
  EXPECT_STREQ(buffer, "as given");
  EXPECT_EQ(ax_CloseMessageCatalogue(), 1);
}

TEST_F(MessageCatalogueTest, FormatsTakeTheTextAndEscapes) {
  ASSERT_EQ(open("# comment\n\n1004 Phase: %s\\n\n7\t100%% %s and %s\r\n"), 0);
  char buffer[kAxMessageBufferSize] = "load";
  EXPECT_EQ(ax_GetMessageFormat(1004, 1, buffer), 0);
  EXPECT_STREQ(buffer, "Phase: load\n");
  std::snprintf(buffer, sizeof buffer, "a");
  EXPECT_EQ(ax_GetMessageFormat(7, 1, buffer), 0);
  EXPECT_STREQ(buffer, "100% a and %s");
  EXPECT_EQ(ax_GetMessageFormat(8, 1, buffer), 1);
  EXPECT_EQ(ax_GetMessageFormat(7, 1, nullptr), 2);
}

TEST_F(MessageCatalogueTest, ResultIsCutToTheBuffer) {
  ASSERT_EQ(open("1 %s%s\n"), 0);
  char buffer[kAxMessageBufferSize] = {};
  std::string text(1000, 'x');
  std::snprintf(buffer, sizeof buffer, "%s", text.c_str());
  EXPECT_EQ(ax_GetMessageFormat(1, 2, buffer), 0);
  EXPECT_EQ(std::string(buffer), std::string(kAxMessageBufferSize - 1, 'x'));
}

TEST_F(MessageCatalogueTest, FailureCodes) {
  EXPECT_EQ(ax_OpenMessageCatalogue("no-such-file.cat"), kAxCatalogueCannotOpen);
  EXPECT_EQ(open("12abc text\n"), kAxCatalogueBadLine);
  EXPECT_EQ(open("0 zero id\n"), kAxCatalogueBadLine);
  std::string entries;
  for (int id = 1; id <= kAxCatalogueCapacity; ++id) entries += std::to_string(id) + " m\n";
  EXPECT_EQ(open(entries + "301 one too many\n"), kAxCatalogueTooManyEntries);
  EXPECT_EQ(ax_CloseMessageCatalogue(), 1);  // failures leave nothing open
  ASSERT_EQ(open(entries), 0);
  EXPECT_EQ(open(entries), kAxCatalogueAlreadyOpen);
  EXPECT_EQ(ax_CloseMessageCatalogue(), 0);
}

}  // namespace
