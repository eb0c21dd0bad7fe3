// What the driver tells the frustrum about the part files of a run: their
// extension and transmit format, where the result goes, and where the schema
// files are.
#pragma once

#include "pk.h"

// The part-file extension at the end of `path` (".x_t", ".x_b", ".xmt_txt" or
// ".xmt_bin", any case), pointing into `path`; null when there is none.
const char* PSCFindPartFileExtension(const char* path);

// Selector 1: 1 for a text extension, else 2. Any other selector: the kernel's
// transmit-format token, 18220 for text, else 18221. Null counts as binary.
int PSCTransmitFormatFor(int selector, const char* extension);

// Receives the part file named by `key` and `extension`: the extension is
// remembered for the frustrum's file names and chooses the format. Returns
// the kernel's code; the parts are the kernel's array, freed by the caller.
int PSCReceivePartFile(const char* key, const char* extension, int* nParts, PK_PART_t** parts);

// The extension that transmit-guise file names get; null or fewer than four
// characters means ".x_b".
void PSCSetTransmitExtension(const char* extension);
const char* PSCGetTransmitExtension();

// Remembers where the result part is written (a path without extension) and
// returns in `keyOut` its file-name part, the key to transmit with. `keyOut`
// must hold 301 bytes.
void PSCSetOutputFile(const char* pathWithoutExtension, char* keyOut);
const char* PSCGetOutputBase();

// Null means the "P_SCHEMA" environment variable, or no directory at all.
void PSCSetSchemaDirectory(const char* dir);
// Null when schema files are opened by their bare names.
const char* PSCGetSchemaDirectory();
