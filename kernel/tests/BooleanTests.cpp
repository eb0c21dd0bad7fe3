// PK_BODY_boolean_2 on bodies the kernel makes: result codes, bodies, which
// tags live and die, regions, shells and signs, volumes against their
// analytic values, and going back through marks and pmarks.
#include "TopologyHelpers.h"
#include "ops/BooleanChecks.h"
#include "ops/Bodies.h"

#include <BRepBuilderAPI_MakePolygon.hxx>
#include <BRepBuilderAPI_MakeSolid.hxx>
#include <Geom_Plane.hxx>
#include <TopoDS_Compound.hxx>
#include <gp.hxx>
#include <BRepPrimAPI_MakeBox.hxx>
#include <BRep_Builder.hxx>
#include <TopoDS_Shell.hxx>
#include <TopExp_Explorer.hxx>

#include <algorithm>
#include <cmath>

using namespace kerneltest;

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Outcome {
  PK_ERROR_code_t error = 0;
  PK_boolean_result_t result = 0;
  std::vector<PK_BODY_t> bodies;
};

Outcome boolean(PK_BODY_t target, std::vector<PK_BODY_t> tools, PK_boolean_function_t function = PK_boolean_unite_c,
                bool allowDisjoint = false) {
  PK_BODY_boolean_o_t options;
  PK_BODY_boolean_o_m(options);
  options.function = function;
  options.allow_disjoint = allowDisjoint ? PK_LOGICAL_true : PK_LOGICAL_false;
  PK_TOPOL_track_r_t tracking;
  PK_boolean_r_t results;
  Outcome out;
  out.error = PK_BODY_boolean_2(target, int(tools.size()), tools.data(), &options, &tracking, &results);
  if (out.error) return out;
  out.result = results.result;
  out.bodies.assign(results.bodies, results.bodies + results.n_bodies);
  EXPECT_EQ(PK_boolean_r_f(&results), PK_ERROR_no_errors);
  EXPECT_EQ(PK_TOPOL_track_r_f(&tracking), PK_ERROR_no_errors);
  return out;
}

bool contains(const std::vector<int>& list, int tag) { return std::find(list.begin(), list.end(), tag) != list.end(); }

// A unit block whose shell lacks one face, as a solid body.
PK_BODY_t openBlockAt(double x) {
  TopoDS_Shell open;
  BRep_Builder builder;
  builder.MakeShell(open);
  TopExp_Explorer ex(BRepPrimAPI_MakeBox(gp_Pnt(x, -0.5, 0), 1, 1, 1).Shape(), TopAbs_FACE);
  for (ex.Next(); ex.More(); ex.Next()) builder.Add(open, ex.Current());
  return meld::kernel::createBody(BRepBuilderAPI_MakeSolid(open).Solid(), PK_BODY_type_solid_c);
}

}  // namespace

using Booleans = KernelSession;

TEST(BooleanChecks, VolumeInvariantsPerOperation) {
  using meld::kernel::Measures;
  using meld::kernel::volumesAgree;
  Measures one{1.0, 6.0}, half{0.5, 4.0};
  const double fuzzy = 1e-5;
  EXPECT_TRUE(volumesAgree(PK_boolean_unite_c, one, {half}, Measures{1.2, 0}, fuzzy));
  EXPECT_TRUE(volumesAgree(PK_boolean_unite_c, one, {half}, Measures{1.5 + 5e-5, 0}, fuzzy));  // fuzzy x area
  EXPECT_FALSE(volumesAgree(PK_boolean_unite_c, one, {half}, Measures{1.5 + 2e-4, 0}, fuzzy));
  EXPECT_FALSE(volumesAgree(PK_boolean_unite_c, one, {half}, Measures{0.9, 0}, fuzzy));
  EXPECT_TRUE(volumesAgree(PK_boolean_subtract_c, one, {half}, Measures{0.6, 0}, fuzzy));
  EXPECT_FALSE(volumesAgree(PK_boolean_subtract_c, one, {half}, Measures{1.1, 0}, fuzzy));
  EXPECT_FALSE(volumesAgree(PK_boolean_subtract_c, one, {half}, Measures{0.4, 0}, fuzzy));
  EXPECT_TRUE(volumesAgree(PK_boolean_intersect_c, one, {half}, Measures{0.5, 0}, fuzzy));
  EXPECT_FALSE(volumesAgree(PK_boolean_intersect_c, one, {half}, Measures{0.7, 0}, fuzzy));
  EXPECT_FALSE(volumesAgree(PK_boolean_unite_c, one, {half}, Measures{-1.2, 0}, fuzzy));
}

