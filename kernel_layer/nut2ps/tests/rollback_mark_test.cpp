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
  sessiontest::RunningModeller modeller;
};

TEST_F(KernelMarkRoad, KeptAttemptsKeepTheirMarksAFailedOneUndoesOnlyItself) {
  const unsigned deltasBefore = PSCGetDeltaStoreStats().liveDeltas;

  // As the uniting loop runs: two attempts kept, the third rolled back.
  PK_BODY_t target = makeBlock();
  std::vector<PK_BODY_t> keptBodies;
  std::vector<PK_PMARK_t> keptMarks;
  for (int attempt = 0; attempt < 2; ++attempt) {
    NPRollbackMark mark;
    ASSERT_EQ(mark.SetMark(), 0);
    keptMarks.push_back(mark.HeldMark());
    ASSERT_NE(keptMarks.back(), PK_ENTITY_null);
    keptBodies.push_back(makeBlock());
    if (attempt == 0) { ASSERT_EQ(PK_ENTITY_delete(1, &target), 0); }
  }
  // No goto: the changes stay. No delete: the partition marks still exist
  // and their deltas are still in the store.
  EXPECT_FALSE(exists(target));
  for (PK_PMARK_t pmark : keptMarks) EXPECT_TRUE(exists(pmark));
  EXPECT_EQ(PSCGetDeltaStoreStats().liveDeltas, deltasBefore + 2);

  PK_BODY_t victim = keptBodies.front();
  NPRollbackMark mark;
  ASSERT_TRUE(mark.UsesKernelMarks());
  ASSERT_EQ(mark.SetMark(), 0);
  const PK_PMARK_t pmark = mark.HeldMark();
  PK_BODY_t failed = makeBlock();
  ASSERT_EQ(PK_ENTITY_delete(1, &victim), 0);
  ASSERT_EQ(mark.Rollback(), 0);
  EXPECT_FALSE(exists(failed));
  for (PK_BODY_t body : keptBodies) EXPECT_TRUE(exists(body));
  EXPECT_EQ(mark.HeldMark(), PK_ENTITY_null);
  EXPECT_FALSE(exists(pmark));  // gone back to, then deleted in the kernel

  // Consumed: a second roll back changes nothing.
  PK_BODY_t later = makeBlock();
  EXPECT_EQ(mark.Rollback(), 0);
  EXPECT_TRUE(exists(later));
  EXPECT_EQ(modeller.log(), "");
}

}  // namespace
