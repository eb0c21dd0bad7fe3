// Tracking records of PK_BODY_boolean_2: every face, edge and vertex that a
// boolean changed is accounted for, once, in the record kind that says what
// became of it, whether the union is answered pairwise or from the session's
// shared split.
#include "TopologyHelpers.h"
#include "ops/SharedFuse.h"
#include "session/Session.h"

#include <algorithm>
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

std::vector<Record> booleanTracked(PK_BODY_t target, PK_BODY_t tool, PK_boolean_function_t function,
                                   PK_boolean_result_t expected, bool tracking = true) {
  PK_BODY_boolean_o_t options;
  PK_BODY_boolean_o_m(options);
  options.function = function;
  options.tracking = tracking ? PK_LOGICAL_true : PK_LOGICAL_false;
  PK_TOPOL_track_r_t track;
  PK_boolean_r_t results;
  EXPECT_EQ(PK_BODY_boolean_2(target, 1, &tool, &options, &track, &results), PK_ERROR_no_errors);
  EXPECT_EQ(results.result, expected);
  std::vector<Record> records;
  for (int i = 0; i < track.n_track_records; ++i) {
    const PK_TOPOL_track_record_r_t& r = track.track_records[i];
    records.push_back({r.track, std::vector<int>(r.original_topols, r.original_topols + r.n_original_topols),
                       std::vector<PK_CLASS_t>(r.original_classes, r.original_classes + r.n_original_topols),
                       std::vector<PK_TOPOL_t>(r.product_topols, r.product_topols + r.n_product_topols)});
  }
  PK_boolean_r_f(&results);
  PK_TOPOL_track_r_f(&track);
  return records;
}

std::set<int> topolsOf(std::initializer_list<PK_BODY_t> bodies) {
  std::set<int> all;
  for (PK_BODY_t body : bodies)
    for (const auto& list : {facesOf(body), edgesOf(body), verticesOf(body)}) all.insert(list.begin(), list.end());
  return all;
}

bool has(const std::vector<int>& list, int tag) { return std::find(list.begin(), list.end(), tag) != list.end(); }

// A successful boolean whose records account for everything it changed:
// every face, edge and vertex the inputs had and the result lacks is an
// original of exactly one record that is not a create; every one the result
// has and the inputs lacked is a product of exactly one record; a create's
// originals are the old faces the new entity lies on.
std::vector<Record> trackedChange(PK_BODY_t target, PK_BODY_t tool, PK_boolean_function_t function) {
  const std::set<int> before = topolsOf({target, tool});
  std::vector<Record> records = booleanTracked(target, tool, function, PK_boolean_result_success_c);
  const std::set<int> after = topolsOf({target});
  std::map<int, int> gone, made;
  for (const Record& r : records) {
    for (std::size_t i = 0; i < r.originals.size(); ++i) {
      EXPECT_TRUE(before.count(r.originals[i])) << r.originals[i];
      if (r.track == PK_TOPOL_track_create_c) {
        EXPECT_EQ(r.classes[i], PK_CLASS_face);
      } else {
        ++gone[r.originals[i]];
      }
    }
    for (int p : r.products) {
      EXPECT_TRUE(after.count(p)) << "product " << p;
      ++made[p];
    }
  }
  for (auto [tag, n] : made) EXPECT_EQ(n, 1) << "product " << tag;
  for (int tag : before) {
    if (!after.count(tag)) {
      EXPECT_EQ(gone[tag], 1) << "old " << tag;
    }
  }
  for (int tag : after) {
    if (!before.count(tag)) {
      EXPECT_EQ(made[tag], 1) << "new " << tag;
    }
  }
  return records;
}

