#include "TestKernel.h"

#include "ops/Bodies.h"
#include "session/Session.h"

#include <map>
#include <tuple>

using namespace kerneltest;

namespace {

// Everything a roll-back must restore about a set of tags.
struct EntityState {
  bool exists = false;
  PK_CLASS_t cls = 0;
  const void* tshape = nullptr;
  std::string box;
  double volume = 0;
  std::string text;
  bool operator==(const EntityState&) const = default;
};

using Snapshot = std::map<PK_ENTITY_t, EntityState>;

Snapshot snapshot(const std::vector<PK_ENTITY_t>& tags) {
  Snapshot shot;
  for (PK_ENTITY_t tag : tags) {
    EntityState& state = shot[tag];
    PK_LOGICAL_t is = PK_LOGICAL_false;
    EXPECT_EQ(PK_ENTITY_is(tag, &is), PK_ERROR_no_errors);
    if (!is) continue;
    state.exists = true;
    EXPECT_EQ(PK_ENTITY_ask_class(tag, &state.cls), PK_ERROR_no_errors);
    if (state.cls == PK_CLASS_body) {
      state.tshape = meld::kernel::bodyData(tag).shape.TShape().get();
      state.box = boxOf(tag);
      state.volume = volumeOf(tag);
    } else if (state.cls == PK_CLASS_attrib) {
      char* text = nullptr;
      EXPECT_EQ(PK_ATTRIB_ask_string(tag, 0, &text), PK_ERROR_no_errors);
      state.text = text ? text : "";
    }
  }
  return shot;
}

PK_ATTDEF_t nameDef() {
  PK_ATTDEF_t def = 0;
  EXPECT_EQ(PK_ATTDEF_find("SDL/TYSA_NAME", &def), PK_ERROR_no_errors);
  return def;
}

// A small model: a named block, a cylinder, a sphere.
struct Model {
  PK_BODY_t block = makeBlock(1, 1, 1);
  PK_BODY_t cyl = 0, sphere = 0;
  PK_ATTRIB_t name = 0;
  Model() {
    EXPECT_EQ(PK_BODY_create_solid_cyl(0.5, 2, nullptr, &cyl), PK_ERROR_no_errors);
    EXPECT_EQ(PK_BODY_create_solid_sphere(0.7, nullptr, &sphere), PK_ERROR_no_errors);
    EXPECT_EQ(PK_ATTRIB_create_empty(block, nameDef(), &name), PK_ERROR_no_errors);
    EXPECT_EQ(PK_ATTRIB_set_string(name, 0, "before"), PK_ERROR_no_errors);
  }
  std::vector<PK_ENTITY_t> tags(PK_ENTITY_t extra = 0) const {
    return {block, cyl, sphere, name, extra};
  }
};

// Creates a body, deletes one, moves one and renames: one of every change.
// Returns the created body.
PK_BODY_t changeEverything(const Model& m) {
  PK_BODY_t added = makeBlock(2, 2, 2, 5);
  if (snapshot({m.cyl})[m.cyl].exists) {
    EXPECT_EQ(PK_ENTITY_delete(1, &m.cyl), PK_ERROR_no_errors);
  }
  PK_TRANSF_sf_t shift{{{1, 0, 0, 3}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}}};
  PK_TRANSF_t transf = 0;
  EXPECT_EQ(PK_TRANSF_create(&shift, &transf), PK_ERROR_no_errors);
  EXPECT_EQ(PK_BODY_transform_2(m.sphere, transf, 1e-6, nullptr), PK_ERROR_no_errors);
  EXPECT_EQ(PK_ATTRIB_set_string(m.name, 0, "after"), PK_ERROR_no_errors);
  return added;
}

PK_ERROR_code_t gotoPmark(PK_PMARK_t pmark, std::vector<int>* created = nullptr,
                          std::vector<int>* modified = nullptr, std::vector<int>* deleted = nullptr) {
  PK_PMARK_goto_o_t options;
  PK_PMARK_goto_o_m(options);
  int n[3] = {0, 0, 0};
  int* arrays[3] = {nullptr, nullptr, nullptr};
  PK_ERROR_code_t code =
      PK_PMARK_goto_2(pmark, &options, &n[0], &arrays[0], &n[1], &arrays[1], &n[2], &arrays[2]);
  std::vector<int>* outs[3] = {created, modified, deleted};
  for (int i = 0; i < 3; ++i) {
    if (outs[i]) outs[i]->assign(arrays[i], arrays[i] + n[i]);
    EXPECT_EQ(PK_MEMORY_free(arrays[i]), PK_ERROR_no_errors);
  }
  return code;
}

