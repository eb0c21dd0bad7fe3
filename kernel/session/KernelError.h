// Internal error handling of the kernel: failures travel as KernelError inside
// the kernel and become a PK_ERROR_ code at the pk.h boundary (guarded()).
#pragma once

#include "pk.h"

#include <Standard_ErrorHandler.hxx>
#include <Standard_Failure.hxx>

#include <new>
#include <stdexcept>

namespace meld::kernel {

struct KernelError {
  PK_ERROR_code_t code;
};

[[noreturn]] inline void fail(PK_ERROR_code_t code) { throw KernelError{code}; }

inline void require(bool condition, PK_ERROR_code_t code) {
  if (!condition) fail(code);
}

template <class T>
void requireArg(const T* pointer) {
  require(pointer != nullptr, PK_ERROR_null_arg_address);
}

// Runs one public function's body. Nothing thrown inside escapes: kernel
// errors keep their code, OCCT failures (exceptions and, through
// OCC_CATCH_SIGNALS, hardware signals) become PK_ERROR_modeller_failure and an
// exhausted allocator PK_ERROR_memory_full.
template <class Body>
PK_ERROR_code_t guarded(Body&& body) noexcept {
  try {
    OCC_CATCH_SIGNALS
    body();
    return PK_ERROR_no_errors;
  } catch (const KernelError& e) {
    return e.code;
  } catch (const Standard_Failure&) {
    return PK_ERROR_modeller_failure;
  } catch (const std::bad_alloc&) {
    return PK_ERROR_memory_full;
  } catch (const std::exception&) {
    return PK_ERROR_modeller_failure;
  } catch (...) {
    return PK_ERROR_modeller_failure;
  }
}

}  // namespace meld::kernel
