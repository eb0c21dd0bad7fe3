#include "BinaryStream.h"

#include <bit>
#include <cstring>

#include "XtError.h"

namespace meld::xt {

namespace {
constexpr int64_t kShortSpan = 32767;  // pointers below this fit one short
}

void BinaryIn::refuseShort(size_t n) {
  throw XtError("needs " + std::to_string(n) + " more bytes (data ends here)");
}

int64_t BinaryIn::pointer() {
  int64_t r = i16();
  int64_t q = 0;
  if (r < 0) {
    q = i16();
    r = -r;
    if (q <= 0) throw XtError("bad two-short index (quotient " + std::to_string(q) + ")");
  }
  return q * kShortSpan + r - 1;
}

std::string BinaryIn::rawChars(size_t count) {
  const unsigned char* p = take(count);
  return std::string(reinterpret_cast<const char*>(p), count);
}

std::string BinaryIn::shortString() { return rawChars(byte()); }

void BinaryOut::put(uint64_t v, int n) {
  for (int k = 0; k < n; ++k) {
    int i = m_little ? k : n - 1 - k;
    m_bytes.push_back(static_cast<char>((v >> (8 * i)) & 0xff));
  }
}

void BinaryOut::f64(double v) { put(std::bit_cast<uint64_t>(v), 8); }

void BinaryOut::pointer(int64_t index) {
  if (index < 0 || index > kShortSpan * 32767 + kShortSpan - 2)
    throw XtError("index " + std::to_string(index) + " cannot be written in binary");
  if (index < kShortSpan) {
    i16(static_cast<int16_t>(index + 1));
    return;
  }
  i16(static_cast<int16_t>(-(index % kShortSpan + 1)));
  i16(static_cast<int16_t>(index / kShortSpan));
}

void BinaryOut::shortString(std::string_view s) {
  if (s.size() > 255) throw XtError("short string longer than 255 characters");
  byte(static_cast<uint8_t>(s.size()));
  raw(s);
}

}  // namespace meld::xt
