// The undo journal behind all three roll-back mechanisms (session marks,
// partition marks, the K-interface rollback file).
//
// Every change to the entity table appends an undo record while at least one
// mark exists (with no mark there is nothing to go back to, so nothing is
// kept). Payloads that records still need stay alive in the archive, under an
// id that the record carries. The journal is a row of stretches, each a run of
// consecutive records held in one place: in memory, in a delta of the
// application's delta store (a pmark's stretch, written when the next pmark is
// made or a goto needs it), or in the rollback file. Going back to a position
// reads the stretches after it back, newest first, and undoes their records in
// reverse: the cost is what changed since the position, never the model size.
#pragma once

#include "DeltaStore.h"
#include "EntityTable.h"
#include "MarkBook.h"
#include "RollbackFile.h"
#include "UndoRecord.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace meld::kernel {

// What a goto did, seen from the model: entities it brought back, changed, and
// took away.
struct RollReport {
  std::vector<PK_ENTITY_t> created;
  std::vector<PK_ENTITY_t> modified;
  std::vector<PK_ENTITY_t> deleted;
  // A delta-store call that failed after the model was back at the position
  // (deleting a spent delta, opening the fresh delta of the pmark gone to):
  // the roll-back stands, the failure is still to be reported.
  PK_ERROR_code_t storeFailure = PK_ERROR_no_errors;
};

class Journal : public ChangeListener {
 public:
  Journal(EntityTable& table, MarkBook& marks, std::optional<DeltaStore>& deltas,
          RollbackFile& rollback);
  ~Journal() override;

  std::uint64_t position() const { return position_; }

  void created(PK_ENTITY_t tag) override;
  void deleted(PK_ENTITY_t tag, const Record& old) override;
  void replaced(PK_ENTITY_t tag, const Record& old) override;

  // A new pmark at the current position: the previous pmark's stretch goes to
  // its delta, a delta is opened for the new one.
  void beginPmarkStretch(PK_PMARK_t pmark);
  // Writes the open stretch to its pmark's delta, if it has one.
  void sealOpenStretch();
  // Moves the in-memory records from position `from` on into the rollback
  // file (whose mark header names `from`). Returns a K-interface ifail.
  int spillToRollbackFile(std::uint64_t from);
  // Undoes everything after the position. Every stretch after it is read and
  // checked first: when one cannot be, this throws and nothing has changed.
  // Pmarks made after it lose their deltas; the caller drops them (and other
  // later marks) from the mark book.
  RollReport rollTo(std::uint64_t position);
  // The pmark no longer exists; its stretch stays while older marks need it.
  void pmarkDeleted(PK_PMARK_t pmark);
  // Releases the stretches no mark can reach.
  void trim();
  // Forgets everything (session stop) without calling the delta store: the
  // application frees its own deltas.
  void clear();

  std::size_t stretchCount() const { return stretches_.size(); }
  // Whether some stretch still lives in, or has a delta open in, the store.
  bool holdsDeltas() const;
  std::size_t archivedPayloads() const { return archive_.size(); }

 private:
  enum class Where { memory, delta, rollbackFile };

  struct Stretch {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    Where where = Where::memory;
    std::vector<UndoRecord> records;         // while in memory
    PK_PMARK_t pmark = PK_ENTITY_null;       // live pmark the stretch starts at
    PK_DELTA_t delta = 0;                    // its delta (open for write while in memory)
    std::vector<std::uint32_t> payloadIds;   // of records kept outside memory
    std::uint64_t fileMark = 0;              // rollback file: the header's position
  };

  class Tracker;

  bool recording() const { return !marks_.empty(); }
  // Whether the entity already has a record since the newest mark: going back
  // to any live mark passes that record, which brings back an older state, so
  // a later change needs no record and its old payload is let go at once.
  bool journalledSinceNewestMark(PK_ENTITY_t tag);
  void append(UndoRecord record);
  std::uint32_t archive(const PayloadPtr& payload);
  PayloadPtr takeArchived(std::uint32_t id);
  void releaseArchived(std::uint32_t id);

  std::vector<UndoRecord> load(Stretch& stretch);
  std::vector<UndoRecord> loadDelta(const Stretch& stretch);
  std::vector<UndoRecord> decodeChecked(const std::string& bytes, const Stretch& stretch);
  void undo(const UndoRecord& record, Tracker& tracker);
  PK_DELTA_t keepAsOpen(Stretch& stretch, std::vector<UndoRecord> records);
  void release(Stretch& stretch);
  DeltaStore& deltaStore();

  EntityTable& table_;
  MarkBook& marks_;
  std::optional<DeltaStore>& deltas_;
  RollbackFile& rollback_;
  std::deque<Stretch> stretches_;
  std::unordered_map<std::uint32_t, PayloadPtr> archive_;
  std::uint32_t nextPayloadId_ = 1;
  std::unordered_set<PK_ENTITY_t> touchedSinceNewestMark_;
  std::uint64_t newestMarkSeen_ = 0;
  std::uint64_t position_ = 0;
};

}  // namespace meld::kernel
