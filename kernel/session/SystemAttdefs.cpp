#include "SystemAttdefs.h"

namespace meld::kernel {

namespace {
void define(EntityTable& table, PK_PARTITION_t partition, const char* name, int64_t typeId,
            std::vector<PK_ATTRIB_field_t> fields) {
  AttdefXt xt;
  xt.typeId = typeId;
  table.create(Record{PK_CLASS_attdef, partition, PK_ENTITY_null,
                      makePayload(AttdefData{name, std::move(fields), xt})});
}
}  // namespace

// Part files number the system definitions (colour 8001, density 8004, name
// 8017, Unicode name 8038); a colour is one real field of three values.
void createSystemAttdefs(EntityTable& table, PK_PARTITION_t partition) {
  define(table, partition, "SDL/TYSA_NAME", 8017, {PK_ATTRIB_field_string_c});
  define(table, partition, "SDL/TYSA_UNAME", 8038, {PK_ATTRIB_field_ustring_c});
  define(table, partition, "SDL/TYSA_COLOUR", 8001, {PK_ATTRIB_field_real_c});
  define(table, partition, "SDL/TYSA_DENSITY", 8004, {PK_ATTRIB_field_real_c});
}

}  // namespace meld::kernel
