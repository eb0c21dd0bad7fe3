// Open streams: descriptors with their stream numbers, the shared line buffer,
// and the close, read and write slots.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "PSCFrustrum.h"
#include "PSCFrustrumState.h"

namespace {

// Lowest free stream number, or 0 when all are taken.
unsigned st_TakeStreamNumber() {
  for (unsigned i = 0; i < PSC_MAX_STREAMS; ++i) {
    if (g_frustrum.stridInUse[i] == 0) {
      g_frustrum.stridInUse[i] = i + 1;
      return i + 1;
    }
  }
  return 0;
}

void st_ReleaseStreamNumber(unsigned strid) {
  if (strid >= 1 && strid <= PSC_MAX_STREAMS) g_frustrum.stridInUse[strid - 1] = 0;
}

void st_CopyName(char* target, const char* source) {
  std::snprintf(target, PSC_MAX_NAME + 1, "%s", source);
}

void st_Unlink(PSCFileDescriptor* stream) {
  if (stream->prev != nullptr) stream->prev->next = stream->next;
  else g_frustrum.first = stream->next;
  if (stream->next != nullptr) stream->next->prev = stream->prev;
  else g_frustrum.last = stream->prev;
  delete stream;
  --g_frustrum.openCount;
}

// The stream must exist, be of the caller's guise and allow the access.
PSCFileDescriptor* st_StreamFor(const int* guise, const int* strid, int modeA, int modeB) {
  PSCFileDescriptor* stream = PSCFindDescriptor(*strid);
  if (stream == nullptr || stream->guise != *guise) return nullptr;
  if (stream->mode != modeA && stream->mode != modeB) return nullptr;
  return stream;
}

int st_ReadBinary(PSCFileDescriptor* stream, int nmax, char* buffer, int* nactual) {
  size_t got = std::fread(buffer, 1, static_cast<size_t>(nmax), stream->file);
  *nactual = static_cast<int>(got);
  if (got > 0) return PK_FR_no_errors;
  return std::feof(stream->file) ? PK_FR_end_of_file : PK_FR_read_fail;
}

int st_ReadOneCharacter(PSCFileDescriptor* stream, char* buffer, int* nactual) {
  int c = std::fgetc(stream->file);
  if (c == EOF) return std::feof(stream->file) ? PK_FR_end_of_file : PK_FR_read_fail;
  buffer[0] = static_cast<char>(c);
  *nactual = 1;
  return PK_FR_no_errors;
}

int st_WriteBinary(PSCFileDescriptor* stream, int nchars, const char* buffer) {
  size_t put = std::fwrite(buffer, 1, static_cast<size_t>(nchars), stream->file);
  return put == static_cast<size_t>(nchars) ? PK_FR_no_errors : PK_FR_write_fail;
}

}  // namespace

int PSCAddDescriptor(FILE* file, int guise, int format, int mode, const char* key,
                     const char* fileName, PSCFileDescriptor** added) {
  *added = nullptr;
  auto* stream = new (std::nothrow) PSCFileDescriptor{};
  unsigned strid = stream != nullptr ? st_TakeStreamNumber() : 0;
  if (strid == 0) {
    delete stream;
    std::fclose(file);
    return PK_FR_open_fail;
  }
  stream->strid = strid;
  stream->guise = guise;
  stream->format = format;
  stream->mode = mode;
  st_CopyName(stream->key, key);
  st_CopyName(stream->fileName, fileName);
  stream->file = file;
  stream->prev = g_frustrum.last;
  if (g_frustrum.last != nullptr) g_frustrum.last->next = stream;
  else g_frustrum.first = stream;
  g_frustrum.last = stream;
  ++g_frustrum.openCount;
  *added = stream;
  return PK_FR_no_errors;
}

PSCFileDescriptor* PSCFindDescriptor(int strid) {
  for (PSCFileDescriptor* s = g_frustrum.first; s != nullptr; s = s->next) {
    if (static_cast<int>(s->strid) == strid) return s;
  }
  return nullptr;
}

void PSCCloseAllDescriptors() {
  while (g_frustrum.first != nullptr) {
    PSCFileDescriptor* stream = g_frustrum.first;
    if (stream->file != nullptr) std::fclose(stream->file);
    st_ReleaseStreamNumber(stream->strid);
    st_Unlink(stream);
  }
  g_frustrum.openCount = 0;
}

char* PSCSharedLineBuffer(size_t size) {
  if (size <= g_frustrum.lineBufferSize) return g_frustrum.lineBuffer;
  char* grown = static_cast<char*>(std::realloc(g_frustrum.lineBuffer, size));
  if (grown == nullptr) return nullptr;
  g_frustrum.lineBuffer = grown;
  g_frustrum.lineBufferSize = size;
  return grown;
}

