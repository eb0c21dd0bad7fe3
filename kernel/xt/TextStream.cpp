#include "TextStream.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "NodeGraph.h"
#include "XtError.h"

namespace meld::xt {

TextIn::TextIn(std::string_view data, size_t baseOffset) {
  // Join the records: drop CR/LF and the padding spaces at the end of each record.
  m_data.reserve(data.size());
  size_t pos = 0;
  while (pos < data.size()) {
    size_t eol = data.find('\n', pos);
    size_t end = eol == std::string_view::npos ? data.size() : eol;
    size_t stop = end;
    while (stop > pos && (data[stop - 1] == ' ' || data[stop - 1] == '\r')) --stop;
    if (stop > pos) {
      m_records.emplace_back(m_data.size(), baseOffset + pos);
      m_data.append(data.substr(pos, stop - pos));
    }
    pos = end + 1;
  }
}

size_t TextIn::fileOffset() const {
  auto it = std::upper_bound(m_records.begin(), m_records.end(), std::make_pair(m_pos, SIZE_MAX));
  if (it == m_records.begin()) return m_records.empty() ? 0 : m_records.front().second;
  --it;
  return it->second + (m_pos - it->first);
}

void TextIn::fail(const std::string& what) const {
  if (atEnd()) throw XtError(what + " (data ends here)");
  throw XtError(what);
}

std::string_view TextIn::token() {
  size_t start = m_pos;
  size_t space = m_data.find(' ', m_pos);
  size_t end = space == std::string::npos ? m_data.size() : space;
  m_pos = space == std::string::npos ? end : end + 1;
  return std::string_view(m_data).substr(start, end - start);
}

namespace {

// Reads a run of decimal digits into `value` and returns how many there were. The
// value wraps on long runs; callers refuse those by the count. The scans below stop
// at m_data's terminating '\0' at the latest, so they need no bound check.
int scanDigits(const char*& p, uint64_t& value) {
  const char* start = p;
  while (static_cast<unsigned>(*p - '0') < 10) value = value * 10 + static_cast<unsigned>(*p++ - '0');
  return static_cast<int>(p - start);
}

// Powers of ten that a double holds exactly.
constexpr double kExactPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                   1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr uint64_t kExactMantissa = uint64_t(1) << 53;

}  // namespace

// The common forms ("-12", ".0153698301052628", "1e-8") are read in one pass
// here; anything else goes through std::from_chars, which also words the refusal.
int64_t TextIn::integer() {
  if (takeNull()) return kNullInt;
  const char* begin = m_data.data() + m_pos;
  const char* end = m_data.data() + m_data.size();
  bool negative = *begin == '-';
  const char* p = begin + negative;
  uint64_t value = 0;
  int digits = scanDigits(p, value);
  // 18 digits cannot overflow an int64; the token must end at a space or the end.
  if (digits == 0 || digits > 18 || (*p != ' ' && p != end)) return parsedInteger();
  m_pos += static_cast<size_t>(p - begin) + (p != end);
  return negative ? -static_cast<int64_t>(value) : static_cast<int64_t>(value);
}

int64_t TextIn::parsedInteger() {
  if (atEnd()) fail("expected an integer");
  size_t start = m_pos;
  std::string_view t = token();
  if (!t.empty() && t.front() == '+') t.remove_prefix(1);
  int64_t value = 0;
  auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), value);
  if (ec != std::errc() || end != t.data() + t.size() || t.empty()) {
    m_pos = start;
    fail("expected an integer, found '" + std::string(t.substr(0, 20)) + "'");
  }
  return value;
}

// A real whose significant digits fit 53 bits and whose decimal exponent is at
// most 22 is one exact integer times or divided by one exact power of ten: a single
// correctly rounded operation, so the same bits std::from_chars gives.
double TextIn::real() {
  if (takeNull()) return kNullReal;
  const char* begin = m_data.data() + m_pos;
  const char* end = m_data.data() + m_data.size();
  bool negative = *begin == '-';
  const char* p = begin + negative;
  uint64_t mantissa = 0;
  int digits = scanDigits(p, mantissa);
  int exponent = 0;
  if (*p == '.') {
    ++p;
    int fractionDigits = scanDigits(p, mantissa);
    digits += fractionDigits;
    exponent = -fractionDigits;
  }
  if (digits == 0 || digits > 19) return parsedReal();  // 19 digits cannot overflow
  if (*p == 'e' || *p == 'E') {
    ++p;
    bool negativeExponent = *p == '-';
    if (*p == '-' || *p == '+') ++p;
    uint64_t written = 0;
    int exponentDigits = scanDigits(p, written);
    if (exponentDigits == 0 || exponentDigits > 3) return parsedReal();
    exponent += negativeExponent ? -static_cast<int>(written) : static_cast<int>(written);
  }
  if (*p != ' ' && p != end) return parsedReal();
  if (mantissa > kExactMantissa || exponent < -22 || exponent > 22) return parsedReal();
  double value = static_cast<double>(mantissa);
  value = exponent < 0 ? value / kExactPowers[-exponent] : value * kExactPowers[exponent];
  m_pos += static_cast<size_t>(p - begin) + (p != end);
  return negative ? -value : value;
}

