// Where the codec's bytes come from. The kernel adapts these to its frustrum
// (ffread for data, a schema-guise open for schema files); tests and tools use the
// memory and callback versions.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace meld::xt {

// A stream of bytes read in pieces, like the frustrum's read: for text, one line
// (record) per call; for binary, up to nmax bytes per call.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  // Copies up to nmax bytes into buffer; returns the count, 0 at the end. Throws
  // XtError on a read failure.
  virtual size_t read(char* buffer, size_t nmax) = 0;
};

// Serves a memory buffer; in line mode each call returns at most one line
// (with its newline), the way a text-mode frustrum read does.
class MemorySource : public ByteSource {
 public:
  MemorySource(std::string_view bytes, bool lineMode) : m_rest(bytes), m_lineMode(lineMode) {}
  size_t read(char* buffer, size_t nmax) override;

 private:
  std::string_view m_rest;
  bool m_lineMode;
};

// Finds a schema file by its key (e.g. "SCH_2500123_25001"); nothing when absent.
class SchemaSource {
 public:
  virtual ~SchemaSource() = default;
  virtual std::optional<std::string> find(const std::string& key) = 0;
};

// Schema files held in memory, by key.
class MapSchemaSource : public SchemaSource {
 public:
  void add(const std::string& key, std::string text) { m_files[key] = std::move(text); }
  std::optional<std::string> find(const std::string& key) override;

 private:
  std::map<std::string, std::string> m_files;
};

// Reads a whole source, refusing more than maxBytes. In text mode a newline is
// added after every piece that lacks one, since each read is one record.
std::string readAll(ByteSource& source, bool textMode, size_t maxBytes);

}  // namespace meld::xt
