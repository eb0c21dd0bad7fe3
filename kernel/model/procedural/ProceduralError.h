// Failures of the procedural-geometry converters. The message always names the
// node (type and index) whose geometry could not be made, and why, so that a
// refused body says which entity of the file stopped it.
#pragma once

#include <stdexcept>
#include <string>

namespace meld::model::procedural {

class ProceduralError : public std::runtime_error {
 public:
  explicit ProceduralError(const std::string& message) : std::runtime_error(message) {}
};

}  // namespace meld::model::procedural
