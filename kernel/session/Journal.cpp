#include "Journal.h"

#include "KernelError.h"

#include <algorithm>

namespace meld::kernel {

// Remembers whether each entity a goto touches existed before it, to tell
// afterwards what the goto created, modified or deleted.
class Journal::Tracker {
 public:
  explicit Tracker(const EntityTable& table) : table_(table) {}
  void touch(PK_ENTITY_t tag) { existedBefore_.try_emplace(tag, table_.exists(tag)); }

  RollReport report() const {
    RollReport report;
    for (const auto& [tag, before] : existedBefore_) {
      bool now = table_.exists(tag);
      if (before && now) report.modified.push_back(tag);
      else if (now) report.created.push_back(tag);
      else if (before) report.deleted.push_back(tag);
    }
    for (auto* list : {&report.created, &report.modified, &report.deleted})
      std::sort(list->begin(), list->end());
    return report;
  }

 private:
  const EntityTable& table_;
  std::unordered_map<PK_ENTITY_t, bool> existedBefore_;
};

Journal::Journal(EntityTable& table, MarkBook& marks, std::optional<DeltaStore>& deltas,
                 RollbackFile& rollback)
    : table_(table), marks_(marks), deltas_(deltas), rollback_(rollback) {
  table_.setListener(this);
}

Journal::~Journal() { table_.setListener(nullptr); }

void Journal::created(PK_ENTITY_t tag) {
  if (recording() && !journalledSinceNewestMark(tag))
    append(UndoRecord{UndoKind::created, tag, 0, 0, 0, 0});
}

void Journal::deleted(PK_ENTITY_t tag, const Record& old) {
  if (recording() && !journalledSinceNewestMark(tag))
    append(UndoRecord{UndoKind::deleted, tag, old.cls, old.owner, old.referent, archive(old.payload)});
}

void Journal::replaced(PK_ENTITY_t tag, const Record& old) {
  if (recording() && !journalledSinceNewestMark(tag))
    append(UndoRecord{UndoKind::replaced, tag, old.cls, old.owner, old.referent, archive(old.payload)});
}

bool Journal::journalledSinceNewestMark(PK_ENTITY_t tag) {
  // Any change of the newest mark (one made, deleted, or gone back past)
  // starts the set afresh; going back clears it as well (rollTo).
  std::uint64_t newest = marks_.newestPosition();
  if (newest != newestMarkSeen_) {
    touchedSinceNewestMark_.clear();
    newestMarkSeen_ = newest;
  }
  return !touchedSinceNewestMark_.insert(tag).second;
}

void Journal::append(UndoRecord record) {
  if (stretches_.empty() || stretches_.back().where != Where::memory) {
    Stretch open;
    open.begin = open.end = position_;
    stretches_.push_back(std::move(open));
  }
  Stretch& open = stretches_.back();
  open.records.push_back(record);
  ++open.end;
  ++position_;
}

std::uint32_t Journal::archive(const PayloadPtr& payload) {
  if (!payload) return 0;
  std::uint32_t id = nextPayloadId_++;
  archive_.emplace(id, payload);
  return id;
}

PayloadPtr Journal::takeArchived(std::uint32_t id) {
  if (id == 0) return nullptr;
  auto it = archive_.find(id);
  require(it != archive_.end(), PK_ERROR_corrupt_delta);
  PayloadPtr payload = std::move(it->second);
  archive_.erase(it);
  return payload;
}

void Journal::releaseArchived(std::uint32_t id) { archive_.erase(id); }

DeltaStore& Journal::deltaStore() {
  require(deltas_.has_value(), PK_ERROR_rollback_not_started);
  return *deltas_;
}

void Journal::beginPmarkStretch(PK_PMARK_t pmark) {
  sealOpenStretch();
  // What a deleted pmark that was gone back to leaves: no records, no mark,
  // no delta. It would stay in the row for good.
  if (!stretches_.empty()) {
    const Stretch& last = stretches_.back();
    if (last.where == Where::memory && last.records.empty() && last.pmark == PK_ENTITY_null &&
        last.delta == 0)
      stretches_.pop_back();
  }
  Stretch open;
  open.begin = open.end = position_;
  open.pmark = pmark;
  open.delta = deltaStore().openForWrite(pmark);
  stretches_.push_back(std::move(open));
}

void Journal::sealOpenStretch() {
  if (stretches_.empty()) return;
  Stretch& open = stretches_.back();
  if (open.where != Where::memory || open.delta == 0) return;
  try {
    deltaStore().writeAndClose(open.delta, encodeStretch(open.records));
  } catch (const KernelError&) {
    // The store closed the delta holding who knows what: it goes, and the
    // records stay in memory, where a goto still finds them.
    PK_DELTA_t key = open.delta;
    open.delta = 0;
    try {
      deltaStore().remove(key);
    } catch (const KernelError&) {
      // The write's failure is the one to report.
    }
    throw;
  }
  for (const UndoRecord& r : open.records)
    if (r.payloadId != 0) open.payloadIds.push_back(r.payloadId);
  open.records.clear();
  open.records.shrink_to_fit();
  open.where = Where::delta;
}

int Journal::spillToRollbackFile(std::uint64_t from) {
  if (stretches_.empty() || stretches_.back().where != Where::memory) return 0;
  Stretch& open = stretches_.back();
  std::uint64_t cut = std::max(from, open.begin);
  if (cut >= open.end) return 0;
  auto first = open.records.begin() + static_cast<std::ptrdiff_t>(cut - open.begin);
  std::vector<UndoRecord> tail(first, open.records.end());
  if (int ifail = rollback_.writeStretch(encodeStretch(tail))) return ifail;
  open.records.erase(first, open.records.end());
  open.end = cut;
  Stretch spilled;
  spilled.begin = cut;
  spilled.end = cut + tail.size();
  spilled.where = Where::rollbackFile;
  spilled.fileMark = from;
  for (const UndoRecord& r : tail)
    if (r.payloadId != 0) spilled.payloadIds.push_back(r.payloadId);
  stretches_.push_back(std::move(spilled));
  return 0;
}

std::vector<UndoRecord> Journal::decodeChecked(const std::string& bytes, const Stretch& stretch) {
  require(bytes.size() >= kStretchCountBytes, PK_ERROR_corrupt_delta);
  std::uint32_t count = decodeStretchCount(bytes.data());
  require(count == stretch.end - stretch.begin, PK_ERROR_corrupt_delta);
  require(bytes.size() == kStretchCountBytes + count * kUndoRecordBytes, PK_ERROR_corrupt_delta);
  auto records = decodeRecords(bytes.data() + kStretchCountBytes, count);
  // Every payload must still be in the archive before anything is undone, so
  // that a bad stretch leaves the model untouched.
  for (const UndoRecord& r : records)
    require(r.payloadId == 0 || archive_.count(r.payloadId) != 0, PK_ERROR_corrupt_delta);
  return records;
}

std::vector<UndoRecord> Journal::loadDelta(const Stretch& stretch) {
  DeltaStore& store = deltaStore();
  // The store hands out whole blocks and does not know where the data ends:
  // read the count first, then exactly the records it announces. Whatever
  // fails, the delta is closed again so that it can be read another time.
  store.openForRead(stretch.delta);
  std::string bytes(kStretchCountBytes, '\0');
  try {
    store.read(stretch.delta, bytes.data(), kStretchCountBytes);
    std::uint32_t count = decodeStretchCount(bytes.data());
    require(count == stretch.end - stretch.begin, PK_ERROR_corrupt_delta);
    bytes.resize(kStretchCountBytes + std::size_t(count) * kUndoRecordBytes);
    store.read(stretch.delta, bytes.data() + kStretchCountBytes, bytes.size() - kStretchCountBytes);
  } catch (const KernelError&) {
    try {
      store.close(stretch.delta);
    } catch (const KernelError&) {
      // The first failure is the one to report.
    }
    throw;
  }
  store.close(stretch.delta);
  return decodeChecked(bytes, stretch);
}

std::vector<UndoRecord> Journal::load(Stretch& stretch) {
  switch (stretch.where) {
    case Where::memory:
      return stretch.records;
    case Where::delta:
      return loadDelta(stretch);
    case Where::rollbackFile: {
      std::string bytes;
      require(rollback_.readStretch(stretch.fileMark, bytes) == 0, PK_ERROR_frustrum_failure);
      return decodeChecked(bytes, stretch);
    }
  }
  return {};
}

void Journal::undo(const UndoRecord& record, Tracker& tracker) {
  tracker.touch(record.tag);
  if (record.kind == UndoKind::created) {
    table_.erase(record.tag);
    return;
  }
  table_.put(record.tag,
             Record{record.cls, record.owner, record.referent, takeArchived(record.payloadId)});
}

RollReport Journal::rollTo(std::uint64_t target) {
  // Every stretch after the target is read back and checked before anything
  // is undone: a stretch that cannot be read leaves model, journal and marks
  // as they were.
  std::size_t first = stretches_.size();
  while (first > 0 && stretches_[first - 1].end > target) --first;
  std::vector<std::vector<UndoRecord>> loaded(stretches_.size() - first);
  for (std::size_t i = stretches_.size(); i-- > first;) loaded[i - first] = load(stretches_[i]);

  // Undo, newest first.
  Tracker tracker(table_);
  auto kept = [&](const Stretch& s) {
    return s.begin >= target ? std::size_t(0) : std::size_t(target - s.begin);
  };
  for (std::size_t i = stretches_.size(); i-- > first;) {
    const std::vector<UndoRecord>& records = loaded[i - first];
    std::size_t keep = kept(stretches_[i]);
    for (std::size_t k = records.size(); k-- > keep;) undo(records[k], tracker);
  }

  // The journal follows the model before the store is told anything.
  std::vector<Stretch> spent;
  PK_DELTA_t replaced = 0;
  while (stretches_.size() > first) {
    Stretch& s = stretches_.back();
    std::size_t keep = kept(s);
    bool pmarkSurvives = s.pmark != PK_ENTITY_null && s.begin == target;
    if (keep == 0 && !pmarkSurvives) {
      s.records.clear();     // their payloads went back into the table
      s.payloadIds.clear();
      spent.push_back(std::move(s));
      stretches_.pop_back();
      loaded.pop_back();
      continue;
    }
    std::vector<UndoRecord> records = std::move(loaded.back());
    records.resize(keep);
    replaced = keepAsOpen(s, std::move(records));
    break;
  }
  position_ = std::min(position_, target);
  touchedSinceNewestMark_.clear();  // their records may be the ones undone

  // Now the store: spent deltas go, the pmark gone to gets a fresh one. A
  // failure here does not undo the roll-back; it is reported once all is done.
  RollReport report = tracker.report();
  auto attempt = [&](auto&& call) {
    try {
      call();
    } catch (const KernelError& e) {
      if (report.storeFailure == PK_ERROR_no_errors) report.storeFailure = e.code;
    }
  };
  for (Stretch& s : spent) attempt([&] { release(s); });
  if (replaced != 0) {
    attempt([&] { deltaStore().remove(replaced); });
    Stretch& open = stretches_.back();
    if (open.pmark != PK_ENTITY_null) attempt([&] { open.delta = deltaStore().openForWrite(open.pmark); });
  }
  return report;
}

// What is left of a stretch after going back into it becomes the open stretch
// again. A pmark's delta holds records that no longer apply: the stretch lets
// go of it (the caller deletes it and opens a fresh one) and returns its key.
PK_DELTA_t Journal::keepAsOpen(Stretch& s, std::vector<UndoRecord> records) {
  PK_DELTA_t written = 0;
  if (s.where == Where::delta) {
    written = s.delta;
    s.delta = 0;
  }
  s.where = Where::memory;
  s.records = std::move(records);
  s.payloadIds.clear();
  s.end = s.begin + s.records.size();
  return written;
}

void Journal::pmarkDeleted(PK_PMARK_t pmark) {
  for (auto it = stretches_.rbegin(); it != stretches_.rend(); ++it) {
    if (it->pmark != pmark) continue;
    it->pmark = PK_ENTITY_null;
    if (it->where == Where::memory && it->delta != 0) {
      // Opened but never written: nothing in it that anyone needs.
      PK_DELTA_t key = it->delta;
      it->delta = 0;
      deltaStore().close(key);
      deltaStore().remove(key);
    }
    return;
  }
}

void Journal::release(Stretch& s) {
  for (const UndoRecord& r : s.records) releaseArchived(r.payloadId);
  for (std::uint32_t id : s.payloadIds) releaseArchived(id);
  s.records.clear();
  s.payloadIds.clear();
  if (s.delta != 0) {
    PK_DELTA_t key = s.delta;
    s.delta = 0;
    if (s.where == Where::memory) deltaStore().close(key);  // open for write
    deltaStore().remove(key);
  }
}

bool Journal::holdsDeltas() const {
  return std::any_of(stretches_.begin(), stretches_.end(),
                     [](const Stretch& s) { return s.delta != 0; });
}

void Journal::trim() {
  std::uint64_t oldest = marks_.oldestPosition();
  while (!stretches_.empty()) {
    Stretch& first = stretches_.front();
    if (first.end > oldest || first.pmark != PK_ENTITY_null) break;
    // Out of the journal first: a store that refuses the delete keeps its
    // delta, the journal no longer needs it.
    Stretch gone = std::move(first);
    stretches_.pop_front();
    release(gone);
  }
}

void Journal::clear() {
  // The application owns its deltas and frees them itself when it stops its
  // store, which it may well have done before stopping the session: the keys
  // are forgotten without a call to the store. Stretches in the rollback file
  // go with the file.
  stretches_.clear();
  archive_.clear();
  touchedSinceNewestMark_.clear();
}

}  // namespace meld::kernel
