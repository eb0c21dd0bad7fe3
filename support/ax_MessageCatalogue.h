// Message catalogue: replaces a numbered message's text by a format from a file.
//
// File format, one entry per line:
//   <id> <format>
// <id> is a positive decimal number, followed by one or more blanks or tabs;
// the rest of the line is the format. Empty lines and lines starting with '#'
// are skipped. In a format, "\n" stands for a line end, "\\" for a backslash,
// "%%" for a percent sign, and each "%s" takes the message's own text (as many
// times as the caller allows). At most kAxCatalogueCapacity entries; a later
// entry with the same id replaces the earlier one's text but still counts.
#pragma once

constexpr int kAxCatalogueCapacity = 300;
// Size of the message buffers that ax_GetMessageFormat fills (1029 characters
// and a NUL).
constexpr int kAxMessageBufferSize = 1030;

// Failure codes of ax_OpenMessageCatalogue.
constexpr int kAxCatalogueCannotOpen = 51;
constexpr int kAxCatalogueBadLine = 52;
constexpr int kAxCatalogueTooManyEntries = 53;
constexpr int kAxCatalogueAlreadyOpen = 54;

// Reads the whole catalogue; returns 0 or one of the codes above (on failure
// no catalogue is open afterwards, except with kAxCatalogueAlreadyOpen, which
// leaves the open one in place).
int ax_OpenMessageCatalogue(const char* path);

// Forgets the catalogue's entries; returns 0, or 1 when none was open.
int ax_CloseMessageCatalogue();

// Formats message `id` into `buffer` (kAxMessageBufferSize bytes), with the
// buffer's current text as the argument of the first `argumentCount` "%s".
// Returns 0 when filled; 1 (buffer left as given) when no catalogue is open or
// it has no such id; 2 for a null buffer.
int ax_GetMessageFormat(unsigned id, int argumentCount, char* buffer);
