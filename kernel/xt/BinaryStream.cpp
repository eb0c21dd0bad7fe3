#include "BinaryStream.h"

#include <bit>
#include <cstring>

#include "XtError.h"

namespace meld::xt {

namespace {
constexpr int64_t kShortSpan = 32767;  // pointers below this fit one short
}

const unsigned char* BinaryIn::take(size_t n) {
  if (remaining() < n)
    throw XtError("needs " + std::to_string(n) + " more bytes (data ends here)");
  auto* p = reinterpret_cast<const unsigned char*>(m_data.data() + m_pos);
  m_pos += n;
  return p;
}

uint64_t BinaryIn::unsignedValue(size_t n) {
  const unsigned char* p = take(n);
  uint64_t v = 0;
  for (size_t i = 0; i < n; ++i) {
    size_t at = m_little ? n - 1 - i : i;
    v = (v << 8) | p[at];
  }
  return v;
}

uint8_t BinaryIn::byte() { return *take(1); }
int16_t BinaryIn::i16() { return static_cast<int16_t>(unsignedValue(2)); }
int32_t BinaryIn::i32() { return static_cast<int32_t>(unsignedValue(4)); }
double BinaryIn::f64() { return std::bit_cast<double>(unsignedValue(8)); }

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
  for (int i = n - 1; i >= 0; --i) m_bytes.push_back(static_cast<char>((v >> (8 * i)) & 0xff));
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
