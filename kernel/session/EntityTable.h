// The entity table: tag -> {class, owner, referent, payload}. Tags are never
// reused. Every change made through create/remove/replace is reported to the
// change listener (the undo journal); the restore side (put/erase) is what the
// journal uses to go back and reports nothing.
#pragma once

#include "Payload.h"

#include <cstdint>
#include <functional>
#include <set>
#include <unordered_map>
#include <vector>

namespace meld::kernel {

struct Record {
  PK_CLASS_t cls = 0;
  PK_ENTITY_t owner = PK_ENTITY_null;     // assembly of an instance, entity of an attribute
  PK_ENTITY_t referent = PK_ENTITY_null;  // part of an instance, attdef of an attribute
  PayloadPtr payload;
};

class ChangeListener {
 public:
  virtual ~ChangeListener() = default;
  virtual void created(PK_ENTITY_t tag) = 0;
  virtual void deleted(PK_ENTITY_t tag, const Record& old) = 0;
  virtual void replaced(PK_ENTITY_t tag, const Record& old) = 0;
};

class EntityTable {
 public:
  void setListener(ChangeListener* listener) { listener_ = listener; }

  // Journalled changes.
  PK_ENTITY_t create(Record record);
  void remove(PK_ENTITY_t tag);
  void replacePayload(PK_ENTITY_t tag, PayloadPtr payload);

  // Session entities (partition, pmarks, marks): in the table so that class
  // enquiries answer for them, but outside the journal.
  PK_ENTITY_t createUnjournalled(PK_CLASS_t cls);
  void eraseUnjournalled(PK_ENTITY_t tag) { erase(tag); }

  // Going back.
  void put(PK_ENTITY_t tag, Record record);
  void erase(PK_ENTITY_t tag);

  const Record* find(PK_ENTITY_t tag) const;
  // The record, or PK_ERROR_not_an_entity / PK_ERROR_wrong_entity.
  const Record& get(PK_ENTITY_t tag, PK_CLASS_t cls) const;
  const Record& get(PK_ENTITY_t tag) const;
  bool exists(PK_ENTITY_t tag) const { return records_.count(tag) != 0; }

  // Entities owned by / referring to a tag, in tag (= creation) order.
  const std::set<PK_ENTITY_t>& ownedBy(PK_ENTITY_t owner) const;
  const std::set<PK_ENTITY_t>& referringTo(PK_ENTITY_t referent) const;
  // The live bodies, in tag order.
  const std::set<PK_ENTITY_t>& bodies() const { return bodies_; }
  // Instances placed by a transform (their payload names it).
  const std::set<PK_ENTITY_t>& placedBy(PK_TRANSF_t transf) const;

  // Sub-entities (regions, shells, faces, loops, edges, vertices) live in
  // their body's payload, not in the table: the body that holds a live
  // sub-entity tag, PK_ENTITY_null when none does.
  PK_BODY_t bodyOfSubEntity(PK_ENTITY_t tag) const;
  // A tag from the session's counter for a sub-entity of a payload being built.
  PK_ENTITY_t reserveTag();

  std::size_t size() const { return records_.size(); }
  PK_ENTITY_t lastTag() const { return nextTag_ - 1; }

 private:
  void index(PK_ENTITY_t tag, const Record& record, bool subEntities = true);
  void unindex(PK_ENTITY_t tag, const Record& record, bool subEntities = true);
  void reindexSubEntities(PK_ENTITY_t tag, const Record& before, const Record& after);

  std::unordered_map<PK_ENTITY_t, Record> records_;
  std::unordered_map<PK_ENTITY_t, std::set<PK_ENTITY_t>> byOwner_;
  std::unordered_map<PK_ENTITY_t, std::set<PK_ENTITY_t>> byReferent_;
  std::unordered_map<PK_ENTITY_t, std::set<PK_ENTITY_t>> byTransf_;
  std::unordered_map<PK_ENTITY_t, PK_BODY_t> subEntityBody_;
  std::set<PK_ENTITY_t> bodies_;
  PK_ENTITY_t nextTag_ = 1;
  ChangeListener* listener_ = nullptr;
};

}  // namespace meld::kernel
