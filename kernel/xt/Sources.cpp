#include "Sources.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "XtError.h"

namespace meld::xt {

size_t MemorySource::read(char* buffer, size_t nmax) {
  size_t n = std::min(nmax, m_rest.size());
  if (m_lineMode) {
    size_t eol = m_rest.find('\n');
    if (eol != std::string_view::npos) n = std::min(n, eol + 1);
  }
  std::memcpy(buffer, m_rest.data(), n);
  m_rest.remove_prefix(n);
  return n;
}

std::optional<std::string> MapSchemaSource::find(const std::string& key) {
  auto it = m_files.find(key);
  if (it == m_files.end()) return std::nullopt;
  return it->second;
}

std::string readAll(ByteSource& source, bool textMode, size_t maxBytes) {
  std::string all;
  std::vector<char> buffer(64 * 1024);
  while (size_t n = source.read(buffer.data(), buffer.size())) {
    if (n > buffer.size()) throw XtError("read callback returned more bytes than asked for");
    if (all.size() + n > maxBytes)
      throw XtError("input larger than the limit of " + std::to_string(maxBytes) + " bytes");
    all.append(buffer.data(), n);
    // A text read is one record; a frustrum may hand it over without its
    // newline. A piece that filled the whole buffer is part of a longer line.
    if (textMode && n < buffer.size() && all.back() != '\n') all.push_back('\n');
  }
  return all;
}

}  // namespace meld::xt
