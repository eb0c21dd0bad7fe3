#include "ax_MessageCatalogue.h"

#include <cerrno>
#include <cstdlib>
#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <string>

namespace {

using Catalogue = std::map<unsigned, std::string>;

std::optional<Catalogue> g_catalogue;

bool isSkippedLine(const std::string& line) { return line.empty() || line[0] == '#'; }

// Splits "<id> <format>"; false when the line has no positive id or no blank after it.
bool parseEntry(const std::string& line, unsigned& id, std::string& format) {
  const char* begin = line.c_str();
  char* end = nullptr;
  errno = 0;
  const unsigned long value = std::strtoul(begin, &end, 10);
  if (end == begin || errno != 0 || value == 0 || value > 0xFFFFFFFFul) return false;
  if (*end != ' ' && *end != '\t') return false;
  while (*end == ' ' || *end == '\t') ++end;
  id = static_cast<unsigned>(value);
  format = end;
  return true;
}

int readCatalogue(std::ifstream& file, Catalogue& entries) {
  std::string line;
  int entryCount = 0;
  while (std::getline(file, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (isSkippedLine(line)) continue;
    unsigned id = 0;
    std::string format;
    if (!parseEntry(line, id, format)) return kAxCatalogueBadLine;
    if (++entryCount > kAxCatalogueCapacity) return kAxCatalogueTooManyEntries;
    entries[id] = format;
  }
  return 0;
}

// Expands the escapes and "%s" of `format`, using `argument` for at most
// `argumentCount` "%s"; further "%s" stay as written.
std::string expandFormat(const std::string& format, const std::string& argument, int argumentCount) {
  std::string out;
  for (std::size_t i = 0; i < format.size(); ++i) {
    const char c = format[i];
    const char next = i + 1 < format.size() ? format[i + 1] : '\0';
    if (c == '\\' && (next == 'n' || next == '\\')) {
      out += next == 'n' ? '\n' : '\\';
      ++i;
    } else if (c == '%' && next == '%') {
      out += '%';
      ++i;
    } else if (c == '%' && next == 's' && argumentCount > 0) {
      out += argument;
      --argumentCount;
      ++i;
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace

int ax_OpenMessageCatalogue(const char* path) {
  if (g_catalogue) return kAxCatalogueAlreadyOpen;
  if (path == nullptr) return kAxCatalogueCannotOpen;
  std::ifstream file(path);
  if (!file) return kAxCatalogueCannotOpen;
  Catalogue entries;
  const int rc = readCatalogue(file, entries);
  if (rc != 0) return rc;
  g_catalogue = std::move(entries);
  return 0;
}

int ax_CloseMessageCatalogue() {
  if (!g_catalogue) return 1;
  g_catalogue.reset();
  return 0;
}

int ax_GetMessageFormat(unsigned id, int argumentCount, char* buffer) {
  if (buffer == nullptr) return 2;
  if (!g_catalogue) return 1;
  const auto entry = g_catalogue->find(id);
  if (entry == g_catalogue->end()) return 1;
  const std::string text = expandFormat(entry->second, buffer, argumentCount);
  const std::size_t kept = std::min<std::size_t>(text.size(), kAxMessageBufferSize - 1);
  std::memcpy(buffer, text.data(), kept);
  buffer[kept] = '\0';
  return 0;
}