void PSCFreeSharedLineBuffer() {
  std::free(g_frustrum.lineBuffer);
  g_frustrum.lineBuffer = nullptr;
  g_frustrum.lineBufferSize = 0;
}

// One line of at most nmax characters, read character by character so that a
// zero byte is seen: text data never holds one (strings escape it), and a line
// cut at it would lose the rest silently, so it is a read failure.
int PSCReadTextLine(PSCFileDescriptor* stream, int nmax, char* buffer, int* nactual) {
  *nactual = 0;
  char* line = PSCSharedLineBuffer(static_cast<size_t>(nmax) + 1);
  if (line == nullptr) return PK_FR_unspecified;
  size_t length = 0;
  while (length < static_cast<size_t>(nmax)) {
    int c = getc_unlocked(stream->file);
    if (c == EOF) break;
    if (c == '\0') return PK_FR_read_fail;
    line[length++] = static_cast<char>(c);
    if (c == '\n') break;
  }
  if (length == 0) return std::feof(stream->file) ? PK_FR_end_of_file : PK_FR_read_fail;
  if (std::ferror(stream->file)) return PK_FR_read_fail;
  // Files written on other systems end their lines with CR LF; the kernel
  // expects LF alone.
  if (length >= 2 && line[length - 2] == '\r' && line[length - 1] == '\n') {
    line[length - 2] = '\n';
    --length;
  }
  std::memcpy(buffer, line, length);
  *nactual = static_cast<int>(length);
  return PK_FR_no_errors;
}

int PSCWriteText(PSCFileDescriptor* stream, int nchars, const char* buffer) {
  if (nchars == 1) {
    return std::fputc(buffer[0], stream->file) == EOF ? PK_FR_write_fail : PK_FR_no_errors;
  }
  // Written as a string: text data never holds a zero byte, and the output
  // stops at one if it does.
  const size_t length = strnlen(buffer, static_cast<size_t>(nchars));
  return std::fwrite(buffer, 1, length, stream->file) == length ? PK_FR_no_errors
                                                                  : PK_FR_write_fail;
}

void FFCLOS(const int* /*guise*/, const int* strid, const int* action, int* ifail) {
  if (!PSCFrustrumStarted()) {
    *ifail = PK_FR_unspecified;
    return;
  }
  PSCFileDescriptor* stream = PSCFindDescriptor(*strid);
  if (stream == nullptr) {
    *ifail = PK_FR_close_fail;
    return;
  }
  // The scratch file never outlives its stream; an abandoned output is
  // half-written and must not be mistaken for a result.
  bool remove = stream->mode == PSC_MODE_SCRATCH ||
                (stream->mode == PSC_MODE_WRITE && *action == PK_FR_close_abandon);
  char fileName[PSC_MAX_NAME + 1];
  std::memcpy(fileName, stream->fileName, sizeof fileName);
  st_ReleaseStreamNumber(stream->strid);
  int closed = std::fclose(stream->file);
  stream->file = nullptr;  // the stream is gone even when fclose failed
  if (closed != 0) {
    // The descriptor stays until the frustrum stops, but its number is free
    // for the next open: it must not be found under that number again.
    stream->strid = 0;
    *ifail = PK_FR_close_fail;
    return;
  }
  st_Unlink(stream);
  *ifail = remove && std::remove(fileName) != 0 ? PK_FR_close_fail : PK_FR_no_errors;
}

void FFREAD(const int* guise, const int* strid, const int* nmax, char* buffer, int* nactual,
            int* ifail) {
  *nactual = 0;
  PSCFileDescriptor* stream = st_StreamFor(guise, strid, PSC_MODE_READ, PSC_MODE_SCRATCH);
  if (stream == nullptr || buffer == nullptr || *nmax < 1) {
    *ifail = PK_FR_unspecified;
    return;
  }
  if (stream->format != PK_FR_format_text) {
    *ifail = st_ReadBinary(stream, *nmax, buffer, nactual);
  } else if (*nmax == 1) {
    *ifail = st_ReadOneCharacter(stream, buffer, nactual);
  } else {
    *ifail = PSCReadTextLine(stream, *nmax, buffer, nactual);
  }
}

void FFWRIT(const int* guise, const int* strid, const int* nchars, const char* buffer,
            int* ifail) {
  PSCFileDescriptor* stream = st_StreamFor(guise, strid, PSC_MODE_WRITE, PSC_MODE_SCRATCH);
  if (stream == nullptr || buffer == nullptr || *nchars < 0) {
    *ifail = PK_FR_unspecified;
    return;
  }
  *ifail = stream->format != PK_FR_format_text ? st_WriteBinary(stream, *nchars, buffer)
                                               : PSCWriteText(stream, *nchars, buffer);
  // Journals and debug reports are read while the session runs, or after
  // it crashed: keep them on disk.
  if (*guise == PK_FR_guise_journal || *guise == PK_FR_guise_debug_report) {
    std::fflush(stream->file);
  }
}
