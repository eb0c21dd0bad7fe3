#include "KxuNarrowText.h"

#include <climits>
#include <cwchar>

namespace {

bool isHighSurrogate(unsigned unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLowSurrogate(unsigned unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

// The code point starting at text[i]; advances i past it. Unpaired surrogates
// give 0xFFFFFFFF, which no encoding maps.
char32_t nextCodePoint(const unsigned short* text, std::size_t& i) {
  const unsigned unit = text[i++];
  if (isHighSurrogate(unit) && isLowSurrogate(text[i])) {
    const unsigned low = text[i++];
    return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
  }
  if (isHighSurrogate(unit) || isLowSurrogate(unit)) return 0xFFFFFFFF;
  return unit;
}

void appendInLocale(char32_t codePoint, std::string& out) {
  char bytes[MB_LEN_MAX];
  std::mbstate_t state{};
  const std::size_t n = codePoint == 0xFFFFFFFF
                            ? static_cast<std::size_t>(-1)
                            : std::wcrtomb(bytes, static_cast<wchar_t>(codePoint), &state);
  if (n == static_cast<std::size_t>(-1))
    out.push_back(kKxuSubstitutionChar);
  else
    out.append(bytes, n);
}

}  // namespace

std::string KxuUtf16ToLocaleNarrow(const unsigned short* text) {
  std::string out;
  if (!text) return out;
  for (std::size_t i = 0; text[i] != 0;) appendInLocale(nextCodePoint(text, i), out);
  return out;
}
