// The text and binary streams behind one small interface, so that the node decoder
// and the embedded-schema reader are written once for both encodings.
#pragma once

#include <cctype>
#include <cmath>
#include <cstdint>
#include <string>

#include "BinaryStream.h"
#include "NodeGraph.h"
#include "TextStream.h"
#include "XtError.h"

namespace meld::xt {

struct TextAdapter {
  TextIn in;
  static constexpr bool kText = true;

  int64_t nodeType() { return in.integer(); }
  int64_t varLength() { return in.integer(); }
  int64_t index() { return in.integer(); }
  int64_t countByte() { return in.integer(); }
  int64_t shortValue() { return in.integer(); }
  int64_t positive() { return in.integer(); }
  bool logical() { return in.logical() != 0; }
  char letter() { return in.atEnd() ? '\0' : in.rawChars(1)[0]; }
  bool nextIsLetter() const { return std::isalpha(static_cast<unsigned char>(in.peek())) != 0; }
  std::string shortString() { return in.shortString(); }
  // Every element takes at least one character, except in strings, where "\9" stands
  // for nine spaces.
  static size_t maxElements(char type, size_t remaining) {
    return type == 'c' ? remaining / 2 * 9 + 9 : remaining;
  }

  void ints(char type, int64_t* out, size_t n) {
    if (type == 'c') return in.chars(out, n);
    if (type == 'l') {
      for (size_t i = 0; i < n; ++i) out[i] = in.logical();
      return;
    }
    for (size_t i = 0; i < n; ++i) out[i] = in.integer();
  }
  void reals(char type, double* out, size_t elements, int per) {
    if (type == 'f') {
      for (size_t i = 0; i < elements; ++i) out[i] = in.real();
      return;
    }
    for (size_t i = 0; i < elements; ++i) {
      in.reals(out + i * per, per);
      nullWhole(out + i * per, per);
    }
  }
  size_t remaining() const { return in.remaining(); }
  size_t fileOffset() const { return in.fileOffset(); }
};

struct BinaryAdapter {
  BinaryIn in;
  static constexpr bool kText = false;

  int64_t nodeType() { return in.i16(); }
  int64_t varLength() { return in.i32(); }
  int64_t index() { return in.pointer(); }
  int64_t countByte() { return in.byte(); }
  int64_t shortValue() { return in.i16(); }
  int64_t positive() { return in.pointer(); }
  bool logical() { return in.byte() != 0; }
  char letter() { return static_cast<char>(in.byte()); }
  static bool nextIsLetter() { return false; }  // not decidable in binary: ask the base table
  std::string shortString() { return in.shortString(); }
  static size_t maxElements(char type, size_t remaining) { return remaining / minBytes(type); }
  static size_t minBytes(char type) {
    switch (type) {
      case 'u': case 'c': case 'l': return 1;
      case 'n': case 'w': case 'p': return 2;
      case 'd': return 4;
      case 'f': return 8;
      case 'i': return 16;
      case 'v': case 'h': return 24;
      case 'b': return 48;
      default: return 1;
    }
  }

  void ints(char type, int64_t* out, size_t n) {
    switch (type) {
      case 'u': case 'c': return read(out, n, [&] { return in.byte(); });
      // A logical is 0 or 1 whatever byte stands for it, as in text, where only
      // T and F exist: otherwise a binary file would not survive being written
      // as text (found by the fuzzer).
      case 'l': return read(out, n, [&] { return in.byte() != 0; });
      // Real files write unicode characters as signed shorts (-30254 for U+89D2).
      case 'n': case 'w': return read(out, n, [&] { return in.i16(); });
      case 'd': return read(out, n, [&] { return in.i32(); });
      case 'p': return read(out, n, [&] { return in.pointer(); });
      default: if (n > 0) throw XtError(std::string("unknown field type '") + type + "'");
    }
  }
  template <class Value>
  static void read(int64_t* out, size_t n, Value value) {
    for (size_t i = 0; i < n; ++i) out[i] = value();
  }
  void reals(char type, double* out, size_t elements, int per) {
    for (size_t i = 0; i < elements * static_cast<size_t>(per); ++i) {
      out[i] = in.f64();
      if (!std::isfinite(out[i])) throw XtError("not a finite real");
    }
    if (type != 'f')
      for (size_t i = 0; i < elements; ++i) nullWhole(out + i * per, per);
  }
  size_t remaining() const { return in.remaining(); }
  size_t fileOffset() const { return in.fileOffset(); }
};

}  // namespace meld::xt
