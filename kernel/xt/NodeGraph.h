// The generic node graph: what an XT stream holds, node by node, with typed field
// values, independent of text or binary encoding. Values live in two pools owned by
// the graph (integers and doubles); a node refers to a run of field slots.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Schema.h"

namespace meld::xt {

// The kernel's null values; text writes both as '?'.
inline constexpr int64_t kNullInt = -32764;
inline constexpr double kNullReal = -3.14158e13;

// A compound value (interval, vector, box, hvec) with any null component is null
// as a whole: that is how the format writes it, so the graph keeps it that way.
inline void nullWhole(double* values, int count) {
  for (int i = 0; i < count; ++i)
    if (values[i] == kNullReal) {
      for (int j = 0; j < count; ++j) values[j] = kNullReal;
      return;
    }
}

enum class Format { Text, NeutralBinary, TypedBinary };
const char* formatName(Format format);

// The part-file header in front of the stream (`**ABC...` to `**END_OF_HEADER`).
struct PartHeader {
  bool present = false;
  std::vector<std::pair<std::string, std::string>> part1, part2, part3;
  std::string value(const std::string& key) const;  // first match in part 1, 2, then 3
};

// What the stream says about itself before the first node.
struct StreamPrefix {
  Format format = Format::Text;
  bool littleEndian = false;        // typed binary only
  std::string modellerVersion;      // ": TRANSMIT FILE created by modeller version 3701243"
  std::string schemaKey;            // "SCH_3701243_37102_13006", as the file writes it
  SchemaKey key;                    // the same, parsed (the decoder refuses any other shape)
  bool embeddedSchema = false;      // key has the base-schema suffix
  int maxNodeType = 0;              // only with an embedded schema
  int userFieldSize = 0;            // ints after every PK-visible node
};

struct FieldView {
  const FieldDef* def = nullptr;
  std::span<const int64_t> ints;   // integer-like types (u c l n w d p), one per element
  std::span<const double> reals;   // real types, realsPerElement() doubles per element

  int64_t integer(size_t i = 0) const { return ints[i]; }
  double real(size_t i = 0) const { return reals[i]; }
  size_t elements() const;
  std::string text() const;  // a char array as a string
  bool isNull() const;       // scalar null int/real, or a compound with a null component
};

class Graph {
 public:
  struct Node {
    int type = 0;
    int64_t index = 0;
    const NodeLayout* layout = nullptr;
    uint32_t firstSlot = 0;
    uint32_t varLength = 0;  // element count of the variable field
    bool hasUserField = false;
  };

  PartHeader header;
  StreamPrefix prefix;
  int danglingPointers = 0;  // pointers that named absent nodes, now null
  size_t trailingBytes = 0;  // data after the terminator (ignored)

  const std::vector<Node>& nodes() const { return m_nodes; }
  size_t size() const { return m_nodes.size(); }
  FieldView field(size_t node, size_t fieldNo) const;
  FieldView field(size_t node, std::string_view name) const;  // def null when absent
  std::span<const int64_t> userField(size_t node) const;
  // Position of the node with this index, or -1.
  long find(int64_t index) const {
    auto at = static_cast<uint64_t>(index);  // a negative index wraps past the table
    if (at < m_denseIndex.size() && m_denseIndex[at] != 0) return static_cast<long>(m_denseIndex[at] - 1);
    return findSparse(index);
  }
  std::map<std::string, int> countByType() const;

  // ---- building (used by the decoders and by whoever makes a graph to write) ----
  // Keeps the layout alive for as long as the graph.
  void adopt(LayoutPtr layout);
  // Starts a node; fields are then added in layout order. Throws on a duplicate index.
  void beginNode(const NodeLayout& layout, int64_t index, uint32_t varLength);
  // Inline: the decoders add every field through these.
  // Throw XtError when a pool would pass kMaxPoolValues.
  int64_t* addIntField(size_t count) {
    size_t begin = m_intsUsed;
    int64_t* values = takeFromPool(m_ints, m_intsUsed, count);
    m_slots.push_back(Slot{static_cast<uint32_t>(begin), static_cast<uint32_t>(count)});
    return values;
  }
  double* addRealField(size_t doubles) {
    size_t begin = m_realsUsed;
    double* values = takeFromPool(m_reals, m_realsUsed, doubles);
    m_slots.push_back(Slot{static_cast<uint32_t>(begin), static_cast<uint32_t>(doubles)});
    return values;
  }
  // Slots hold 32-bit offsets and counts: no pool holds more values than this.
  static constexpr size_t kMaxPoolValues = UINT32_MAX;
  int64_t* addUserField(size_t count);
  // Nulls pointers to absent nodes; returns how many.
  int resolvePointers();
  void reserve(size_t nodes, size_t ints, size_t reals);

 private:
  struct Slot {
    uint32_t begin;
    uint32_t count;
  };
  std::vector<Node> m_nodes;
  std::vector<Slot> m_slots;
  // The value pools are zero-filled ahead of use in large steps, and only their first
  // m_intsUsed / m_realsUsed values are taken: adding a field is then a bump, not a
  // vector resize per field.
  std::vector<int64_t> m_ints;
  std::vector<double> m_reals;
  size_t m_intsUsed = 0;
  size_t m_realsUsed = 0;
  [[noreturn]] [[gnu::noinline]] static void refusePool(size_t used, size_t count);
  // `count` zeroed values from a pool whose first `used` are taken. A pool never
  // grows past kMaxPoolValues, so a take that fits the pool fits the limit: the
  // limit is checked only when the pool grows.
  template <class T>
  static T* takeFromPool(std::vector<T>& pool, size_t& used, size_t count) {
    if (count > pool.size() - used) {
      if (count > kMaxPoolValues - used) [[unlikely]] refusePool(used, count);
      pool.resize(std::min(kMaxPoolValues, used + std::max(count, pool.size() / 2 + 1024)));
    }
    T* values = pool.data() + used;
    used += count;
    return values;
  }
  // Node position + 1 by index (0: none) for indices below a bound that grows with
  // the node count: real files number their nodes nearly densely, and a table
  // answers without a hash or an allocation per node. Other indices (hostile or
  // hand-made graphs) go to the map, so memory stays proportional to the nodes.
  std::vector<uint32_t> m_denseIndex;
  std::unordered_map<int64_t, uint32_t> m_sparseIndex;
  bool addIndex(int64_t index, uint32_t position);
  long findSparse(int64_t index) const;
  std::vector<LayoutPtr> m_layouts;
};

// Compares nodes (order, type, index, field definitions and values). On a
// difference returns false and describes the first one in *why.
bool sameGraph(const Graph& a, const Graph& b, std::string* why = nullptr);

}  // namespace meld::xt
