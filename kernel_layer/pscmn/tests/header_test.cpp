// The part-file header: its exact bytes as written, and how the reader finds
// the first data byte in files with, without and with broken headers.
#include <gtest/gtest.h>

#include "PSCPartHeader.h"
#include "frustrum_test_helpers.h"

using namespace frutest;

namespace {

const std::string kLine1 =
    "**ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz**************************\n";
const std::string kLine2 =
    "**PARASOLID !\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~0123456789**************************\n";
const std::string kClosing =
    "**END_OF_HEADER*****************************************************************\n";

// The text between `from` and the next `to`.
std::string between(const std::string& text, const std::string& from, const std::string& to) {
  size_t begin = text.find(from);
  size_t end = text.find(to, begin);
  if (begin == std::string::npos || end == std::string::npos) return "";
  return text.substr(begin + from.size(), end - begin - from.size());
}

class Header : public FrustrumTest {
 protected:
  // A file opened for writing and closed at once holds only its header.
  std::string headerOf(int guise, int format, const std::string& key,
                       const std::string& fileName, const std::string& pd2 = "") {
    Opened out = openWrite(guise, format, key, pd2);
    EXPECT_EQ(out.ifail, 0);
    EXPECT_EQ(close(guise, out.strid), 0);
    return fileText(fileName);
  }
};

TEST_F(Header, TransmitHeaderBytesAreExactOnePart2ItemPerLine) {
  // The unterminated trailing part-2 item is dropped.
  EXPECT_EQ(headerOf(kTransmit, kText, "part", "result.x_t", "SCH=SCH_3400000_34000;USFLD_SIZE=0;C"),
            kLine1 + kLine2 +
                "**PART1;\nMC=unknown;\nMC_MODEL=unknown;\nMC_ID=unknown;\nOS=unknown;\n"
                "OS_RELEASE=unknown;\nFRU=sdl_parasolid_customer_support;\n"
                "APPL=veltrix_translator_3510;\nSITE=unknown;\nUSER=unknown;\n"
                "FORMAT=text;\nGUISE=transmit;\nKEY=part;\nFILE=result.x_t;\nDATE=unknown;\n"
                "**PART2;\nSCH=SCH_3400000_34000;\nUSFLD_SIZE=0;\n**PART3;\n" + kClosing);
  std::string binary = headerOf(PK_FR_guise_journal, kBinary, "j", "j.jnl_bin");
  EXPECT_EQ(between(binary, "USER=unknown;\n", "DATE="),
            "FORMAT=binary;\nGUISE=journal;\nKEY=j;\nFILE=j.jnl_bin;\n");
}

TEST_F(Header, TheFixedLinesMatchRealPartFiles) {
  MELD_REQUIRE_CORPUS(corpus);
  EXPECT_EQ(meldtest::readFile(corpus / "autom-brick.x_t").substr(0, 162), kLine1 + kLine2);
}

TEST_F(Header, LongKeyAndFileLinesFoldAtEightyCharacters) {
  // KEY= line: 4 + 100 + 2 = 106 characters; FILE= line: 5 + 108 + 2 = 115.
  std::string key(100, 'k'), fileName = key + ".jnl_txt";
  EXPECT_EQ(between(headerOf(PK_FR_guise_journal, kText, key, fileName), "GUISE=journal;\n", "DATE="),
            "KEY=" + key.substr(0, 76) + "\n" + key.substr(76) + ";\n" +
                "FILE=" + fileName.substr(0, 75) + "\n" + fileName.substr(75) + ";\n");
  // FILE= + 193-character name + ";\n" is exactly 200 characters: two full pieces and a tail.
  key.assign(185, 'q');
  fileName = key + ".jnl_txt";
  const std::string line = "FILE=" + fileName + ";\n";
  EXPECT_EQ("FILE=" + between(headerOf(PK_FR_guise_journal, kText, key, fileName), "FILE=", "DATE="),
            line.substr(0, 80) + "\n" + line.substr(80, 80) + "\n" + line.substr(160));
}

TEST_F(Header, DebugReportGetsOnlyTheXmlDeclarationAndOverlongPart2ItemAborts) {
  const int guise = PK_FR_guise_debug_report;
  Opened out = openWrite(guise, kText, "report");
  ASSERT_EQ(out.ifail, 0);
  ASSERT_EQ(write(guise, out.strid, "<r/>\n"), 0);
  ASSERT_EQ(close(guise, out.strid), 0);
  EXPECT_EQ(fileText("report.xml"), "<?xml version=\"1.0\" ?><r/>\n");

  const std::string item = std::string(285, 'x') + ";";
  EXPECT_DEATH(openWrite(kTransmit, kText, "p", item), "part-2 header item of 286 characters");
  // 285 characters including the ';' is still one line.
  EXPECT_EQ(openWrite(kTransmit, kText, "p", item.substr(1)).ifail, 0);
}

TEST_F(Header, TheReaderStartsAtTheFirstByteAfterTheClosingLine) {
  Opened out = openWrite(kTransmit, kText, "any", "SCH=S;");
  ASSERT_EQ(write(kTransmit, out.strid, "first data\n"), 0);
  ASSERT_EQ(close(kTransmit, out.strid), 0);
  struct Case {
    std::string content;
    std::string firstLine;  // or ifailText(...) for a failed open
    const char* application;  // nullptr: not checked
  };
  const Case cases[] = {
      {fileText("result.x_t"), "first data\n", "veltrix_translator_3510"},
      {"hello\nworld\n", "hello\n", nullptr},  // no header: read from the start
      // Line 1 less its line feed is not line 1.
      {kLine1.substr(0, 80) + "x\n" + kClosing, kLine1.substr(0, 80) + "x\n", nullptr},
      {kClosing + "data\n", "data\n", nullptr},  // the closing line is tested before line 1
      // Long lines are tested in pieces of 287: one character less and the
      // marker is inside the first piece, which is no stop.
      {kLine1 + std::string(287, 'a') + "**END_OF_HEADER\n" + "data\n", "data\n", nullptr},
      {kLine1 + std::string(286, 'a') + "**END_OF_HEADER\n" + kClosing + "data\n", "data\n", nullptr},
      {kLine1 + kLine2 + "**PART1;\nAPPL=x;\n", ifailText(PK_FR_end_of_file), nullptr},
      {kLine1 + kLine2 + "APPL=Some App 2.0;x;\r\n" + kClosing + "data\r\n", "data\n", "Some App 2.0"},
  };
  for (const Case& c : cases) {
    meldtest::writeFile("in.x_t", c.content);
    Opened in = openRead(kTransmit, kText, "in");
    EXPECT_EQ(in.ifail == 0 ? readPiece(kTransmit, in.strid, 300) : ifailText(in.ifail), c.firstLine)
        << c.content;
    if (c.application) { EXPECT_STREQ(PSCGetApplicationName(), c.application); }
  }
}

TEST_F(Header, ARealPartFileHeaderIsSkipped) {
  MELD_REQUIRE_CORPUS(corpus);
  std::string real = meldtest::readFile(corpus / "autom-brick.x_t");
  size_t dataStart = real.find('\n', real.find("**END_OF_HEADER")) + 1;
  meldtest::writeFile("in.x_t", real);
  Opened in = openRead(kTransmit, kText, "in");
  ASSERT_EQ(in.ifail, 0);
  EXPECT_EQ(readPiece(kTransmit, in.strid, 300),
            real.substr(dataStart, real.find('\n', dataStart) + 1 - dataStart));
  EXPECT_STREQ(PSCGetApplicationName(), "Onshape");
}

}  // namespace
