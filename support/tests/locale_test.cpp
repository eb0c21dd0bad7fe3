#include <clocale>
#include <string>

#include <gtest/gtest.h>

#include "KxuLocale.h"

namespace {

std::string numericLocale() { return std::setlocale(LC_NUMERIC, nullptr); }

// A numeric locale other than "C": one with a decimal comma when installed,
// else C.UTF-8, which differs from "C" by name.
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

class LocaleGuardTest : public ::testing::Test {
 protected:
  void SetUp() override { std::setlocale(LC_NUMERIC, "C"); }
  void TearDown() override { std::setlocale(LC_NUMERIC, "C"); }
};

TEST_F(LocaleGuardTest, ClassicLocaleIsLeftAlone) {
  const std::string other = findNonClassicLocale();
  if (other.empty()) GTEST_SKIP() << "no numeric locale other than C is installed";
  {
    KxuAutoRestoreLocale guard;
    EXPECT_EQ(numericLocale(), "C");
    EXPECT_EQ(KxuLocaleGuardDepth(), 1);
    std::setlocale(LC_NUMERIC, other.c_str());  // the guard changed nothing, so it restores nothing
  }
  EXPECT_EQ(KxuLocaleGuardDepth(), 0);
  EXPECT_EQ(numericLocale(), other);
}

TEST_F(LocaleGuardTest, NestedGuardsSwitchOnceAndRestoreAtOutermostEnd) {
  const std::string user = findNonClassicLocale();
  if (user.empty()) GTEST_SKIP() << "no numeric locale other than C is installed";
  std::setlocale(LC_NUMERIC, user.c_str());
  {
    KxuAutoRestoreLocale outer;
    EXPECT_EQ(numericLocale(), "C");
    {
      KxuAutoRestoreLocale inner;
      EXPECT_EQ(KxuLocaleGuardDepth(), 2);
      EXPECT_EQ(numericLocale(), "C");
    }
    EXPECT_EQ(numericLocale(), "C");  // the inner guard must not restore
    char number[16];
    std::snprintf(number, sizeof number, "%.1f", 2.5);
    EXPECT_STREQ(number, "2.5");
  }
  EXPECT_EQ(numericLocale(), user);
  EXPECT_EQ(KxuLocaleGuardDepth(), 0);
}

TEST_F(LocaleGuardTest, RollbackGivesUserLocaleBackForItsScope) {
  const std::string user = findNonClassicLocale();
  if (user.empty()) GTEST_SKIP() << "no numeric locale other than C is installed";
  std::setlocale(LC_NUMERIC, user.c_str());
  KxuAutoRestoreLocale outer;
  KxuAutoRestoreLocale inner;
  {
    KxuTempRollbackLocale rollback;
    EXPECT_EQ(numericLocale(), user);
    EXPECT_EQ(KxuLocaleGuardDepth(), 0);
    {
      // A guard opened inside the rollback works on its own and cleans up.
      KxuAutoRestoreLocale reentered;
      EXPECT_EQ(numericLocale(), "C");
    }
    EXPECT_EQ(numericLocale(), user);
  }
  EXPECT_EQ(numericLocale(), "C");
  EXPECT_EQ(KxuLocaleGuardDepth(), 2);
}

TEST_F(LocaleGuardTest, RollbackOutsideAnyGuardDoesNothing) {
  const std::string other = findNonClassicLocale();
  if (!other.empty()) std::setlocale(LC_NUMERIC, other.c_str());
  const std::string before = numericLocale();
  {
    KxuTempRollbackLocale rollback;
    EXPECT_EQ(numericLocale(), before);
  }
  EXPECT_EQ(numericLocale(), before);
  EXPECT_EQ(KxuLocaleGuardDepth(), 0);
}

}  // namespace
