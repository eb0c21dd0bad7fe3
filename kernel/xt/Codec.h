// The XT codec's entry points: bytes -> node graph and node graph -> bytes.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "NodeGraph.h"
#include "Sources.h"
#include "XtError.h"

namespace meld::xt {

struct DecodeOptions {
  // Asked for a schema file when the stream's schema is neither built in nor embedded.
  SchemaSource* schemas = nullptr;
  size_t maxInputBytes = size_t(1) << 31;
};

// Decodes a stream (text, neutral or typed binary), with or without the part-file
// header in front. Throws XtError with a one-line reason on anything it cannot read.
Graph decode(std::string_view bytes, const DecodeOptions& options = {});

// Same, pulling the bytes from a source; in text mode each read is one record.
Graph decode(ByteSource& source, bool textMode, const DecodeOptions& options = {});

// The writer's identification: the modeller version and schema every file is
// written under, with every node type described against the base schema.
inline constexpr const char* kWriterVersion = "3400000";
inline constexpr const char* kWriterSchemaKey = "SCH_3400000_34000";

struct EncodeOptions {
  Format format = Format::Text;  // text, neutral binary or typed binary
  bool littleEndian = false;     // typed binary only: the byte order
  bool withHeader = true;        // the part-file header in front
  std::vector<std::pair<std::string, std::string>> part1;  // writer facts for PART1
};

// Encodes every node of the graph in its own layout. Throws XtError when a value
// cannot be represented (e.g. out of range for a binary field).
std::string encode(const Graph& graph, const EncodeOptions& options = {});

}  // namespace meld::xt