meld::kernel::Journal& journal() { return meld::kernel::session().journal; }

long long stretchBytes(long long records) { return 4 + 21 * records; }

// A model, a pmark on it, and one of every change since.
struct ChangedSincePmark {
  Model m;
  PK_PMARK_t pmark = makePmark();
  Snapshot atPmark = snapshot(m.tags());
  PK_BODY_t added = changeEverything(m);
};

void deletePmark(PK_PMARK_t pmark) {
  int n = 0;
  PK_PMARK_t* gone = nullptr;
  ASSERT_EQ(PK_PMARK_delete(1, &pmark, &n, &gone), PK_ERROR_no_errors);
  EXPECT_EQ(PK_MEMORY_free(gone), PK_ERROR_no_errors);
}

}  // namespace

using Pmarks = KernelSession;

TEST_F(Pmarks, GotoRestoresExactlyThroughTheDeltaStore) {
  Model m;
  PK_PMARK_t pmark = makePmark();
  Snapshot before = snapshot(m.tags());
  EXPECT_EQ(deltaLog().opensForWrite, 1);
  PK_BODY_t added = changeEverything(m);
  EXPECT_EQ(deltaLog().bytesWritten, 0);  // nothing is written until a goto needs it

  std::vector<int> created, modified, deleted;
  ASSERT_EQ(gotoPmark(pmark, &created, &modified, &deleted), PK_ERROR_no_errors);
  EXPECT_EQ(snapshot(m.tags()), before);
  EXPECT_EQ(snapshot({added})[added].exists, false);
  EXPECT_EQ(created, (std::vector<int>{m.cyl}));
  EXPECT_EQ(modified, (std::vector<int>{m.sphere, m.name}));
  ASSERT_EQ(deleted.size(), 2u);  // the added block and its transform
  EXPECT_EQ(deleted[0], added);

  // created block + transform, deleted cylinder, moved sphere, renamed: 5 records.
  EXPECT_EQ(deltaLog().bytesWritten, stretchBytes(5));
  EXPECT_EQ(deltaLog().bytesRead, deltaLog().bytesWritten);
  EXPECT_EQ(deltaLog().closedWithDataUnread, 0);
  EXPECT_EQ(deltaLog().deletes, 1);        // the spent delta
  EXPECT_EQ(deltaLog().opensForWrite, 2);  // and a fresh one for the pmark

  // The pmark stays: change again and go back again.
  changeEverything(m);
  ASSERT_EQ(gotoPmark(pmark), PK_ERROR_no_errors);
  EXPECT_EQ(snapshot(m.tags()), before);

  int n = 0;
  PK_PMARK_t* gone = nullptr;
  ASSERT_EQ(PK_PMARK_delete(1, &pmark, &n, &gone), PK_ERROR_no_errors);
  ASSERT_EQ(n, 1);
  EXPECT_EQ(gone[0], pmark);
  EXPECT_EQ(PK_MEMORY_free(gone), PK_ERROR_no_errors);
  EXPECT_TRUE(deltaLog().deltas.empty());
  EXPECT_EQ(journal().stretchCount(), 0u);
  EXPECT_EQ(journal().archivedPayloads(), 0u);
  EXPECT_EQ(gotoPmark(pmark), PK_ERROR_bad_mark);
}

