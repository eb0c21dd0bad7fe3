#include "DeltaStore.h"

#include "KernelError.h"

#include <algorithm>
#include <limits>

namespace meld::kernel {

namespace {
// write_fn / read_fn take a 32-bit count: long stretches go in pieces.
constexpr std::size_t kPiece = std::size_t(1) << 30;
}  // namespace

void DeltaStore::check(PK_ERROR_code_t code) {
  // The store's own codes (565, 901, 1082) say more than a generic failure.
  if (code == PK_ERROR_bad_delta || code == PK_ERROR_memory_full ||
      code == PK_ERROR_delta_read_past_end)
    fail(code);
  require(code == PK_ERROR_no_errors, PK_ERROR_delta_failure);
}

PK_DELTA_t DeltaStore::openForWrite(PK_PMARK_t pmark) {
  PK_DELTA_t key = 0;
  check(fns_.open_for_write_fn(pmark, &key));
  require(key != 0, PK_ERROR_delta_failure);
  return key;
}

void DeltaStore::writeAndClose(PK_DELTA_t key, const std::string& bytes) {
  try {
    for (std::size_t done = 0; done < bytes.size();) {
      std::size_t n = std::min(kPiece, bytes.size() - done);
      check(fns_.write_fn(key, static_cast<unsigned>(n), bytes.data() + done));
      done += n;
    }
  } catch (const KernelError&) {
    // Not left open, whatever the store made of the part it took.
    try {
      close(key);
    } catch (const KernelError&) {
      // The write's failure is the one to report.
    }
    throw;
  }
  written_ += bytes.size();
  close(key);
}

void DeltaStore::close(PK_DELTA_t key) { check(fns_.close_fn(key)); }

void DeltaStore::openForRead(PK_DELTA_t key) { check(fns_.open_for_read_fn(key)); }

void DeltaStore::read(PK_DELTA_t key, char* bytes, std::size_t n) {
  for (std::size_t done = 0; done < n;) {
    std::size_t piece = std::min(kPiece, n - done);
    check(fns_.read_fn(key, static_cast<unsigned>(piece), bytes + done));
    done += piece;
  }
  read_ += n;
}

void DeltaStore::remove(PK_DELTA_t key) { check(fns_.delete_fn(key)); }

}  // namespace meld::kernel
