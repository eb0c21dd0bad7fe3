#pragma once

#include "EntityTable.h"

namespace meld::kernel {

// The attribute definitions every session has from its start (the system
// ones of the transmit format that the program reads and writes).
// They are owned by the partition, which is how PK_ATTDEF_find lists them.
void createSystemAttdefs(EntityTable& table, PK_PARTITION_t partition);

}  // namespace meld::kernel
