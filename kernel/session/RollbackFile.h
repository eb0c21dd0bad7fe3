// The K-interface rollback file, opened through the frustrum's ffoprb and
// written and read with ffwrit / ffseek / ffread. Layout: a 16-byte mark
// header ("MLRB", format 1, the mark's journal position), then the stretch of
// journal records written when the application rolls back.
#pragma once

#include "UndoRecord.h"

#include <cstdint>
#include <string>

namespace meld::kernel {

class RollbackFile {
 public:
  static constexpr int kDefaultSize = 16 * 1024 * 1024;

  // Codes are the K-interface's ifail values; 0 is success.
  // Sets the size and opens the file (964 refused or already open, 928 the
  // frustrum cannot open it; the size then stays for the next attempt).
  int setSize(int bytes);
  int writeMark(std::uint64_t position);
  int writeStretch(const std::string& bytes);
  // Reads the header and the stretch back; the header must name the position.
  int readStretch(std::uint64_t position, std::string& bytes);
  void close();
  bool isOpen() const { return open_; }

 private:
  int ensureOpen();
  int seek(int offset);
  int write(const char* bytes, std::size_t n);
  int read(char* bytes, std::size_t n);

  int size_ = kDefaultSize;
  int actualSize_ = 0;
  int strid_ = 0;
  bool open_ = false;
};

}  // namespace meld::kernel
