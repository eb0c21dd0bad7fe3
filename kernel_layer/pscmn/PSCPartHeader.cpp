// Part-file header: three fixed lines, a first part describing the file, the
// kernel's own part-2 items and a closing line. The machine, user and date
// fields are deliberately constant so that files carry no information about
// where they were written.
#include "PSCPartHeader.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "PSCFrustrum.h"
#include "PSCFrustrumState.h"

namespace {

constexpr int kHeaderLineLength = 80;  // characters before the line feed
constexpr int kReadPiece = 287;        // longest piece read as one header line
constexpr size_t kMaxPart2Item = 285;  // including its ';'
constexpr size_t kApplicationCapacity = 299;

PSCHeaderLines g_lines = {};
char g_applicationName[kApplicationCapacity + 1] = "";

const char* const kPart1Constants[] = {
    "MC=unknown;\n",   "MC_MODEL=unknown;\n",
    "MC_ID=unknown;\n", "OS=unknown;\n",
    "OS_RELEASE=unknown;\n", "FRU=sdl_parasolid_customer_support;\n",
    "APPL=veltrix_translator_3510;\n", "SITE=unknown;\n",
    "USER=unknown;\n",
};

// `start` padded with asterisks to the line length, then a line feed.
void st_PadLine(char* line, const std::string& start) {
  std::string padded = start + std::string(kHeaderLineLength - start.size(), '*') + "\n";
  std::memcpy(line, padded.c_str(), padded.size() + 1);
}

int st_Write(PSCFileDescriptor* stream, const std::string& text) {
  return PSCWriteText(stream, static_cast<int>(text.size()), text.c_str());
}

// Long keys and names are cut into 80-character lines so that the header
// stays readable by line-oriented readers.
int st_WriteFolded(PSCFileDescriptor* stream, const std::string& line) {
  size_t start = 0;
  while (line.size() - start > kHeaderLineLength) {
    int rc = st_Write(stream, line.substr(start, kHeaderLineLength) + "\n");
    if (rc != 0) return rc;
    start += kHeaderLineLength;
  }
  return st_Write(stream, line.substr(start));
}

// One line per item ending in ';'; whatever follows the last ';' is no item.
int st_WritePart2Items(PSCFileDescriptor* stream, const char* pd2, int pd2len) {
  size_t itemStart = 0;
  for (size_t i = 0; pd2 != nullptr && i < static_cast<size_t>(pd2len > 0 ? pd2len : 0); ++i) {
    if (pd2[i] != ';') continue;
    size_t itemLength = i + 1 - itemStart;
    if (itemLength > kMaxPart2Item) {
      PSCFatalRangeError("part-2 header item", itemLength, kMaxPart2Item);
    }
    int rc = st_Write(stream, std::string(pd2 + itemStart, itemLength) + "\n");
    if (rc != 0) return rc;
    itemStart = i + 1;
  }
  return 0;
}

int st_WritePart1(PSCFileDescriptor* stream) {
  int rc = st_Write(stream, "**PART1;\n");
  for (const char* constant : kPart1Constants) {
    if (rc == 0) rc = st_Write(stream, constant);
  }
  if (rc == 0) rc = st_Write(stream, std::string("FORMAT=") + PSCFormatName(stream->format) + ";\n");
  if (rc == 0) rc = st_Write(stream, std::string("GUISE=") + PSCGuiseName(stream->guise) + ";\n");
  if (rc == 0) rc = st_WriteFolded(stream, std::string("KEY=") + stream->key + ";\n");
  if (rc == 0) rc = st_WriteFolded(stream, std::string("FILE=") + stream->fileName + ";\n");
  if (rc == 0) rc = st_Write(stream, "DATE=unknown;\n");
  return rc;
}

void st_KeepApplicationName(const char* line) {
  const char* name = line + 5;
  size_t length = std::strcspn(name, ";");
  if (length > kApplicationCapacity) length = kApplicationCapacity;
  std::memcpy(g_applicationName, name, length);
  g_applicationName[length] = '\0';
}

}  // namespace

void PSCBuildHeaderLines() {
  st_PadLine(g_lines.first, "**ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz");
  st_PadLine(g_lines.second,
             "**PARASOLID !\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~0123456789");
  st_PadLine(g_lines.closing, "**END_OF_HEADER");
}

const PSCHeaderLines& PSCGetHeaderLines() { return g_lines; }

int PSCWritePartHeader(PSCFileDescriptor* stream, const char* pd2, int pd2len) {
  int rc = st_Write(stream, g_lines.first);
  if (rc == 0) rc = st_Write(stream, g_lines.second);
  if (rc == 0) rc = st_WritePart1(stream);
  if (rc == 0) rc = st_Write(stream, "**PART2;\n");
  if (rc == 0) rc = st_WritePart2Items(stream, pd2, pd2len);
  if (rc == 0) rc = st_Write(stream, "**PART3;\n");
  if (rc == 0) rc = st_Write(stream, g_lines.closing);
  return rc;
}

int PSCSkipPartHeader(PSCFileDescriptor* stream) {
  char line[kReadPiece + 1];
  const size_t firstLineLength = std::strlen(g_lines.first);
  for (bool firstLine = true;; firstLine = false) {
    int length = 0;
    int rc = PSCReadTextLine(stream, kReadPiece, line, &length);
    if (rc != 0) return rc;
    line[length] = '\0';
    // A file may start with the closing line alone; that is a header too.
    if (std::strncmp(line, "**END_OF_HEADER", 15) == 0) return 0;
    if (firstLine && std::strncmp(line, g_lines.first, firstLineLength) != 0) {
      std::rewind(stream->file);
      return 0;
    }
    if (length > 5 && std::strncmp(line, "APPL=", 5) == 0) st_KeepApplicationName(line);
  }
}

const char* PSCGetApplicationName() { return g_applicationName; }