double TextIn::parsedReal() {
  if (atEnd()) fail("expected a real");
  size_t start = m_pos;
  std::string_view t = token();
  if (!t.empty() && t.front() == '+') t.remove_prefix(1);
  double value = 0;
  auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), value);
  if (ec != std::errc() || end != t.data() + t.size() || t.empty() || !std::isfinite(value)) {
    m_pos = start;
    fail("expected a finite real, found '" + std::string(t.substr(0, 20)) + "'");
  }
  return value;
}

char TextIn::character() {
  if (atEnd()) fail("expected a character");
  char c = m_data[m_pos++];
  if (c != '\\' || atEnd()) return c;
  switch (m_data[m_pos]) {
    case '0': ++m_pos; return '\0';
    case '\\': ++m_pos; return '\\';
    case 'n': ++m_pos; return '\n';
    case 'r': ++m_pos; return '\r';
    default: return c;  // a lone backslash (files before escapes existed)
  }
}

int64_t TextIn::logical() {
  char c = atEnd() ? '\0' : m_data[m_pos];
  if (c != 'T' && c != 'F') fail("expected a logical T or F");
  ++m_pos;
  return c == 'T';
}

void TextIn::reals(double* out, int count) {
  if (takeNull()) {
    std::fill(out, out + count, kNullReal);
    return;
  }
  for (int i = 0; i < count; ++i) out[i] = real();
}

void TextIn::chars(int64_t* out, size_t count) {
  size_t n = 0;
  while (n < count) {
    // \9 stands for nine spaces, so it can only occur where nine characters fit.
    if (count - n >= 9 && peek() == '\\' && m_pos + 1 < m_data.size() && m_data[m_pos + 1] == '9') {
      m_pos += 2;
      for (int i = 0; i < 9; ++i) out[n++] = ' ';
      continue;
    }
    out[n++] = static_cast<unsigned char>(character());
  }
}

std::string TextIn::rawChars(size_t count) {
  if (count > remaining()) fail("string of " + std::to_string(count) + " characters runs past the end");
  std::string s = m_data.substr(m_pos, count);
  m_pos += count;
  return s;
}

std::string TextIn::shortString() {
  int64_t len = integer();
  if (len < 0 || len > 255) fail("bad short-string length " + std::to_string(len));
  return rawChars(static_cast<size_t>(len));
}

// ---- writing ----

void TextOut::integer(int64_t value) {
  if (value == kNullInt) {
    m_text.push_back('?');
    return;
  }
  char buf[24];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, value);
  m_text.append(buf, end);
  m_text.push_back(' ');
}

void TextOut::real(double value) {
  if (!std::isfinite(value)) throw XtError("cannot write a real that is not finite");
  if (value == kNullReal) {
    m_text.push_back('?');
    return;
  }
  char buf[32];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, value);  // shortest exact form
  m_text.append(buf, end);
  m_text.push_back(' ');
}

void TextOut::character(char c) {
  switch (c) {
    case '\0': m_text += "\\0"; break;
    case '\\': m_text += "\\\\"; break;
    case '\n': m_text += "\\n"; break;
    case '\r': m_text += "\\r"; break;
    default: m_text.push_back(c);
  }
}

void TextOut::reals(const double* values, int count) {
  if (std::find(values, values + count, kNullReal) != values + count) {
    m_text.push_back('?');
    return;
  }
  for (int i = 0; i < count; ++i) real(values[i]);
}

void TextOut::chars(const int64_t* values, size_t count) {
  for (size_t i = 0; i < count;) {
    if (count - i >= 9 && std::all_of(values + i, values + i + 9, [](int64_t c) { return c == ' '; })) {
      m_text += "\\9";
      i += 9;
      continue;
    }
    character(static_cast<char>(values[i++]));
  }
}

void TextOut::shortString(std::string_view s) {
  integer(static_cast<int64_t>(s.size()));
  m_text.append(s);
}

std::string TextOut::records() const {
  constexpr size_t kRecord = 80;
  std::string out;
  out.reserve(m_text.size() + m_text.size() / 60 + 2);
  size_t pos = 0;
  // Trailing spaces of a record are padding to a reader, so a record never ends in
  // a significant space: it is cut before the space, which opens the next record.
  size_t end = m_text.size();
  while (end > 0 && m_text[end - 1] == ' ') --end;  // the stream's own last space
  while (pos < end) {
    size_t n = std::min(kRecord, end - pos);
    while (n > 1 && m_text[pos + n - 1] == ' ') --n;
    // Only spaces from here to the record's end: a run of 80 or more, which no cut can
    // keep (a record holding its end would be longer than 80). Written as one space it
    // would read back as padding, so refuse rather than change the data.
    if (m_text[pos + n - 1] == ' ')
      throw XtError("cannot write as text: " + std::to_string(kRecord) +
                    " or more spaces in a row (a name, or several character fields) cannot be cut into " +
                    std::to_string(kRecord) + "-character records, whose trailing spaces are padding");
    out.append(m_text, pos, n);
    out.push_back('\n');
    pos += n;
  }
  return out;
}

}  // namespace meld::xt
