// The model layer's one exception: a PK_ERROR_ code and a one-line message that
// names the node (type and index) where building or writing stopped. The PK_
// functions turn it into their return code and keep the message for
// PK_ERROR_ask_last_message.
#pragma once

#include "pk.h"

#include <stdexcept>
#include <string>

namespace meld::model {

class ModelError : public std::runtime_error {
 public:
  ModelError(PK_ERROR_code_t code, const std::string& message) : std::runtime_error(message), m_code(code) {}
  PK_ERROR_code_t code() const { return m_code; }

 private:
  PK_ERROR_code_t m_code;
};

}  // namespace meld::model