TEST_F(Pmarks, NextPmarkWritesThePreviousStretchAndGotoDropsLaterPmarks) {
  Model m;
  PK_PMARK_t first = makePmark();
  Snapshot atFirst = snapshot(m.tags());
  PK_BODY_t b1 = makeBlock(1, 1, 1, 3), b2 = makeBlock(1, 1, 1, 6);
  PK_PMARK_t second = makePmark();
  EXPECT_EQ(deltaLog().bytesWritten, stretchBytes(2));
  PK_BODY_t b3 = changeEverything(m);

  ASSERT_EQ(gotoPmark(first), PK_ERROR_no_errors);
  EXPECT_EQ(snapshot(m.tags()), atFirst);
  Snapshot gone = snapshot({b1, b2, b3});
  for (auto& [tag, state] : gone) EXPECT_FALSE(state.exists) << tag;
  EXPECT_EQ(deltaLog().bytesRead, deltaLog().bytesWritten);
  PK_LOGICAL_t is = PK_LOGICAL_true;
  ASSERT_EQ(PK_ENTITY_is(second, &is), PK_ERROR_no_errors);
  EXPECT_EQ(is, PK_LOGICAL_false);
  EXPECT_EQ(gotoPmark(second), PK_ERROR_bad_mark);
  EXPECT_EQ(deltaLog().deltas.size(), 1u);  // only the first pmark's fresh delta
}

// Going back over several deltas reads and checks every one of them before
// anything is undone: an older delta that cannot be read or does not decode
// leaves the model, the journal and the marks as they were, newer changes
// included, and the deltas stay readable.
TEST_F(Pmarks, BadOlderDeltaIsRefusedBeforeAnythingIsUndone) {
  Model m;
  PK_PMARK_t first = makePmark();
  Snapshot atFirst = snapshot(m.tags());
  PK_BODY_t b1 = makeBlock(1, 1, 1, 3);
  PK_PMARK_t second = makePmark();  // writes first's stretch: one record
  std::vector<PK_ENTITY_t> tags = m.tags(b1);
  Snapshot atSecond = snapshot(tags);
  PK_BODY_t b2 = changeEverything(m);
  tags.push_back(b2);
  Snapshot changed = snapshot(tags);

  ASSERT_EQ(deltaLog().deltas.size(), 2u);
  const PK_DELTA_t older = deltaLog().deltas.begin()->first;
  const std::string good = deltaLog().deltas[older];
  ASSERT_EQ(static_cast<long long>(good.size()), stretchBytes(1));
  auto unchanged = [&](const char* what) {
    EXPECT_EQ(snapshot(tags), changed) << what;
    PK_LOGICAL_t is = PK_LOGICAL_false;
    EXPECT_EQ(PK_ENTITY_is(second, &is), PK_ERROR_no_errors);
    EXPECT_EQ(is, PK_LOGICAL_true) << what;
    EXPECT_EQ(journal().stretchCount(), 2u) << what;
    EXPECT_EQ(deltaLog().deltas.size(), 2u) << what;
  };

  std::string badKind = good;
  badKind[4] = char(9);  // the first record's kind: none has that number
  deltaLog().deltas[older] = badKind;
  std::uint64_t position = journal().position();
  std::size_t archived = journal().archivedPayloads();
  EXPECT_EQ(gotoPmark(first), PK_ERROR_corrupt_delta);
  unchanged("bad record kind");
  EXPECT_EQ(journal().position(), position);
  EXPECT_EQ(journal().archivedPayloads(), archived);

  deltaLog().deltas[older] = good.substr(0, good.size() - 5);  // cut short
  EXPECT_EQ(gotoPmark(first), PK_ERROR_delta_read_past_end);
  unchanged("delta cut short");
  EXPECT_EQ(journal().position(), position);

  // Both deltas are still there and closed: mended, the gotos go through.
  deltaLog().deltas[older] = good;
  ASSERT_EQ(gotoPmark(second), PK_ERROR_no_errors);
  EXPECT_EQ(snapshot(m.tags(b1)), atSecond);
  ASSERT_EQ(gotoPmark(first), PK_ERROR_no_errors);
  EXPECT_EQ(snapshot(m.tags()), atFirst);
  EXPECT_FALSE(snapshot({b1})[b1].exists);
  EXPECT_EQ(deltaLog().closedWithDataUnread, 1);  // the read that was cut short
}

