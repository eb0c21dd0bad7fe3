// Tracking records of PK_BODY_boolean_2: every face, edge and vertex that a
// boolean changed is accounted for, once, in the record kind that says what
// became of it, whether the union is answered pairwise or from the session's
// shared split.
#include "TopologyHelpers.h"
#include "ops/Bodies.h"
#include "ops/SharedFuse.h"
#include "session/Session.h"

#include <BRep_Tool.hxx>
#include <TopExp.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Edge.hxx>
#include <TopoDS_Vertex.hxx>
#include <gp_Vec.hxx>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

using namespace kerneltest;

namespace {

struct Record {
  PK_TOPOL_track_t track;
  std::vector<int> originals;
  std::vector<PK_CLASS_t> classes;
  std::vector<PK_TOPOL_t> products;
};

struct Tracked {
  PK_boolean_result_t result = 0;
  std::vector<PK_BODY_t> bodies;
  std::vector<Record> records;
};

Tracked booleanTracked(PK_BODY_t target, PK_BODY_t tool, PK_boolean_function_t function, bool tracking = true) {
  PK_BODY_boolean_o_t options;
  PK_BODY_boolean_o_m(options);
  options.function = function;
  options.tracking = tracking ? PK_LOGICAL_true : PK_LOGICAL_false;
  PK_TOPOL_track_r_t track;
  PK_boolean_r_t results;
  Tracked out;
  EXPECT_EQ(PK_BODY_boolean_2(target, 1, &tool, &options, &track, &results), PK_ERROR_no_errors);
  out.result = results.result;
  out.bodies.assign(results.bodies, results.bodies + results.n_bodies);
  for (int i = 0; i < track.n_track_records; ++i) {
    const PK_TOPOL_track_record_r_t& r = track.track_records[i];
    out.records.push_back({r.track, std::vector<int>(r.original_topols, r.original_topols + r.n_original_topols),
                           std::vector<PK_CLASS_t>(r.original_classes, r.original_classes + r.n_original_topols),
                           std::vector<PK_TOPOL_t>(r.product_topols, r.product_topols + r.n_product_topols)});
  }
  EXPECT_EQ(PK_boolean_r_f(&results), PK_ERROR_no_errors);
  EXPECT_EQ(PK_TOPOL_track_r_f(&track), PK_ERROR_no_errors);
  EXPECT_EQ(track.n_track_records, 0);
  EXPECT_EQ(track.track_records, nullptr);
  return out;
}

std::set<int> topolsOf(PK_BODY_t body) {
  std::set<int> all;
  for (const auto& list : {facesOf(body), edgesOf(body), verticesOf(body)}) all.insert(list.begin(), list.end());
  return all;
}

bool has(const std::vector<int>& list, int tag) { return std::find(list.begin(), list.end(), tag) != list.end(); }

// Every face, edge and vertex the inputs had and the result lacks is an
// original of exactly one record that is not a create; every one the result
// has and the inputs lacked is a product of exactly one record; nothing else
// is named.
void expectEverythingAccountedFor(const std::set<int>& before, const std::set<int>& after,
                                  const std::vector<Record>& records) {
  std::map<int, int> gone, made;
  for (const Record& r : records) {
    EXPECT_EQ(r.originals.size(), r.classes.size());
    if (r.track == PK_TOPOL_track_delete_c) {
      EXPECT_TRUE(r.products.empty());
    }
    if (r.track == PK_TOPOL_track_merge_c) {
      EXPECT_EQ(r.products.size(), 1u);
    }
    for (std::size_t i = 0; i < r.originals.size(); ++i) {
      EXPECT_TRUE(before.count(r.originals[i])) << r.originals[i];
      if (r.track == PK_TOPOL_track_create_c) {
        EXPECT_EQ(r.classes[i], PK_CLASS_face);  // what a new edge or vertex lies on
        continue;
      }
      ++gone[r.originals[i]];
      if (!r.products.empty()) {
        EXPECT_EQ(r.classes[i], classOf(r.products.front()));
      }
    }
    for (int p : r.products) {
      EXPECT_TRUE(after.count(p)) << p;
      ++made[p];
    }
  }
  for (int tag : before) {
    if (!after.count(tag)) {
      EXPECT_EQ(gone[tag], 1) << "old " << tag;
    }
  }
  for (int tag : after) {
    if (!before.count(tag)) {
      EXPECT_EQ(made[tag], 1) << "new " << classOf(tag) << " " << tag;
    }
  }
  for (auto [tag, count] : made) EXPECT_EQ(count, 1) << tag;
}

const Record* recordWithOriginal(const std::vector<Record>& records, int tag) {
  for (const Record& r : records)
    if (r.track != PK_TOPOL_track_create_c && has(r.originals, tag)) return &r;
  return nullptr;
}

// A successful boolean whose records account for everything it changed.
Tracked trackedChange(PK_BODY_t target, PK_BODY_t tool, PK_boolean_function_t function) {
  std::set<int> before = topolsOf(target), toolTopols = topolsOf(tool);
  before.insert(toolTopols.begin(), toolTopols.end());
  Tracked out = booleanTracked(target, tool, function);
  EXPECT_EQ(out.result, PK_boolean_result_success_c);
  if (out.result == PK_boolean_result_success_c) expectEverythingAccountedFor(before, topolsOf(target), out.records);
  return out;
}

// Edges whose ends differ in x only, by this much.
std::vector<PK_EDGE_t> edgesAlongX(PK_BODY_t body, double length) {
  std::vector<PK_EDGE_t> along;
  for (PK_EDGE_t edge : edgesOf(body)) {
    TopoDS_Vertex first, last;
    TopExp::Vertices(TopoDS::Edge(meld::kernel::subEntity(edge, PK_CLASS_edge).shape), first, last);
    gp_Vec v(BRep_Tool::Pnt(first), BRep_Tool::Pnt(last));
    if (std::abs(std::abs(v.X()) - length) < 1e-9 && std::abs(v.Y()) < 1e-9 && std::abs(v.Z()) < 1e-9)
      along.push_back(edge);
  }
  return along;
}

}  // namespace

