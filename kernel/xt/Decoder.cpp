// Stream -> node graph. One decoder, written once over the text and binary
// adapters: prefix, schema choice, then node after node up to the terminator.
#include <mutex>
#include <new>
#include <stdexcept>

#include "Codec.h"
#include "PartHeader.h"
#include "StreamAdapters.h"

namespace meld::xt {
namespace {

constexpr int kMaxNodeType = 4096;   // codes in use stop below 256; this is a sanity bound
constexpr int kMaxUserFieldSize = 16;

// Built-in layouts are derived once per schema number and shared. Only numbers that
// have built-in layouts are kept: the number comes from the file, and remembering
// every unknown one would let a stream of files grow the cache without bound.
std::shared_ptr<const Schema> cachedBuiltIn(int number) {
  static std::mutex mutex;
  static std::map<int, std::shared_ptr<const Schema>> cache;
  std::lock_guard lock(mutex);
  auto it = cache.find(number);
  if (it != cache.end()) return it->second;
  auto schema = builtInSchema(number);
  if (!schema) return nullptr;
  auto shared = std::make_shared<const Schema>(std::move(*schema));
  cache.emplace(number, shared);
  return shared;
}

// Where the decoder is, for error messages.
struct Position {
  const NodeLayout* layout = nullptr;
  int64_t type = 0;
  int64_t index = -1;
  const FieldDef* field = nullptr;
  const char* stage = "stream prefix";
};

template <class In>
class StreamDecoder {
 public:
  StreamDecoder(In in, Graph& graph, const DecodeOptions& options)
      : m_in(std::move(in)), m_graph(graph), m_options(options), m_layouts(kMaxNodeType) {}

  void run() {
    try {
      readPrefix();
      chooseSchema();
      m_pos.stage = "node";
      while (readNode()) {
      }
      m_graph.trailingBytes = m_in.remaining();
    } catch (const XtError& e) {
      throw XtError(describe(e.what()));
    }
    m_graph.danglingPointers = m_graph.resolvePointers();
  }

 private:
  std::string describe(const std::string& reason) const {
    std::string where;
    if (m_pos.layout || m_pos.type) {
      where = m_pos.layout ? m_pos.layout->name : "node type " + std::to_string(m_pos.type);
      where += m_pos.index >= 0 ? " node " + std::to_string(m_pos.index) : " node (index not yet read)";
      where += m_pos.field ? ", field " + m_pos.field->name : "";
    } else {
      where = m_pos.stage;
    }
    return "cannot decode XT data: " + where + ", byte " + std::to_string(m_in.fileOffset()) + ": " +
           reason;
  }

  std::string readCountedString(int64_t length, const char* what) {
    if (length < 0 || length > 1024) throw XtError(std::string("bad length ") + std::to_string(length) + " of the " + what);
    return m_in.in.rawChars(static_cast<size_t>(length));
  }

  void readPrefix() {
    StreamPrefix& p = m_graph.prefix;
    if constexpr (In::kText) {
      m_in.in.rawChars(1);  // the 'T' flag, checked by the caller
      p.modellerVersion = readCountedString(m_in.in.integer(), "modeller version");
      p.schemaKey = readCountedString(m_in.in.integer(), "schema key");
    } else {
      p.modellerVersion = readCountedString(m_in.in.i16(), "modeller version");
      p.schemaKey = readCountedString(m_in.in.i32(), "schema key");
    }
    p.key = SchemaKey::parse(p.schemaKey);  // nothing else reaches a schema lookup
    p.embeddedSchema = p.key.base.has_value();
    if (p.embeddedSchema) p.maxNodeType = static_cast<int>(m_in.shortValue());
    int64_t usfld = m_in.varLength();  // an int, written like a variable length
    if (usfld < 0 || usfld > kMaxUserFieldSize)
      throw XtError("user field size " + std::to_string(usfld) + " is outside 0-16");
    p.userFieldSize = static_cast<int>(usfld);
  }

  void chooseSchema() {
    const StreamPrefix& p = m_graph.prefix;
    if (p.embeddedSchema) {
      if (*p.key.base != 13006)
        throw XtError("embedded schema against base " + p.schemaKey + ": only base 13006 is known");
      return;  // every type describes itself on first use
    }
    if (auto builtIn = cachedBuiltIn(p.key.number)) {
      m_fixed = builtIn;
      return;
    }
    const std::string& key = p.key.name;
    std::optional<std::string> text = m_options.schemas ? m_options.schemas->find(key) : std::nullopt;
    if (!text)
      throw XtError("schema " + key + " is not built in, not embedded, and no schema file was found for it");
    m_fixed = std::make_shared<const Schema>(parseSchemaFile(*text, key));
  }