// The store failing after the model is back (here: the fresh delta for the
// pmark gone to) does not undo the goto; it is reported, the pmark stays and
// keeps its records in memory, so that the next goto still works.
TEST_F(Pmarks, StoreFailureAfterTheGotoKeepsTheRollBackAndTheRecords) {
  ChangedSincePmark c;
  deltaLog().failOpenForWrite = true;
  EXPECT_EQ(gotoPmark(c.pmark), PK_ERROR_memory_full);
  EXPECT_EQ(snapshot(c.m.tags()), c.atPmark);
  EXPECT_FALSE(snapshot({c.added})[c.added].exists);
  EXPECT_TRUE(deltaLog().deltas.empty());  // the spent delta was deleted all the same
  deltaLog().failOpenForWrite = false;

  changeEverything(c.m);
  ASSERT_EQ(gotoPmark(c.pmark), PK_ERROR_no_errors);
  EXPECT_EQ(snapshot(c.m.tags()), c.atPmark);
  deletePmark(c.pmark);
  EXPECT_EQ(journal().stretchCount(), 0u);
  EXPECT_EQ(journal().archivedPayloads(), 0u);
}

// When a list of PK_PMARK_goto_2 cannot be allocated, the ones already
// handed out are freed again: the error concerns the lists, the goto stands.
TEST_F(Pmarks, ListsThatCannotBeHandedOutAreFreedAndTheGotoStands) {
  for (int failing = 1; failing <= 3; ++failing) {
    ChangedSincePmark c;  // something created, modified and deleted
    long long liveBefore = frustrumLog().liveBytes;
    frustrumLog().failMalloNumber = frustrumLog().fmallo + failing;
    PK_PMARK_goto_o_t options;
    PK_PMARK_goto_o_m(options);
    int n[3] = {-1, -1, -1};
    int* arrays[3] = {&n[0], &n[1], &n[2]};  // anything but null
    EXPECT_EQ(PK_PMARK_goto_2(c.pmark, &options, &n[0], &arrays[0], &n[1], &arrays[1], &n[2],
                              &arrays[2]),
              PK_ERROR_memory_full)
        << failing;
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(n[i], 0) << failing;
      EXPECT_EQ(arrays[i], nullptr) << failing;
    }
    EXPECT_EQ(frustrumLog().liveBytes, liveBefore) << failing;
    EXPECT_EQ(snapshot(c.m.tags()), c.atPmark) << failing;
    frustrumLog().failMalloNumber = 0;
    deletePmark(c.pmark);
  }
}

// A delta whose write fails is closed (not left open in the store) and
// deleted; its records stay in memory, so the pmark can still be gone to.
TEST_F(Pmarks, FailedWriteClosesTheDeltaAndKeepsTheRecords) {
  ChangedSincePmark c;
  deltaLog().failWrites = true;
  int closes = deltaLog().closes;
  PK_PARTITION_t partition = 0;
  ASSERT_EQ(PK_SESSION_ask_curr_partition(&partition), PK_ERROR_no_errors);
  PK_PMARK_t next = 0;
  EXPECT_EQ(PK_PARTITION_make_pmark(partition, &next), PK_ERROR_memory_full);
  EXPECT_EQ(deltaLog().closes, closes + 1);
  EXPECT_TRUE(deltaLog().deltas.empty());  // the half-written delta is gone
  deltaLog().failWrites = false;

  ASSERT_EQ(gotoPmark(c.pmark), PK_ERROR_no_errors);
  EXPECT_EQ(snapshot(c.m.tags()), c.atPmark);
  EXPECT_FALSE(snapshot({c.added})[c.added].exists);
  // Later pmarks and gotos work on; this pmark's records stay in memory.
  changeEverything(c.m);
  makePmark();
  ASSERT_EQ(gotoPmark(c.pmark), PK_ERROR_no_errors);
  EXPECT_EQ(snapshot(c.m.tags()), c.atPmark);
}

// The application owns its deltas and frees them itself when it stops its
// store, often before it stops the session: stop makes no delta call at all.
TEST_F(Pmarks, StopLeavesTheDeltasToTheApplication) {
  Model m;
  makePmark();
  makeBlock(1, 1, 1);
  makePmark();  // the first delta written and closed, the second open
  makeBlock(1, 1, 1, 3);
  EXPECT_EQ(deltaLog().deltas.size(), 2u);
  auto calls = [] {
    const DeltaLog& d = deltaLog();
    return std::tuple(d.deltas.size(), d.deletes, d.closes, d.opensForWrite, d.opensForRead, d.bytesWritten,
                      d.bytesRead);
  };
  const auto before = calls();
  ASSERT_EQ(PK_SESSION_stop(), PK_ERROR_no_errors);
  EXPECT_EQ(calls(), before);
  EXPECT_EQ(frustrumLog().fstop, 1);
}

