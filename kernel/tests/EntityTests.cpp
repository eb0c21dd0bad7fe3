#include "TopologyHelpers.h"

#include "ops/Bodies.h"

#include <BRep_Tool.hxx>
#include <TopExp.hxx>
#include <TopTools_IndexedMapOfShape.hxx>
#include <TopoDS.hxx>

#include <cmath>
#include <cstring>
#include <vector>

using namespace kerneltest;

namespace {

constexpr double kPi = 3.14159265358979323846;

// The body's vertices in the order its topology lists them.
std::vector<gp_Pnt> vertexPoints(PK_BODY_t body) {
  TopTools_IndexedMapOfShape vertices;
  TopExp::MapShapes(meld::kernel::bodyData(body).shape, TopAbs_VERTEX, vertices);
  std::vector<gp_Pnt> points;
  for (int i = 1; i <= vertices.Extent(); ++i) points.push_back(BRep_Tool::Pnt(TopoDS::Vertex(vertices(i))));
  return points;
}

PK_INSTANCE_t instance(PK_ASSEMBLY_t assembly, PK_PART_t part, PK_TRANSF_t transf = 0) {
  PK_INSTANCE_sf_t sf{assembly, part, transf};
  PK_INSTANCE_t result = 0;
  EXPECT_EQ(PK_INSTANCE_create(&sf, &result), PK_ERROR_no_errors);
  return result;
}

}  // namespace

using Entities = KernelSession;

TEST_F(Entities, PrimitivesHaveTheirSizeAndPlace) {
  PK_BODY_t block = makeBlock(2, 3, 4, 10);
  EXPECT_NEAR(volumeOf(block), 24, 1e-9);
  EXPECT_EQ(boxOf(block), "9.000000 -1.500000 0.000000 11.000000 1.500000 4.000000");

  PK_AXIS2_sf_t tilted{{{0, 0, 5}}, {{1, 0, 0}}, {{0, 1, 0}}};
  PK_BODY_t cyl = 0, sphere = 0;
  ASSERT_EQ(PK_BODY_create_solid_cyl(0.5, 2, &tilted, &cyl), PK_ERROR_no_errors);
  EXPECT_NEAR(volumeOf(cyl), kPi * 0.25 * 2, 1e-9);
  EXPECT_EQ(boxOf(cyl), "0.000000 -0.500000 4.500000 2.000000 0.500000 5.500000");
  ASSERT_EQ(PK_BODY_create_solid_sphere(1, nullptr, &sphere), PK_ERROR_no_errors);
  EXPECT_NEAR(volumeOf(sphere), 4.0 / 3.0 * kPi, 1e-6);

  PK_BODY_type_t type = 0;
  ASSERT_EQ(PK_BODY_ask_type(sphere, &type), PK_ERROR_no_errors);
  EXPECT_EQ(type, PK_BODY_type_solid_c);
  EXPECT_EQ(classOf(sphere), PK_CLASS_body);
}

TEST_F(Entities, BadArgumentsGiveCodesNotBodies) {
  PK_BODY_t body = 0;
  EXPECT_EQ(PK_BODY_create_solid_block(0, 1, 1, nullptr, &body), PK_ERROR_bad_value);
  EXPECT_EQ(PK_BODY_create_solid_block(1, 1, 2000, nullptr, &body), PK_ERROR_bad_value);
  EXPECT_EQ(PK_BODY_create_solid_sphere(NAN, nullptr, &body), PK_ERROR_bad_value);
  PK_AXIS2_sf_t skew{{{0, 0, 0}}, {{0, 0, 1}}, {{0, 1, 1}}};
  EXPECT_EQ(PK_BODY_create_solid_cyl(1, 1, &skew, &body), PK_ERROR_bad_value);
  EXPECT_EQ(body, PK_ENTITY_null);
  PK_BODY_type_t type = 0;
  EXPECT_EQ(PK_BODY_ask_type(12345, &type), PK_ERROR_not_an_entity);
  PK_PARTITION_t partition = 0;
  ASSERT_EQ(PK_SESSION_ask_curr_partition(&partition), PK_ERROR_no_errors);
  EXPECT_EQ(PK_BODY_ask_type(partition, &type), PK_ERROR_wrong_entity);
  EXPECT_EQ(PK_ENTITY_delete(1, &partition), PK_ERROR_wrong_entity);
}

TEST_F(Entities, TagsAreNeverReused) {
  PK_BODY_t first = makeBlock(1, 1, 1);
  ASSERT_EQ(PK_ENTITY_delete(1, &first), PK_ERROR_no_errors);
  EXPECT_FALSE(isLive(first));
  PK_CLASS_t cls = 0;
  EXPECT_EQ(PK_ENTITY_ask_class(first, &cls), PK_ERROR_not_an_entity);
  PK_MARK_t mark = 0;
  ASSERT_EQ(PK_MARK_create(&mark), PK_ERROR_no_errors);
  PK_BODY_t second = makeBlock(1, 1, 1);
  ASSERT_EQ(PK_MARK_goto(mark), PK_ERROR_no_errors);
  EXPECT_FALSE(isLive(second));
  PK_BODY_t third = makeBlock(1, 1, 1);
  EXPECT_GT(second, first);
  EXPECT_GT(third, second);
}