// The record (not a create) that names this old entity, or null.
const Record* recordOf(const std::vector<Record>& records, int tag) {
  for (const Record& r : records)
    if (r.track != PK_TOPOL_track_create_c && has(r.originals, tag)) return &r;
  return nullptr;
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
    std::vector<PK_EDGE_t> barEdges = edgesOf(bar);
    std::set<int> barTopols = topolsOf({bar});
    std::vector<Record> records = trackedChange(block, bar, PK_boolean_unite_c);
    EXPECT_EQ(meld::kernel::sharedUnionsAnswered() > answered, shared);

    // The bar's end inside the block went; the block's face it entered stays.
    ASSERT_NE(recordOf(records, buried), nullptr);
    EXPECT_EQ(recordOf(records, buried)->track, PK_TOPOL_track_delete_c);
    EXPECT_EQ(recordOf(records, entry), nullptr);
    // Of the bar's 12 edges, the 4 of its buried end went and its 4 long
    // edges live on in what sticks out (split); its far end is untouched.
    std::map<PK_TOPOL_track_t, int> edgeTracks;
    for (PK_EDGE_t edge : barEdges)
      if (const Record* r = recordOf(records, edge)) ++edgeTracks[r->track];
    EXPECT_EQ(edgeTracks, (std::map<PK_TOPOL_track_t, int>{{PK_TOPOL_track_delete_c, 4}, {PK_TOPOL_track_split_c, 4}}));
    // The four edges where the bar's sides cross the block's face are new,
    // inferred from the two faces they join.
    int crossings = 0;
    for (const Record& r : records) {
      if (r.track != PK_TOPOL_track_create_c || classOf(r.products.front()) != PK_CLASS_edge || !has(r.originals, entry))
        continue;
      ++crossings;
      ASSERT_EQ(r.originals.size(), 2u);
      EXPECT_TRUE(barTopols.count(r.originals[0] == entry ? r.originals[1] : r.originals[0]));
    }
    EXPECT_EQ(crossings, 4);
    PK_ENTITY_delete(1, &block);
    PK_ENTITY_delete(1, &far);
  }
}

// A slot across the top of a block cuts its top face in two (a split, one
// piece keeping the tag); blocks overlapping along x share the middle of
// their top faces (two faces became three pieces, one common to both: a
// derive), pairwise and from the shared split, where the common piece is the
// one OCCT made of the two coinciding ones.
TEST_F(Tracking, CutFacesAreSplitAndFacesSharingAPieceDerived) {
  PK_BODY_t block = blockAt(2, 1, 1, 0, 0, 0), slot = blockAt(0.2, 2, 1, 0, 0, 0.5);
  PK_FACE_t top = faceNear(block, 0, 0, 1);
  const std::vector<Record> cut = trackedChange(block, slot, PK_boolean_subtract_c);
  const Record* split = recordOf(cut, top);
  ASSERT_NE(split, nullptr);
  EXPECT_EQ(split->track, PK_TOPOL_track_split_c);
  EXPECT_EQ(split->products.size(), 2u);
  EXPECT_TRUE(has(split->products, top));
  PK_ENTITY_delete(1, &block);

  for (bool shared : {false, true}) {
    SCOPED_TRACE(shared ? "shared split" : "pairwise");
    share(shared);
    PK_BODY_t left = blockAt(2, 1, 1, 0, 0, 0), right = blockAt(2, 1, 1, 1, 0, 0);
    PK_BODY_t beside = blockAt(1, 1, 1, 2, 0, 0.5);
    int answered = meld::kernel::sharedUnionsAnswered();
    PK_FACE_t leftTop = faceNear(left, 0, 0, 1), rightTop = faceNear(right, 1, 0, 1);
    std::vector<Record> records = trackedChange(left, right, PK_boolean_unite_c);
    EXPECT_EQ(meld::kernel::sharedUnionsAnswered() > answered, shared);
    const Record* tops = recordOf(records, leftTop);
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
  EXPECT_TRUE(booleanTracked(a, b, PK_boolean_unite_c, PK_boolean_result_success_c, false).empty());
  EXPECT_TRUE(booleanTracked(a, apart, PK_boolean_unite_c, PK_boolean_result_no_clash_c).empty());
}
