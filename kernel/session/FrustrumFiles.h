// Files the kernel reads and writes, always through the application's frustrum:
// it names the file from the key, guise and format, writes the part-file header
// on files it creates and skips it on files it reads. The kernel never opens a
// file itself.
#pragma once

#include <string>
#include <string_view>

#include "Sources.h"

namespace meld::kernel {

// One file open for reading, served to the XT codec piece by piece: in text
// format each read is one line, in binary up to the size asked for.
class FrustrumReader final : public xt::ByteSource {
 public:
  FrustrumReader(int guise, int format, const std::string& key);
  ~FrustrumReader() override;
  FrustrumReader(const FrustrumReader&) = delete;
  FrustrumReader& operator=(const FrustrumReader&) = delete;

  // The frustrum's ifail for the open; 0 when the file is open.
  int openFailure() const { return m_openFailure; }
  // Returns 0 at the end of the file; throws xt::XtError when the frustrum
  // reports a read failure.
  size_t read(char* buffer, size_t nmax) override;

 private:
  int m_guise;
  int m_strid = 0;
  int m_openFailure = 0;
};

// Schema files by key, from where the frustrum keeps them (guise schema, text).
class FrustrumSchemaSource final : public xt::SchemaSource {
 public:
  std::optional<std::string> find(const std::string& key) override;
};

// One file open for writing. Unless it is committed, it is closed with the
// abandon action, so that the frustrum deletes what was half written.
class FrustrumWriter {
 public:
  // part2 holds the header's part-2 items ("SCH=...;USFLD_SIZE=0;").
  FrustrumWriter(int guise, int format, const std::string& key, const std::string& part2);
  ~FrustrumWriter();
  FrustrumWriter(const FrustrumWriter&) = delete;
  FrustrumWriter& operator=(const FrustrumWriter&) = delete;

  int openFailure() const { return m_openFailure; }
  // Writes bytes (text: line by line, as the frustrum writes text records).
  // Returns the frustrum's ifail; after a failure nothing more is written.
  int write(std::string_view bytes);
  // Closes the file normally; returns the ifail of the close.
  int commit();

 private:
  int writePiece(const char* bytes, size_t n);

  int m_guise;
  int m_format;
  int m_strid = 0;
  int m_openFailure = 0;
  int m_writeFailure = 0;
  bool m_open = false;
};

}  // namespace meld::kernel