  const NodeLayout& layoutFor(int64_t type) {
    if (type <= 1 || type >= kMaxNodeType) throw XtError("bad node type " + std::to_string(type));
    if (const NodeLayout* known = m_layouts[type]) return *known;
    LayoutPtr layout;
    if (m_graph.prefix.embeddedSchema) {
      m_pos.stage = "embedded schema";
      layout = readDescription(static_cast<int>(type));
    } else {
      layout = m_fixed->get(static_cast<int>(type));
      if (!layout)
        throw XtError("node type " + std::to_string(type) + " is not in schema " + m_graph.prefix.schemaKey);
    }
    m_graph.adopt(layout);
    m_layouts[type] = layout.get();
    return *layout;
  }

  FieldDef readFieldDescription() {
    FieldDef f;
    f.name = m_in.shortString();
    f.ptrClass = static_cast<int>(m_in.shortValue());
    int64_t n = m_in.positive();
    if (n < 0 || n > kMaxFieldElements) throw XtError("bad element count " + std::to_string(n) + " for field " + f.name);
    f.nElts = static_cast<int>(n);
    if (f.ptrClass != 0) {
      f.type = 'p';
    } else {
      std::string type = m_in.shortString();
      if (type.size() != 1 || !(isIntegerType(type[0]) || isRealType(type[0])))
        throw XtError("unknown field type '" + type + "' for field " + f.name);
      f.type = type[0];
    }
    f.transmit = f.nElts == 1 ? m_in.logical() : true;
    return f;
  }

  LayoutPtr readDescription(int type) {
    int64_t count = m_in.countByte();
    LayoutPtr base = baseSchema().get(type);
    bool baseHasType = base && base->inBase;
    if (count == 255) {
      if (!baseHasType) throw XtError("type marked as unchanged from base 13006, which lacks it");
      return base;
    }
    if (count < 0 || count > 255) throw XtError("bad field count " + std::to_string(count));
    bool script = In::kText ? m_in.nextIsLetter() : baseHasType;
    auto layout = std::make_shared<NodeLayout>();
    layout->code = type;
    layout->pkVisible = base && base->pkVisible;
    if (script) {
      if (!baseHasType) throw XtError("edit script for a type that base 13006 lacks");
      layout->name = base->name;
      layout->inBase = true;
      applyScript(*base, *layout);
    } else {
      layout->name = m_in.shortString();
      layout->description = m_in.shortString();
      for (int64_t i = 0; i < count; ++i) layout->fields.push_back(readFieldDescription());
    }
    if (static_cast<int64_t>(layout->fields.size()) != count)
      throw XtError("description gives " + std::to_string(layout->fields.size()) + " fields, its count says " +
                    std::to_string(count));
    validateLayout(*layout);
    return layout;
  }

  void applyScript(const NodeLayout& base, NodeLayout& out) {
    size_t next = 0;
    for (;;) {
      char op = m_in.letter();
      if (op == 'Z') return;
      if (out.fields.size() > 255) throw XtError("edit script longer than 255 fields");
      if (op == 'C' || op == 'D') {
        if (next >= base.fields.size()) throw XtError(std::string("edit '") + op + "' past the last base field");
        if (op == 'C') out.fields.push_back(base.fields[next]);
        ++next;
      } else if (op == 'I' || op == 'A') {
        out.fields.push_back(readFieldDescription());
      } else {
        throw XtError(std::string("unknown edit instruction '") + op + "'");
      }
    }
  }

  // Caps every allocation by what the rest of the input could possibly hold.
  void checkRoom(size_t elements, char type) {
    if (elements > In::maxElements(type, m_in.remaining())) refuseRoom(elements);
  }
  [[noreturn]] [[gnu::noinline]] void refuseRoom(size_t elements) const {
    throw XtError(std::to_string(elements) + " elements cannot fit in the " + std::to_string(m_in.remaining()) +
                  " bytes left");
  }

  void readField(const FieldDef& f, uint32_t varLength) {
    m_pos.field = &f;
    size_t elements = f.isVariable() ? varLength : static_cast<size_t>(f.elements());
    if (!f.transmit) elements = 0;
    int per = realsPerElement(f.type);
    checkRoom(elements, f.type);
    if (per == 0) {
      m_in.ints(f.type, m_graph.addIntField(elements), elements);
    } else {
      m_in.reals(f.type, m_graph.addRealField(elements * per), elements, per);
    }
  }

