#include "SystemAttdefs.h"

namespace meld::kernel {

namespace {
void define(EntityTable& table, PK_PARTITION_t partition, const char* name,
            std::vector<PK_ATTRIB_field_t> fields) {
  table.create(Record{PK_CLASS_attdef, partition, PK_ENTITY_null,
                      makePayload(AttdefData{name, std::move(fields)})});
}
}  // namespace

void createSystemAttdefs(EntityTable& table, PK_PARTITION_t partition) {
  define(table, partition, "SDL/TYSA_NAME", {PK_ATTRIB_field_string_c});
  define(table, partition, "SDL/TYSA_UNAME", {PK_ATTRIB_field_ustring_c});
  define(table, partition, "SDL/TYSA_COLOUR",
         {PK_ATTRIB_field_real_c, PK_ATTRIB_field_real_c, PK_ATTRIB_field_real_c});
  define(table, partition, "SDL/TYSA_DENSITY", {PK_ATTRIB_field_real_c});
}

}  // namespace meld::kernel
