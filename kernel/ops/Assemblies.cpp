// Assemblies, instances and the enquiries that walk them.
#include "session/KernelError.h"
#include "session/Memory.h"
#include "session/Session.h"

#include <unordered_set>

using namespace meld::kernel;

namespace {

bool isPart(PK_CLASS_t cls) { return cls == PK_CLASS_body || cls == PK_CLASS_assembly; }

std::vector<PK_INSTANCE_t> instancesOf(const EntityTable& table, PK_ASSEMBLY_t assembly) {
  std::vector<PK_INSTANCE_t> instances;
  for (PK_ENTITY_t tag : table.ownedBy(assembly))
    if (table.get(tag).cls == PK_CLASS_instance) instances.push_back(tag);
  return instances;
}

// Whether `target` is `part` or lies somewhere inside it.
bool contains(const EntityTable& table, PK_PART_t part, PK_ASSEMBLY_t target) {
  if (part == target) return true;
  if (table.get(part).cls != PK_CLASS_assembly) return false;
  for (PK_INSTANCE_t instance : instancesOf(table, part))
    if (contains(table, table.get(instance).referent, target)) return true;
  return false;
}

}  // namespace

extern "C" PK_ERROR_code_t PK_ASSEMBLY_create_empty(PK_ASSEMBLY_t* assembly) {
  return guarded([&] {
    requireArg(assembly);
    *assembly = session().table.create(
        Record{PK_CLASS_assembly, PK_ENTITY_null, PK_ENTITY_null, makePayload(AssemblyData{})});
  });
}

extern "C" PK_ERROR_code_t PK_INSTANCE_create(const PK_INSTANCE_sf_t* sf, PK_INSTANCE_t* instance) {
  return guarded([&] {
    requireArg(sf);
    requireArg(instance);
    EntityTable& table = session().table;
    table.get(sf->assembly, PK_CLASS_assembly);
    require(isPart(table.get(sf->part).cls), PK_ERROR_wrong_entity);
    if (sf->transf != PK_ENTITY_null) table.get(sf->transf, PK_CLASS_transf);
    require(!contains(table, sf->part, sf->assembly), PK_ERROR_bad_value);
    *instance = table.create(
        Record{PK_CLASS_instance, sf->assembly, sf->part, makePayload(InstanceData{sf->transf})});
  });
}

extern "C" PK_ERROR_code_t PK_ASSEMBLY_ask_parts(PK_ASSEMBLY_t assembly, int* n_parts,
                                                 PK_PART_t** parts) {
  return guarded([&] {
    requireArg(n_parts);
    requireArg(parts);
    const EntityTable& table = session().table;
    table.get(assembly, PK_CLASS_assembly);
    std::vector<PK_PART_t> distinct;
    std::unordered_set<PK_PART_t> seen;
    for (PK_INSTANCE_t instance : instancesOf(table, assembly)) {
      PK_PART_t part = table.get(instance).referent;
      if (seen.insert(part).second) distinct.push_back(part);
    }
    handOut(distinct, n_parts, parts);
  });
}

extern "C" PK_ERROR_code_t PK_PART_ask_ref_instances(PK_PART_t part, int* n_instances,
                                                     PK_INSTANCE_t** instances) {
  return guarded([&] {
    requireArg(n_instances);
    requireArg(instances);
    const EntityTable& table = session().table;
    require(isPart(table.get(part).cls), PK_ERROR_wrong_entity);
    std::vector<PK_INSTANCE_t> refs;
    for (PK_ENTITY_t tag : table.referringTo(part))
      if (table.get(tag).cls == PK_CLASS_instance) refs.push_back(tag);
    handOut(refs, n_instances, instances);
  });
}
