// Node graph -> stream. Every node is written in its own layout; each node type is
// described against the base schema on first use (unchanged, edit script, or a
// full description for types the base lacks), so any reader that understands
// embedded schemas can read the result whatever layouts the graph holds.
#include <algorithm>
#include <cmath>
#include <set>

#include "Codec.h"
#include "PartHeader.h"
#include "StreamAdapters.h"

namespace meld::xt {
namespace {

constexpr int kUnchanged = 255;

struct TextSink {
  TextOut out;
  static constexpr bool kText = true;
  void count(int v) { out.integer(v); }
  void shortValue(int v) { out.integer(v); }
  void positive(int64_t v) { out.integer(v); }
  void letter(char c) { out.raw(std::string_view(&c, 1)); }
  void logical(bool v) { out.logical(v); }
  void shortString(std::string_view s) { out.shortString(s); }
  void nodeType(int v) { out.integer(v); }
  void varLength(int64_t v) { out.integer(v); }
  void index(int64_t v) { out.integer(v); }
  void ints(char type, const int64_t* v, size_t n) {
    if (type == 'c') return out.chars(v, n);
    for (size_t i = 0; i < n; ++i) type == 'l' ? out.logical(v[i] != 0) : out.integer(v[i]);
  }
  void reals(char type, const double* v, size_t doubles, int per) {
    if (type == 'f') {
      for (size_t i = 0; i < doubles; ++i) out.real(v[i]);
      return;
    }
    for (size_t i = 0; i < doubles; i += static_cast<size_t>(per)) out.reals(v + i, per);
  }
};

struct BinarySink {
  BinaryOut out;
  bool typed = false;  // typed binary: flags with the byte order, values in it
  static constexpr bool kText = false;
  void count(int v) { out.byte(static_cast<uint8_t>(v)); }
  void shortValue(int v) { out.i16(static_cast<int16_t>(checked(v, -32768, 32767))); }
  void positive(int64_t v) { out.pointer(v); }
  void letter(char c) { out.byte(static_cast<uint8_t>(c)); }
  void logical(bool v) { out.byte(v ? 1 : 0); }
  void shortString(std::string_view s) { out.shortString(s); }
  void nodeType(int v) { shortValue(v); }
  void varLength(int64_t v) { out.i32(static_cast<int32_t>(checked(v, 0, INT32_MAX))); }
  void index(int64_t v) { out.pointer(v); }

  static int64_t checked(int64_t v, int64_t low, int64_t high) {
    if (v < low || v > high)
      throw XtError("value " + std::to_string(v) + " does not fit its binary field");
    return v;
  }
  void ints(char type, const int64_t* v, size_t n) {
    for (size_t i = 0; i < n; ++i) {
      switch (type) {
        case 'u': case 'l': out.byte(static_cast<uint8_t>(checked(v[i], 0, 255))); break;
        case 'c': out.byte(static_cast<uint8_t>(checked(v[i], -128, 255))); break;
        case 'n': out.i16(static_cast<int16_t>(checked(v[i], -32768, 32767))); break;
        case 'w': out.i16(static_cast<int16_t>(checked(v[i], -32768, 65535))); break;
        case 'd': out.i32(static_cast<int32_t>(checked(v[i], INT32_MIN, INT32_MAX))); break;
        case 'p': out.pointer(v[i]); break;
        default: throw XtError(std::string("unknown field type '") + type + "'");
      }
    }
  }
  void reals(char, const double* v, size_t doubles, int) {
    for (size_t i = 0; i < doubles; ++i) {
      if (!std::isfinite(v[i])) throw XtError("cannot write a real that is not finite");
      out.f64(v[i]);
    }
  }
};

template <class Sink>
class StreamEncoder {
 public:
  explicit StreamEncoder(const Graph& graph, Sink sink = Sink()) : m_graph(graph), m_sink(std::move(sink)) {}

  Sink& run() {
    writePrefix();
    for (size_t i = 0; i < m_graph.size(); ++i) {
      const auto& node = m_graph.nodes()[i];
      try {
        writeNode(i);
      } catch (const XtError& e) {
        throw XtError("cannot encode " + node.layout->name + " node " + std::to_string(node.index) + ": " + e.what());
      }
    }
    m_sink.nodeType(1);
    m_sink.index(0);
    return m_sink;
  }

 private:
  void writePrefix() {
    const std::string version = std::string(": TRANSMIT FILE created by modeller version ") + kWriterVersion;
    const std::string key = std::string(kWriterSchemaKey) + "_13006";
    int maxType = baseSchema().all().rbegin()->first;
    for (const auto& node : m_graph.nodes()) maxType = std::max(maxType, node.type);
    if constexpr (Sink::kText) {
      m_sink.out.raw("T");
      m_sink.out.shortString(version);
      m_sink.out.shortString(key);
    } else {
      if (m_sink.typed) {
        // Byte order as declared, IEEE reals, ASCII characters.
        const char flags[7] = {'P', 'S', 0, 1, m_sink.out.littleEndian() ? char(1) : char(0), 0, 0};
        m_sink.out.raw(std::string_view(flags, 7));
      } else {
        m_sink.out.raw(std::string_view("PS\0\0", 4));
      }
      m_sink.out.i16(static_cast<int16_t>(version.size()));
      m_sink.out.raw(version);
      m_sink.out.i32(static_cast<int32_t>(key.size()));
      m_sink.out.raw(key);
    }
    m_sink.shortValue(maxType);
    m_sink.varLength(m_graph.prefix.userFieldSize);
  }

