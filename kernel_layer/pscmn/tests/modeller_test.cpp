// Modeller start and stop, and rollback through partition marks, against the
// real kernel, frustrum and delta store.
#include <gtest/gtest.h>

#include "PSCDeltaStore.h"
#include "PSCRollBack.h"
#include "session_test_helpers.h"

namespace {

using sessiontest::errorRecord;
using sessiontest::exists;
using sessiontest::LoggedWorkDir;
using sessiontest::makeBlock;
using sessiontest::RunningModeller;

const char kModellerSource[] = "kernel_layer\\src\\pscmn\\PSCModeller";

TEST(Modeller, StartsAndStopsWithTheDeltaStore) {
  LoggedWorkDir dir;
  PSCSetSchemaDirectory(nullptr);
  ASSERT_EQ(PSCStartModeller(false, true), 0);
  EXPECT_TRUE(PSCGetDeltaStoreStats().running);
  PK_LOGICAL_t check = PK_LOGICAL_true;
  ASSERT_EQ(PK_SESSION_ask_check_self_int(&check), 0);
  EXPECT_EQ(check, PK_LOGICAL_false);
  ASSERT_EQ(PK_SESSION_ask_check_continuity(&check), 0);
  EXPECT_EQ(check, PK_LOGICAL_false);
  EXPECT_EQ(PSCEndModeller(), 0);
  EXPECT_FALSE(PSCGetDeltaStoreStats().running);

  // Once deltas were registered, every stop asks the store to stop: after a
  // run without deltas the store answers that it was not running.
  ASSERT_EQ(PSCStartModeller(false, false), 0);
  EXPECT_FALSE(PSCGetDeltaStoreStats().running);
  testing::internal::CaptureStdout();
  EXPECT_EQ(PSCEndModeller(), 0);
  EXPECT_NE(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(dir.log(), "");
}

TEST(Modeller, StoppingWithMarksAliveSaysNothing) {
  // The store is stopped before the kernel: the kernel must not call back into it.
  LoggedWorkDir dir;
  PSCSetSchemaDirectory(nullptr);
  ASSERT_EQ(PSCStartModeller(false, true), 0);
  PSCRollback::SetMode(1);
  {
    PSCRollback first(false), second(false);
    ASSERT_EQ(first.SetMark(), 0);
    makeBlock();
    ASSERT_EQ(second.SetMark(), 0);
    makeBlock();
  }
  PSCRollback::SetMode(0);
  testing::internal::CaptureStdout();
  EXPECT_EQ(PSCEndModeller(), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(Modeller, StopWithoutStartAndASecondStartAreReported) {
  {
    LoggedWorkDir dir;
    EXPECT_EQ(PSCEndModeller(), 10);
    EXPECT_EQ(dir.log(), errorRecord("PSCEndModeller", 0, "modeller don't start yet !", 0,
                                     kModellerSource, 127));
    EXPECT_NE(dir.statusFile().find("erPrint : \n"), std::string::npos);
  }
  // The kernel refuses a second start at its first step.
  RunningModeller modeller;
  ASSERT_EQ(modeller.startResult, 0);
  EXPECT_EQ(PSCStartModeller(false, false), 10);
  EXPECT_EQ(modeller.log(), errorRecord("PSCStartModeller", 10, "PK_SESSION_register_frustrum",
                                        PK_ERROR_already_in_session, kModellerSource, 72));
}

TEST(Modeller, ThreadCountComesFromTheEnvironment) {
  const std::pair<const char*, int> cases[] = {{nullptr, 2}, {"16", 8}, {"3", 3},
                                               {"0", 1},     {"-4", 1},  {"many", 1}};
  for (auto [value, threads] : cases) {
    meldtest::ScopedEnv env("NUMBER_OF_PROCESSORS", value);
    EXPECT_EQ(PSCSmpThreadCount(), threads) << (value ? value : "unset");
  }
  meldtest::ScopedEnv env("NUMBER_OF_PROCESSORS", "3");
  LoggedWorkDir dir;
  ASSERT_EQ(PSCStartModeller(true, false), 0);
  PK_SESSION_smp_r_t smp;
  ASSERT_EQ(PK_SESSION_ask_smp(&smp), 0);
  EXPECT_EQ(smp.thread_format, PK_thread_absolute_c);
  EXPECT_EQ(smp.n_threads, 3);
  EXPECT_EQ(PSCEndModeller(), 0);
}

class PartitionRollback : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(modeller.startResult, 0);
    PSCRollback::SetMode(1);
  }
  void TearDown() override { PSCRollback::SetMode(0); }
  RunningModeller modeller;
};

// Keeping an attempt (dropping the object without going back) is guarded on
// the driver's road, in nut2ps's rollback_mark_test.
TEST_F(PartitionRollback, GoingBackUndoesChangesThroughTheDeltaStoreOneMarkAtATime) {
  PK_BODY_t kept = makeBlock();
  PK_BODY_t removed = makeBlock();
  const auto releasedBefore = PSCGetDeltaStoreStats().bytesReleased;
  PK_BODY_t created = PK_ENTITY_null;
  {
    PSCRollback rollback(false);
    ASSERT_EQ(rollback.SetMark(), 0);
    const PK_PMARK_t pmark = rollback.HeldMark();
    EXPECT_EQ(rollback.SetMark(), 10);
    EXPECT_EQ(rollback.HeldMark(), pmark);
    created = makeBlock();
    ASSERT_EQ(PK_ENTITY_delete(1, &removed), 0);
    ASSERT_EQ(rollback.Rollback(), 0);
    EXPECT_EQ(rollback.HeldMark(), PK_ENTITY_null);
    // The mark was consumed: a second roll back does nothing.
    EXPECT_EQ(rollback.Rollback(), 0);
  }
  EXPECT_TRUE(exists(kept));
  EXPECT_TRUE(exists(removed));
  EXPECT_FALSE(exists(created));
  // The journal went through the store: its blocks were released when the
  // partition mark was deleted.
  EXPECT_GT(PSCGetDeltaStoreStats().bytesReleased, releasedBefore);
  EXPECT_EQ(modeller.log(), "");
}

TEST_F(PartitionRollback, RollbackOnDestroyGoesBackAndModeZeroDoesNothing) {
  PK_BODY_t created = PK_ENTITY_null;
  {
    PSCRollback rollback(true);
    ASSERT_EQ(rollback.SetMark(), 0);
    created = makeBlock();
  }
  EXPECT_FALSE(exists(created));
  PSCRollback::SetMode(0);
  PSCRollback rollback(true);
  EXPECT_EQ(rollback.SetMark(), 0);
  EXPECT_EQ(rollback.HeldMark(), PK_ENTITY_null);
}

TEST_F(PartitionRollback, AFailedGoBackKeepsTheMarkAndIsReported) {
  PSCRollback rollback(false);
  ASSERT_EQ(rollback.SetMark(), 0);
  PK_PMARK_t pmark = rollback.HeldMark();
  int nDeleted = 0;
  PK_PMARK_t* deleted = nullptr;
  ASSERT_EQ(PK_PMARK_delete(1, &pmark, &nDeleted, &deleted), 0);
  if (deleted) PK_MEMORY_free(deleted);
  EXPECT_EQ(rollback.Rollback(), 10);
  EXPECT_EQ(rollback.HeldMark(), pmark);
  const std::string log = modeller.log();
  EXPECT_NE(log.find("PSCRollback::DeleteMarkImpl = 10 : PK_PMARK_goto_2 = "), std::string::npos);
  EXPECT_NE(log.find(errorRecord("PSCRollback::Rollback", 10, "DeleteMarkImpl", 10,
                                 "kernel_layer\\src\\pscmn\\PSCRollBack", 60)),
            std::string::npos);
}

}  // namespace