class Tracking : public KernelSession {
 protected:
  void share(bool on) { meld::kernel::session().shareUnions = on; }
};

// A bar pushed halfway into a block through its +x face, united pairwise and
// from the shared split (a third block across the bar's far end makes the
// session split all three first).
TEST_F(Tracking, AUnionAccountsForWhatItDeletedSplitAndCreated) {
  for (bool shared : {false, true}) {
    SCOPED_TRACE(shared ? "shared split" : "pairwise");
    share(shared);
    PK_BODY_t block = blockAt(1, 1, 1, 0, 0, 0), bar = blockAt(1, 0.5, 0.5, 0.5, 0, 0.25);
    PK_BODY_t far = blockAt(1, 1, 1, 1.3, 0, 0);
    int answered = meld::kernel::sharedUnionsAnswered();
    PK_FACE_t entry = faceNear(block, 0.5, 0, 0.5), buried = faceNear(bar, 0, 0, 0.5);
    std::vector<PK_EDGE_t> barEdges = edgesAlongX(bar, 1);
    ASSERT_EQ(barEdges.size(), 4u);
    std::set<int> barTopols = topolsOf(bar);
    Tracked out = trackedChange(block, bar, PK_boolean_unite_c);
    ASSERT_EQ(out.result, PK_boolean_result_success_c);
    EXPECT_EQ(meld::kernel::sharedUnionsAnswered() > answered, shared);

    // The bar's end inside the block went; the block's face it entered stays.
    const Record* end = recordWithOriginal(out.records, buried);
    ASSERT_NE(end, nullptr);
    EXPECT_EQ(end->track, PK_TOPOL_track_delete_c);
    EXPECT_EQ(recordWithOriginal(out.records, entry), nullptr);
    EXPECT_TRUE(isLive(entry));
    // Each long edge of the bar lives on in what sticks out.
    for (PK_EDGE_t edge : barEdges) {
      const Record* split = recordWithOriginal(out.records, edge);
      ASSERT_NE(split, nullptr);
      EXPECT_EQ(split->track, PK_TOPOL_track_split_c);
      EXPECT_EQ(split->originals, std::vector<int>{edge});
      EXPECT_FALSE(split->products.empty());
    }
    // The four edges where the bar's sides cross the block's face are new,
    // inferred from the two faces they join.
    int crossings = 0;
    for (const Record& r : out.records) {
      if (r.track != PK_TOPOL_track_create_c || classOf(r.products.front()) != PK_CLASS_edge) continue;
      if (!has(r.originals, entry)) continue;
      ++crossings;
      ASSERT_EQ(r.originals.size(), 2u);
      EXPECT_TRUE(barTopols.count(r.originals[0] == entry ? r.originals[1] : r.originals[0]));
    }
    EXPECT_EQ(crossings, 4);
    PK_ENTITY_delete(1, &block);
    PK_ENTITY_delete(1, &far);
  }
}

