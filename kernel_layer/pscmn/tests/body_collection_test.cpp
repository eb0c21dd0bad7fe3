// Body collection from bodies and assemblies, against the real kernel.
#include <gtest/gtest.h>

#include <vector>

#include "PSCAutoCaller.h"
#include "PSCGetAllBodyInPart.h"
#include "session_test_helpers.h"

namespace {

using sessiontest::errorRecord;
using sessiontest::makeBlock;
using sessiontest::RunningModeller;

const char kSource[] = "kernel_layer\\src\\pscmn\\PSCGetAllBodyInPart";
const char kAssemblySource[] = "kernel_layer\\src\\pscmn\\PSCCheckPartIsAssembly";

PK_ASSEMBLY_t makeAssembly() {
  PK_ASSEMBLY_t assembly = PK_ENTITY_null;
  EXPECT_EQ(PK_ASSEMBLY_create_empty(&assembly), 0);
  return assembly;
}

void instance(PK_ASSEMBLY_t assembly, PK_PART_t part) {
  PK_INSTANCE_sf_t sf{assembly, part, PK_ENTITY_null};
  PK_INSTANCE_t inst = PK_ENTITY_null;
  ASSERT_EQ(PK_INSTANCE_create(&sf, &inst), 0);
}

// Collects and frees; an unset array reads as empty.
std::vector<PK_ENTITY_t> collect(PK_ENTITY_t part, int expectedResult = 0) {
  int count = -7;
  PK_ENTITY_t* bodies = nullptr;
  EXPECT_EQ(PSCGetAllBodyInPart(part, &count, &bodies), expectedResult);
  std::vector<PK_ENTITY_t> out;
  if (bodies) out.assign(bodies, bodies + count);
  PK_MEMORY_free(bodies);
  return out;
}

TEST(BodyCollection, NestedAssembliesGiveEachBodyOnceInAscendingOrderABodyItself) {
  RunningModeller modeller;
  const PK_BODY_t a = makeBlock(), b = makeBlock(), c = makeBlock();
  const PK_ASSEMBLY_t left = makeAssembly(), right = makeAssembly(), top = makeAssembly();
  // Instance order deliberately against tag order; b is shared by both sides.
  instance(left, c);
  instance(left, b);
  instance(right, b);
  instance(right, a);
  instance(top, right);
  instance(top, left);
  EXPECT_EQ(collect(top), (std::vector<PK_ENTITY_t>{a, b, c}));
  EXPECT_EQ(collect(a), std::vector<PK_ENTITY_t>{a});
  int isAssembly = 7;
  EXPECT_EQ(PSCCheckPartIsAssembly(a, &isAssembly), 0);
  EXPECT_EQ(isAssembly, 0);
  EXPECT_EQ(PSCCheckPartIsAssembly(top, &isAssembly), 0);
  EXPECT_EQ(isAssembly, 1);
  EXPECT_EQ(modeller.log(), "");

  // An empty assembly gives no array.
  int count = -1;
  PK_ENTITY_t sentinel[1] = {0};
  PK_ENTITY_t* bodies = sentinel;
  EXPECT_EQ(PSCGetAllBodyInPart(makeAssembly(), &count, &bodies), 0);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(bodies, sentinel);
}

TEST(BodyCollection, BadArgumentsAreRefusedWithoutAReport) {
  RunningModeller modeller;
  const PK_BODY_t body = makeBlock();
  int count = -1;
  PK_ENTITY_t* bodies = nullptr;
  EXPECT_EQ(PSCGetAllBodyInPart(PK_ENTITY_null, &count, &bodies), 10);
  EXPECT_EQ(PSCGetAllBodyInPart(body, nullptr, &bodies), 10);
  EXPECT_EQ(PSCGetAllBodyInPart(body, &count, nullptr), 10);
  EXPECT_EQ(count, -1);
  std::set<PK_ENTITY_t> set;
  EXPECT_EQ(sp_CollectBodyRecur(PK_ENTITY_null, set), 5);
  EXPECT_EQ(PSCCheckPartIsAssembly(body, nullptr), 100);
  EXPECT_EQ(modeller.log(), "");
}

TEST(BodyCollection, ADeadTagIsReportedAtEveryLevelOnlyWithADebugLevel) {
  for (const char* level : {"1", "0"}) {
    RunningModeller modeller(level);
    const PK_BODY_t body = makeBlock();
    ASSERT_EQ(PK_ENTITY_delete(1, &body), 0);
    int count = -1;
    PK_ENTITY_t* bodies = nullptr;
    EXPECT_EQ(PSCGetAllBodyInPart(body, &count, &bodies), 20);
    EXPECT_EQ(count, -1);
    EXPECT_EQ(bodies, nullptr);
    if (*level == '0') {
      EXPECT_EQ(modeller.log(), "");
      EXPECT_EQ(modeller.statusFile(), "");
      continue;
    }
    PK_CLASS_t klass = 0;
    const int kernelCode = PK_ENTITY_ask_class(body, &klass);
    ASSERT_NE(kernelCode, 0);
    EXPECT_EQ(modeller.log(),
              errorRecord("PSCCheckPartIsAssembly", 200, "PK_ENTITY_ask_class", kernelCode,
                          kAssemblySource, 33) +
                  errorRecord("sp_CollectBodyRecur", 10, "PSCCheckPartIsAssembly", 200, kSource, 33) +
                  errorRecord("PSCGetAllBodyInPart", 20, "sp_CollectBodyRecur", 10, kSource, 59));
  }
}

struct CountingCallee {
  static inline int calls = 0;
  void operator()(int*) const { ++calls; }
};

TEST(BodyCollection, TheScopeGuardCallsItsCalleeOnceAndNeverForNull) {
  int value = 0;
  CountingCallee::calls = 0;
  { PSCAutoCaller<int*, CountingCallee> guard(&value); }
  EXPECT_EQ(CountingCallee::calls, 1);
  { PSCAutoCaller<int*, CountingCallee> guard(nullptr); }
  EXPECT_EQ(CountingCallee::calls, 1);
}

}  // namespace
