// The region and shell view, sub-entity tags, mass properties, boxes and the
// validity check, on bodies the kernel makes.
#include "TopologyHelpers.h"
#include "ops/Bodies.h"
#include "session/BodyTopology.h"

#include <BRepBuilderAPI_MakeFace.hxx>
#include <BRepBuilderAPI_MakeSolid.hxx>
#include <BRepPrimAPI_MakeBox.hxx>
#include <BRepTools.hxx>
#include <BRep_Builder.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Shell.hxx>

#include <algorithm>
#include <set>
#include <cmath>

using namespace kerneltest;

namespace {

constexpr double kPi = 3.14159265358979323846;

PK_TRANSF_t transform(double scale, double dx) {
  PK_TRANSF_sf_t sf{};
  for (int i = 0; i < 3; ++i) sf.matrix[i][i] = scale;
  sf.matrix[0][3] = dx;
  sf.matrix[3][3] = 1;
  PK_TRANSF_t transf = 0;
  EXPECT_EQ(PK_TRANSF_create(&sf, &transf), PK_ERROR_no_errors);
  return transf;
}

bool allLive(const std::vector<int>& tags, bool live) {
  return std::all_of(tags.begin(), tags.end(), [&](int t) { return isLive(t) == live; });
}

}  // namespace

using Topology = KernelSession;

TEST_F(Topology, BlockHasTheSolidViewAndTaggedSubEntities) {
  PK_BODY_t block = makeBlock(1, 2, 3);
  std::vector<PK_REGION_t> regions = regionsOf(block);
  ASSERT_EQ(regions.size(), 2u);
  EXPECT_EQ(regionView(block), "void:- solid:+");
  EXPECT_EQ(classOf(regions[0]), PK_CLASS_region);
  std::vector<PK_SHELL_t> outside = shellsOf(regions[0]), inside = shellsOf(regions[1]);
  EXPECT_EQ(classOf(inside[0]), PK_CLASS_shell);

  int nShells = 0;
  PK_SHELL_t* bodyShells = nullptr;
  ASSERT_EQ(PK_BODY_ask_shells(block, &nShells, &bodyShells), PK_ERROR_no_errors);
  EXPECT_EQ(taken(nShells, bodyShells), (std::vector<int>{outside[0], inside[0]}));

  std::vector<PK_FACE_t> faces = facesOf(block);
  EXPECT_EQ(faces.size(), 6u);
  EXPECT_EQ(edgesOf(block).size(), 12u);
  EXPECT_EQ(verticesOf(block).size(), 8u);
  EXPECT_EQ(classOf(faces[0]), PK_CLASS_face);
  EXPECT_EQ(classOf(edgesOf(block)[0]), PK_CLASS_edge);
  EXPECT_EQ(classOf(verticesOf(block)[0]), PK_CLASS_vertex);
  // Tags are distinct and none is the body's.
  std::vector<int> all = faces;
  for (auto list : {regions, outside, inside, edgesOf(block), verticesOf(block)}) all.insert(all.end(), list.begin(), list.end());
  std::sort(all.begin(), all.end());
  EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end());
  EXPECT_FALSE(std::binary_search(all.begin(), all.end(), block));

  // Both sides of the boundary list the same faces, facing opposite ways.
  for (auto [shell, away] : {std::pair{inside[0], PK_LOGICAL_true}, std::pair{outside[0], PK_LOGICAL_false}}) {
    int n = 0;
    PK_FACE_t* shellFaces = nullptr;
    PK_LOGICAL_t* orients = nullptr;
    ASSERT_EQ(PK_SHELL_ask_oriented_faces(shell, &n, &shellFaces, &orients), PK_ERROR_no_errors);
    std::vector<int> sides = taken(n, orients), listed = taken(n, shellFaces);
    std::sort(listed.begin(), listed.end());
    std::vector<int> sortedFaces = faces;
    std::sort(sortedFaces.begin(), sortedFaces.end());
    EXPECT_EQ(listed, sortedFaces);
    EXPECT_TRUE(std::all_of(sides.begin(), sides.end(), [&](int s) { return s == away; }));
  }
}

