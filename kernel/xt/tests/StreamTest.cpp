// Text and binary primitives: the places where hand-written tokenizers go wrong.
#include <gtest/gtest.h>

#include "BinaryStream.h"
#include "NodeGraph.h"
#include "Sources.h"
#include "StreamAdapters.h"
#include "TextStream.h"
#include "XtError.h"

namespace xt = meld::xt;

namespace {

TEST(TextIn, JoinsRecordsKeepsLeadingSpacesAndDecodesEscapes) {
  // A break inside a number, a record cut before a space, padding spaces, CRLF.
  xt::TextIn in("12 3\r\n4 5   \n 6 ?7 +T?V0 \n", 0);
  EXPECT_EQ(in.integer(), 12);
  EXPECT_EQ(in.integer(), 34);
  EXPECT_EQ(in.integer(), 5);
  EXPECT_EQ(in.integer(), 6);
  EXPECT_EQ(in.integer(), xt::kNullInt);  // '?' has no space after it
  EXPECT_EQ(in.integer(), 7);
  EXPECT_EQ(in.character(), '+');
  EXPECT_EQ(in.logical(), 1);
  EXPECT_EQ(in.character(), '?');  // a char field holding '?' is a character, not a null
  EXPECT_EQ(in.character(), 'V');
  EXPECT_EQ(in.integer(), 0);
  EXPECT_TRUE(in.atEnd());
  // Escapes in strings: backslash, NUL, newline, nine spaces.
  xt::TextIn escaped("a\\\\b\\0\\n\\9c", 0);
  int64_t out[14];
  escaped.chars(out, 14);
  EXPECT_EQ(std::string(out, out + 14), std::string("a\\b\0\n         c", 14));
}

TEST(TextIn, ReadsRealsNullVectorsAndReportsFileOffsets) {
  xt::TextIn in("1e-8 -.25 ?0 0 1\n 1e3 x", 100);
  EXPECT_EQ(in.real(), 1e-8);
  EXPECT_EQ(in.real(), -0.25);
  double v[3];
  in.reals(v, 3);
  EXPECT_EQ(v[2], xt::kNullReal);
  in.reals(v, 3);
  EXPECT_EQ(v[2], 1.0);
  EXPECT_EQ(in.real(), 1000.0);
  EXPECT_EQ(in.fileOffset(), 122u);  // 'x': second record starts at 100 + 17
  EXPECT_THROW(in.real(), xt::XtError);
}

TEST(TextIn, ReadsRecordsWithAndWithoutNewlinesWhole) {
  // One record per read: a missing newline is supplied, but a record longer
  // than one read buffer must come through unbroken.
  const std::string longLine(70000, 'a');
  const std::string records = longLine + "\nb\n";
  meld::xt::MemorySource lines(records, true);
  EXPECT_EQ(meld::xt::readAll(lines, true, 1 << 20), records);

  class Unterminated : public meld::xt::ByteSource {
   public:
    size_t read(char* buffer, size_t) override {
      if (m_left-- <= 0) return 0;
      buffer[0] = 'x';
      return 1;
    }
    int m_left = 2;
  } unterminated;
  EXPECT_EQ(meld::xt::readAll(unterminated, true, 100), "x\nx\n");
}

TEST(TextOut, RoundTripsThroughTheReader) {
  xt::TextOut out;
  const int64_t chars[] = {'x', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', '\\', '\n', 0};
  for (int i = 0; i < 40; ++i) out.integer(i * 1001);
  out.real(0.1);
  out.real(xt::kNullReal);
  out.integer(xt::kNullInt);
  out.chars(chars, 13);
  out.integer(5);
  std::string text = out.records();
  for (size_t start = 0, eol; (eol = text.find('\n', start)) != std::string::npos; start = eol + 1) {
    EXPECT_LE(eol - start, 80u);
    EXPECT_NE(text[eol - 1], ' ');
  }
  xt::TextIn in(text, 0);
  for (int i = 0; i < 40; ++i) ASSERT_EQ(in.integer(), i * 1001);
  EXPECT_EQ(in.real(), 0.1);
  EXPECT_EQ(in.real(), xt::kNullReal);
  EXPECT_EQ(in.integer(), xt::kNullInt);
  int64_t back[13];
  in.chars(back, 13);
  EXPECT_TRUE(std::equal(back, back + 13, chars));
  EXPECT_EQ(in.integer(), 5);
}

TEST(Binary, PointerEncodingRoundTripsAtTheBoundaries) {
  const int64_t values[] = {0, 1, 32765, 32766, 32767, 32768, 65534, 65535, 1000000, 32767LL * 32767};
  xt::BinaryOut out;
  for (int64_t v : values) out.pointer(v);
  xt::BinaryIn in(out.bytes(), 0, false);
  for (int64_t v : values) EXPECT_EQ(in.pointer(), v);
  EXPECT_TRUE(in.atEnd());
  // Small indices take one short holding index + 1; the terminator is 0x0001 0x0001.
  xt::BinaryOut small;
  small.pointer(0);
  EXPECT_EQ(small.bytes(), std::string("\0\1", 2));
}

TEST(Binary, ReadsBothByteOrders) {
  const std::string big("\x12\x34\x00\x00\x00\x07\x3f\xf0\x00\x00\x00\x00\x00\x00", 14);
  xt::BinaryIn b(big, 0, false);
  EXPECT_EQ(b.i16(), 0x1234);
  EXPECT_EQ(b.i32(), 7);
  EXPECT_EQ(b.f64(), 1.0);
  const std::string little("\x34\x12\x07\x00\x00\x00\x00\x00\x00\x00\x00\x00\xf0\x3f", 14);
  xt::BinaryIn l(little, 0, true);
  EXPECT_EQ(l.i16(), 0x1234);
  EXPECT_EQ(l.i32(), 7);
  EXPECT_EQ(l.f64(), 1.0);
  EXPECT_THROW(l.byte(), xt::XtError);
}

TEST(Binary, LogicalArraysReadAsZeroOrOneWhateverTheByte) {
  const std::string bytes("\x02\x00\x01\x54", 4);
  xt::BinaryAdapter adapter{xt::BinaryIn(bytes, 0, false)};
  int64_t values[4] = {};
  adapter.ints('l', values, 4);
  EXPECT_EQ(values[0], 1);
  EXPECT_EQ(values[1], 0);
  EXPECT_EQ(values[2], 1);
  EXPECT_EQ(values[3], 1);
}

}  // namespace
