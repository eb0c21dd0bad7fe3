#include "EntityTable.h"

#include "KernelError.h"

#include <limits>

namespace meld::kernel {

namespace {
const std::set<PK_ENTITY_t> kNone;

void dropFrom(std::unordered_map<PK_ENTITY_t, std::set<PK_ENTITY_t>>& index, PK_ENTITY_t key,
              PK_ENTITY_t tag) {
  auto it = index.find(key);
  if (it == index.end()) return;
  it->second.erase(tag);
  if (it->second.empty()) index.erase(it);
}
}  // namespace

PK_ENTITY_t EntityTable::create(Record record) {
  PK_ENTITY_t tag = createUnjournalled(record.cls);
  put(tag, std::move(record));
  if (listener_) listener_->created(tag);
  return tag;
}

PK_ENTITY_t EntityTable::reserveTag() {
  require(nextTag_ < std::numeric_limits<PK_ENTITY_t>::max(), PK_ERROR_memory_full);
  return nextTag_++;
}

PK_BODY_t EntityTable::bodyOfSubEntity(PK_ENTITY_t tag) const {
  auto it = subEntityBody_.find(tag);
  return it == subEntityBody_.end() ? PK_ENTITY_null : it->second;
}

PK_ENTITY_t EntityTable::createUnjournalled(PK_CLASS_t cls) {
  PK_ENTITY_t tag = reserveTag();
  put(tag, Record{cls, PK_ENTITY_null, PK_ENTITY_null, nullptr});
  return tag;
}

void EntityTable::remove(PK_ENTITY_t tag) {
  auto it = records_.find(tag);
  if (it == records_.end()) return;
  if (listener_) listener_->deleted(tag, it->second);
  erase(tag);
}

void EntityTable::replacePayload(PK_ENTITY_t tag, PayloadPtr payload) {
  auto it = records_.find(tag);
  require(it != records_.end(), PK_ERROR_not_an_entity);
  if (listener_) listener_->replaced(tag, it->second);
  Record updated{it->second.cls, it->second.owner, it->second.referent, std::move(payload)};
  unindex(tag, it->second, false);
  reindexSubEntities(tag, it->second, updated);
  it->second = std::move(updated);
  index(tag, it->second, false);
}

void EntityTable::put(PK_ENTITY_t tag, Record record) {
  auto it = records_.find(tag);
  if (it != records_.end()) {
    unindex(tag, it->second);
    it->second = std::move(record);
  } else {
    it = records_.emplace(tag, std::move(record)).first;
  }
  index(tag, it->second);
}

void EntityTable::erase(PK_ENTITY_t tag) {
  auto it = records_.find(tag);
  if (it == records_.end()) return;
  unindex(tag, it->second);
  records_.erase(it);
}

const Record* EntityTable::find(PK_ENTITY_t tag) const {
  auto it = records_.find(tag);
  return it == records_.end() ? nullptr : &it->second;
}

const Record& EntityTable::get(PK_ENTITY_t tag) const {
  const Record* record = find(tag);
  require(record != nullptr, PK_ERROR_not_an_entity);
  return *record;
}

const Record& EntityTable::get(PK_ENTITY_t tag, PK_CLASS_t cls) const {
  const Record& record = get(tag);
  require(record.cls == cls, PK_ERROR_wrong_entity);
  return record;
}

const std::set<PK_ENTITY_t>& EntityTable::ownedBy(PK_ENTITY_t owner) const {
  auto it = byOwner_.find(owner);
  return it == byOwner_.end() ? kNone : it->second;
}

const std::set<PK_ENTITY_t>& EntityTable::referringTo(PK_ENTITY_t referent) const {
  auto it = byReferent_.find(referent);
  return it == byReferent_.end() ? kNone : it->second;
}

const std::set<PK_ENTITY_t>& EntityTable::placedBy(PK_TRANSF_t transf) const {
  auto it = byTransf_.find(transf);
  return it == byTransf_.end() ? kNone : it->second;
}

namespace {
PK_TRANSF_t transfOf(const Record& record) {
  if (record.cls != PK_CLASS_instance || !record.payload) return PK_ENTITY_null;
  const auto* instance = std::get_if<InstanceData>(record.payload.get());
  return instance ? instance->transf : PK_ENTITY_null;
}

const BodyTopology* topologyOf(const Record& record) {
  if (record.cls != PK_CLASS_body || !record.payload) return nullptr;
  const auto* body = std::get_if<BodyData>(record.payload.get());
  return body ? body->topology.get() : nullptr;
}
}  // namespace

// A body's new topology mostly holds the old one's sub-entities (a union
// keeps most of its target's faces): only those that went are dropped and
// the others pointed at the body again, rather than all dropped and added.
void EntityTable::reindexSubEntities(PK_ENTITY_t tag, const Record& before, const Record& after) {
  const BodyTopology* old = topologyOf(before);
  const BodyTopology* now = topologyOf(after);
  auto release = [&](PK_ENTITY_t sub) {
    auto it = subEntityBody_.find(sub);
    if (it != subEntityBody_.end() && it->second == tag) subEntityBody_.erase(it);
  };
  // An edited topology names what it dropped and added.
  if (old && now && now->editedFrom.lock().get() == old) {
    for (PK_ENTITY_t sub : now->dropped) release(sub);
    for (PK_ENTITY_t sub : now->added) subEntityBody_[sub] = tag;
    return;
  }
  if (old)
    old->forEachTag([&](PK_ENTITY_t sub) {
      if (!now || !now->find(sub)) release(sub);
    });
  if (now) now->forEachTag([&](PK_ENTITY_t sub) { subEntityBody_[sub] = tag; });
}

void EntityTable::index(PK_ENTITY_t tag, const Record& record, bool subEntities) {
  if (record.cls == PK_CLASS_body) bodies_.insert(tag);
  if (record.owner != PK_ENTITY_null) byOwner_[record.owner].insert(tag);
  if (record.referent != PK_ENTITY_null) byReferent_[record.referent].insert(tag);
  if (PK_TRANSF_t transf = transfOf(record)) byTransf_[transf].insert(tag);
  if (const BodyTopology* topology = subEntities ? topologyOf(record) : nullptr)
    topology->forEachTag([&](PK_ENTITY_t sub) { subEntityBody_[sub] = tag; });
}

void EntityTable::unindex(PK_ENTITY_t tag, const Record& record, bool subEntities) {
  if (record.cls == PK_CLASS_body) bodies_.erase(tag);
  if (record.owner != PK_ENTITY_null) dropFrom(byOwner_, record.owner, tag);
  if (record.referent != PK_ENTITY_null) dropFrom(byReferent_, record.referent, tag);
  if (PK_TRANSF_t transf = transfOf(record)) dropFrom(byTransf_, transf, tag);
  if (const BodyTopology* topology = subEntities ? topologyOf(record) : nullptr)
    topology->forEachTag([&](PK_ENTITY_t sub) {
      // A sub-entity may have moved on to another body (a tool's face kept by
      // a union): only this body's hold on it ends.
      auto it = subEntityBody_.find(sub);
      if (it != subEntityBody_.end() && it->second == tag) subEntityBody_.erase(it);
    });
}

}  // namespace meld::kernel
