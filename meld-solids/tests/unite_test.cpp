// Uniting in-process, against the real kernel: guarded unions, the body
// checks, inner-shell removal and the passes.
#include <gtest/gtest.h>

#include "MeldProcessFiles.h"
#include "MeldSolids.h"
#include "MeldUnite.h"
#include "PSCGetAllBodyInPart.h"
#include "SampleBuilder.h"
#include "../../kernel_layer/pscmn/tests/session_test_helpers.h"

namespace {

using sessiontest::exists;
using Session = sessiontest::RunningModeller;

// The error record of a driver function.
std::string record(const std::string& function, int code, const std::string& callee, int result,
                   int line) {
  return sessiontest::errorRecord(function, code, callee, result, "meld-solids\\MeldSolids", line);
}

PK_BODY_t block(double size, double x, double y, double z) {
  PK_AXIS2_sf_t frame{};
  frame.location = {{x, y, z}};
  frame.axis = {{0, 0, 1}};
  frame.ref_direction = {{1, 0, 0}};
  PK_BODY_t body = PK_ENTITY_null;
  EXPECT_EQ(PK_BODY_create_solid_block(size, size, size, &frame, &body), 0);
  return body;
}

int regionCount(PK_BODY_t body) {
  int n = 0;
  PK_REGION_t* regions = nullptr;
  EXPECT_EQ(PK_BODY_ask_regions(body, &n, &regions), 0);
  PK_MEMORY_free(regions);
  return n;
}

std::vector<PK_BODY_t> bodiesOf(PK_PART_t part) {
  int n = 0;
  PK_BODY_t* bodies = nullptr;
  EXPECT_EQ(PSCGetAllBodyInPart(part, &n, &bodies), 0);
  std::vector<PK_BODY_t> out(bodies, bodies + (bodies ? n : 0));
  PK_MEMORY_free(bodies);
  return out;
}

TEST(Unite, OverlappingBodiesUniteConsumingTheToolBodiesApartStayAsTheyWere) {
  Session s;
  ASSERT_EQ(s.startResult, 0);
  const PK_BODY_t target = block(0.01, 0, 0, 0);
  const PK_BODY_t apart = block(0.01, 0.05, 0, 0), overlapping = block(0.01, 0.005, 0.005, 0.005);
  EXPECT_EQ(st_DoUnite(target, apart, 0.0, 0.01), PK_boolean_result_no_clash_c);
  EXPECT_TRUE(exists(apart));
  EXPECT_EQ(st_DoUnite(target, overlapping, 0.0, 0.01), PK_boolean_result_success_c);
  EXPECT_TRUE(exists(target));
  EXPECT_FALSE(exists(overlapping));
  EXPECT_FALSE(st_HasInvalidRegion(target));
  EXPECT_EQ(s.log(), "");
}

TEST(Unite, ADeadToolFailsTheUnionAndIsRolledBack) {
  Session s;
  const PK_BODY_t target = block(0.01, 0, 0, 0), tool = block(0.01, 0.005, 0, 0);
  ASSERT_EQ(PK_ENTITY_delete(1, &tool), 0);
  EXPECT_EQ(st_DoUnite(target, tool, 0.0, 0.01), PK_boolean_result_failed_c);
  EXPECT_TRUE(exists(target));
  // The kernel's refusal is recorded, then the result's name.
  const std::string log = s.log();
  EXPECT_EQ(log.rfind("st_DoUnite = 0 : PK_BODY_boolean_2 = ", 0), 0u) << log;
  EXPECT_NE(log.find("[meld-solids\\MeldSolids],[137]\nPK_boolean_result_failed_c\n"),
            std::string::npos)
      << log;
}

TEST(Unite, BodyChecksTreatKernelErrorsAsTheSafeAnswer) {
  Session s;
  const PK_BODY_t body = block(0.01, 0, 0, 0);
  EXPECT_TRUE(st_IsSolidBody(body));
  EXPECT_EQ(st_RefreshEntity(body, "gone\n"), body);
  ASSERT_EQ(PK_ENTITY_delete(1, &body), 0);
  EXPECT_EQ(st_RefreshEntity(body, "  Tool body becomes invalid.\n"), PK_ENTITY_null);
  EXPECT_EQ(st_RefreshEntity(body, nullptr), PK_ENTITY_null);
  EXPECT_EQ(s.log(), "  Tool body becomes invalid.\n");
  EXPECT_FALSE(st_IsSolidBody(body));
  EXPECT_TRUE(st_HasInvalidRegion(body));
  PK_BODY_type_t type = 0;
  const int typeError = PK_BODY_ask_type(body, &type);
  int n = 0;
  PK_REGION_t* regions = nullptr;
  const int regionError = PK_BODY_ask_regions(body, &n, &regions);
  EXPECT_EQ(s.log(), "  Tool body becomes invalid.\n" +
                         record("st_IsSolidBody", 1, "PK_BODY_ask_type", typeError, 229) +
                         record("st_HasInvalidRegion", 0, "PK_BODY_ask_regions", regionError, 52));
}

// A union whose target ends without a solid region bounded by a positive
// shell must be undone; a wire body read from a real file is such a body.
TEST(Unite, ABodyWithoutAPositivelyBoundedSolidRegionIsInvalid) {
  MELD_REQUIRE_CORPUS(corpus);
  Session s;
  PK_PART_t part = PK_ENTITY_null;
  ASSERT_EQ(LoadPsPart((corpus / "gismo-swept.xmt_txt").c_str(), &part), 0);
  ASSERT_NE(part, PK_ENTITY_null);
  ASSERT_FALSE(st_IsSolidBody(part));
  EXPECT_TRUE(st_HasInvalidRegion(part));
}

TEST(Unite, InnerShellRemovalFillsTheCavity) {
  Session s;
  const std::vector<PK_BODY_t> bodies = bodiesOf(samples::cavityBlock());
  ASSERT_EQ(bodies.size(), 1u);
  EXPECT_EQ(regionCount(bodies[0]), 3);
  EXPECT_EQ(st_RemoveInnerShellInBody(bodies[0]), 0);
  EXPECT_EQ(regionCount(bodies[0]), 2);
  EXPECT_FALSE(st_HasInvalidRegion(bodies[0]));
  // A plain solid is left alone.
  EXPECT_EQ(st_RemoveInnerShellInBody(bodies[0]), 0);
  EXPECT_EQ(regionCount(bodies[0]), 2);
}

TEST(Unite, PassesLeaveOneBodyInstancedInThePartAndApartBodiesSurvive) {
  Session s("0");
  MeldSettings settings;
  // A nested assembly: two of its three bodies unite, the third survives.
  const PK_PART_t assembly = samples::smallAssembly();
  ASSERT_EQ(bodiesOf(assembly).size(), 3u);
  EXPECT_EQ(st_UniteAllBody(assembly, settings), 0);
  EXPECT_EQ(bodiesOf(assembly).size(), 2u);

  const PK_PART_t part = samples::overlappingSolids();
  ASSERT_EQ(bodiesOf(part).size(), 3u);
  EXPECT_EQ(st_UniteAllBody(part, settings), 0);
  const std::vector<PK_BODY_t> left = bodiesOf(part);
  ASSERT_EQ(left.size(), 1u);
  int n = 0;
  PK_INSTANCE_t* instances = nullptr;
  ASSERT_EQ(PK_PART_ask_ref_instances(left[0], &n, &instances), 0);
  EXPECT_EQ(n, 1);
  PK_MEMORY_free(instances);
}

// A united target moves on to the slot of its last tool, so that the bodies
// between them meet it again in the same pass: A overlaps C, C overlaps B,
// A and B are apart; listed A, B, C, they all unite in one pass.
TEST(Unite, AUnitedTargetTakesItsLastToolsSlotAndMeetsTheBodiesBetween) {
  Session s;
  const PK_BODY_t a = block(0.01, 0, 0, 0), b = block(0.01, 0.016, 0, 0), c = block(0.01, 0.008, 0, 0);
  PK_ASSEMBLY_t part = PK_ENTITY_null;
  ASSERT_EQ(PK_ASSEMBLY_create_empty(&part), 0);
  for (PK_BODY_t body : {a, b, c}) {
    PK_INSTANCE_sf_t sf{part, body, PK_ENTITY_null};
    PK_INSTANCE_t instance = PK_ENTITY_null;
    ASSERT_EQ(PK_INSTANCE_create(&sf, &instance), 0);
  }
  MeldSettings settings;
  EXPECT_EQ(st_UniteAllBody(part, settings), 0);
  EXPECT_EQ(bodiesOf(part).size(), 1u);
  EXPECT_EQ(s.log().rfind("[0]\n[1]\n[2]\nsucceeded(0,2)\nsucceeded(1,2)\n", 0), 0u) << s.log();
}

TEST(Run, FailuresToCollectTheBodiesOrToStartEndWith130And110) {
  Session s;  // a session is already running: a second start is refused
  MeldSettings settings;
  const char* argv[] = {"meld-solids", "-iin.x_t", "-oout.x_t", "-k"};
  testing::internal::CaptureStdout();
  EXPECT_EQ(st_UniteAllBody(PK_ENTITY_null, settings), 130);
  EXPECT_EQ(MeldSolidsMain(4, argv), 110);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "ERROR : rc = 10, PSCGetAllBodyInPart\nERROR : rc = 10, PSCStartModeller\n");
}

}  // namespace