TEST_F(Entities, TransformMovesAndRefusesPerspective) {
  PK_BODY_t block = makeBlock(1, 1, 1);
  PK_TRANSF_sf_t sf{{{0, -1, 0, 5}, {1, 0, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}}};
  PK_TRANSF_t transf = 0;
  ASSERT_EQ(PK_TRANSF_create(&sf, &transf), PK_ERROR_no_errors);
  EXPECT_EQ(classOf(transf), PK_CLASS_transf);
  ASSERT_EQ(PK_BODY_transform_2(block, transf, 1e-6, nullptr), PK_ERROR_no_errors);
  EXPECT_EQ(boxOf(block), "4.500000 -0.500000 0.000000 5.500000 0.500000 1.000000");

  PK_TRANSF_sf_t doubled{{{2, 0, 0, 0}, {0, 2, 0, 0}, {0, 0, 2, 0}, {0, 0, 0, 1}}};
  ASSERT_EQ(PK_TRANSF_create(&doubled, &transf), PK_ERROR_no_errors);
  ASSERT_EQ(PK_BODY_transform_2(block, transf, 1e-6, nullptr), PK_ERROR_no_errors);
  EXPECT_NEAR(volumeOf(block), 8, 1e-9);

  PK_TRANSF_sf_t perspective = sf;
  perspective.matrix[3][0] = 0.1;
  EXPECT_EQ(PK_TRANSF_create(&perspective, &transf), PK_ERROR_bad_transf);
  PK_TRANSF_sf_t shear{{{1, 0.5, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}}};
  EXPECT_EQ(PK_TRANSF_create(&shear, &transf), PK_ERROR_bad_transf);
}

// A body moved many times carries one location, the product of the moves,
// and its vertices lie where one move by that product puts them. Two motions
// that do not commute alternate, so that the order of composing counts.
TEST_F(Entities, ManyRigidMovesComposeIntoOneLocation) {
  const double a = 2 * kPi / 7, b = 2 * kPi / 11;
  const double steps[2][4][4] = {
      {{std::cos(a), -std::sin(a), 0, 0.3}, {std::sin(a), std::cos(a), 0, -0.1}, {0, 0, 1, 0.05}, {0, 0, 0, 1}},
      {{1, 0, 0, -0.2}, {0, std::cos(b), -std::sin(b), 0.4}, {0, std::sin(b), std::cos(b), 0}, {0, 0, 0, 1}}};
  PK_TRANSF_t stepTransfs[2] = {0, 0};
  for (int k = 0; k < 2; ++k) {
    PK_TRANSF_sf_t sf;
    std::memcpy(sf.matrix, steps[k], sizeof sf.matrix);
    ASSERT_EQ(PK_TRANSF_create(&sf, &stepTransfs[k]), PK_ERROR_no_errors);
  }

  double total[4][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};
  PK_BODY_t moved = makeBlock(1, 2, 3);
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(PK_BODY_transform_2(moved, stepTransfs[i % 2], 1e-6, nullptr), PK_ERROR_no_errors);
    double next[4][4] = {};
    for (int r = 0; r < 4; ++r)
      for (int c = 0; c < 4; ++c)
        for (int k = 0; k < 4; ++k) next[r][c] += steps[i % 2][r][k] * total[k][c];
    std::memcpy(total, next, sizeof total);
  }
  const TopoDS_Shape& shape = meld::kernel::bodyData(moved).shape;
  EXPECT_TRUE(shape.Location().NextLocation().IsIdentity()) << "one location, not a chain";

  PK_TRANSF_sf_t totalSf;
  std::memcpy(totalSf.matrix, total, sizeof total);
  PK_TRANSF_t totalTransf = 0;
  ASSERT_EQ(PK_TRANSF_create(&totalSf, &totalTransf), PK_ERROR_no_errors);
  PK_BODY_t once = makeBlock(1, 2, 3);
  ASSERT_EQ(PK_BODY_transform_2(once, totalTransf, 1e-6, nullptr), PK_ERROR_no_errors);
  std::vector<gp_Pnt> expected = vertexPoints(once), got = vertexPoints(moved);
  ASSERT_EQ(got.size(), 8u);
  ASSERT_EQ(got.size(), expected.size());
  for (std::size_t i = 0; i < got.size(); ++i)
    EXPECT_LT(got[i].Distance(expected[i]), 1e-9) << i;
  EXPECT_NEAR(volumeOf(moved), 6, 1e-9);
}

