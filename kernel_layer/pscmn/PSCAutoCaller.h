// A scope guard that hands the pointer it holds to a callee when the scope
// ends, on every path out of it. Used for arrays that the kernel allocates for
// its caller.
#pragma once

#include "pk.h"

// Frees a kernel-allocated array.
struct PSCPKFreeCallee {
  void operator()(void* pointer) const { PK_MEMORY_free(pointer); }
};

template <class Pointer, class Callee>
class PSCAutoCaller {
 public:
  explicit PSCAutoCaller(Pointer pointer) : m_pointer(pointer) {}
  virtual ~PSCAutoCaller() {
    if (m_pointer) Callee()(m_pointer);
  }
  // One owner, one release: the guard is neither copied nor reset.
  PSCAutoCaller(const PSCAutoCaller&) = delete;
  PSCAutoCaller& operator=(const PSCAutoCaller&) = delete;

 private:
  Pointer m_pointer;
};
