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

std::string numericLocale() { return std::setlocale(LC_NUMERIC, nullptr); }

// A numeric locale other than "C": one with a decimal comma when installed,
// else C.UTF-8, which differs from "C" by name. Empty when none is installed.
std::string findNonClassicLocale() {
  for (const char* name : {"de_DE.UTF-8", "fr_FR.UTF-8", "C.UTF-8", "C.utf8"}) {
    if (std::setlocale(LC_NUMERIC, name) != nullptr) {
      std::string actual = numericLocale();
      std::setlocale(LC_NUMERIC, "C");
      return actual;
    }
  }
  return "";
}

struct Seen {
  int kind;
  int flag;
  std::string text;
  std::string locale;
};

std::vector<Seen> g_written;
std::vector<Seen> g_displayed;

void recordWriter(int kind, int flag, const KxuString& text) {
  g_written.push_back({kind, flag, text.c_str(), numericLocale()});
}
void recordDisplay(int kind, int flag, const char* text) {
  g_displayed.push_back({kind, flag, text, numericLocale()});
}
void throwingDisplay(int, int, const char*) { throw std::runtime_error("host failed"); }

// Messages and the numeric-locale guards they are shown under.
class MessageDisplayTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_written.clear();
    g_displayed.clear();
    ax_SetMessageWriter(recordWriter);
    ax_RegisterDisplayCallback(nullptr);
    std::setlocale(LC_NUMERIC, "C");
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

// The writer formats under "C"; the host's callback under the user's locale.
TEST_F(MessageDisplayTest, WriterRunsUnderClassicLocaleCallbackUnderTheUsers) {
  const std::string user = findNonClassicLocale();
  if (user.empty()) GTEST_SKIP() << "no numeric locale other than C is installed";
  std::setlocale(LC_NUMERIC, user.c_str());
  ax_ShowMessageString(3, 0, "plain");
  ASSERT_EQ(g_written.size(), 1u);
  EXPECT_EQ(g_written[0].text, "plain");
  EXPECT_EQ(g_written[0].kind, 3);
  EXPECT_EQ(g_written[0].locale, "C");
  EXPECT_EQ(numericLocale(), user);  // given back afterwards

  ax_RegisterDisplayCallback(recordDisplay);
  {
    KxuAutoRestoreLocale outputScope;
    ax_ShowMessageString(0, 1, "x");
    EXPECT_EQ(numericLocale(), "C");
  }
  ASSERT_EQ(g_displayed.size(), 1u);
  EXPECT_EQ(g_displayed[0].locale, user);
}

// Nested guards switch to "C" once and restore at the outermost end; a
// rollback hands the user's locale back for its scope, and a guard opened
// inside it works on its own. Outside any guard a rollback does nothing; a
// guard begun in "C" restores nothing.
TEST_F(MessageDisplayTest, NestedGuardsSwitchOnceAndRollbackGivesTheUserLocaleBack) {
  const std::string user = findNonClassicLocale();
  if (user.empty()) GTEST_SKIP() << "no numeric locale other than C is installed";
  std::setlocale(LC_NUMERIC, user.c_str());
  {
    KxuAutoRestoreLocale outer;
    EXPECT_EQ(numericLocale(), "C");
    {
      KxuAutoRestoreLocale inner;
      EXPECT_EQ(KxuLocaleGuardDepth(), 2);
      {
        KxuTempRollbackLocale rollback;
        EXPECT_EQ(numericLocale(), user);
        EXPECT_EQ(KxuLocaleGuardDepth(), 0);
        {
          KxuAutoRestoreLocale reentered;
          EXPECT_EQ(numericLocale(), "C");
        }
        EXPECT_EQ(numericLocale(), user);
      }
      EXPECT_EQ(numericLocale(), "C");
      EXPECT_EQ(KxuLocaleGuardDepth(), 2);
    }
    EXPECT_EQ(numericLocale(), "C");  // the inner guard must not restore
  }
  EXPECT_EQ(numericLocale(), user);
  {
    KxuTempRollbackLocale outsideAnyGuard;  // has nothing to give back
    EXPECT_EQ(numericLocale(), user);
  }
  EXPECT_EQ(numericLocale(), user);
  std::setlocale(LC_NUMERIC, "C");
  {
    KxuAutoRestoreLocale beganInClassic;  // changed nothing, so restores nothing
    std::setlocale(LC_NUMERIC, user.c_str());
  }
  EXPECT_EQ(numericLocale(), user);
  EXPECT_EQ(KxuLocaleGuardDepth(), 0);
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

TEST_F(MessageCatalogueTest, FormatsTakeTheTextAndEscapesAndAreCutToTheBuffer) {
  ASSERT_EQ(open("# comment\n\n1004 Phase: %s\\n\n7\t100%% %s and %s\r\n1 %s%s\n"), 0);
  char buffer[kAxMessageBufferSize] = "load";
  EXPECT_EQ(ax_GetMessageFormat(1004, 1, buffer), 0);
  EXPECT_STREQ(buffer, "Phase: load\n");
  std::snprintf(buffer, sizeof buffer, "a");
  EXPECT_EQ(ax_GetMessageFormat(7, 1, buffer), 0);
  EXPECT_STREQ(buffer, "100% a and %s");
  EXPECT_EQ(ax_GetMessageFormat(8, 1, buffer), 1);
  EXPECT_EQ(ax_GetMessageFormat(7, 1, nullptr), 2);
  std::snprintf(buffer, sizeof buffer, "%s", std::string(1000, 'x').c_str());
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
  char buffer[kAxMessageBufferSize] = "as given";
  EXPECT_EQ(ax_GetMessageFormat(1004, 1, buffer), 1);  // nothing open: the text stays
  EXPECT_STREQ(buffer, "as given");
  ASSERT_EQ(open(entries), 0);
  EXPECT_EQ(open(entries), kAxCatalogueAlreadyOpen);
  EXPECT_EQ(ax_CloseMessageCatalogue(), 0);
}

}  // namespace
