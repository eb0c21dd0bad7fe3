// Process-wide state of the frustrum and the helpers its source files share.
// Not for use outside the frustrum and the part-file header.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

// Longest key or file name (without its terminator) the frustrum handles.
constexpr int PSC_MAX_NAME = 255;
// Streams that may be open at once; stream numbers run 1..PSC_MAX_STREAMS.
constexpr int PSC_MAX_STREAMS = 32;

enum PSCStreamMode { PSC_MODE_READ = 1, PSC_MODE_WRITE = 2, PSC_MODE_SCRATCH = 3 };

// One open file, kept in opening order.
struct PSCFileDescriptor {
  PSCFileDescriptor* next;
  PSCFileDescriptor* prev;
  unsigned strid;
  int guise;
  int format;
  int mode;
  char fileName[PSC_MAX_NAME + 1];
  char key[PSC_MAX_NAME + 1];
  FILE* file;
};

struct PSCFrustrumState {
  int startCount;
  int openCount;
  // Slot i holds i + 1 while stream number i + 1 is taken, else 0.
  unsigned stridInUse[PSC_MAX_STREAMS];
  // Shared by text reads and writes; grows on demand while started.
  char* lineBuffer;
  size_t lineBufferSize;
  PSCFileDescriptor* first;
  PSCFileDescriptor* last;
};

extern PSCFrustrumState g_frustrum;

inline bool PSCFrustrumStarted() { return g_frustrum.startCount > 0; }

// Prints what went wrong on standard error and aborts: a name or part-2 item
// that long means the caller's data is corrupt, and no code can express that.
[[noreturn]] void PSCFatalRangeError(const char* what, size_t length, size_t limit);

// A trace line for the message log, written only while "VTDBG_FRUSTRUM" is a
// positive integer; `format` may hold one %s for `argument`.
void PSCFrustrumTrace(int level, const char* format, const char* argument = "");

// Descriptors and stream numbers.
int PSCAddDescriptor(FILE* file, int guise, int format, int mode, const char* key,
                     const char* fileName, PSCFileDescriptor** added);
PSCFileDescriptor* PSCFindDescriptor(int strid);
void PSCCloseAllDescriptors();

// Makes the shared line buffer hold at least `size` bytes; null when it cannot.
char* PSCSharedLineBuffer(size_t size);
void PSCFreeSharedLineBuffer();

// Line-wise primitives, whatever the stream's format. Each returns an ifail.
int PSCReadTextLine(PSCFileDescriptor* stream, int nmax, char* buffer, int* nactual);
int PSCWriteText(PSCFileDescriptor* stream, int nchars, const char* buffer);

// Copies the kernel's key (PSC_MAX_NAME + 1 bytes) and builds the file name
// from it; 0 or PK_FR_bad_name.
int PSCBuildFileName(int guise, int format, const char* name, int namlen, bool forWrite,
                     char* key, std::string& fileName);
// A name the file system should never see: too long, or starting with a blank.
bool PSCIsBadFileName(const char* name);
