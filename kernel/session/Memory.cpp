#include "Memory.h"

#include "KernelError.h"
#include "Session.h"

#include <climits>
#include <cstdint>

namespace meld::kernel {

namespace {
// fmfree wants the size it was given by fmallo back: it is kept in front of
// the block (16 bytes, so that the caller's part stays suitably aligned).
constexpr std::size_t kPrefix = 16;
}  // namespace

void* kernelAlloc(std::size_t nbytes) {
  const PK_SESSION_frustrum_t& fr = frustrum();
  require(nbytes <= std::size_t(INT_MAX) - kPrefix, PK_ERROR_memory_full);
  int total = static_cast<int>(nbytes + kPrefix), ifail = 0;
  char* block = nullptr;
  fr.fmallo(&total, &block, &ifail);
  require(ifail == PK_FR_no_errors && block != nullptr, PK_ERROR_memory_full);
  std::memcpy(block, &total, sizeof total);
  return block + kPrefix;
}

void kernelFree(void* pointer) {
  if (pointer == nullptr) return;
  const PK_SESSION_frustrum_t& fr = frustrum();
  char* block = static_cast<char*>(pointer) - kPrefix;
  int total = 0, ifail = 0;
  std::memcpy(&total, block, sizeof total);
  fr.fmfree(&total, &block, &ifail);
  require(ifail == PK_FR_no_errors, PK_ERROR_frustrum_failure);
}

}  // namespace meld::kernel

using namespace meld::kernel;

extern "C" PK_ERROR_code_t PK_MEMORY_alloc(size_t nbytes, void** pointer) {
  return guarded([&] {
    requireArg(pointer);
    *pointer = kernelAlloc(nbytes);
  });
}

extern "C" PK_ERROR_code_t PK_MEMORY_free(void* pointer) {
  return guarded([&] { kernelFree(pointer); });
}
