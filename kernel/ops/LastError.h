// The message that goes with the last part-file failure, for
// PK_ERROR_ask_last_message: the kernel keeps one, replaced by each failure
// and cleared by each success of the functions that set it.
#pragma once

#include "model/ModelError.h"
#include "session/KernelError.h"

#include "XtError.h"

#include <string>

namespace meld::kernel {

void setLastMessage(std::string message);
void clearLastMessage();

// Words for a code that comes without a message of its own.
std::string describeCode(PK_ERROR_code_t code);

// Runs a part-file function like guarded(); the failure's message (a
// ModelError's, the codec's, or words for the code) becomes the last message.
template <class Body>
PK_ERROR_code_t guardedWithMessage(Body&& body) noexcept {
  std::string message;
  PK_ERROR_code_t code = guarded([&] {
    try {
      body();
    } catch (const model::ModelError& e) {
      message = e.what();
      throw KernelError{e.code()};
    } catch (const xt::XtError& e) {
      message = e.what();
      throw KernelError{PK_ERROR_bad_part_data};
    } catch (const Standard_Failure& e) {
      message = std::string("OCCT failed: ") + e.GetMessageString();
      throw;
    }
  });
  try {
    if (code == PK_ERROR_no_errors) clearLastMessage();
    else setLastMessage(message.empty() ? describeCode(code) : message);
  } catch (...) {
  }
  return code;
}

}  // namespace meld::kernel