TEST_F(Topology, EnquiriesRefuseWrongAndDeadTags) {
  PK_BODY_t block = makeBlock(1, 1, 1);
  PK_FACE_t face = facesOf(block)[0];
  PK_LOGICAL_t solid;
  PK_SHELL_sign_t sign;
  EXPECT_EQ(PK_REGION_is_solid(face, &solid), PK_ERROR_wrong_entity);
  EXPECT_EQ(PK_SHELL_find_sign(block, &sign), PK_ERROR_wrong_entity);
  EXPECT_EQ(PK_REGION_is_solid(regionsOf(block)[0], nullptr), PK_ERROR_null_arg_address);
  ASSERT_EQ(PK_ENTITY_delete(1, &block), PK_ERROR_no_errors);
  EXPECT_FALSE(isLive(face));
  PK_CLASS_t cls;
  EXPECT_EQ(PK_ENTITY_ask_class(face, &cls), PK_ERROR_not_an_entity);
  EXPECT_EQ(PK_SHELL_find_sign(face + 1, &sign), PK_ERROR_not_an_entity);
}

TEST_F(Topology, TransformsKeepTagsAndMarksBringReplacedOnesBack) {
  PK_BODY_t block = makeBlock(1, 1, 1);
  std::vector<PK_FACE_t> faces = facesOf(block);
  std::vector<PK_EDGE_t> edges = edgesOf(block);
  std::vector<PK_REGION_t> regions = regionsOf(block);
  ASSERT_EQ(PK_BODY_transform_2(block, transform(1, 5), 0, nullptr), PK_ERROR_no_errors);
  EXPECT_EQ(facesOf(block), faces);
  EXPECT_EQ(edgesOf(block), edges);
  // A scale rebuilds every face; each keeps its tag through the history.
  ASSERT_EQ(PK_BODY_transform_2(block, transform(2, 0), 0, nullptr), PK_ERROR_no_errors);
  EXPECT_EQ(facesOf(block), faces);
  EXPECT_EQ(regionsOf(block), regions);
  EXPECT_NEAR(kernelVolume(block), 8.0, 1e-9);

  // A boolean replaces some faces; going back brings them back to life and
  // takes the new ones away.
  PK_MARK_t mark = 0;
  ASSERT_EQ(PK_MARK_create(&mark), PK_ERROR_no_errors);
  PK_BODY_t tool = makeBlock(1, 1, 1, 10);
  PK_BODY_boolean_o_t options;
  PK_BODY_boolean_o_m(options);
  PK_boolean_r_t results;
  ASSERT_EQ(PK_BODY_boolean_2(block, 1, &tool, &options, nullptr, &results), PK_ERROR_no_errors);
  ASSERT_EQ(results.result, PK_boolean_result_success_c);
  PK_boolean_r_f(&results);
  std::vector<PK_FACE_t> united = facesOf(block), made;
  for (PK_FACE_t face : united)
    if (std::count(faces.begin(), faces.end(), face) == 0) made.push_back(face);
  ASSERT_FALSE(made.empty());
  EXPECT_GT(*std::min_element(made.begin(), made.end()), *std::max_element(faces.begin(), faces.end()));

  ASSERT_EQ(PK_MARK_goto(mark), PK_ERROR_no_errors);
  EXPECT_EQ(facesOf(block), faces);
  EXPECT_TRUE(allLive(faces, true));
  EXPECT_TRUE(allLive(made, false));
  // A tag that died is never handed out again.
  PK_BODY_t next = makeBlock(1, 1, 1);
  for (PK_FACE_t face : facesOf(next)) EXPECT_EQ(std::count(made.begin(), made.end(), face), 0);
}

