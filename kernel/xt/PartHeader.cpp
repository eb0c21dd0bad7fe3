#include "PartHeader.h"

#include "XtError.h"

namespace meld::xt {
namespace {

constexpr size_t kRecord = 80;

std::string_view nextLine(std::string_view bytes, size_t& pos) {
  size_t eol = bytes.find('\n', pos);
  size_t end = eol == std::string_view::npos ? bytes.size() : eol;
  std::string_view line = bytes.substr(pos, end - pos);
  pos = eol == std::string_view::npos ? bytes.size() : eol + 1;
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  return line;
}

// "name=value;" pairs with ^ escapes (^n newline, ^- space, ^; semicolon, ^^ caret).
std::vector<std::pair<std::string, std::string>> parseKeywords(std::string_view text) {
  std::vector<std::pair<std::string, std::string>> pairs;
  std::string name, value;
  bool inValue = false;
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (!inValue) {
      if (c == '=') inValue = true;
      else if (c == ';') name.clear();
      else name.push_back(c);
      continue;
    }
    if (c == '^' && i + 1 < text.size()) {
      char e = text[++i];
      value.push_back(e == 'n' ? '\n' : e == '-' ? ' ' : e);
    } else if (c == ';') {
      pairs.emplace_back(std::move(name), std::move(value));
      name.clear();
      value.clear();
      inValue = false;
    } else {
      value.push_back(c);
    }
  }
  if (inValue) pairs.emplace_back(std::move(name), std::move(value));
  return pairs;
}

std::string escapeValue(std::string_view value) {
  std::string out;
  for (char c : value) {
    switch (c) {
      case '\n': out += "^n"; break;
      case ' ': out += "^-"; break;
      case ';': out += "^;"; break;
      case '^': out += "^^"; break;
      default: out.push_back(c);
    }
  }
  return out;
}

std::string padded(std::string line) {
  if (line.size() < kRecord) line.append(kRecord - line.size(), '*');
  return line + "\n";
}

// A section as lines of at most 80 characters, never splitting an escape pair.
std::string section(const char* title, const std::vector<std::pair<std::string, std::string>>& pairs) {
  std::string text = title;
  for (const auto& [k, v] : pairs) text += k + "=" + escapeValue(v) + ";";
  std::string out;
  size_t pos = 0;
  while (pos < text.size()) {
    size_t n = std::min(kRecord, text.size() - pos);
    if (pos + n < text.size() && text[pos + n - 1] == '^') --n;
    out.append(text, pos, n);
    out.push_back('\n');
    pos += n;
  }
  return out;
}

}  // namespace

size_t parsePartHeader(std::string_view bytes, PartHeader& header) {
  header = PartHeader{};
  if (bytes.substr(0, 2) != "**") return 0;
  header.present = true;
  size_t pos = 0;
  std::string* current = nullptr;
  std::string parts[3];
  while (pos < bytes.size()) {
    std::string_view line = nextLine(bytes, pos);
    if (line.substr(0, 15) == "**END_OF_HEADER") {
      header.part1 = parseKeywords(parts[0]);
      header.part2 = parseKeywords(parts[1]);
      header.part3 = parseKeywords(parts[2]);
      return pos;
    }
    if (line.substr(0, 2) == "**") {
      current = nullptr;
      for (int p = 0; p < 3; ++p) {
        std::string tag = "**PART" + std::to_string(p + 1) + ";";
        if (line.substr(0, tag.size()) == tag) {
          current = &parts[p];
          line.remove_prefix(tag.size());
        }
      }
      if (!current) continue;  // preamble lines
    }
    if (current) current->append(line);
  }
  throw XtError("part-file header has no **END_OF_HEADER line");
}

std::string writePartHeader(const PartHeader& header) {
  std::string out = padded("**ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz");
  out += padded("**PARASOLID !\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~0123456789");
  out += section("**PART1;", header.part1);
  out += section("**PART2;", header.part2);
  out += section("**PART3;", header.part3);
  out += padded("**END_OF_HEADER");
  return out;
}

}  // namespace meld::xt