using Marks = KernelSession;

TEST_F(Marks, GotoRestoresAndForgetsLaterMarks) {
  Model m;
  PK_MARK_t outer = 0, inner = 0;
  ASSERT_EQ(PK_MARK_create(&outer), PK_ERROR_no_errors);
  Snapshot atOuter = snapshot(m.tags());
  PK_BODY_t added = changeEverything(m);
  ASSERT_EQ(PK_MARK_create(&inner), PK_ERROR_no_errors);
  Snapshot atInner = snapshot(m.tags(added));
  changeEverything(m);
  ASSERT_EQ(PK_MARK_goto(inner), PK_ERROR_no_errors);
  EXPECT_EQ(snapshot(m.tags(added)), atInner);
  ASSERT_EQ(PK_MARK_goto(outer), PK_ERROR_no_errors);
  EXPECT_EQ(snapshot(m.tags()), atOuter);
  EXPECT_EQ(PK_MARK_goto(inner), PK_ERROR_bad_mark);
  EXPECT_EQ(deltaLog().bytesWritten, 0);  // plain marks never touch the delta store

  ASSERT_EQ(PK_MARK_delete(outer), PK_ERROR_no_errors);
  EXPECT_EQ(journal().stretchCount(), 0u);
  EXPECT_EQ(journal().archivedPayloads(), 0u);
  changeEverything(m);  // with no mark, nothing is journalled
  EXPECT_EQ(journal().stretchCount(), 0u);
  EXPECT_EQ(journal().archivedPayloads(), 0u);
}

TEST_F(Marks, MarkInsideAWrittenDeltaKeepsTheRestForItsPmark) {
  Model m;
  PK_PMARK_t first = makePmark();
  Snapshot atFirst = snapshot(m.tags());
  PK_BODY_t b1 = makeBlock(1, 1, 1, 3);
  PK_MARK_t mark = 0;
  ASSERT_EQ(PK_MARK_create(&mark), PK_ERROR_no_errors);
  PK_BODY_t b2 = makeBlock(1, 1, 1, 6);
  makePmark();  // writes first's stretch (two records) to its delta
  ASSERT_EQ(PK_MARK_goto(mark), PK_ERROR_no_errors);
  EXPECT_TRUE(snapshot({b1})[b1].exists);
  EXPECT_FALSE(snapshot({b2})[b2].exists);
  ASSERT_EQ(gotoPmark(first), PK_ERROR_no_errors);
  EXPECT_EQ(snapshot(m.tags()), atFirst);
  EXPECT_FALSE(snapshot({b1})[b1].exists);
}

using KInterface = KernelSession;

TEST_F(KInterface, SizeParameterIsChecked) {
  const int code = KI_param_rollback_size;
  const double zero = 0;
  int ifail = 0;
  for (int size : {0, -5, KI_rollback_size_min - 1, KI_rollback_size_max + 1}) {
    KI_SEINTP(&code, &size, &zero, &ifail);
    EXPECT_EQ(ifail, KI_rollback_size_bad) << size;
  }
  EXPECT_EQ(frustrumLog().ffoprb, 0);
  const int good = 1 << 20;
  const int other = 4;
  KI_SEINTP(&other, &good, &zero, &ifail);
  EXPECT_EQ(ifail, KI_bad_parameter);
  KI_ROLBLM(&ifail);
  EXPECT_EQ(ifail, KI_rollback_not_started);

  // A good size opens the file at once: a file that cannot be opened is
  // told here (928), and the next attempt opens it.
  frustrumLog().failOprb = true;
  KI_SEINTP(&code, &good, &zero, &ifail);
  EXPECT_EQ(ifail, KI_cant_open_rollback);
  KI_ROLSMK(&ifail);
  EXPECT_EQ(ifail, KI_cant_open_rollback);
  EXPECT_EQ(frustrumLog().ffoprb, 2);
  frustrumLog().failOprb = false;
  KI_SEINTP(&code, &good, &zero, &ifail);
  EXPECT_EQ(ifail, 0);
  EXPECT_EQ(frustrumLog().ffoprb, 3);
  KI_ROLSMK(&ifail);
  EXPECT_EQ(ifail, 0);
  EXPECT_EQ(frustrumLog().ffoprb, 3);  // the mark uses the file already open
}