TEST_F(Topology, MassPropsOfBodiesRegionsFacesAndEdges) {
  PK_AXIS2_sf_t at{{{0, 0, 0}}, {{0, 0, 1}}, {{1, 0, 0}}};
  PK_BODY_t sphere = 0;
  ASSERT_EQ(PK_BODY_create_solid_sphere(0.5, &at, &sphere), PK_ERROR_no_errors);
  double volume = 4.0 / 3.0 * kPi * 0.125;
  double amount = 0, mass = 0, cog[3] = {9, 9, 9}, inertia[9], periphery = 0;
  ASSERT_EQ(PK_TOPOL_eval_mass_props(1, &sphere, 0.999999999, nullptr, &amount, &mass, cog, inertia, &periphery),
            PK_ERROR_no_errors);
  EXPECT_NEAR(amount / volume, 1.0, 1e-9);
  EXPECT_DOUBLE_EQ(mass, amount);
  EXPECT_NEAR(cog[0], 0, 1e-9);
  EXPECT_NEAR(periphery / (kPi), 1.0, 1e-7);
  EXPECT_NEAR(inertia[0] / (0.4 * volume * 0.25), 1.0, 1e-7);
  EXPECT_NEAR(kernelVolume(regionsOf(sphere)[1]) / volume, 1.0, 1e-9);

  PK_BODY_t block = makeBlock(1, 2, 3);
  std::vector<PK_TOPOL_t> faces = facesOf(block);
  ASSERT_EQ(PK_TOPOL_eval_mass_props(int(faces.size()), faces.data(), 0.99, nullptr, &amount, nullptr, nullptr,
                                     nullptr, nullptr),
            PK_ERROR_no_errors);
  EXPECT_NEAR(amount, 22.0, 1e-9);
  std::vector<PK_TOPOL_t> edges = edgesOf(block);
  ASSERT_EQ(PK_TOPOL_eval_mass_props(int(edges.size()), edges.data(), 0.99, nullptr, &amount, nullptr, nullptr,
                                     nullptr, nullptr),
            PK_ERROR_no_errors);
  EXPECT_NEAR(amount, 24.0, 1e-9);

  PK_TOPOL_t mixed[] = {faces[0], edges[0]};
  EXPECT_EQ(PK_TOPOL_eval_mass_props(2, mixed, 0.9, nullptr, &amount, nullptr, nullptr, nullptr, nullptr),
            PK_ERROR_different_types);
  EXPECT_EQ(PK_TOPOL_eval_mass_props(1, &block, 1.5, nullptr, &amount, nullptr, nullptr, nullptr, nullptr),
            PK_ERROR_bad_accuracy);
  PK_TOPOL_t infinite = regionsOf(block)[0];
  EXPECT_EQ(PK_TOPOL_eval_mass_props(1, &infinite, 0.9, nullptr, &amount, nullptr, nullptr, nullptr, nullptr),
            PK_ERROR_wrong_entity);
}

TEST_F(Topology, BoxesOfBodiesAndFaces) {
  PK_BODY_t block = makeBlock(2, 4, 6, 10);
  PK_BOX_t box;
  ASSERT_EQ(PK_TOPOL_find_box(block, &box), PK_ERROR_no_errors);
  double expected[6] = {9, -2, 0, 11, 2, 6};
  for (int i = 0; i < 6; ++i) EXPECT_NEAR(box.coord[i], expected[i], 1e-7) << i;
  int thin = 0;
  for (PK_FACE_t face : facesOf(block)) {
    ASSERT_EQ(PK_TOPOL_find_box(face, &box), PK_ERROR_no_errors);
    for (int axis = 0; axis < 3; ++axis) thin += box.coord[axis + 3] - box.coord[axis] < 1e-7;
  }
  EXPECT_EQ(thin, 6);  // every face of a block is flat across one axis
}

