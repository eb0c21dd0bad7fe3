// Memory the kernel hands to callers: always from the frustrum's fmallo, freed
// with fmfree (PK_MEMORY_free).
#pragma once

#include "pk.h"

#include <cstring>
#include <vector>

namespace meld::kernel {

void* kernelAlloc(std::size_t nbytes);
void kernelFree(void* pointer);

// Hands a list to the caller as a count and an fmallo'ed array (null when
// empty).
template <class T>
void handOut(const std::vector<T>& items, int* count, T** array) {
  *count = static_cast<int>(items.size());
  *array = nullptr;
  if (items.empty()) return;
  *array = static_cast<T*>(kernelAlloc(items.size() * sizeof(T)));
  std::memcpy(*array, items.data(), items.size() * sizeof(T));
}

}  // namespace meld::kernel