// A result is refused when a face the boolean made fails OCCT's checker; the
// faces it kept from its inputs are not checked again.
TEST_F(Booleans, MadeFacesAreCheckedAndInputFacesAreNot) {
  PK_BODY_t block = makeBlock(1, 1, 1);
  const TopoDS_Shape& shape = meld::kernel::bodyData(block).shape;
  const std::vector<const meld::kernel::BodyTopology*> inputs{&meld::kernel::bodyTopology(block)};
  EXPECT_TRUE(meld::kernel::madeFacesValid(shape, inputs));

  // A new face on a plane whose boundary does not close.
  BRepBuilderAPI_MakePolygon open(gp_Pnt(3, 0, 0), gp_Pnt(4, 0, 0), gp_Pnt(4, 1, 0));
  TopoDS_Face broken;
  BRep_Builder builder;
  builder.MakeFace(broken, new Geom_Plane(gp::XOY()), 1e-7);
  builder.Add(broken, open.Wire());
  TopoDS_Compound withBroken;
  builder.MakeCompound(withBroken);
  builder.Add(withBroken, shape);
  builder.Add(withBroken, broken);
  EXPECT_FALSE(meld::kernel::madeFacesValid(withBroken, inputs));
}

TEST_F(Booleans, ABodyWithAnOpenShellFailsAndEverythingStaysAsItWas) {
  PK_BODY_t target = makeBlock(1, 1, 1), tool = openBlockAt(0);
  EXPECT_FALSE(meld::kernel::solidsClosed(meld::kernel::bodyData(tool).shape));
  std::vector<PK_FACE_t> targetFaces = facesOf(target), toolFaces = facesOf(tool);
  std::string targetBox = boxOf(target);
  Outcome out = boolean(target, {tool});
  EXPECT_EQ(out.error, PK_ERROR_no_errors);
  EXPECT_EQ(out.result, PK_boolean_result_failed_c);
  const char* why = nullptr;
  ASSERT_EQ(PK_ERROR_ask_last_message(&why), PK_ERROR_no_errors);
  EXPECT_EQ(std::string(why).rfind("boolean failed: ", 0), 0u) << why;
  EXPECT_TRUE(out.bodies.empty());
  EXPECT_TRUE(isLive(tool));
  EXPECT_EQ(facesOf(target), targetFaces);
  EXPECT_EQ(facesOf(tool), toolFaces);
  EXPECT_EQ(boxOf(target), targetBox);
}

TEST_F(Booleans, OverlappingBlocksUniteIntoTheTargetAndTheToolGoes) {
  PK_BODY_t target = makeBlock(1, 1, 1), tool = makeBlock(1, 1, 1, 0.5);
  PK_FACE_t keptOfTarget = faceNear(target, -0.5, 0, 0.5), keptOfTool = faceNear(tool, 1, 0, 0.5);
  PK_FACE_t swallowed = faceNear(tool, 0, 0, 0.5);  // the tool's face inside the target
  std::vector<PK_FACE_t> toolFaces = facesOf(tool);

  Outcome out = boolean(target, {tool});
  ASSERT_EQ(out.error, PK_ERROR_no_errors);
  EXPECT_EQ(out.result, PK_boolean_result_success_c);
  EXPECT_EQ(out.bodies, std::vector<PK_BODY_t>{target});
  EXPECT_FALSE(isLive(tool));
  EXPECT_NEAR(kernelVolume(target), 1.5, 1e-9);
  EXPECT_EQ(regionView(target), "void:- solid:+");
  std::vector<PK_FACE_t> faces = facesOf(target);
  // Two end faces; each side in three pieces (target only, shared, tool
  // only): coplanar pieces are not merged.
  EXPECT_EQ(faces.size(), 14u);
  EXPECT_TRUE(contains(faces, keptOfTarget));
  EXPECT_TRUE(contains(faces, keptOfTool));  // the tool's untouched face lives on in the target
  EXPECT_FALSE(isLive(swallowed));
  EXPECT_EQ(classOf(keptOfTool), PK_CLASS_face);
  for (PK_FACE_t face : toolFaces) EXPECT_EQ(isLive(face), contains(faces, face)) << face;
}