// A slot across the top of a block cuts its top face in two: one piece keeps
// the face's tag.
TEST_F(Tracking, ASubtractThatCutsAFaceInTwoIsASplit) {
  PK_BODY_t block = blockAt(2, 1, 1, 0, 0, 0), slot = blockAt(0.2, 2, 1, 0, 0, 0.5);
  PK_FACE_t top = faceNear(block, 0, 0, 1);
  Tracked out = trackedChange(block, slot, PK_boolean_subtract_c);
  const Record* split = recordWithOriginal(out.records, top);
  ASSERT_NE(split, nullptr);
  EXPECT_EQ(split->track, PK_TOPOL_track_split_c);
  EXPECT_EQ(split->products.size(), 2u);
  EXPECT_TRUE(has(split->products, top));
}

// Blocks overlapping along x share the middle of their top faces: the two
// faces became three pieces, one of them common to both. Pairwise, and from
// the shared split (where the common piece is the one OCCT made of the two
// coinciding ones), with a third block beside them.
TEST_F(Tracking, FacesThatShareAPieceAreDerivedTogether) {
  for (bool shared : {false, true}) {
    SCOPED_TRACE(shared ? "shared split" : "pairwise");
    share(shared);
    PK_BODY_t left = blockAt(2, 1, 1, 0, 0, 0), right = blockAt(2, 1, 1, 1, 0, 0);
    PK_BODY_t beside = blockAt(1, 1, 1, 2, 0, 0.5);
    int answered = meld::kernel::sharedUnionsAnswered();
    PK_FACE_t leftTop = faceNear(left, 0, 0, 1), rightTop = faceNear(right, 1, 0, 1);
    Tracked out = trackedChange(left, right, PK_boolean_unite_c);
    EXPECT_EQ(meld::kernel::sharedUnionsAnswered() > answered, shared);
    const Record* tops = recordWithOriginal(out.records, leftTop);
    ASSERT_NE(tops, nullptr);
    EXPECT_EQ(tops->track, PK_TOPOL_track_derive_c);
    EXPECT_TRUE(has(tops->originals, rightTop));
    EXPECT_GE(tops->products.size(), 3u);
    EXPECT_TRUE(has(tops->products, leftTop));
    PK_ENTITY_delete(1, &left);
    PK_ENTITY_delete(1, &beside);
  }
}

// No records unless asked for, and none for a boolean that changed nothing.
TEST_F(Tracking, OnlyAChangeAskedForIsTracked) {
  PK_BODY_t a = blockAt(1, 1, 1, 0, 0, 0), b = blockAt(1, 1, 1, 0.5, 0, 0.5), apart = blockAt(1, 1, 1, 5, 0, 0);
  Tracked unasked = booleanTracked(a, b, PK_boolean_unite_c, false);
  EXPECT_EQ(unasked.result, PK_boolean_result_success_c);
  EXPECT_TRUE(unasked.records.empty());
  Tracked noClash = booleanTracked(a, apart, PK_boolean_unite_c);
  EXPECT_EQ(noClash.result, PK_boolean_result_no_clash_c);
  EXPECT_TRUE(noClash.records.empty());
}
