// The part-file header: its exact bytes as written, and how the reader finds
// the first data byte in files with, without and with broken headers.
#include <gtest/gtest.h>

#include <string>

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

const std::string kPart1Constants =
    "**PART1;\nMC=unknown;\nMC_MODEL=unknown;\nMC_ID=unknown;\nOS=unknown;\n"
    "OS_RELEASE=unknown;\nFRU=sdl_parasolid_customer_support;\n"
    "APPL=veltrix_translator_3510;\nSITE=unknown;\nUSER=unknown;\n";

// The header lines between "**PART1;" and "**PART2;" that name the file.
std::string between(const std::string& text, const std::string& from, const std::string& to) {
  size_t begin = text.find(from);
  size_t end = text.find(to, begin);
  if (begin == std::string::npos || end == std::string::npos) return "";
  return text.substr(begin + from.size(), end - begin - from.size());
}

class HeaderWrite : public FrustrumTest {
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
class HeaderRead : public FrustrumTest {
 protected:
  // Opens "in.x_t" (text) with the header skip and returns its first data line.
  std::string firstDataLine(const std::string& content, int* ifail) {
    meldtest::writeFile("in.x_t", content);
    Opened in = openRead(kTransmit, kText, "in");
    *ifail = in.ifail;
    if (in.ifail != 0) return "<open failed>";
    EXPECT_GT(in.strid, 0);
    std::string line;
    return read(kTransmit, in.strid, 300, line) == 0 ? line : "<end>";
  }
};

TEST_F(HeaderWrite, TransmitHeaderBytesAreExact) {
  EXPECT_EQ(kLine1.size(), 81u);
  EXPECT_EQ(kClosing.size(), 81u);
  EXPECT_EQ(headerOf(kTransmit, kText, "part", "result.x_t", "SCH=SCH_3400000_34000;USFLD_SIZE=0;"),
            kLine1 + kLine2 + kPart1Constants +
                "FORMAT=text;\nGUISE=transmit;\nKEY=part;\nFILE=result.x_t;\nDATE=unknown;\n"
                "**PART2;\nSCH=SCH_3400000_34000;\nUSFLD_SIZE=0;\n**PART3;\n" + kClosing);
}

TEST_F(HeaderWrite, FixedLinesMatchRealPartFiles) {
  MELD_REQUIRE_CORPUS(corpus);
  std::string real = meldtest::readFile(corpus / "autom-brick.x_t");
  EXPECT_EQ(real.substr(0, 162), kLine1 + kLine2);
  const PSCHeaderLines& lines = PSCGetHeaderLines();
  EXPECT_EQ(lines.first + std::string(lines.second), kLine1 + kLine2);
  EXPECT_EQ(std::string(lines.closing), kClosing);
}

TEST_F(HeaderWrite, BinaryAndOtherGuisesAreNamedInPart1) {
  std::string header = headerOf(PK_FR_guise_journal, kBinary, "j", "j.jnl_bin");
  EXPECT_EQ(between(header, "USER=unknown;\n", "DATE="),
            "FORMAT=binary;\nGUISE=journal;\nKEY=j;\nFILE=j.jnl_bin;\n");
}

TEST_F(HeaderWrite, LongKeyAndFileLinesFoldAtEightyCharacters) {
  // KEY= line: 4 + 100 + 2 = 106 characters; FILE= line: 5 + 108 + 2 = 115.
  const std::string key(100, 'k');
  const std::string fileName = key + ".jnl_txt";
  std::string header = headerOf(PK_FR_guise_journal, kText, key, fileName);
  EXPECT_EQ(between(header, "GUISE=journal;\n", "DATE="),
            "KEY=" + key.substr(0, 76) + "\n" + key.substr(76) + ";\n" +
                "FILE=" + fileName.substr(0, 75) + "\n" + fileName.substr(75) + ";\n");
}

TEST_F(HeaderWrite, TwoHundredCharacterLineGivesTwoFullPiecesAndTail) {
  // FILE= + 193-character name + ";\n" is exactly 200 characters.
  const std::string key(185, 'q');
  const std::string fileName = key + ".jnl_txt";
  std::string folded = between(headerOf(PK_FR_guise_journal, kText, key, fileName), "FILE=", "DATE=");
  std::string line = "FILE=" + fileName + ";\n";
  ASSERT_EQ(line.size(), 200u);
  EXPECT_EQ("FILE=" + folded,
            line.substr(0, 80) + "\n" + line.substr(80, 80) + "\n" + line.substr(160));
}

TEST_F(HeaderWrite, Part2ItemsOnePerLineTrailingPartDropped) {
  std::string header = headerOf(kTransmit, kText, "p", "result.x_t", "A=1;B=2;C");
  EXPECT_EQ(between(header, "**PART2;\n", "**PART3;\n"), "A=1;\nB=2;\n");
}

TEST_F(HeaderWrite, DebugReportGetsOnlyTheXmlDeclaration) {
  const int guise = PK_FR_guise_debug_report;
  Opened out = openWrite(guise, kText, "report");
  ASSERT_EQ(out.ifail, 0);
  ASSERT_EQ(write(guise, out.strid, "<r/>\n"), 0);
  ASSERT_EQ(close(guise, out.strid), 0);
  EXPECT_EQ(fileText("report.xml"), "<?xml version=\"1.0\" ?><r/>\n");
}

TEST_F(HeaderWrite, OverlongPart2ItemAborts) {
  const std::string item = std::string(285, 'x') + ";";
  EXPECT_DEATH(openWrite(kTransmit, kText, "p", item), "part-2 header item of 286 characters");
  // 285 characters including the ';' is still one line.
  Opened out = openWrite(kTransmit, kText, "p", item.substr(1));
  EXPECT_EQ(out.ifail, 0);
}

TEST_F(HeaderRead, WrittenFileIsReadFromFirstByteAfterClosingLine) {
  Opened out = openWrite(kTransmit, kText, "any", "SCH=S;");
  ASSERT_EQ(write(kTransmit, out.strid, "first data\n"), 0);
  ASSERT_EQ(close(kTransmit, out.strid), 0);
  char key[301];
  PSCSetOutputFile("ignored", key);
  Opened in = openRead(kTransmit, kText, "result");
  ASSERT_EQ(in.ifail, 0);
  std::string line;
  ASSERT_EQ(read(kTransmit, in.strid, 100, line), 0);
  EXPECT_EQ(line, "first data\n");
  EXPECT_STREQ(PSCGetApplicationName(), "veltrix_translator_3510");
}

TEST_F(HeaderRead, FileWithoutHeaderIsReadFromItsStart) {
  int ifail = -1;
  EXPECT_EQ(firstDataLine("hello\nworld\n", &ifail), "hello\n");
  EXPECT_EQ(ifail, 0);
  // Line 1 less its line feed is not line 1.
  EXPECT_EQ(firstDataLine(kLine1.substr(0, 80) + "x\n" + kClosing, &ifail),
            kLine1.substr(0, 80) + "x\n");
}

TEST_F(HeaderRead, ClosingLineIsTestedBeforeFirstLine) {
  int ifail = -1;
  EXPECT_EQ(firstDataLine(kClosing + "data\n", &ifail), "data\n");
  EXPECT_EQ(ifail, 0);
}

TEST_F(HeaderRead, LongLinesAreTestedInPiecesOf287) {
  int ifail = -1;
  std::string longLine = std::string(287, 'a') + "**END_OF_HEADER\n";
  EXPECT_EQ(firstDataLine(kLine1 + longLine + "data\n", &ifail), "data\n");
  EXPECT_EQ(ifail, 0);
  // One character less and the marker is inside the first piece: no stop.
  std::string shifted = std::string(286, 'a') + "**END_OF_HEADER\n" + kClosing;
  EXPECT_EQ(firstDataLine(kLine1 + shifted + "data\n", &ifail), "data\n");
}

TEST_F(HeaderRead, MissingClosingLineFailsWithEndOfFile) {
  int ifail = -1;
  firstDataLine(kLine1 + kLine2 + "**PART1;\nAPPL=x;\n", &ifail);
  EXPECT_EQ(ifail, PK_FR_end_of_file);
}

TEST_F(HeaderRead, ApplicationNameIsKeptUpToSemicolon) {
  int ifail = -1;
  std::string header = kLine1 + kLine2 + "APPL=Some App 2.0;x;\r\n" + kClosing;
  EXPECT_EQ(firstDataLine(header + "data\r\n", &ifail), "data\n");
  EXPECT_STREQ(PSCGetApplicationName(), "Some App 2.0");
}

TEST_F(HeaderRead, RealPartFileHeaderIsSkipped) {
  MELD_REQUIRE_CORPUS(corpus);
  std::string real = meldtest::readFile(corpus / "autom-brick.x_t");
  size_t dataStart = real.find("**END_OF_HEADER");
  dataStart = real.find('\n', dataStart) + 1;
  int ifail = -1;
  std::string firstLine = real.substr(dataStart, real.find('\n', dataStart) + 1 - dataStart);
  EXPECT_EQ(firstDataLine(real, &ifail), firstLine);
  EXPECT_STREQ(PSCGetApplicationName(), "Onshape");
}

}  // namespace
