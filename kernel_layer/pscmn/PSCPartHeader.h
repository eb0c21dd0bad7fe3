// The plain-text header in front of every part file: written when the
// frustrum opens a file for writing, skipped when the kernel asks for it on
// reading.
#pragma once

struct PSCFileDescriptor;

// The three fixed 81-byte lines (80 characters and a line feed).
struct PSCHeaderLines {
  char first[82];
  char second[82];
  char closing[82];
};

// Builds the fixed lines; the frustrum does so when it first starts.
void PSCBuildHeaderLines();
const PSCHeaderLines& PSCGetHeaderLines();

// Writes the whole header for the stream's guise and format, with the
// kernel's part-2 data (`pd2`, `pd2len` characters); 0 or the write failure.
int PSCWritePartHeader(PSCFileDescriptor* stream, const char* pd2, int pd2len);

// Reads up to and including the closing line; a file that does not start with
// the first header line is rewound and read from its start. 0 or the read
// failure (4 when the file ends inside the header).
int PSCSkipPartHeader(PSCFileDescriptor* stream);

// The text after "APPL=" in the last header read.
const char* PSCGetApplicationName();
