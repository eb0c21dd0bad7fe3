// Shared pieces of the codec tests: reading the census, building small streams.
#pragma once

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "Codec.h"
#include "TestSupport.h"

namespace xttest {

// "T<len> <version><len> <key>" and, with an embedded key, the highest node type.
inline std::string textPrefix(const std::string& key, int userFieldSize = 0) {
  const std::string version = ": TRANSMIT FILE created by modeller version 1300000";
  std::string out = "T" + std::to_string(version.size()) + " " + version + std::to_string(key.size()) + " " + key;
  if (std::count(key.begin(), key.end(), '_') >= 3) out += "239 ";
  return out + std::to_string(userFieldSize) + " ";
}

// The message a decode fails with; empty when it succeeds.
inline std::string decodeError(std::string_view bytes, const meld::xt::DecodeOptions& options = {}) {
  try {
    meld::xt::decode(bytes, options);
  } catch (const meld::xt::XtError& e) {
    return e.what();
  }
  return {};
}

inline meld::xt::DecodeOptions withSchemas(meld::xt::SchemaSource* schemas) {
  meld::xt::DecodeOptions options;
  options.schemas = schemas;
  return options;
}

inline std::vector<std::string> split(const std::string& line, char sep) {
  std::vector<std::string> parts;
  std::stringstream in(line);
  for (std::string part; std::getline(in, part, sep);) parts.push_back(part);
  if (!line.empty() && line.back() == sep) parts.emplace_back();
  return parts;
}

// Rows of a tab-separated file as column-name -> value maps.
inline std::vector<std::map<std::string, std::string>> readTsv(const std::filesystem::path& path) {
  std::stringstream in(meldtest::readFile(path));
  std::string line;
  std::getline(in, line);
  auto names = split(line, '\t');
  std::vector<std::map<std::string, std::string>> rows;
  while (std::getline(in, line)) {
    if (line.empty()) continue;
    auto cells = split(line, '\t');
    std::map<std::string, std::string> row;
    for (size_t i = 0; i < names.size() && i < cells.size(); ++i) row[names[i]] = cells[i];
    rows.push_back(std::move(row));
  }
  return rows;
}

inline std::filesystem::path referenceDir(const std::filesystem::path& corpus) {
  return corpus.parent_path() / "reference";
}

}  // namespace xttest