TEST_F(Booleans, TouchingAlongAFaceCoincidentContainedAndNearUnitesGiveOneBody) {
  struct Case {
    double dx, dy, dz, x, y, z, volume, within;
  } cases[] = {
      {1, 1, 1, 1, 0, 0, 2.0, 1e-9},           // touching along a face
      {1, 1, 1, 0, 0, 0, 1.0, 1e-9},           // coincident
      {1, 1, 0.5, 0.5, 0, 0, 1.25, 1e-9},      // overlapping with coplanar bottoms
      {0.5, 0.5, 0.5, 0, 0, 0.25, 1.0, 1e-9},  // inside
      // A micrometre apart: beyond the blocks' own tolerances (0.1
      // micrometre), well within default_tol.
      {1, 1, 1, 1 + 1e-6, 0, 0, 2.0, 1e-5},
  };
  for (const Case& c : cases) {
    PK_BODY_t target = makeBlock(1, 1, 1), tool = blockAt(c.dx, c.dy, c.dz, c.x, c.y, c.z);
    Outcome out = boolean(target, {tool});
    EXPECT_EQ(out.result, PK_boolean_result_success_c) << c.volume;
    EXPECT_EQ(out.bodies, std::vector<PK_BODY_t>{target});
    EXPECT_FALSE(isLive(tool));
    EXPECT_NEAR(kernelVolume(target), c.volume, c.within);
    EXPECT_EQ(regionView(target), "void:- solid:+");
  }
}

TEST_F(Booleans, BlocksSharingOnlyAnEdgeStayTwoSolids) {
  PK_BODY_t target = makeBlock(1, 1, 1), tool = blockAt(1, 1, 1, 1, 1, 0);
  Outcome out = boolean(target, {tool});
  EXPECT_EQ(out.result, PK_boolean_result_success_c);
  ASSERT_EQ(out.bodies.size(), 2u);
  EXPECT_EQ(out.bodies[0], target);
  EXPECT_FALSE(isLive(tool));
  for (PK_BODY_t body : out.bodies) {
    EXPECT_NEAR(kernelVolume(body), 1.0, 1e-9);
    EXPECT_EQ(regionView(body), "void:- solid:+");
  }
}

TEST_F(Booleans, DisjointAndMerelyNearBodiesDoNotClash) {
  PK_BODY_t target = makeBlock(1, 1, 1), far = makeBlock(1, 1, 1, 5);
  std::vector<PK_FACE_t> faces = facesOf(target);
  for (PK_boolean_function_t f : {PK_boolean_unite_c, PK_boolean_subtract_c, PK_boolean_intersect_c}) {
    Outcome out = boolean(target, {far}, f);
    EXPECT_EQ(out.result, PK_boolean_result_no_clash_c) << f;
    EXPECT_TRUE(out.bodies.empty());
    EXPECT_TRUE(isLive(far));
  }
  // Boxes that overlap around shapes that do not: a sphere and a small block
  // in the corner of the sphere's box.
  PK_BODY_t sphere = 0;
  PK_AXIS2_sf_t centre{{{0, 0, 0}}, {{0, 0, 1}}, {{1, 0, 0}}};
  ASSERT_EQ(PK_BODY_create_solid_sphere(1, &centre, &sphere), PK_ERROR_no_errors);
  PK_BODY_t corner = blockAt(0.1, 0.1, 0.1, 0.9, 0.9, 0.85);
  for (PK_boolean_function_t f : {PK_boolean_unite_c, PK_boolean_subtract_c, PK_boolean_intersect_c}) {
    Outcome out = boolean(sphere, {corner}, f);
    EXPECT_EQ(out.result, PK_boolean_result_no_clash_c) << f;
    EXPECT_TRUE(isLive(corner));
  }
  EXPECT_EQ(facesOf(target), faces);
  EXPECT_NEAR(kernelVolume(sphere), 4.0 / 3.0 * kPi, 1e-8);
}