TEST_F(Entities, AssembliesListTheirPartsAndInstances) {
  PK_ASSEMBLY_t top = 0, sub = 0;
  ASSERT_EQ(PK_ASSEMBLY_create_empty(&top), PK_ERROR_no_errors);
  ASSERT_EQ(PK_ASSEMBLY_create_empty(&sub), PK_ERROR_no_errors);
  EXPECT_EQ(classOf(top), PK_CLASS_assembly);
  PK_BODY_t a = makeBlock(1, 1, 1), b = makeBlock(1, 1, 1);
  PK_INSTANCE_t ib = instance(top, b), ia1 = instance(top, a), ia2 = instance(top, a);
  instance(top, sub);
  instance(sub, a);

  int n = 0;
  PK_PART_t* parts = nullptr;
  ASSERT_EQ(PK_ASSEMBLY_ask_parts(top, &n, &parts), PK_ERROR_no_errors);
  EXPECT_EQ(taken(n, parts), (std::vector<int>{b, a, sub}));
  PK_INSTANCE_t* refs = nullptr;
  ASSERT_EQ(PK_PART_ask_ref_instances(a, &n, &refs), PK_ERROR_no_errors);
  EXPECT_EQ(n, 3);
  std::vector<int> refList = taken(n, refs);
  EXPECT_EQ(refList[0], ia1);
  EXPECT_EQ(refList[1], ia2);

  PK_INSTANCE_sf_t loop{sub, top, 0};
  PK_INSTANCE_t bad = 0;
  EXPECT_EQ(PK_INSTANCE_create(&loop, &bad), PK_ERROR_bad_value);
  EXPECT_EQ(PK_ENTITY_delete(1, &b), PK_ERROR_part_is_instanced);
  PK_ENTITY_t bodyWithItsInstance[] = {b, ib};
  ASSERT_EQ(PK_ENTITY_delete(2, bodyWithItsInstance), PK_ERROR_no_errors);

  PK_ENTITY_t subAssembly[] = {sub};
  EXPECT_EQ(PK_ENTITY_delete(1, subAssembly), PK_ERROR_part_is_instanced);
  ASSERT_EQ(PK_ENTITY_delete(1, &top), PK_ERROR_no_errors);  // its instances go with it
  EXPECT_FALSE(isLive(ia1));
  ASSERT_EQ(PK_ASSEMBLY_ask_parts(sub, &n, &parts), PK_ERROR_no_errors);
  EXPECT_EQ(taken(n, parts), (std::vector<int>{a}));
  EXPECT_EQ(frustrumLog().liveBytes, 0);
}

// An instance holds its transform by tag: the transform may go only with
// every instance it places (or their assemblies), also after a roll-back.
TEST_F(Entities, TransformInUseByAnInstanceIsNotDeleted) {
  PK_ASSEMBLY_t first = 0, second = 0;
  ASSERT_EQ(PK_ASSEMBLY_create_empty(&first), PK_ERROR_no_errors);
  ASSERT_EQ(PK_ASSEMBLY_create_empty(&second), PK_ERROR_no_errors);
  PK_BODY_t body = makeBlock(1, 1, 1);
  PK_TRANSF_sf_t sf{{{1, 0, 0, 2}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}}};
  PK_TRANSF_t transf = 0;
  ASSERT_EQ(PK_TRANSF_create(&sf, &transf), PK_ERROR_no_errors);
  PK_INSTANCE_t inFirst = instance(first, body, transf);
  PK_INSTANCE_t inSecond = instance(second, body, transf);

  EXPECT_EQ(PK_ENTITY_delete(1, &transf), PK_ERROR_part_is_instanced);
  PK_ENTITY_t withOneInstance[] = {transf, inFirst};
  EXPECT_EQ(PK_ENTITY_delete(2, withOneInstance), PK_ERROR_part_is_instanced);
  PK_ENTITY_t withOneAssembly[] = {transf, first};
  EXPECT_EQ(PK_ENTITY_delete(2, withOneAssembly), PK_ERROR_part_is_instanced);
  EXPECT_TRUE(isLive(transf));
  EXPECT_TRUE(isLive(inFirst));
  EXPECT_TRUE(isLive(first));

  PK_MARK_t mark = 0;
  ASSERT_EQ(PK_MARK_create(&mark), PK_ERROR_no_errors);
  PK_ENTITY_t withBoth[] = {transf, first, inSecond};
  ASSERT_EQ(PK_ENTITY_delete(3, withBoth), PK_ERROR_no_errors);
  EXPECT_FALSE(isLive(transf));
  EXPECT_FALSE(isLive(inFirst));
  EXPECT_FALSE(isLive(inSecond));

  // Brought back, the instances hold the transform again.
  ASSERT_EQ(PK_MARK_goto(mark), PK_ERROR_no_errors);
  EXPECT_TRUE(isLive(transf));
  EXPECT_TRUE(isLive(inSecond));
  EXPECT_EQ(PK_ENTITY_delete(1, &transf), PK_ERROR_part_is_instanced);
  ASSERT_EQ(PK_ENTITY_delete(1, &inSecond), PK_ERROR_no_errors);
  ASSERT_EQ(PK_ENTITY_delete(1, &inFirst), PK_ERROR_no_errors);
  EXPECT_EQ(PK_ENTITY_delete(1, &transf), PK_ERROR_no_errors);
  ASSERT_EQ(PK_MARK_delete(mark), PK_ERROR_no_errors);
}
