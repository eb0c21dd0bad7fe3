#include "FrustrumFiles.h"

#include <climits>
#include <algorithm>

#include "Session.h"
#include "XtError.h"

namespace meld::kernel {

namespace {

constexpr int kSkipHeader = 1;

int lengthOf(const std::string& text) { return static_cast<int>(text.size()); }

}  // namespace

FrustrumReader::FrustrumReader(int guise, int format, const std::string& key) : m_guise(guise) {
  const int namlen = lengthOf(key);
  int ifail = 0;
  frustrum().ffoprd(&guise, &format, key.c_str(), &namlen, &kSkipHeader, &m_strid, &ifail);
  m_openFailure = ifail;
}

FrustrumReader::~FrustrumReader() {
  if (m_openFailure != 0) return;
  const int action = PK_FR_close_normal;
  int ifail = 0;
  frustrum().ffclos(&m_guise, &m_strid, &action, &ifail);
}

size_t FrustrumReader::read(char* buffer, size_t nmax) {
  if (m_openFailure != 0 || nmax == 0) return 0;
  int want = static_cast<int>(std::min<size_t>(nmax, INT_MAX));
  int got = 0, ifail = 0;
  frustrum().ffread(&m_guise, &m_strid, &want, buffer, &got, &ifail);
  if (ifail == PK_FR_end_of_file) return 0;
  if (ifail != PK_FR_no_errors)
    throw xt::XtError("the frustrum could not read the file (ifail " + std::to_string(ifail) + ")");
  if (got < 0 || got > want)
    throw xt::XtError("the frustrum's read returned " + std::to_string(got) + " bytes");
  return static_cast<size_t>(got);
}

std::optional<std::string> FrustrumSchemaSource::find(const std::string& key) {
  FrustrumReader reader(PK_FR_guise_schema, PK_FR_format_text, key);
  // A schema the frustrum cannot find or name is simply not there; the codec
  // then says which schema was missing.
  if (reader.openFailure() == PK_FR_not_found || reader.openFailure() == PK_FR_bad_name)
    return std::nullopt;
  if (reader.openFailure() != 0)
    throw xt::XtError("schema file " + key + " could not be opened (ifail " +
                      std::to_string(reader.openFailure()) + ")");
  constexpr size_t kLargestSchemaFile = 16u << 20;
  return xt::readAll(reader, true, kLargestSchemaFile);
}

FrustrumWriter::FrustrumWriter(int guise, int format, const std::string& key,
                               const std::string& part2)
    : m_guise(guise), m_format(format) {
  const int namlen = lengthOf(key);
  const int pd2len = lengthOf(part2);
  int ifail = 0;
  frustrum().ffopwr(&guise, &format, key.c_str(), &namlen, part2.c_str(), &pd2len, &m_strid,
                    &ifail);
  m_openFailure = ifail;
  m_open = ifail == 0;
}

FrustrumWriter::~FrustrumWriter() {
  if (!m_open) return;
  const int action = PK_FR_close_abandon;
  int ifail = 0;
  frustrum().ffclos(&m_guise, &m_strid, &action, &ifail);
}

int FrustrumWriter::writePiece(const char* bytes, size_t n) {
  int count = static_cast<int>(n), ifail = 0;
  frustrum().ffwrit(&m_guise, &m_strid, &count, bytes, &ifail);
  return ifail;
}

int FrustrumWriter::write(std::string_view bytes) {
  if (!m_open) return m_openFailure != 0 ? m_openFailure : PK_FR_unspecified;
  if (m_writeFailure != 0) return m_writeFailure;
  // Text goes out one record at a time; binary in large pieces.
  constexpr size_t kBinaryPiece = 1u << 16;
  while (!bytes.empty() && m_writeFailure == 0) {
    size_t n = std::min(bytes.size(), kBinaryPiece);
    if (m_format == PK_FR_format_text) {
      size_t eol = bytes.find('\n');
      n = eol == std::string_view::npos ? bytes.size() : eol + 1;
    }
    m_writeFailure = writePiece(bytes.data(), n);
    bytes.remove_prefix(n);
  }
  return m_writeFailure;
}

int FrustrumWriter::commit() {
  if (!m_open) return m_openFailure != 0 ? m_openFailure : PK_FR_unspecified;
  if (m_writeFailure != 0) return m_writeFailure;  // the destructor abandons the file
  const int action = PK_FR_close_normal;
  int ifail = 0;
  frustrum().ffclos(&m_guise, &m_strid, &action, &ifail);
  m_open = false;
  return ifail;
}

}  // namespace meld::kernel
