// The in-memory delta store, driven the way the kernel drives it.
#include <gtest/gtest.h>

#include <vector>

#include "PSCDeltaStore.h"

namespace {

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

class DeltaStoreTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(FRU__delta_init(1), 1); }
  void TearDown() override {
    if (PSCGetDeltaStoreStats().running) FRU__delta_init(2);
  }

  static PK_DELTA_t openForWrite() {
    PK_DELTA_t key = 0;
    EXPECT_EQ(FRU_delta_open_for_write(7, &key), 0);
    return key;
  }
  // A closed delta holding the first `n` bytes of pattern(n).
  static PK_DELTA_t written(size_t n) {
    PK_DELTA_t key = openForWrite();
    EXPECT_EQ(FRU_delta_write(key, int(n), pattern(n).data()), 0);
    EXPECT_EQ(FRU_delta_close(key), 0);
    return key;
  }
  static std::string pattern(size_t n) {
    std::string bytes(n, '\0');
    for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<char>(i * 31 + 7);
    return bytes;
  }
  // Runs `call`, expects `rc` from it and `text` on standard output.
  template <class Call>
  static void expectPrinted(Call call, int rc, const std::string& text) {
    CaptureStdout();
    EXPECT_EQ(call(), rc) << text;
    EXPECT_EQ(GetCapturedStdout(), text);
  }
};

TEST_F(DeltaStoreTest, KeysAreLowestFreeSlotsAndTheTableDoubles) {
  std::vector<PK_DELTA_t> keys;
  for (int i = 0; i < 10; ++i) keys.push_back(openForWrite());
  EXPECT_EQ(keys.front(), 1);
  EXPECT_EQ(keys.back(), 10);
  EXPECT_EQ(PSCGetDeltaStoreStats().capacity, 10u);
  EXPECT_EQ(openForWrite(), 11);
  EXPECT_EQ(PSCGetDeltaStoreStats().capacity, 20u);
  // A deleted delta's key goes to the next open.
  EXPECT_EQ(FRU_delta_close(4), 0);
  EXPECT_EQ(FRU_delta_delete(4), 0);
  EXPECT_EQ(openForWrite(), 4);
  EXPECT_EQ(PSCGetDeltaStoreStats().liveDeltas, 11u);
}

TEST_F(DeltaStoreTest, DataRoundTripsAcrossBlocksAndAHalfReadCloseWarns) {
  PK_DELTA_t key = openForWrite();
  const std::string bytes = pattern(5000);
  // Written in uneven pieces, read back in other pieces.
  ASSERT_EQ(FRU_delta_write(key, 1, bytes.data()), 0);
  ASSERT_EQ(FRU_delta_write(key, 3000, bytes.data() + 1), 0);
  ASSERT_EQ(FRU_delta_write(key, 0, nullptr), 0);
  ASSERT_EQ(FRU_delta_write(key, 1999, bytes.data() + 3001), 0);
  ASSERT_EQ(FRU_delta_close(key), 0);
  EXPECT_EQ(PSCDeltaBlockCount(key), 3u);

  std::string back(5000, '\0');
  ASSERT_EQ(FRU_delta_open_for_read(key), 0);
  ASSERT_EQ(FRU_delta_read(key, 2047, back.data()), 0);
  ASSERT_EQ(FRU_delta_read(key, 10, nullptr), 0);  // skipped, still consumed
  ASSERT_EQ(FRU_delta_read(key, 5000 - 2057, back.data() + 2057), 0);
  EXPECT_EQ(back.substr(0, 2047), bytes.substr(0, 2047));
  EXPECT_EQ(back.substr(2057), bytes.substr(2057));
  expectPrinted([&] { return FRU_delta_close(key); }, 0, "");  // read to the exact end

  // A delta can be read again from its start; closing it half read warns.
  ASSERT_EQ(FRU_delta_open_for_read(key), 0);
  std::string again(4999, '\0');
  ASSERT_EQ(FRU_delta_read(key, 4999, again.data()), 0);
  EXPECT_EQ(again, bytes.substr(0, 4999));
  expectPrinted([&] { return FRU_delta_close(key); }, 0,
                "*** FRU_delta_close(): Delta 1 closed with data unread\n");
}