  // Returns false at the terminator.
  bool readNode() {
    m_pos = Position{};
    m_pos.type = m_in.nodeType();
    if (m_pos.type == 1) {
      int64_t index = m_in.index();
      if (index != 0) throw XtError("terminator (type 1) with index " + std::to_string(index) + " instead of 0");
      return false;
    }
    const NodeLayout& layout = layoutFor(m_pos.type);
    m_pos.layout = &layout;
    int64_t varLength = 0;
    if (layout.isVariable()) {
      varLength = m_in.varLength();
      if (static_cast<uint64_t>(varLength) > UINT32_MAX) [[unlikely]]  // a node keeps it in 32 bits
        throw XtError((varLength < 0 ? "negative variable length " : "variable length above 2^32-1: ") +
                      std::to_string(varLength));
      // Its room is checked in readField, with the bytes left there, before the
      // values are allocated; nothing is allocated by the length before that.
    }
    m_pos.index = m_in.index();
    if (m_pos.index <= 0) throw XtError("bad node index " + std::to_string(m_pos.index));
    m_graph.beginNode(layout, m_pos.index, static_cast<uint32_t>(varLength));
    for (const FieldDef& f : layout.fields) readField(f, static_cast<uint32_t>(varLength));
    m_pos.field = nullptr;
    if (int usfld = m_graph.prefix.userFieldSize; usfld > 0 && layout.pkVisible) {
      checkRoom(static_cast<size_t>(usfld), 'd');
      m_in.ints('d', m_graph.addUserField(static_cast<size_t>(usfld)), static_cast<size_t>(usfld));
    }
    return true;
  }

  In m_in;
  Graph& m_graph;
  const DecodeOptions& m_options;
  std::shared_ptr<const Schema> m_fixed;
  std::vector<const NodeLayout*> m_layouts;  // by node type, filled on first use
  Position m_pos;
};

Graph decodeStream(std::string_view data, size_t offset, PartHeader header, const DecodeOptions& options) {
  Graph graph;
  graph.header = std::move(header);
  if (data.empty()) throw XtError("cannot decode XT data: no data after the header");
  // Room for the densest files of the corpus, so that the pools do not move while
  // they fill: text down to 52 bytes a node, 8 a pointer, 16 a real; binary down to
  // 33 bytes a node, 5 a pointer, 8 a real. Capacity is reserved, not filled.
  if (data[0] == 'T')
    graph.reserve(data.size() / 32, data.size() / 5, data.size() / 12);
  else
    graph.reserve(data.size() / 20, data.size() / 3, data.size() / 8);
  if (data[0] == 'T') {
    graph.prefix.format = Format::Text;
    StreamDecoder<TextAdapter>(TextAdapter{TextIn(data, offset)}, graph, options).run();
    return graph;
  }
  if (data.size() >= 4 && data.substr(0, 2) == "PS" && data[2] == 0 && (data[3] == 0 || data[3] == 1)) {
    bool typed = data[3] == 1;
    size_t flagBytes = typed ? 7 : 4;
    bool little = false;
    if (typed) {
      if (data.size() < 7) throw XtError("cannot decode XT data: typed-binary flags are truncated");
      if (data[5] != 0) throw XtError("cannot decode XT data: typed binary with VAX D-float reals is not supported");
      if (data[6] != 0) throw XtError("cannot decode XT data: typed binary with EBCDIC characters is not supported");
      little = data[4] == 1;
    }
    graph.prefix.format = typed ? Format::TypedBinary : Format::NeutralBinary;
    graph.prefix.littleEndian = little;
    StreamDecoder<BinaryAdapter>(BinaryAdapter{BinaryIn(data.substr(flagBytes), offset + flagBytes, little)}, graph,
                                 options)
        .run();
    return graph;
  }
  if (data[0] == 'B')
    throw XtError("cannot decode XT data: bare binary is written in the writing machine's own layout, "
                  "which the file does not record; it cannot be read safely");
  throw XtError("cannot decode XT data: byte " + std::to_string(offset) +
                ": unknown format flag (expected 'T', \"PS\" or 'B')");
}

// Running out of memory on a large input is a refusal of that input like any other.
[[noreturn]] void refuseTooLarge(size_t bytes) {
  throw XtError("cannot decode XT data: input too large: out of memory" +
                (bytes ? " decoding " + std::to_string(bytes) + " bytes" : std::string(" reading it")));
}

}  // namespace

Graph decode(std::string_view bytes, const DecodeOptions& options) {
  if (bytes.size() > options.maxInputBytes) throw XtError("cannot decode XT data: input larger than the limit");
  try {
    PartHeader header;
    size_t start = parsePartHeader(bytes, header);
    return decodeStream(bytes.substr(start), start, std::move(header), options);
  } catch (const std::bad_alloc&) {
    refuseTooLarge(bytes.size());
  } catch (const std::length_error&) {
    refuseTooLarge(bytes.size());
  }
}

Graph decode(ByteSource& source, bool textMode, const DecodeOptions& options) {
  std::string all;
  try {
    all = readAll(source, textMode, options.maxInputBytes);
  } catch (const std::bad_alloc&) {
    refuseTooLarge(0);
  } catch (const std::length_error&) {
    refuseTooLarge(0);
  }
  return decode(all, options);
}

}  // namespace meld::xt
