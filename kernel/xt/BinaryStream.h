// Binary encoding of the XT stream: fixed-width big-endian (neutral) or declared
// byte order (typed) values; pointers and "positive integers" in the one- or
// two-short form.
#pragma once

#include <bit>
#include <cstdint>
#include <string>
#include <string_view>

namespace meld::xt {

class BinaryIn {
 public:
  BinaryIn(std::string_view data, size_t baseOffset, bool littleEndian)
      : m_data(data), m_base(baseOffset), m_little(littleEndian) {}

  // Inline: called once per value.
  uint8_t byte() { return *take(1); }
  int16_t i16() { return static_cast<int16_t>(unsignedValue(2)); }
  int32_t i32() { return static_cast<int32_t>(unsignedValue(4)); }
  double f64() { return std::bit_cast<double>(unsignedValue(8)); }
  int64_t pointer();  // also the "positive integer" of embedded schemas
  std::string shortString();  // length byte, then the characters
  std::string rawChars(size_t count);
  size_t remaining() const { return m_data.size() - m_pos; }
  bool atEnd() const { return m_pos >= m_data.size(); }
  size_t fileOffset() const { return m_base + m_pos; }

 private:
  const unsigned char* take(size_t n) {
    if (remaining() < n) refuseShort(n);
    auto* p = reinterpret_cast<const unsigned char*>(m_data.data() + m_pos);
    m_pos += n;
    return p;
  }
  uint64_t unsignedValue(size_t n) {
    const unsigned char* p = take(n);
    uint64_t v = 0;
    for (size_t i = 0; i < n; ++i) v = (v << 8) | p[m_little ? n - 1 - i : i];
    return v;
  }
  [[noreturn]] static void refuseShort(size_t n);

  std::string_view m_data;
  size_t m_base;
  bool m_little;
  size_t m_pos = 0;
};

class BinaryOut {
 public:
  // Big-endian (neutral binary) unless asked for little-endian (typed binary).
  explicit BinaryOut(bool littleEndian = false) : m_little(littleEndian) {}
  void byte(uint8_t v) { m_bytes.push_back(static_cast<char>(v)); }
  void i16(int16_t v) { put(static_cast<uint16_t>(v), 2); }
  void i32(int32_t v) { put(static_cast<uint32_t>(v), 4); }
  void f64(double v);
  void pointer(int64_t index);
  void shortString(std::string_view s);
  void raw(std::string_view s) { m_bytes.append(s); }
  const std::string& bytes() const { return m_bytes; }
  bool littleEndian() const { return m_little; }

 private:
  void put(uint64_t v, int n);
  bool m_little;
  std::string m_bytes;
};

}  // namespace meld::xt
