#include "NodeGraph.h"

#include <algorithm>
#include <cstring>

#include "XtError.h"

namespace meld::xt {

const char* formatName(Format format) {
  switch (format) {
    case Format::Text: return "text";
    case Format::NeutralBinary: return "neutral binary";
    case Format::TypedBinary: return "typed binary";
  }
  return "?";
}

std::string PartHeader::value(const std::string& key) const {
  for (const auto* part : {&part1, &part2, &part3})
    for (const auto& [k, v] : *part)
      if (k == key) return v;
  return {};
}

size_t FieldView::elements() const {
  if (!def) return 0;
  if (isIntegerType(def->type)) return ints.size();
  return reals.size() / static_cast<size_t>(realsPerElement(def->type));
}

std::string FieldView::text() const {
  std::string out;
  out.reserve(ints.size());
  for (int64_t c : ints) out.push_back(static_cast<char>(c));
  return out;
}

bool FieldView::isNull() const {
  for (int64_t v : ints)
    if (v == kNullInt) return true;
  for (double v : reals)
    if (v == kNullReal) return true;
  return false;
}

FieldView Graph::field(size_t node, size_t fieldNo) const {
  const Node& n = m_nodes.at(node);
  const Slot& slot = m_slots.at(n.firstSlot + fieldNo);
  FieldView view;
  view.def = &n.layout->fields.at(fieldNo);
  if (isIntegerType(view.def->type))
    view.ints = std::span<const int64_t>(m_ints.data() + slot.begin, slot.count);
  else
    view.reals = std::span<const double>(m_reals.data() + slot.begin, slot.count);
  return view;
}

FieldView Graph::field(size_t node, std::string_view name) const {
  int at = m_nodes.at(node).layout->find(name);
  return at < 0 ? FieldView{} : field(node, static_cast<size_t>(at));
}

std::span<const int64_t> Graph::userField(size_t node) const {
  const Node& n = m_nodes.at(node);
  if (!n.hasUserField) return {};
  const Slot& slot = m_slots.at(n.firstSlot + n.layout->fields.size());
  return {m_ints.data() + slot.begin, slot.count};
}

long Graph::findSparse(int64_t index) const {
  if (m_sparseIndex.empty()) return -1;
  auto it = m_sparseIndex.find(index);
  return it == m_sparseIndex.end() ? -1 : static_cast<long>(it->second);
}

bool Graph::addIndex(int64_t index, uint32_t position) {
  size_t bound = 4 * m_nodes.size() + 4096;
  if (index < 0 || static_cast<uint64_t>(index) >= bound) return m_sparseIndex.emplace(index, position).second;
  // The bound grows, so an index taken by the map earlier may now be in table range.
  if (!m_sparseIndex.empty() && m_sparseIndex.count(index)) return false;
  auto at = static_cast<size_t>(index);
  if (at >= m_denseIndex.size()) m_denseIndex.resize(std::min(bound, std::max(at + 1, 2 * m_denseIndex.size())));
  if (m_denseIndex[at]) return false;
  m_denseIndex[at] = position + 1;
  return true;
}

std::map<std::string, int> Graph::countByType() const {
  std::map<std::string, int> counts;
  for (const Node& n : m_nodes) ++counts[n.layout->name];
  return counts;
}

void Graph::adopt(LayoutPtr layout) { m_layouts.push_back(std::move(layout)); }

void Graph::reserve(size_t nodes, size_t ints, size_t reals) {
  m_nodes.reserve(nodes);
  m_slots.reserve(nodes * 8);
  m_ints.reserve(ints);
  m_reals.reserve(reals);
  m_denseIndex.reserve(nodes + 1);
}

void Graph::refusePool(size_t used, size_t count) {
  throw XtError("input too large: " + std::to_string(count) + " more values after " + std::to_string(used) +
                " would pass the graph's limit of " + std::to_string(kMaxPoolValues) + " per kind");
}

void Graph::beginNode(const NodeLayout& layout, int64_t index, uint32_t varLength) {
  // Nodes and their field slots are numbered in 32 bits too (fields, and the user field).
  if (m_slots.size() + layout.fields.size() + 1 > UINT32_MAX || m_nodes.size() >= UINT32_MAX - 1) [[unlikely]]
    throw XtError("input too large: more nodes or fields than the graph can number");
  if (!addIndex(index, static_cast<uint32_t>(m_nodes.size())))
    throw XtError("duplicate node index " + std::to_string(index));
  m_nodes.push_back(Node{layout.code, index, &layout, static_cast<uint32_t>(m_slots.size()),
                         varLength, false});
}

int64_t* Graph::addUserField(size_t count) {
  m_nodes.back().hasUserField = true;
  return addIntField(count);
}

int Graph::resolvePointers() {
  int dangling = 0;
  for (const Node& n : m_nodes) {
    for (size_t f = 0; f < n.layout->fields.size(); ++f) {
      if (n.layout->fields[f].type != 'p') continue;
      const Slot& slot = m_slots[n.firstSlot + f];
      for (uint32_t i = 0; i < slot.count; ++i) {
        int64_t& target = m_ints[slot.begin + i];
        if (target != 0 && find(target) < 0) {
          target = 0;
          ++dangling;
        }
      }
    }
  }
  return dangling;
}

static std::string nodeName(const Graph::Node& n) {
  return n.layout->name + " " + std::to_string(n.index);
}

bool sameGraph(const Graph& a, const Graph& b, std::string* why) {
  auto fail = [&](const std::string& text) {
    if (why) *why = text;
    return false;
  };
  if (a.size() != b.size())
    return fail("node counts differ: " + std::to_string(a.size()) + " vs " + std::to_string(b.size()));
  for (size_t i = 0; i < a.size(); ++i) {
    const auto& na = a.nodes()[i];
    const auto& nb = b.nodes()[i];
    if (na.type != nb.type || na.index != nb.index)
      return fail("node " + std::to_string(i) + ": " + nodeName(na) + " vs " + nodeName(nb));
    if (!na.layout->sameFields(*nb.layout)) return fail(nodeName(na) + ": layouts differ");
    for (size_t f = 0; f < na.layout->fields.size(); ++f) {
      FieldView fa = a.field(i, f), fb = b.field(i, f);
      bool same = std::equal(fa.ints.begin(), fa.ints.end(), fb.ints.begin(), fb.ints.end()) &&
                  std::equal(fa.reals.begin(), fa.reals.end(), fb.reals.begin(), fb.reals.end());
      if (!same) return fail(nodeName(na) + " field " + fa.def->name + ": values differ");
    }
    auto ua = a.userField(i), ub = b.userField(i);
    if (!std::equal(ua.begin(), ua.end(), ub.begin(), ub.end()))
      return fail(nodeName(na) + ": user fields differ");
  }
  return true;
}

}  // namespace meld::xt