TEST_F(KInterface, RollBackToTheLastMarkThroughTheFile) {
  Model m;
  int ifail = -1;
  KI_ROLSMK(&ifail);
  ASSERT_EQ(ifail, 0);
  EXPECT_EQ(frustrumLog().ffoprb, 1);
  Snapshot atMark = snapshot(m.tags());
  PK_BODY_t added = changeEverything(m);
  KI_ROLBLM(&ifail);
  ASSERT_EQ(ifail, 0);
  EXPECT_EQ(snapshot(m.tags()), atMark);
  EXPECT_FALSE(snapshot({added})[added].exists);
  EXPECT_EQ(frustrumLog().fileBytesWritten, 16 + stretchBytes(5));
  EXPECT_EQ(frustrumLog().fileBytesRead, 16 + stretchBytes(5));

  // The mark stays for the next attempt; the file is opened once.
  changeEverything(m);
  KI_ROLBLM(&ifail);
  ASSERT_EQ(ifail, 0);
  EXPECT_EQ(snapshot(m.tags()), atMark);
  KI_ROLSMK(&ifail);
  EXPECT_EQ(frustrumLog().ffoprb, 1);
  const int code = KI_param_rollback_size, size = 1 << 20;
  const double zero = 0;
  KI_SEINTP(&code, &size, &zero, &ifail);
  EXPECT_EQ(ifail, KI_rollback_size_bad);  // the file is open: too late to resize
}

namespace {

// A shift along x, made before any mark so that moving a body journals only
// the replaced body.
PK_TRANSF_t shiftX(double dx) {
  PK_TRANSF_sf_t sf{{{1, 0, 0, dx}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}}};
  PK_TRANSF_t transf = 0;
  EXPECT_EQ(PK_TRANSF_create(&sf, &transf), PK_ERROR_no_errors);
  return transf;
}

void move(PK_BODY_t body, PK_TRANSF_t transf) {
  ASSERT_EQ(PK_BODY_transform_2(body, transf, 1e-6, nullptr), PK_ERROR_no_errors);
}

// Offset of the payload id of record `index` in an encoded stretch.
std::size_t payloadIdOffset(std::size_t index) { return 4 + 21 * index + 17; }

}  // namespace

using Journal = KernelSession;

// A boolean replaces its target again and again: going back past several
// replacements of one body must end at the oldest shape (undo newest first),
// within one stretch (plain marks) and across stretches (pmarks).
TEST_F(Journal, ReplacingOneBodyRepeatedlyGoesBackToTheOldestShape) {
  PK_BODY_t body = makeBlock(1, 1, 1);
  PK_TRANSF_t shift = shiftX(2);
  const std::string original = boxOf(body);

  PK_MARK_t outer = 0, inner = 0;
  ASSERT_EQ(PK_MARK_create(&outer), PK_ERROR_no_errors);
  move(body, shift);
  const std::string once = boxOf(body);
  ASSERT_EQ(PK_MARK_create(&inner), PK_ERROR_no_errors);
  move(body, shift);
  move(body, shift);
  ASSERT_EQ(PK_MARK_goto(inner), PK_ERROR_no_errors);
  EXPECT_EQ(boxOf(body), once);
  move(body, shift);
  ASSERT_EQ(PK_MARK_goto(outer), PK_ERROR_no_errors);
  EXPECT_EQ(boxOf(body), original);
  ASSERT_EQ(PK_MARK_delete(outer), PK_ERROR_no_errors);

  PK_PMARK_t first = makePmark();
  move(body, shift);
  PK_PMARK_t second = makePmark();
  move(body, shift);
  PK_PMARK_t third = makePmark();
  move(body, shift);
  EXPECT_EQ(deltaLog().deltas.size(), 3u);
  ASSERT_EQ(gotoPmark(second), PK_ERROR_no_errors);
  EXPECT_EQ(boxOf(body), once);
  EXPECT_EQ(gotoPmark(third), PK_ERROR_bad_mark);
  ASSERT_EQ(gotoPmark(first), PK_ERROR_no_errors);
  EXPECT_EQ(boxOf(body), original);
}

