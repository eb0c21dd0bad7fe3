#include "RollbackFile.h"

#include "Session.h"

#include <cstring>

namespace meld::kernel {

namespace {
constexpr int kGuise = PK_FR_guise_rollback;
constexpr std::size_t kHeaderBytes = 16;
constexpr char kMagic[4] = {'M', 'L', 'R', 'B'};
constexpr std::uint32_t kFormat = 1;

std::string header(std::uint64_t position) {
  std::string out(kMagic, 4);
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<char>((kFormat >> (8 * i)) & 0xFF));
  for (int i = 0; i < 8; ++i) out.push_back(static_cast<char>((position >> (8 * i)) & 0xFF));
  return out;
}
}  // namespace

int RollbackFile::setSize(int bytes) {
  if (bytes < KI_rollback_size_min || bytes > KI_rollback_size_max || open_)
    return KI_rollback_size_bad;
  size_ = bytes;
  // Opened now, so that a file that cannot be opened is reported where the
  // application sizes it, not at its first mark.
  return ensureOpen();
}

int RollbackFile::ensureOpen() {
  if (open_) return 0;
  int minSize = KI_rollback_size_min, maxSize = size_, actual = 0, strid = 0, ifail = 0;
  frustrum().ffoprb(&kGuise, &minSize, &maxSize, &actual, &strid, &ifail);
  if (ifail != PK_FR_no_errors || actual < int(kHeaderBytes)) return KI_cant_open_rollback;
  actualSize_ = actual;
  strid_ = strid;
  open_ = true;
  return 0;
}

int RollbackFile::seek(int offset) {
  int ifail = 0;
  frustrum().ffseek(&kGuise, &strid_, &offset, &ifail);
  return ifail == PK_FR_no_errors ? 0 : KI_rollback_failure;
}

int RollbackFile::write(const char* bytes, std::size_t n) {
  int count = static_cast<int>(n), ifail = 0;
  frustrum().ffwrit(&kGuise, &strid_, &count, bytes, &ifail);
  return ifail == PK_FR_no_errors ? 0 : KI_rollback_failure;
}

int RollbackFile::read(char* bytes, std::size_t n) {
  // ffread may hand back less than asked; keep asking until all is there.
  for (std::size_t done = 0; done < n;) {
    int want = static_cast<int>(n - done), got = 0, ifail = 0;
    frustrum().ffread(&kGuise, &strid_, &want, bytes + done, &got, &ifail);
    if (ifail != PK_FR_no_errors || got <= 0) return KI_rollback_failure;
    done += std::size_t(got);
  }
  return 0;
}

int RollbackFile::writeMark(std::uint64_t position) {
  if (int ifail = ensureOpen()) return ifail;
  std::string bytes = header(position);
  if (int ifail = seek(0)) return ifail;
  return write(bytes.data(), bytes.size());
}

int RollbackFile::writeStretch(const std::string& bytes) {
  if (!open_) return KI_rollback_not_started;
  if (bytes.size() > std::size_t(actualSize_) - kHeaderBytes) return KI_rollback_file_full;
  if (int ifail = seek(int(kHeaderBytes))) return ifail;
  return write(bytes.data(), bytes.size());
}

int RollbackFile::readStretch(std::uint64_t position, std::string& bytes) {
  if (!open_) return KI_rollback_not_started;
  if (int ifail = seek(0)) return ifail;
  std::string head(kHeaderBytes, '\0');
  if (int ifail = read(head.data(), head.size())) return ifail;
  if (head != header(position)) return KI_rollback_failure;
  bytes.assign(kStretchCountBytes, '\0');
  if (int ifail = read(bytes.data(), kStretchCountBytes)) return ifail;
  std::size_t count = decodeStretchCount(bytes.data());
  if (count * kUndoRecordBytes > std::size_t(actualSize_)) return KI_rollback_failure;
  bytes.resize(kStretchCountBytes + count * kUndoRecordBytes);
  return read(bytes.data() + kStretchCountBytes, bytes.size() - kStretchCountBytes);
}

void RollbackFile::close() {
  if (!open_) return;
  int action = PK_FR_close_normal, ifail = 0;
  frustrum().ffclos(&kGuise, &strid_, &action, &ifail);
  open_ = false;
}

}  // namespace meld::kernel
