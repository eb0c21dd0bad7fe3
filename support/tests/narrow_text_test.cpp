// UTF-16 to the locale's narrow encoding.
#include <gtest/gtest.h>

#include <clocale>

#include "KxuNarrowText.h"

namespace {

std::string convert(const std::u16string& text) {
  return KxuUtf16ToLocaleNarrow(reinterpret_cast<const unsigned short*>(text.c_str()));
}

TEST(NarrowText, EachUnmappableCharacterOrUnpairedSurrogateBecomesOneSubstitute) {
  std::setlocale(LC_CTYPE, "C");
  EXPECT_EQ(convert(u"Block 1"), "Block 1");
  EXPECT_EQ(KxuUtf16ToLocaleNarrow(nullptr), "");
  EXPECT_EQ(convert(u"a\u00E9b\U0001F600c"), "a?b?c");
  if (!std::setlocale(LC_CTYPE, "C.UTF-8")) GTEST_SKIP() << "no C.UTF-8 locale";
  EXPECT_EQ(convert(u"\u00E9\U0001F600"), "\xC3\xA9\xF0\x9F\x98\x80");
  const char16_t lonely[] = {u'x', char16_t(0xD83D), u'y', char16_t(0xDE00), 0};
  EXPECT_EQ(convert(lonely), "x?y?");
  std::setlocale(LC_CTYPE, "C");
}

}  // namespace