// Going back to an inner mark rewinds the journal's position: marks made
// after that, and changes after them, line up with the records again.
TEST_F(Journal, MarksMadeAfterGoingBackToAnInnerMarkStillWork) {
  for (bool pmarks : {false, true}) {
    SCOPED_TRACE(pmarks ? "pmarks" : "marks");
    auto mark = [&] {
      if (pmarks) return makePmark();
      PK_MARK_t m = 0;
      EXPECT_EQ(PK_MARK_create(&m), PK_ERROR_no_errors);
      return m;
    };
    auto goBack = [&](PK_ENTITY_t m) { return pmarks ? gotoPmark(m) : PK_MARK_goto(m); };

    PK_ENTITY_t outer = mark();
    PK_BODY_t a = makeBlock(1, 1, 1);
    PK_ENTITY_t inner = mark();
    makeBlock(1, 1, 1, 3);
    makeBlock(1, 1, 1, 6);
    ASSERT_EQ(goBack(inner), PK_ERROR_no_errors);
    PK_BODY_t kept = makeBlock(1, 1, 1, 9);
    PK_ENTITY_t later = mark();
    PK_BODY_t undone = makeBlock(1, 1, 1, 12);
    ASSERT_EQ(goBack(later), PK_ERROR_no_errors);
    EXPECT_FALSE(snapshot({undone})[undone].exists);
    EXPECT_TRUE(snapshot({kept})[kept].exists);
    EXPECT_TRUE(snapshot({a})[a].exists);
    ASSERT_EQ(goBack(outer), PK_ERROR_no_errors);
    EXPECT_FALSE(snapshot({kept})[kept].exists);
    EXPECT_FALSE(snapshot({a})[a].exists);
    if (pmarks) deletePmark(outer);
    else ASSERT_EQ(PK_MARK_delete(outer), PK_ERROR_no_errors);
    EXPECT_EQ(journal().stretchCount(), 0u);
    EXPECT_EQ(journal().archivedPayloads(), 0u);
  }
}

// Every stretch read back must announce the number of records the journal
// knows it holds, and name only payloads still archived; otherwise the goto
// is refused before anything is undone.
TEST_F(Journal, StretchWithAWrongCountOrPayloadIdIsRefusedUntouched) {
  PK_BODY_t body = makeBlock(1, 1, 1);
  PK_TRANSF_t shift = shiftX(2);
  PK_PMARK_t first = makePmark();
  const std::string original = boxOf(body);
  move(body, shift);                // one record, with the old shape archived
  PK_BODY_t added = makeBlock(1, 1, 1, 5);  // and one without payload
  makePmark();                      // writes first's stretch
  move(body, shift);
  const std::string moved = boxOf(body);

  ASSERT_EQ(deltaLog().deltas.size(), 2u);
  const PK_DELTA_t older = deltaLog().deltas.begin()->first;
  const std::string good = deltaLog().deltas[older];
  ASSERT_EQ(static_cast<long long>(good.size()), stretchBytes(2));
  const std::uint64_t position = journal().position();
  const std::size_t archived = journal().archivedPayloads();
  auto refusedUntouched = [&](const std::string& bytes, const char* what) {
    deltaLog().deltas[older] = bytes;
    EXPECT_EQ(gotoPmark(first), PK_ERROR_corrupt_delta) << what;
    EXPECT_EQ(boxOf(body), moved) << what;  // the newer stretch was not undone either
    EXPECT_TRUE(snapshot({added})[added].exists) << what;
    EXPECT_EQ(journal().position(), position) << what;
    EXPECT_EQ(journal().archivedPayloads(), archived) << what;
  };

  std::string fewer = good;
  fewer[0] = 1;  // one record announced, two written
  refusedUntouched(fewer.substr(0, fewer.size() - 21), "count one short");
  std::string unknownPayload = good;
  unknownPayload[payloadIdOffset(0) + 3] = char(0x40);  // an id never handed out
  refusedUntouched(unknownPayload, "unknown payload id");

  deltaLog().deltas[older] = good;
  ASSERT_EQ(gotoPmark(first), PK_ERROR_no_errors);
  EXPECT_EQ(boxOf(body), original);
  EXPECT_FALSE(snapshot({added})[added].exists);
}

