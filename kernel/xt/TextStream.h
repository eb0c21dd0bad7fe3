// Text encoding of the XT stream: the reader works on the records joined into one
// character stream (line breaks carry no meaning), the writer produces that stream
// and cuts it into records of at most 80 characters.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace meld::xt {

class TextIn {
 public:
  // `data` is everything after the part-file header; `baseOffset` is where it
  // starts in the file, so that errors can name file offsets.
  TextIn(std::string_view data, size_t baseOffset);

  int64_t integer();  // decimal, or '?' for the null int
  double real();      // C syntax, or '?' for the null real
  char character();   // one char, with the backslash escapes
  int64_t logical();  // 'T' or 'F'
  void reals(double* out, int count);          // a compound: count reals, or one '?'
  void chars(int64_t* out, size_t count);      // a char array with escapes and \9
  std::string shortString();                   // "<len> <chars>" (embedded schemas)
  std::string rawChars(size_t count);
  char peek() const { return m_pos < m_data.size() ? m_data[m_pos] : '\0'; }
  bool atEnd() const { return m_pos >= m_data.size(); }
  size_t remaining() const { return m_data.size() - m_pos; }
  // Offset in the original file of the current position.
  size_t fileOffset() const;

 private:
  [[noreturn]] void fail(const std::string& what) const;
  // The general readers behind the fast paths of integer() and real().
  int64_t parsedInteger();
  double parsedReal();
  std::string_view token();
  // Takes a '?' (the null value, written without a following space) if one is next.
  bool takeNull() {
    if (peek() != '?') return false;
    ++m_pos;
    return true;
  }

  std::string m_data;
  size_t m_pos = 0;
  // (position in m_data, offset in the file) at the start of every record
  std::vector<std::pair<size_t, size_t>> m_records;
};

class TextOut {
 public:
  void integer(int64_t value);  // the null int is written as '?'
  void real(double value);      // the null real is written as '?'
  void character(char c);       // escapes NUL, backslash, CR, LF
  void logical(bool value) { m_text.push_back(value ? 'T' : 'F'); }
  void reals(const double* values, int count);  // any null component: one '?'
  void chars(const int64_t* values, size_t count);  // escapes, and \9 for nine spaces
  void shortString(std::string_view s);
  void raw(std::string_view s) { m_text.append(s); }
  // The stream cut into records of at most 80 characters, none ending in a space.
  std::string records() const;

 private:
  std::string m_text;
};

}  // namespace meld::xt
