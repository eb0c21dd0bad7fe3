// Failures of the procedural-geometry evaluators and fits: what went wrong and
// where on the curve or surface. They know no nodes; the graph side
// (Evaluators, Procedural.cpp) turns them into a ModelError that names the node
// type and index, so that a refused body says which entity of the file stopped it.
#pragma once

#include <stdexcept>
#include <string>

namespace meld::model::procedural {

class ProceduralError : public std::runtime_error {
 public:
  explicit ProceduralError(const std::string& message) : std::runtime_error(message) {}
};

}  // namespace meld::model::procedural
