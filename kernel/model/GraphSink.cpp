#include "GraphSink.h"

#include "ModelError.h"

#include <algorithm>

namespace meld::model {
namespace {

// The layouts of the kernel version the encoder identifies itself with.
constexpr int kLayouts = 34001;

[[noreturn]] void refuse(const xt::NodeLayout& layout, std::string_view field) {
  throw ModelError(PK_ERROR_transmit_failed,
                   "internal: cannot write field " + std::string(field) + " of a " + layout.name + " node");
}

const FieldValue* findValue(const std::vector<std::pair<std::string, FieldValue>>& fields, std::string_view name) {
  for (const auto& [key, value] : fields)
    if (key == name) return &value;
  return nullptr;
}

void writeInts(xt::Graph& graph, const xt::NodeLayout& layout, const xt::FieldDef& field, const FieldValue* value) {
  const size_t n = static_cast<size_t>(field.elements());
  int64_t* out = graph.addIntField(n);
  std::fill(out, out + n, 0);
  if (!value) return;
  if (auto* v = std::get_if<int64_t>(value)) *out = *v;
  else if (auto* list = std::get_if<std::vector<int64_t>>(value)) std::copy_n(list->begin(), std::min(n, list->size()), out);
  else refuse(layout, field.name);
}

void writeReals(xt::Graph& graph, const xt::NodeLayout& layout, const xt::FieldDef& field, const FieldValue* value) {
  const size_t n = static_cast<size_t>(field.elements()) * static_cast<size_t>(xt::realsPerElement(field.type));
  double* out = graph.addRealField(n);
  std::fill(out, out + n, xt::kNullReal);
  if (!value) return;
  if (auto* v = std::get_if<double>(value)) *out = *v;
  else if (auto* xyz = std::get_if<gp_XYZ>(value)) {
    if (n < 3) refuse(layout, field.name);
    out[0] = xyz->X(), out[1] = xyz->Y(), out[2] = xyz->Z();
  } else if (auto* list = std::get_if<std::vector<double>>(value)) {
    std::copy_n(list->begin(), std::min(n, list->size()), out);
  } else refuse(layout, field.name);
}

}  // namespace

GraphSink::GraphSink() : m_schema(*xt::builtInSchema(kLayouts)) {}

int64_t GraphSink::add(std::string_view type, Fields fields, FieldValue variable) {
  Pending node;
  node.layout = m_schema.byName(type);
  if (!node.layout) throw ModelError(PK_ERROR_transmit_failed, "internal: no layout for " + std::string(type));
  for (auto& [name, value] : fields) {
    if (node.layout->find(name) < 0) refuse(*node.layout, name);
    node.fields.emplace_back(std::string(name), std::move(value));
  }
  node.variable = std::move(variable);
  m_nodes.push_back(std::move(node));
  return static_cast<int64_t>(m_nodes.size());
}

void GraphSink::set(int64_t index, std::string_view field, FieldValue value) {
  Pending& node = m_nodes.at(static_cast<size_t>(index - 1));
  if (node.layout->find(field) < 0) refuse(*node.layout, field);
  for (auto& [name, old] : node.fields)
    if (name == field) {
      old = std::move(value);
      return;
    }
  node.fields.emplace_back(std::string(field), std::move(value));
}

void GraphSink::emit(xt::Graph& graph, int64_t index) const {
  const Pending& node = m_nodes.at(static_cast<size_t>(index - 1));
  const xt::NodeLayout& layout = *node.layout;
  const auto* varInts = std::get_if<std::vector<int64_t>>(&node.variable);
  const auto* varReals = std::get_if<std::vector<double>>(&node.variable);
  uint32_t varLength = 0;
  if (layout.isVariable()) {
    const xt::FieldDef& last = layout.fields.back();
    const int per = xt::realsPerElement(last.type);
    if (per > 0 ? (!varReals || varReals->size() % static_cast<size_t>(per) != 0) : !varInts) refuse(layout, last.name);
    varLength = static_cast<uint32_t>(per > 0 ? varReals->size() / static_cast<size_t>(per) : varInts->size());
  }
  graph.adopt(node.layout);
  graph.beginNode(layout, index, varLength);
  for (const xt::FieldDef& field : layout.fields) {
    if (field.isVariable()) {
      if (varReals) std::copy(varReals->begin(), varReals->end(), graph.addRealField(varReals->size()));
      else std::copy(varInts->begin(), varInts->end(), graph.addIntField(varInts->size()));
    } else if (xt::isIntegerType(field.type)) {
      writeInts(graph, layout, field, findValue(node.fields, field.name));
    } else {
      writeReals(graph, layout, field, findValue(node.fields, field.name));
    }
  }
}

xt::Graph GraphSink::build(int64_t root) const {
  xt::Graph graph;
  emit(graph, root);
  for (int64_t i = 1; i <= highestIndex(); ++i)
    if (i != root) emit(graph, i);
  return graph;
}

}  // namespace meld::model