TEST_F(DeltaStoreTest, ReadsGoByWholeBlocksAndStopAtTheLastOne) {
  PK_DELTA_t key = written(4096);
  EXPECT_EQ(PSCDeltaBlockCount(key), 2u);
  ASSERT_EQ(FRU_delta_open_for_read(key), 0);
  std::string back(4097, 'x');
  expectPrinted([&] { return FRU_delta_read(key, 4097, back.data()); },
                PK_ERROR_delta_read_past_end,
                "*** FRU_delta_read(): Attempt to read beyond end of delta.\n");
  EXPECT_EQ(back.substr(0, 4096), pattern(4096));
  EXPECT_EQ(back[4096], 'x');

  // A short last block is still read whole: the store does not know where
  // the kernel's data ended.
  PK_DELTA_t shortKey = written(10);
  ASSERT_EQ(FRU_delta_open_for_read(shortKey), 0);
  std::string block(2048, '\0');
  EXPECT_EQ(FRU_delta_read(shortKey, 2048, block.data()), 0);
  EXPECT_EQ(FRU_delta_read(shortKey, 1, block.data()), PK_ERROR_delta_read_past_end);
}

TEST_F(DeltaStoreTest, BadKeysAndWrongStatesAreRefusedWithTheirMessages) {
  PK_DELTA_t key = openForWrite();
  char byte = 'a';
  auto refused = [](auto call, const std::string& text) {
    expectPrinted(call, PK_ERROR_bad_delta, text);
  };
  refused([] { return FRU_delta_open_for_read(0); },
          "*** FRU_delta_open_for_read(): Key value 0 out of range!\n");
  refused([] { return FRU_delta_close(11); }, "*** FRU_delta_close(): Key value 11 out of range!\n");
  refused([] { return FRU_delta_write(3, 1, "x"); }, "*** FRU_delta_write(): Delta 3 does not exist.\n");
  refused([] { return FRU_delta_delete(5); }, "*** FRU_delta_delete(): Delta 5 does not exist.\n");
  refused([&] { return FRU_delta_open_for_read(key); },
          "*** FRU_delta_open_for_read(): Delta 1 is already open\n");
  refused([&] { return FRU_delta_read(key, 1, &byte); },
          "*** FRU_delta_read(): Delta 1 is open for writing\n");
  refused([&] { return FRU_delta_delete(key); }, "*** FRU_delta_delete(): Delta 1 is open.\n");
  ASSERT_EQ(FRU_delta_close(key), 0);
  refused([&] { return FRU_delta_close(key); }, "*** FRU_delta_close(): Delta 1 is not open\n");
  refused([&] { return FRU_delta_write(key, 1, &byte); },
          "*** FRU_delta_write(): Delta 1 is not open.\n");
  refused([&] { return FRU_delta_read(key, 1, &byte); }, "*** FRU_delta_read(): Delta 1 is not open.\n");
  ASSERT_EQ(FRU_delta_open_for_read(key), 0);
  refused([&] { return FRU_delta_write(key, 1, &byte); },
          "*** FRU_delta_write(): Delta 1 is open for reading\n");
}

TEST_F(DeltaStoreTest, StartAndStopAreCheckedAndStopFreesEverything) {
  expectPrinted([] { return FRU__delta_init(1); }, 0,
                "*** FRU__delta_init(): Attempt to start when running!\n");
  expectPrinted([] { return FRU__delta_init(3); }, 0, "*** FRU__delta_init(): Invalid argument: 3.\n");
  PK_DELTA_t key = openForWrite();
  FRU_delta_write(key, 3000, pattern(3000).data());
  const auto before = PSCGetDeltaStoreStats().bytesReleased;
  EXPECT_EQ(FRU__delta_init(2), 1);
  EXPECT_EQ(PSCGetDeltaStoreStats().bytesReleased - before, 2u * 2064u);
  EXPECT_FALSE(PSCGetDeltaStoreStats().running);
  expectPrinted([] { return FRU__delta_init(2); }, 0,
                "*** FRU__delta_init(): Attempt to stop when not running!\n");
}

}  // namespace
