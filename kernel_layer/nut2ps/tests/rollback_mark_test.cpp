// The driver's road through the rollback front object with option 54 = 1:
// a partition mark around every attempt, gone back to only when the attempt
// failed, dropped (never deleted in the kernel) when it succeeded.
#include <gtest/gtest.h>

#include "../../pscmn/tests/session_test_helpers.h"
#include "NPOptions.h"
#include "NPRollbackMark.h"
#include "PSCDeltaStore.h"

namespace {

using sessiontest::exists;
using sessiontest::makeBlock;
using sessiontest::RunningModeller;

class KernelMarkRoad : public testing::Test {
 protected:
  void SetUp() override {
    // The front object must set the mode itself: start from the other one.
    PSCRollback::SetMode(0);
    NPSetOption(NP_OPTION_ROLLBACK_WITH_MARKS, 1);
    ASSERT_EQ(modeller.startResult, 0);
  }
  void TearDown() override {
    NPSetOption(NP_OPTION_ROLLBACK_WITH_MARKS, 0);
    PSCRollback::SetMode(0);
  }
  RunningModeller modeller;
};

TEST_F(KernelMarkRoad, RollbackUndoesTheAttemptAndConsumesTheMark) {
  PK_BODY_t kept = makeBlock();
  NPRollbackMark mark;
  ASSERT_TRUE(mark.UsesKernelMarks());
  ASSERT_EQ(mark.SetMark(), 0);
  const PK_PMARK_t pmark = mark.HeldMark();
  ASSERT_NE(pmark, PK_ENTITY_null);
  PK_BODY_t created = makeBlock();
  ASSERT_EQ(PK_ENTITY_delete(1, &kept), 0);

  ASSERT_EQ(mark.Rollback(), 0);
  EXPECT_TRUE(exists(kept));
  EXPECT_FALSE(exists(created));
  EXPECT_EQ(mark.HeldMark(), PK_ENTITY_null);
  EXPECT_FALSE(exists(pmark));  // gone back to, then deleted in the kernel

  // Consumed: a second roll back changes nothing.
  PK_BODY_t later = makeBlock();
  EXPECT_EQ(mark.Rollback(), 0);
  EXPECT_TRUE(exists(later));
  EXPECT_EQ(modeller.log(), "");
}

TEST_F(KernelMarkRoad, DroppingTheObjectKeepsTheAttemptAndTheMark) {
  PK_BODY_t target = makeBlock();
  PK_BODY_t created = PK_ENTITY_null;
  PK_PMARK_t pmark = PK_ENTITY_null;
  unsigned deltasBefore = PSCGetDeltaStoreStats().liveDeltas;
  {
    NPRollbackMark mark;
    ASSERT_EQ(mark.SetMark(), 0);
    pmark = mark.HeldMark();
    ASSERT_NE(pmark, PK_ENTITY_null);
    created = makeBlock();
    ASSERT_EQ(PK_ENTITY_delete(1, &target), 0);
  }
  // No goto: the changes stay. No delete: the partition mark still exists
  // and its delta is still in the store.
  EXPECT_TRUE(exists(created));
  EXPECT_FALSE(exists(target));
  EXPECT_TRUE(exists(pmark));
  EXPECT_EQ(PSCGetDeltaStoreStats().liveDeltas, deltasBefore + 1);
  EXPECT_EQ(modeller.log(), "");
}

TEST_F(KernelMarkRoad, AFailedAttemptAfterKeptOnesUndoesOnlyItself) {
  // As the uniting loop runs: two attempts kept, the third rolled back.
  std::vector<PK_BODY_t> keptBodies;
  for (int attempt = 0; attempt < 2; ++attempt) {
    NPRollbackMark mark;
    ASSERT_EQ(mark.SetMark(), 0);
    keptBodies.push_back(makeBlock());
  }
  PK_BODY_t victim = keptBodies.front();
  NPRollbackMark mark;
  ASSERT_EQ(mark.SetMark(), 0);
  PK_BODY_t failed = makeBlock();
  ASSERT_EQ(PK_ENTITY_delete(1, &victim), 0);
  ASSERT_EQ(mark.Rollback(), 0);
  EXPECT_FALSE(exists(failed));
  for (PK_BODY_t body : keptBodies) EXPECT_TRUE(exists(body));
  EXPECT_EQ(modeller.log(), "");
}

}  // namespace
