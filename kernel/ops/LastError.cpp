#include "LastError.h"

#include "session/KernelError.h"

#include <string>

namespace meld::kernel {
namespace {
std::string& lastMessage() {
  static std::string message;
  return message;
}
}  // namespace

void setLastMessage(std::string message) { lastMessage() = std::move(message); }
void clearLastMessage() { lastMessage().clear(); }

}  // namespace meld::kernel

// The text stays valid until the next part-file call; empty when the last one
// succeeded.
extern "C" PK_ERROR_code_t PK_ERROR_ask_last_message(const char** message) {
  if (!message) return PK_ERROR_null_arg_address;
  *message = meld::kernel::lastMessage().c_str();
  return PK_ERROR_no_errors;
}

namespace meld::kernel {

std::string describeCode(PK_ERROR_code_t code) {
  switch (code) {
    case PK_ERROR_not_in_session: return "no session is running";
    case PK_ERROR_null_arg_address: return "a required argument is null";
    case PK_ERROR_bad_option_data: return "the option record is refused";
    case PK_ERROR_memory_full: return "memory is exhausted";
    case PK_ERROR_not_an_entity: return "a tag is not a live entity";
    case PK_ERROR_wrong_entity: return "an entity is of the wrong class";
    case PK_ERROR_modeller_failure: return "the geometry engine failed";
    default: return "error " + std::to_string(code);
  }
}

}  // namespace meld::kernel
