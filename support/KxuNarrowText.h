// UTF-16 text to the narrow multibyte encoding of the current locale
// (LC_CTYPE), one character at a time. Characters the encoding cannot
// represent, and unpaired surrogates, become the substitution character: a
// name that cannot be shown exactly is still shown, never refused.
#pragma once

#include <string>

constexpr char kKxuSubstitutionChar = '?';

// `text` is NUL-terminated; null gives an empty string.
std::string KxuUtf16ToLocaleNarrow(const unsigned short* text);
