// xt-dump: shows what an XT part file holds - the header facts and every node with
// its fields - for people who need to look inside one.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "Codec.h"

namespace xt = meld::xt;

namespace {

constexpr const char* kUsage =
    "usage: xt-dump [--summary] [--schema-dir DIR] FILE\n"
    "  Prints the header facts of an XT part file (text or binary) and its node graph.\n"
    "  --summary         header facts and node counts per type only\n"
    "  --schema-dir DIR  where to look for schema files (named by their key, e.g.\n"
    "                    DIR/SCH_2500123_25001 or DIR/SCH_2500123_25001.sch_txt)\n"
    "exit codes: 0 decoded, 1 the file cannot be decoded, 2 usage or I/O error\n";

class DirectorySchemaSource : public xt::SchemaSource {
 public:
  explicit DirectorySchemaSource(std::filesystem::path dir) : m_dir(std::move(dir)) {}
  std::optional<std::string> find(const std::string& key) override {
    for (const std::string& name : {key, key + ".sch_txt"}) {
      std::ifstream in(m_dir / name, std::ios::binary);
      if (in) return std::string(std::istreambuf_iterator<char>(in), {});
    }
    return std::nullopt;
  }

 private:
  std::filesystem::path m_dir;
};

void printValue(std::ostream& out, const xt::FieldView& f) {
  char type = f.def->type;
  if (type == 'c' && f.ints.size() > 1) {
    out << '"' << f.text() << '"';
    return;
  }
  if (f.isNull() && f.elements() == 1) {
    out << '?';
    return;
  }
  bool many = f.def->nElts != 0 || xt::realsPerElement(type) > 1;
  if (many) out << '[';
  for (size_t i = 0; i < f.ints.size(); ++i) {
    if (i) out << ' ';
    if (type == 'c') out << '\'' << static_cast<char>(f.ints[i]) << '\'';
    else if (type == 'l') out << (f.ints[i] ? 'T' : 'F');
    else if (type == 'p') out << '#' << f.ints[i];
    else out << f.ints[i];
  }
  for (size_t i = 0; i < f.reals.size(); ++i) {
    if (i) out << ' ';
    if (f.reals[i] == xt::kNullReal) out << '?';
    else out << f.reals[i];
  }
  if (many) out << ']';
}

void printHeader(std::ostream& out, const xt::Graph& g) {
  const auto& h = g.header;
  out << "header:        " << (h.present ? "present" : "none") << "\n";
  for (const auto* part : {&h.part1, &h.part2})
    for (const auto& [k, v] : *part) out << "  " << (part == &h.part1 ? "PART1 " : "PART2 ") << k << "=" << v << "\n";
  out << "format:        " << xt::formatName(g.prefix.format)
      << (g.prefix.format == xt::Format::TypedBinary ? (g.prefix.littleEndian ? " (little-endian)" : " (big-endian)") : "")
      << "\nmodeller:      " << g.prefix.modellerVersion << "\nschema key:    " << g.prefix.schemaKey
      << (g.prefix.embeddedSchema ? " (embedded schema, highest node type " + std::to_string(g.prefix.maxNodeType) + ")" : "")
      << "\nuser fields:   " << g.prefix.userFieldSize << "\nnodes:         " << g.size()
      << "\ndangling:      " << g.danglingPointers << " pointer(s) to absent nodes read as null\n";
  if (g.trailingBytes) out << "trailing:      " << g.trailingBytes << " byte(s) after the terminator ignored\n";
}

void printNodes(std::ostream& out, const xt::Graph& g) {
  for (size_t i = 0; i < g.size(); ++i) {
    const auto& node = g.nodes()[i];
    out << "#" << node.index << " " << node.layout->name << " (" << node.type << ")";
    if (node.layout->isVariable()) out << " length " << node.varLength;
    out << "\n";
    for (size_t f = 0; f < node.layout->fields.size(); ++f) {
      auto view = g.field(i, f);
      out << "    " << view.def->name << " = ";
      printValue(out, view);
      out << "\n";
    }
    if (auto user = g.userField(i); !user.empty()) {
      out << "    (user field) =";
      for (int64_t v : user) out << ' ' << v;
      out << "\n";
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  bool summary = false;
  std::optional<DirectorySchemaSource> schemas;
  const char* file = nullptr;
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--summary")) summary = true;
    else if (!std::strcmp(argv[i], "--schema-dir") && i + 1 < argc) schemas.emplace(argv[++i]);
    else if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h")) {
      std::cout << kUsage;
      return 0;
    } else if (argv[i][0] == '-' || file) {
      std::cerr << "xt-dump: unexpected argument '" << argv[i] << "'\n" << kUsage;
      return 2;
    } else file = argv[i];
  }
  if (!file) {
    std::cerr << kUsage;
    return 2;
  }
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    std::cerr << "xt-dump: cannot open " << file << ": " << std::strerror(errno) << "\n";
    return 2;
  }
  std::string bytes((std::istreambuf_iterator<char>(in)), {});
  xt::DecodeOptions options;
  if (schemas) options.schemas = &*schemas;
  try {
    xt::Graph graph = xt::decode(bytes, options);
    std::ostringstream out;
    printHeader(out, graph);
    if (summary) {
      for (const auto& [name, count] : graph.countByType()) out << "  " << name << " " << count << "\n";
    } else {
      printNodes(out, graph);
    }
    std::cout << out.str();
  } catch (const xt::XtError& e) {
    std::cerr << "xt-dump: " << file << ": " << e.what() << "\n";
    return 1;
  }
  return 0;
}