TEST_F(Booleans, SubtractingAToolInsideLeavesACavity) {
  PK_BODY_t target = makeBlock(2, 2, 2), tool = blockAt(1, 1, 1, 0, 0, 0.5);
  std::vector<PK_FACE_t> outer = facesOf(target);
  Outcome out = boolean(target, {tool}, PK_boolean_subtract_c);
  ASSERT_EQ(out.result, PK_boolean_result_success_c);
  EXPECT_EQ(out.bodies, std::vector<PK_BODY_t>{target});
  EXPECT_FALSE(isLive(tool));
  EXPECT_NEAR(kernelVolume(target), 7.0, 1e-9);
  // Infinite void outside the outer shell, the solid between both shells, the
  // cavity's void inside the inner one.
  std::vector<PK_REGION_t> regions = regionsOf(target);
  ASSERT_EQ(regions.size(), 3u);
  EXPECT_EQ(regionView(target), "void:- solid:+- void:+");
  EXPECT_NEAR(kernelVolume(regions[2]), 1.0, 1e-9);
  EXPECT_NEAR(kernelVolume(regions[1]), 7.0, 1e-9);
  std::vector<PK_FACE_t> faces = facesOf(target);
  EXPECT_EQ(faces.size(), 12u);
  for (PK_FACE_t face : outer) EXPECT_TRUE(contains(faces, face));
}

// A subtract that cuts the target in two gives two bodies, the target first,
// each end face living on in exactly one; with allow_disjoint the two pieces
// stay one body of two solid regions.
TEST_F(Booleans, SubtractThatCutsTheTargetInTwoGivesTwoBodiesOrOneDisjoint) {
  PK_BODY_t target = makeBlock(3, 1, 1), tool = makeBlock(1, 2, 2);
  PK_FACE_t left = faceNear(target, -1.5, 0, 0.5), right = faceNear(target, 1.5, 0, 0.5);
  Outcome out = boolean(target, {tool}, PK_boolean_subtract_c);
  ASSERT_EQ(out.result, PK_boolean_result_success_c);
  ASSERT_EQ(out.bodies.size(), 2u);
  EXPECT_EQ(out.bodies[0], target);
  for (PK_BODY_t body : out.bodies) {
    EXPECT_NEAR(kernelVolume(body), 1.0, 1e-9);
    EXPECT_EQ(regionView(body), "void:- solid:+");
  }
  EXPECT_NE(contains(facesOf(out.bodies[0]), left), contains(facesOf(out.bodies[1]), left));
  EXPECT_NE(contains(facesOf(out.bodies[0]), right), contains(facesOf(out.bodies[1]), right));

  target = makeBlock(3, 1, 1), tool = makeBlock(1, 2, 2);
  out = boolean(target, {tool}, PK_boolean_subtract_c, true);
  ASSERT_EQ(out.result, PK_boolean_result_success_c);
  EXPECT_EQ(out.bodies, std::vector<PK_BODY_t>{target});
  EXPECT_EQ(regionView(target), "void:-- solid:+ solid:+");
  EXPECT_NEAR(kernelVolume(target), 2.0, 1e-9);
}

TEST_F(Booleans, IntersectKeepsTheCommonPart) {
  PK_BODY_t target = makeBlock(1, 1, 1), tool = 0;
  PK_AXIS2_sf_t axis{{{0.5, 0, 0}}, {{0, 0, 1}}, {{1, 0, 0}}};
  ASSERT_EQ(PK_BODY_create_solid_cyl(0.5, 2, &axis, &tool), PK_ERROR_no_errors);
  Outcome out = boolean(target, {tool}, PK_boolean_intersect_c);
  ASSERT_EQ(out.result, PK_boolean_result_success_c);
  EXPECT_NEAR(kernelVolume(target), kPi * 0.25 / 2, 1e-9);
  EXPECT_FALSE(isLive(tool));
}

