// PK_FACE_delete: cavity shells removed directly (the driver's inner-shell
// removal), other face sets healed or refused, undone by a mark.
#include "TopologyHelpers.h"

#include <algorithm>
#include <cmath>

using namespace kerneltest;

namespace {

constexpr double kPi = 3.14159265358979323846;

void subtract(PK_BODY_t target, PK_BODY_t tool) {
  PK_BODY_boolean_o_t options;
  PK_BODY_boolean_o_m(options);
  options.function = PK_boolean_subtract_c;
  PK_boolean_r_t results;
  ASSERT_EQ(PK_BODY_boolean_2(target, 1, &tool, &options, nullptr, &results), PK_ERROR_no_errors);
  ASSERT_EQ(results.result, PK_boolean_result_success_c);
  PK_boolean_r_f(&results);
}

// A 2 m block with a 1 m cavity in its middle.
PK_BODY_t blockWithCavity() {
  PK_BODY_t target = makeBlock(2, 2, 2);
  PK_AXIS2_sf_t at{{{0, 0, 0.5}}, {{0, 0, 1}}, {{1, 0, 0}}};
  PK_BODY_t tool = 0;
  EXPECT_EQ(PK_BODY_create_solid_block(1, 1, 1, &at, &tool), PK_ERROR_no_errors);
  subtract(target, tool);
  return target;
}

// The faces of every shell of the region, as the driver collects them.
std::vector<PK_FACE_t> regionFaces(PK_REGION_t region) {
  std::vector<PK_FACE_t> faces;
  for (PK_SHELL_t shell : shellsOf(region)) {
    int n = 0;
    PK_FACE_t* list = nullptr;
    PK_LOGICAL_t* orients = nullptr;
    EXPECT_EQ(PK_SHELL_ask_oriented_faces(shell, &n, &list, &orients), PK_ERROR_no_errors);
    taken(n, orients);
    for (PK_FACE_t face : taken(n, list)) faces.push_back(face);
  }
  return faces;
}

}  // namespace

using FaceDelete = KernelSession;

TEST_F(FaceDelete, CavityShellGoesDirectlyAndAMarkBringsItBack) {
  PK_BODY_t body = blockWithCavity();
  std::vector<PK_REGION_t> regions = regionsOf(body);
  ASSERT_EQ(regions.size(), 3u);
  std::vector<PK_FACE_t> outer = regionFaces(regions[0]), cavity = regionFaces(regions[2]);
  ASSERT_EQ(cavity.size(), 6u);
  PK_MARK_t mark = 0;
  ASSERT_EQ(PK_MARK_create(&mark), PK_ERROR_no_errors);

  ASSERT_EQ(PK_FACE_delete(int(cavity.size()), cavity.data(), PK_FACE_heal_yes_c), PK_ERROR_no_errors);
  EXPECT_EQ(regionView(body), "void:- solid:+");
  EXPECT_NEAR(kernelVolume(body), 8.0, 1e-9);
  EXPECT_EQ(facesOf(body), outer);  // the outer faces keep their tags
  for (PK_FACE_t face : cavity) EXPECT_FALSE(isLive(face));
  EXPECT_FALSE(isLive(regions[2]));

  ASSERT_EQ(PK_MARK_goto(mark), PK_ERROR_no_errors);
  EXPECT_EQ(regionsOf(body), regions);
  EXPECT_NEAR(kernelVolume(body), 7.0, 1e-9);
  for (PK_FACE_t face : cavity) EXPECT_TRUE(isLive(face));
}

TEST_F(FaceDelete, AHoleIsHealedAwayOrRefusedWithoutHealing) {
  PK_BODY_t block = makeBlock(2, 2, 2), drill = 0;
  PK_AXIS2_sf_t axis{{{0, 0, -1}}, {{0, 0, 1}}, {{1, 0, 0}}};
  ASSERT_EQ(PK_BODY_create_solid_cyl(0.25, 4, &axis, &drill), PK_ERROR_no_errors);
  subtract(block, drill);
  double drilled = 8.0 - kPi * 0.0625 * 2;
  ASSERT_NEAR(kernelVolume(block), drilled, 1e-9);
  std::vector<PK_FACE_t> faces = facesOf(block);
  // The hole's wall is the one face whose box is narrow in x.
  PK_FACE_t wall = 0;
  for (PK_FACE_t face : faces) {
    PK_BOX_t box;
    ASSERT_EQ(PK_TOPOL_find_box(face, &box), PK_ERROR_no_errors);
    if (box.coord[3] - box.coord[0] < 1 && box.coord[5] - box.coord[2] > 1) wall = face;
  }
  ASSERT_NE(wall, 0);

  EXPECT_EQ(PK_FACE_delete(1, &wall, PK_FACE_heal_no_c), PK_ERROR_cant_heal);
  EXPECT_EQ(facesOf(block), faces);
  ASSERT_EQ(PK_FACE_delete(1, &wall, PK_FACE_heal_yes_c), PK_ERROR_no_errors);
  EXPECT_NEAR(kernelVolume(block), 8.0, 1e-9);
  EXPECT_EQ(facesOf(block).size(), 6u);
  EXPECT_FALSE(isLive(wall));
  EXPECT_EQ(regionView(block), "void:- solid:+");
}

TEST_F(FaceDelete, RefusesOuterShellsMixedBodiesAndBadArguments) {
  PK_BODY_t a = makeBlock(1, 1, 1), b = makeBlock(1, 1, 1, 5);
  std::vector<PK_FACE_t> all = facesOf(a);
  EXPECT_EQ(PK_FACE_delete(int(all.size()), all.data(), PK_FACE_heal_yes_c), PK_ERROR_cant_heal);
  PK_FACE_t mixed[] = {facesOf(a)[0], facesOf(b)[0]};
  EXPECT_EQ(PK_FACE_delete(2, mixed, PK_FACE_heal_yes_c), PK_ERROR_not_in_same_body);
  PK_FACE_t twice[] = {all[0], all[0]};
  EXPECT_EQ(PK_FACE_delete(2, twice, PK_FACE_heal_yes_c), PK_ERROR_duplicate_entity);
  EXPECT_EQ(PK_FACE_delete(1, &a, PK_FACE_heal_yes_c), PK_ERROR_wrong_entity);
  EXPECT_EQ(PK_FACE_delete(1, all.data(), 4242), PK_ERROR_bad_option_data);
  EXPECT_EQ(PK_FACE_delete(0, all.data(), PK_FACE_heal_yes_c), PK_ERROR_bad_value);
  EXPECT_EQ(facesOf(a), all);
  EXPECT_NEAR(kernelVolume(a), 1.0, 1e-9);
}
