// The one exception type of the codec. Its message is a single line that says
// where decoding stopped (node type and index, field, byte offset) and why.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace meld::xt {

class XtError : public std::runtime_error {
 public:
  explicit XtError(const std::string& message) : std::runtime_error(message) {}
};

}  // namespace meld::xt