  void writeField(const FieldDef& f) {
    m_sink.shortString(f.name);
    m_sink.shortValue(f.ptrClass);
    m_sink.positive(f.nElts);
    if (f.ptrClass == 0) m_sink.shortString(std::string_view(&f.type, 1));
    if (f.nElts == 1) m_sink.logical(f.transmit);
  }

  // The reference's edit rule: copy when the fields match, delete a base field that
  // matches no remaining current field, otherwise insert; append what is left.
  void writeScript(const NodeLayout& base, const NodeLayout& current) {
    const auto& b = base.fields;
    const auto& c = current.fields;
    size_t bi = 0, ci = 0;
    while (bi < b.size() && ci < c.size()) {
      if (b[bi] == c[ci]) {
        m_sink.letter('C');
        ++bi, ++ci;
      } else if (std::find(c.begin() + static_cast<long>(ci), c.end(), b[bi]) == c.end()) {
        m_sink.letter('D');
        ++bi;
      } else {
        m_sink.letter('I');
        writeField(c[ci++]);
      }
    }
    for (; ci < c.size(); ++ci) {
      m_sink.letter('A');
      writeField(c[ci]);
    }
    m_sink.letter('Z');
  }

  void describe(const NodeLayout& layout) {
    if (layout.fields.size() > 254) throw XtError("more than 254 fields cannot be described");
    LayoutPtr base = baseSchema().get(layout.code);
    if (base && base->inBase && base->sameFields(layout)) return m_sink.count(kUnchanged);
    m_sink.count(static_cast<int>(layout.fields.size()));
    if (base && base->inBase) return writeScript(*base, layout);
    m_sink.shortString(layout.name);
    m_sink.shortString(layout.description.empty() ? layout.name : layout.description);
    for (const FieldDef& f : layout.fields) writeField(f);
  }

  void writeNode(size_t i) {
    const auto& node = m_graph.nodes()[i];
    const NodeLayout& layout = *node.layout;
    m_sink.nodeType(node.type);
    auto [it, first] = m_described.emplace(node.type, &layout);
    if (first) describe(layout);
    else if (!it->second->sameFields(layout)) throw XtError("two different layouts for one node type");
    if (layout.isVariable()) m_sink.varLength(node.varLength);
    m_sink.index(node.index);
    for (size_t f = 0; f < layout.fields.size(); ++f) {
      FieldView v = m_graph.field(i, f);
      if (isIntegerType(v.def->type)) m_sink.ints(v.def->type, v.ints.data(), v.ints.size());
      else m_sink.reals(v.def->type, v.reals.data(), v.reals.size(), realsPerElement(v.def->type));
    }
    auto user = m_graph.userField(i);
    if (m_graph.prefix.userFieldSize > 0 && layout.pkVisible) {
      if (user.size() != static_cast<size_t>(m_graph.prefix.userFieldSize))
        throw XtError("user field has " + std::to_string(user.size()) + " ints, the graph says " +
                      std::to_string(m_graph.prefix.userFieldSize));
      m_sink.ints('d', user.data(), user.size());
    }
  }

  const Graph& m_graph;
  Sink m_sink;
  std::map<int, const NodeLayout*> m_described;
};

PartHeader headerFor(const Graph& graph, const EncodeOptions& options) {
  PartHeader header;
  header.part1 = options.part1;
  header.part1.emplace_back("FORMAT", options.format == Format::Text ? "text" : "binary");
  header.part1.emplace_back("GUISE", "transmit");
  header.part2 = {{"SCH", kWriterSchemaKey}, {"USFLD_SIZE", std::to_string(graph.prefix.userFieldSize)}};
  return header;
}

}  // namespace

std::string encode(const Graph& graph, const EncodeOptions& options) {
  std::string out = options.withHeader ? writePartHeader(headerFor(graph, options)) : std::string();
  switch (options.format) {
    case Format::Text:
      out += StreamEncoder<TextSink>(graph).run().out.records();
      break;
    case Format::NeutralBinary:
      out += StreamEncoder<BinarySink>(graph).run().out.bytes();
      break;
    case Format::TypedBinary: {
      BinarySink sink{BinaryOut(options.littleEndian), true};
      out += StreamEncoder<BinarySink>(graph, std::move(sink)).run().out.bytes();
      break;
    }
  }
  return out;
}

}  // namespace meld::xt
