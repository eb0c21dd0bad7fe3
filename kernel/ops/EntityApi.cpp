// Entity enquiries and deletion.
#include "Bodies.h"
#include "session/KernelError.h"

#include <set>

using namespace meld::kernel;

namespace {

bool isDeletable(PK_CLASS_t cls) {
  return cls == PK_CLASS_body || cls == PK_CLASS_assembly || cls == PK_CLASS_instance ||
         cls == PK_CLASS_transf || cls == PK_CLASS_attrib;
}

// A part may go only when every instance that refers to it goes too.
void checkNotInstancedElsewhere(const EntityTable& table, PK_ENTITY_t part,
                                const std::set<PK_ENTITY_t>& doomed) {
  for (PK_ENTITY_t ref : table.referringTo(part)) {
    const Record& r = table.get(ref);
    bool instanceGoes = doomed.count(ref) || doomed.count(r.owner);
    require(r.cls != PK_CLASS_instance || instanceGoes, PK_ERROR_part_is_instanced);
  }
}

// A transform may go only when every instance it places goes too (an
// instance holds its transform by tag).
void checkNotPlacingElsewhere(const EntityTable& table, PK_ENTITY_t transf,
                              const std::set<PK_ENTITY_t>& doomed) {
  for (PK_ENTITY_t instance : table.placedBy(transf)) {
    bool instanceGoes = doomed.count(instance) || doomed.count(table.get(instance).owner);
    require(instanceGoes, PK_ERROR_part_is_instanced);
  }
}

// Owned entities (attributes, an assembly's instances) go with their owner.
void deleteWithOwned(EntityTable& table, PK_ENTITY_t tag) {
  if (!table.exists(tag)) return;
  std::vector<PK_ENTITY_t> owned(table.ownedBy(tag).begin(), table.ownedBy(tag).end());
  for (PK_ENTITY_t child : owned) deleteWithOwned(table, child);
  table.remove(tag);
}

}  // namespace

extern "C" PK_ERROR_code_t PK_ENTITY_ask_class(PK_ENTITY_t entity, PK_CLASS_t* klass) {
  return guarded([&] {
    requireArg(klass);
    const EntityTable& table = session().table;
    if (PK_BODY_t body = table.bodyOfSubEntity(entity)) {
      *klass = bodyTopology(body).find(entity)->cls;
      return;
    }
    *klass = table.get(entity).cls;
  });
}

extern "C" PK_ERROR_code_t PK_ENTITY_is(PK_ENTITY_t entity, PK_LOGICAL_t* is_entity) {
  return guarded([&] {
    requireArg(is_entity);
    const EntityTable& table = session().table;
    bool live = table.exists(entity) || table.bodyOfSubEntity(entity) != PK_ENTITY_null;
    *is_entity = live ? PK_LOGICAL_true : PK_LOGICAL_false;
  });
}

extern "C" PK_ERROR_code_t PK_ENTITY_delete(int n_entities, const PK_ENTITY_t* entities) {
  return guarded([&] {
    require(n_entities >= 0, PK_ERROR_bad_value);
    if (n_entities == 0) return;
    requireArg(entities);
    EntityTable& table = session().table;
    std::set<PK_ENTITY_t> doomed(entities, entities + n_entities);
    require(doomed.size() == std::size_t(n_entities), PK_ERROR_duplicate_entity);
    for (PK_ENTITY_t tag : doomed) require(isDeletable(table.get(tag).cls), PK_ERROR_wrong_entity);
    for (PK_ENTITY_t tag : doomed) {
      checkNotInstancedElsewhere(table, tag, doomed);
      checkNotPlacingElsewhere(table, tag, doomed);
    }
    for (PK_ENTITY_t tag : doomed) deleteWithOwned(table, tag);
  });
}

extern "C" PK_ERROR_code_t PK_BODY_ask_type(PK_BODY_t body, PK_BODY_type_t* body_type) {
  return guarded([&] {
    requireArg(body_type);
    *body_type = bodyData(body).type;
  });
}