TEST_F(Booleans, SheetsAndBadArgumentsAreRefusedAndChangeNothing) {
  PK_BODY_t target = makeBlock(1, 1, 1), tool = makeBlock(1, 1, 1, 0.5);
  TopoDS_Shape face = TopExp_Explorer(BRepPrimAPI_MakeBox(1, 1, 1).Shape(), TopAbs_FACE).Current();
  PK_BODY_t sheet = meld::kernel::createBody(face, PK_BODY_type_sheet_c);
  EXPECT_EQ(boolean(target, {sheet}).result, PK_boolean_result_not_solid_c);
  EXPECT_EQ(boolean(sheet, {tool}).result, PK_boolean_result_not_solid_c);
  EXPECT_EQ(boolean(target, {target}).result, PK_boolean_result_is_tool_c);
  EXPECT_EQ(boolean(target, {tool, tool}).error, PK_ERROR_duplicate_entity);
  EXPECT_EQ(boolean(target, {}).error, PK_ERROR_bad_value);
  EXPECT_EQ(boolean(target, {facesOf(tool)[0]}).error, PK_ERROR_wrong_entity);
  EXPECT_EQ(boolean(target, {999999}).error, PK_ERROR_not_an_entity);
  EXPECT_EQ(boolean(target, {tool}, 12345).error, PK_ERROR_bad_option_data);
  PK_BODY_boolean_o_t options;
  PK_BODY_boolean_o_m(options);
  options.default_tol = -1e-5;  // 0 is allowed: no fuzziness
  PK_boolean_r_t results;
  EXPECT_EQ(PK_BODY_boolean_2(target, 1, &tool, &options, nullptr, &results), PK_ERROR_bad_option_data);
  EXPECT_EQ(PK_BODY_boolean_2(target, 1, &tool, nullptr, nullptr, nullptr), PK_ERROR_null_arg_address);
  EXPECT_TRUE(isLive(tool) && isLive(sheet));
  EXPECT_NEAR(kernelVolume(target), 1.0, 1e-9);
}

TEST_F(Booleans, AMarkBeforeTheBooleanBringsEveryBodyBackExactly) {
  for (bool viaPmark : {false, true}) {
    PK_BODY_t target = makeBlock(3, 1, 1), tool = makeBlock(1, 2, 2);
    std::vector<PK_FACE_t> targetFaces = facesOf(target), toolFaces = facesOf(tool);
    std::vector<PK_REGION_t> targetRegions = regionsOf(target);
    std::string targetBox = boxOf(target), toolBox = boxOf(tool);
    PK_MARK_t mark = 0;
    PK_PMARK_t pmark = 0;
    if (viaPmark) {
      pmark = makePmark();
    } else {
      ASSERT_EQ(PK_MARK_create(&mark), PK_ERROR_no_errors);
    }
    Outcome out = boolean(target, {tool}, PK_boolean_subtract_c);
    ASSERT_EQ(out.bodies.size(), 2u);
    std::vector<PK_FACE_t> madeFaces = facesOf(out.bodies[1]);

    if (viaPmark) {
      goBackTo(pmark);
    } else {
      ASSERT_EQ(PK_MARK_goto(mark), PK_ERROR_no_errors);
    }
    EXPECT_TRUE(isLive(tool));
    EXPECT_FALSE(isLive(out.bodies[1]));
    EXPECT_EQ(facesOf(target), targetFaces);
    EXPECT_EQ(facesOf(tool), toolFaces);
    EXPECT_EQ(regionsOf(target), targetRegions);
    for (PK_FACE_t face : madeFaces)
      EXPECT_EQ(isLive(face), contains(targetFaces, face) || contains(toolFaces, face));
    EXPECT_EQ(boxOf(target), targetBox);
    EXPECT_EQ(boxOf(tool), toolBox);
    EXPECT_NEAR(kernelVolume(target), 3.0, 1e-9);
    EXPECT_NEAR(kernelVolume(tool), 4.0, 1e-9);
  }
}
