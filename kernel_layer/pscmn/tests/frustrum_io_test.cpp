// Reading and writing through the frustrum as the kernel does: open by key,
// write, close, reopen with the header skipped and read the same bytes back.
#include <gtest/gtest.h>

#include "frustrum_test_helpers.h"

using namespace frutest;

namespace {

class FrustrumIo : public FrustrumTest {};

const std::string kEof = ifailText(PK_FR_end_of_file);

TEST_F(FrustrumIo, TextRoundTripReturnsLinesAfterHeader) {
  Opened out = openWrite(kTransmit, kText, "part", "SCH=SCH_3400000_34000;USFLD_SIZE=0;");
  ASSERT_EQ(out.ifail, 0);
  EXPECT_EQ(out.strid, 1);
  for (const char* piece : {"T51 : TRANSMIT FILE\n", "x", "\n", "1 2 3 4\n"})
    ASSERT_EQ(write(kTransmit, out.strid, piece), 0);
  ASSERT_EQ(close(kTransmit, out.strid), 0);

  Opened in = openRead(kTransmit, kText, "result");
  ASSERT_EQ(in.ifail, 0);
  EXPECT_EQ(readPiece(kTransmit, in.strid, 100), "T51 : TRANSMIT FILE\n");
  EXPECT_EQ(readPiece(kTransmit, in.strid, 1), "x");
  EXPECT_EQ(readPiece(kTransmit, in.strid, 1), "\n");
  EXPECT_EQ(readPiece(kTransmit, in.strid, 3), "1 2");  // a line longer than nmax
  EXPECT_EQ(readPiece(kTransmit, in.strid, 100), " 3 4\n");
  EXPECT_EQ(readPiece(kTransmit, in.strid, 100), kEof);
  EXPECT_EQ(readPiece(kTransmit, in.strid, 1), kEof);
  EXPECT_EQ(close(kTransmit, in.strid), 0);

  // Without the skip request the header is data.
  in = openRead(kTransmit, kText, "result", 0);
  ASSERT_EQ(in.ifail, 0);
  EXPECT_EQ(readPiece(kTransmit, in.strid, 200).substr(0, 28), "**ABCDEFGHIJKLMNOPQRSTUVWXYZ");
}

TEST_F(FrustrumIo, BinaryRoundTripKeepsEveryByte) {
  const std::string data("\x00\x01\r\n\xff;PS\x00\n", 10);
  Opened out = openWrite(kTransmit, kBinary, "part", "SCH=S;");
  ASSERT_EQ(out.ifail, 0);
  ASSERT_EQ(write(kTransmit, out.strid, data), 0);
  ASSERT_EQ(close(kTransmit, out.strid), 0);
  Opened in = openRead(kTransmit, kBinary, "result");
  ASSERT_EQ(in.ifail, 0);
  int last = -1;
  EXPECT_EQ(readToEnd(kTransmit, in.strid, 4, &last), data);
  EXPECT_EQ(last, PK_FR_end_of_file);
}

TEST_F(FrustrumIo, TextLinesLoseCrBeforeLfAndAZeroByteIsAReadFailure) {
  meldtest::writeFile("dos.x_t", "first\r\nsecond\r\nlone\rcr\n");
  Opened in = openRead(kTransmit, kText, "dos", 0);
  ASSERT_EQ(in.ifail, 0);
  int last = -1;
  // Only a CR right before the LF goes; a lone CR is data.
  EXPECT_EQ(readToEnd(kTransmit, in.strid, 100, &last), "first\nsecond\nlone\rcr\n");
  EXPECT_EQ(last, PK_FR_end_of_file);

  meldtest::writeFile("nul.x_t", std::string("good\nbad\0tail\nlast", 19));
  in = openRead(kTransmit, kText, "nul", 0);
  ASSERT_EQ(in.ifail, 0);
  EXPECT_EQ(readPiece(kTransmit, in.strid, 100), "good\n");
  std::string line = "unset";
  EXPECT_EQ(read(kTransmit, in.strid, 100, line), PK_FR_read_fail);
  EXPECT_EQ(line, "");
  EXPECT_EQ(close(kTransmit, in.strid), 0);
}

TEST_F(FrustrumIo, AbandonedOutputIsDeletedOtherClosesKeepFiles) {
  const int snapshot = PK_FR_guise_snapshot;
  Opened kept = openWrite(snapshot, kBinary, "kept");
  Opened abandoned = openWrite(snapshot, kBinary, "gone");
  ASSERT_EQ(kept.ifail + abandoned.ifail, 0);
  EXPECT_EQ(close(snapshot, kept.strid, PK_FR_close_normal), 0);
  EXPECT_EQ(close(snapshot, abandoned.strid, PK_FR_close_abandon), 0);
  EXPECT_TRUE(exists("kept.snp_bin"));
  EXPECT_FALSE(exists("gone.snp_bin"));
  // Abandoning a file that was only read leaves it alone.
  Opened in = openRead(snapshot, kBinary, "kept");
  ASSERT_EQ(in.ifail, 0);
  EXPECT_EQ(close(snapshot, in.strid, PK_FR_close_abandon), 0);
  EXPECT_TRUE(exists("kept.snp_bin"));
}

TEST_F(FrustrumIo, JournalWritesReachTheDiskAtOnce) {
  Opened journal = openWrite(PK_FR_guise_journal, kText, "session");
  ASSERT_EQ(journal.ifail, 0);
  ASSERT_EQ(write(PK_FR_guise_journal, journal.strid, "CALL PK_BODY_boolean_2\n"), 0);
  std::string onDisk = fileText("session.jnl_txt");
  EXPECT_EQ(onDisk.substr(onDisk.size() - 23), "CALL PK_BODY_boolean_2\n");
}

TEST_F(FrustrumIo, WrongGuiseModeOrStreamIsRefused) {
  Opened out = openWrite(kTransmit, kText, "part");
  ASSERT_EQ(out.ifail, 0);
  const std::string refused = ifailText(PK_FR_unspecified);
  EXPECT_EQ(readPiece(kTransmit, out.strid, 10), refused);  // written, not read
  EXPECT_EQ(write(PK_FR_guise_journal, out.strid, "x\n"), PK_FR_unspecified);
  EXPECT_EQ(write(kTransmit, out.strid + 7, "x\n"), PK_FR_unspecified);
  EXPECT_EQ(close(kTransmit, out.strid + 7), PK_FR_close_fail);
  ASSERT_EQ(close(kTransmit, out.strid), 0);

  Opened in = openRead(kTransmit, kText, "result");
  ASSERT_EQ(in.ifail, 0);
  EXPECT_EQ(write(kTransmit, in.strid, "x\n"), PK_FR_unspecified);  // read, not written
  EXPECT_EQ(readPiece(PK_FR_guise_schema, in.strid, 10), refused);
  EXPECT_EQ(readPiece(kTransmit, in.strid, 0), refused);
}

TEST_F(FrustrumIo, OpenFailuresGiveTheirCodesAndNoStream) {
  Opened missing = openRead(kTransmit, kText, "no_such_part");
  EXPECT_EQ(missing.ifail, PK_FR_not_found);
  EXPECT_EQ(missing.strid, -1);
  char key[301];
  PSCSetOutputFile("no_such_dir/result", key);
  Opened unwritable = openWrite(kTransmit, kText, key);
  EXPECT_EQ(unwritable.ifail, PK_FR_could_not_open);
  EXPECT_EQ(unwritable.strid, -1);

  // A broken header fails the open but keeps its stream taken until the stop.
  meldtest::writeFile("cut.x_t", std::string("**ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz") +
                                     std::string(26, '*') + "\n**PART1;\n");
  Opened cut = openRead(kTransmit, kText, "cut");
  EXPECT_EQ(cut.ifail, PK_FR_end_of_file);
  EXPECT_EQ(cut.strid, -1);
  EXPECT_EQ(openWrite(PK_FR_guise_journal, kText, "part").strid, 2);
}

TEST_F(FrustrumIo, AStreamWhoseCloseFailedCannotBeReachedAgain) {
  // A full disk makes the final flush, and so the close, fail.
  std::error_code ec;
  std::filesystem::create_symlink("/dev/full", "full.snp_txt", ec);
  if (ec || !std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
  const int snapshot = PK_FR_guise_snapshot;
  Opened full = openWrite(snapshot, kText, "full");
  ASSERT_EQ(full.ifail, 0);
  ASSERT_EQ(write(snapshot, full.strid, "some data\n"), 0);
  ASSERT_EQ(close(snapshot, full.strid), PK_FR_close_fail);
  // The next open gets the freed number; it must reach the new file only.
  Opened next = openWrite(snapshot, kText, "next");
  ASSERT_EQ(next.ifail, 0);
  EXPECT_EQ(next.strid, full.strid);
  EXPECT_EQ(write(snapshot, next.strid, "hello\n"), 0);
  EXPECT_EQ(close(snapshot, next.strid), 0);
  const std::string written = fileText("next.snp_txt");
  EXPECT_EQ(written.substr(written.size() - 6), "hello\n");
}

}  // namespace