TEST_F(Topology, CheckFindsAMissingFaceAndPassesAGoodBody) {
  PK_BODY_t block = makeBlock(1, 1, 1);
  int n = -1;
  PK_check_fault_t* faults = nullptr;
  ASSERT_EQ(PK_BODY_check(block, nullptr, &n, &faults), PK_ERROR_no_errors);
  EXPECT_EQ(n, 0);
  EXPECT_EQ(faults, nullptr);

  // The same block with one face left out: its shell is open.
  TopoDS_Shell open;
  BRep_Builder builder;
  builder.MakeShell(open);
  TopExp_Explorer ex(meld::kernel::bodyData(block).shape, TopAbs_FACE);
  for (ex.Next(); ex.More(); ex.Next()) builder.Add(open, ex.Current());
  PK_BODY_t broken = meld::kernel::createBody(BRepBuilderAPI_MakeSolid(open).Solid(), PK_BODY_type_solid_c);
  ASSERT_EQ(PK_BODY_check(broken, nullptr, &n, &faults), PK_ERROR_no_errors);
  ASSERT_GE(n, 1);
  EXPECT_EQ(faults[0].state, PK_REGION_state_bad_c);
  EXPECT_EQ(classOf(faults[0].entity_1), PK_CLASS_region);
  EXPECT_EQ(PK_MEMORY_free(faults), PK_ERROR_no_errors);
  PK_BODY_check_o_t first;
  PK_BODY_check_o_m(first);
  first.max_faults = 0;
  EXPECT_EQ(PK_BODY_check(broken, &first, &n, &faults), PK_ERROR_check_error);
}

// An edit hands an old tag to a new face through its origin only when the
// old face went: a history naming a face the shape kept cannot give its tag
// to a second face.
TEST(TopologyEdit, AKeptFacesTagGoesToNoNewFace) {
  const TopoDS_Shape box = BRepPrimAPI_MakeBox(1, 1, 1).Shape();
  PK_ENTITY_t next = 1000;
  meld::kernel::TagSources fresh;
  fresh.fresh = [&] { return next++; };
  const meld::kernel::BodyTopologyPtr old = meld::kernel::deriveTopology(box, fresh);
  // The same box with its first face rebuilt on the same wire: a new face.
  std::vector<TopoDS_Shape> faces;
  for (TopExp_Explorer f(box, TopAbs_FACE); f.More(); f.Next()) faces.push_back(f.Current());
  TopoDS_Face rebuilt = BRepBuilderAPI_MakeFace(BRepTools::OuterWire(TopoDS::Face(faces[0])), true).Face();
  rebuilt.Orientation(faces[0].Orientation());
  BRep_Builder builder;
  TopoDS_Shell shell;
  builder.MakeShell(shell);
  builder.Add(shell, rebuilt);
  for (std::size_t i = 1; i < faces.size(); ++i) builder.Add(shell, faces[i]);
  TopoDS_Solid solid;
  builder.MakeSolid(solid);
  builder.Add(solid, shell);
  meld::kernel::TagSources sources = fresh;
  sources.previous = {old.get()};
  const TopoDS_TShape* kept = faces[1].TShape().get();
  sources.origin = [&](const TopoDS_Shape& s) { return s.IsSame(rebuilt) ? kept : nullptr; };
  meld::kernel::FaceDelta delta{{faces[0]}, {rebuilt}};
  const meld::kernel::BodyTopologyPtr edited = meld::kernel::editTopology(solid, sources, old, delta);
  ASSERT_TRUE(edited);
  const PK_ENTITY_t keptTag = old->tagOf(faces[1]);
  EXPECT_EQ(edited->tagOf(faces[1]), keptTag);
  EXPECT_NE(edited->tagOf(rebuilt), keptTag);
  EXPECT_EQ(edited->tagOf(faces[0]), PK_ENTITY_null);
  std::set<PK_ENTITY_t> tags(edited->faces.begin(), edited->faces.end());
  EXPECT_EQ(tags.size(), 6u);
  EXPECT_EQ(edited->edges.size(), old->edges.size());
}
