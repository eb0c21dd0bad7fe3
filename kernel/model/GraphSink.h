// Building an XT graph to write: nodes are added by type and field name (in the
// layouts of the schema our encoder writes against), get their index when added,
// can be patched afterwards (chains whose next node comes later), and are put in
// a graph at the end, root first. Fields never set are zero (integers, pointers)
// or null (reals), which is what a writer leaves in every field it does not use.
#pragma once

#include "NodeGraph.h"

#include <gp_XYZ.hxx>

#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace meld::model {

using FieldValue = std::variant<int64_t, double, gp_XYZ, std::vector<int64_t>, std::vector<double>>;
using Fields = std::vector<std::pair<std::string_view, FieldValue>>;

class GraphSink {
 public:
  GraphSink();

  // Adds a node and returns its index; `variable` fills the variable-length field.
  int64_t add(std::string_view type, Fields fields, FieldValue variable = std::vector<int64_t>{});
  // Sets (or replaces) one field of a node added before.
  void set(int64_t index, std::string_view field, FieldValue value);
  size_t size() const { return m_nodes.size(); }
  int64_t highestIndex() const { return static_cast<int64_t>(m_nodes.size()); }

  // The graph: the root node first, then the others in the order they were added.
  // Throws ModelError when a node does not fit its layout (an internal error).
  xt::Graph build(int64_t root) const;

 private:
  struct Pending {
    xt::LayoutPtr layout;
    std::vector<std::pair<std::string, FieldValue>> fields;
    FieldValue variable;
  };
  void emit(xt::Graph& graph, int64_t index) const;

  xt::Schema m_schema;
  std::vector<Pending> m_nodes;  // index - 1
};

inline int64_t sense(bool positive) { return positive ? '+' : '-'; }

}  // namespace meld::model