// The rollback file has the size asked for: records since the mark that do
// not fit are refused with 930, and nothing is undone.
TEST_F(Journal, RecordsThatDoNotFitTheRollbackFileAreRefused) {
  const int code = KI_param_rollback_size, size = KI_rollback_size_min;
  const double zero = 0;
  int ifail = -1;
  KI_SEINTP(&code, &size, &zero, &ifail);
  ASSERT_EQ(ifail, 0);
  KI_ROLSMK(&ifail);
  ASSERT_EQ(ifail, 0);
  // 16 header bytes + 4 count bytes + 21 per record: 194 records fit.
  auto makeBlocks = [](int n) {
    std::vector<PK_BODY_t> blocks;
    for (int i = 0; i < n; ++i) blocks.push_back(makeBlock(0.1, 0.1, 0.1, 0.2 * i));
    return blocks;
  };
  std::vector<PK_BODY_t> fitting = makeBlocks(194);
  KI_ROLBLM(&ifail);
  ASSERT_EQ(ifail, 0);
  EXPECT_FALSE(snapshot({fitting.back()})[fitting.back()].exists);
  EXPECT_EQ(frustrumLog().fileBytesWritten, 16 + stretchBytes(194));

  std::vector<PK_BODY_t> tooMany = makeBlocks(195);
  KI_ROLBLM(&ifail);
  EXPECT_EQ(ifail, KI_rollback_file_full);
  EXPECT_TRUE(snapshot({tooMany.front()})[tooMany.front()].exists);
  EXPECT_TRUE(snapshot({tooMany.back()})[tooMany.back()].exists);
  EXPECT_EQ(frustrumLog().fileBytesWritten, 16 + stretchBytes(194));  // nothing more written
}

// What no live mark can reach is not kept: after a body's first change since
// the newest mark, its later changes keep no old shape (any goto passes the
// first record); an entity made and deleted since that mark keeps none at all.
TEST_F(Journal, OnlyTheFirstChangeSinceTheNewestMarkKeepsAPayload) {
  PK_BODY_t body = makeBlock(1, 1, 1);
  PK_TRANSF_t shift = shiftX(2);
  const std::string original = boxOf(body);
  PK_PMARK_t first = makePmark();
  for (int i = 0; i < 3; ++i) move(body, shift);
  PK_BODY_t passing = makeBlock(1, 1, 1, 5);
  ASSERT_EQ(PK_ENTITY_delete(1, &passing), PK_ERROR_no_errors);
  EXPECT_EQ(journal().archivedPayloads(), 1u);
  EXPECT_EQ(journal().position(), 2u);  // the moved body, the passing block

  // A mark in between: the state at it is reachable, so its shape is kept.
  const std::string atSecond = boxOf(body);
  PK_MARK_t second = 0;
  ASSERT_EQ(PK_MARK_create(&second), PK_ERROR_no_errors);
  move(body, shift);
  move(body, shift);
  EXPECT_EQ(journal().archivedPayloads(), 2u);
  ASSERT_EQ(PK_MARK_goto(second), PK_ERROR_no_errors);
  EXPECT_EQ(boxOf(body), atSecond);

  // Gone back to the mark, the body's next change is its first since.
  move(body, shift);
  EXPECT_EQ(journal().archivedPayloads(), 2u);
  ASSERT_EQ(gotoPmark(first), PK_ERROR_no_errors);
  EXPECT_EQ(boxOf(body), original);
  EXPECT_FALSE(snapshot({passing})[passing].exists);
  EXPECT_EQ(journal().archivedPayloads(), 0u);
}

// The uniting loop's failure road: a pmark, a change, back to the pmark, the
// pmark deleted. Round after round, nothing of those rounds stays behind.
TEST_F(Journal, FailedAttemptsLeaveNoStretchBehind) {
  makePmark();  // an earlier union, kept: its pmark dropped, still live
  makeBlock(1, 1, 1);
  makePmark();
  std::size_t stretches = 0;
  for (int round = 0; round < 4; ++round) {
    PK_PMARK_t attempt = makePmark();
    makeBlock(1, 1, 1, 3);
    ASSERT_EQ(gotoPmark(attempt), PK_ERROR_no_errors);
    deletePmark(attempt);
    if (round == 0) stretches = journal().stretchCount();
    EXPECT_EQ(journal().stretchCount(), stretches) << round;
  }
  EXPECT_EQ(journal().archivedPayloads(), 0u);
}
