// Broken and hostile input: always a one-line error, never a crash or a hang.
#include <gtest/gtest.h>

#include "SampleParts.h"
#include "XtTestUtil.h"

namespace xt = meld::xt;

namespace {

const std::string kSmall = xttest::textPrefix("SCH_1400000_14000_13006") +
                           "29 255 5 7 0 0 0 0 1 2 3 84 255 5 6 hello83 255 2 8 0.5 -1 1 0";

using xttest::decodeError;

TEST(HostileInput, EveryTruncationIsAnError) {
  xt::EncodeOptions binary;
  binary.format = xt::Format::NeutralBinary;
  for (const std::string& whole : {kSmall, xt::encode(xt::decode(kSmall), binary)}) {
    ASSERT_NO_THROW(xt::decode(whole));
    size_t headerEnd = whole.find("END_OF_HEADER");
    headerEnd = headerEnd == std::string::npos ? 0 : whole.find('\n', headerEnd) + 1;
    for (size_t n = headerEnd; n + 1 < whole.size(); ++n)
      EXPECT_FALSE(decodeError(whole.substr(0, n)).empty()) << "prefix of " << n << " bytes accepted";
  }
}

// Each refusal is one line that says where the data went wrong.
TEST(HostileInput, BadValuesHugeCountsAndBadStructureAreRefused) {
  const std::string prefix = xttest::textPrefix("SCH_1400000_14000_13006");
  const std::pair<std::string, std::string> cases[] = {
      {"29 255 5 7 0 0 0 0 1 x 3 1 0", "POINT node 5, field pvec, byte 108: expected a finite real, found 'x'"},
      {"29 255 5 7 0 0 0 0 1 nan 2 1 0", "expected a finite real"},
      {"29 255 5 7 0 0 0 0 1 inf 2 1 0", "expected a finite real"},
      // A variable length is checked once, where its values would be allocated.
      {"83 255 2000000000 1 1 1 0",
       "REAL_VALUES node 1, field values, byte 107: 2000000000 elements cannot fit in the 5 bytes left"},
      {"84 255 99 1 abc1 0", "cannot fit"},
      {"83 255 4294967296 1 1 1 0", "variable length above 2^32-1: 4294967296"},
      {"83 255 -5 1 1 0", "negative variable length"},
      {"83 255 1 1 1 83 1 1 1 0", "duplicate node index 1"},
      {"83 255 1 0 1 1 0", "bad node index 0"},
      {"1 7", "terminator (type 1) with index 7"},
      {"99999 1 0", "bad node type 99999"},
      {"83 255 1 1 2 ", "data ends here"},
  };
  for (const auto& [body, reason] : cases) {
    std::string e = decodeError(prefix + body);
    EXPECT_NE(e.find(reason), std::string::npos) << body << " -> " << e;
    EXPECT_EQ(e.find('\n'), std::string::npos) << e;
  }
  EXPECT_NE(decodeError(xttest::textPrefix("SCH_1400000_14000_13006", 99)).find("outside 0-16"), std::string::npos);
  EXPECT_NE(decodeError("B\x01\x02").find("bare binary"), std::string::npos);
  EXPECT_NE(decodeError("**PART1;\nT51").find("END_OF_HEADER"), std::string::npos);
  EXPECT_NE(decodeError(std::string("PS\0\1\0\1\0", 7)).find("VAX"), std::string::npos);
}

// '?' nulls a vector's value; a pointer to a node that is not there reads as null
// and is counted.
TEST(HostileInput, PartlyNullVectorsAndDanglingPointersReadAsNull) {
  const std::string prefix = xttest::textPrefix("SCH_1400000_14000_13006");
  EXPECT_EQ(xt::decode(prefix + "29 255 5 7 0 0 0 0 1 ?2 1 0").field(0, "pvec").real(0), xt::kNullReal);
  xt::Graph g = xt::decode(prefix + "29 255 5 7 0 77 5 0 1 2 3 1 0");
  EXPECT_EQ(g.field(0, "owner").integer(), 0);
  EXPECT_EQ(g.field(0, "next").integer(), 5);  // itself: present
  EXPECT_EQ(g.danglingPointers, 1);
}

TEST(HostileInput, CompressedSpacesCountAsNineCharacters) {
  // 20 characters from 5 bytes: the room check must allow for "\\9".
  xt::Graph g = xt::decode(xttest::textPrefix("SCH_1400000_14000_13006") + "84 255 20 3 \\9\\9xy1 0");
  EXPECT_EQ(g.field(0, size_t(0)).text(), std::string(18, ' ') + "xy");
}

TEST(HostileInput, SchemaNamesMustBePrintable) {
  // Found by the fuzzer: a binary schema description naming a field with a
  // newline decoded, but could not be written as text.
  xt::EncodeOptions binary;
  binary.format = xt::Format::NeutralBinary;
  std::string bytes = xt::encode(xt::buildBlockPart({xt::Block{{0, 0, 0}, {0.01, 0.01, 0.01}}}), binary);
  size_t name = bytes.find("boundary_lattice");
  ASSERT_NE(name, std::string::npos);
  ASSERT_NO_THROW(xt::decode(bytes));
  bytes[name + 5] = '\n';
  EXPECT_NE(decodeError(bytes).find("non-printable character (code 10)"), std::string::npos)
      << decodeError(bytes);
}

TEST(HostileInput, ValuePoolsStopAtTheirThirtyTwoBitOffsets) {
  // Text can give more values than bytes ('?' is a whole box), so the pools can be
  // asked for more than slots can address: refused before anything is allocated.
  auto layout = xt::baseSchema().get(29);
  xt::Graph g;
  g.adopt(layout);
  g.beginNode(*layout, 1, 0);
  const size_t limit = xt::Graph::kMaxPoolValues;
  EXPECT_THROW(g.addIntField(limit + 1), xt::XtError);
  EXPECT_THROW(g.addRealField(limit + 1), xt::XtError);
  ASSERT_NE(g.addIntField(10), nullptr);
  try {
    g.addIntField(limit - 5);
    ADD_FAILURE() << "a pool passed 2^32-1 values";
  } catch (const xt::XtError& e) {
    EXPECT_NE(std::string(e.what()).find("input too large"), std::string::npos) << e.what();
  }
}

// Out of memory while decoding is the input's refusal, an XtError like any other.
TEST(HostileInput, OutOfMemoryIsAnXtError) {
  struct Exhausted : xt::ByteSource {
    size_t read(char*, size_t) override { throw std::bad_alloc(); }
  } source;
  try {
    xt::decode(source, true);
    ADD_FAILURE() << "decoded from a source that threw";
  } catch (const xt::XtError& e) {
    EXPECT_NE(std::string(e.what()).find("input too large"), std::string::npos) << e.what();
  }
  struct ExhaustedSchemas : xt::SchemaSource {
    std::optional<std::string> find(const std::string&) override { throw std::bad_alloc(); }
  } schemas;
  const std::string e = decodeError(xttest::textPrefix("SCH_2500000_25001") + "29 1 5 0 0 0 0 1 2 3 1 0",
                                    xttest::withSchemas(&schemas));
  EXPECT_NE(e.find("input too large"), std::string::npos) << e;
}

TEST(HostileInput, ReadsThroughAFrustrumStyleSource) {
  xt::Graph direct = xt::decode(kSmall);
  std::string wrapped = xt::encode(direct);  // 80-column records with a header
  xt::MemorySource lines(wrapped, true);
  xt::Graph viaSource = xt::decode(lines, true);
  std::string why;
  EXPECT_TRUE(xt::sameGraph(direct, viaSource, &why)) << why;
  EXPECT_TRUE(viaSource.header.present);
  EXPECT_EQ(viaSource.header.value("SCH"), xt::kWriterSchemaKey);
}

}  // namespace
