// The application's delta store, reached through the registered
// PK_DELTA_frustrum_t. Counts what passes through it.
#pragma once

#include "pk.h"

#include <cstdint>
#include <string>

namespace meld::kernel {

class DeltaStore {
 public:
  explicit DeltaStore(const PK_DELTA_frustrum_t& callbacks) : fns_(callbacks) {}

  PK_DELTA_t openForWrite(PK_PMARK_t pmark);
  // Writes the bytes and closes the delta; closes it also when a write fails
  // (then its contents are unknown).
  void writeAndClose(PK_DELTA_t key, const std::string& bytes);
  void close(PK_DELTA_t key);
  void openForRead(PK_DELTA_t key);
  void read(PK_DELTA_t key, char* bytes, std::size_t n);
  void remove(PK_DELTA_t key);

  std::uint64_t bytesWritten() const { return written_; }
  std::uint64_t bytesRead() const { return read_; }

 private:
  static void check(PK_ERROR_code_t code);

  PK_DELTA_frustrum_t fns_;
  std::uint64_t written_ = 0;
  std::uint64_t read_ = 0;
};

}  // namespace meld::kernel
