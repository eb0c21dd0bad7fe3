#pragma once

#include "Session.h"

namespace meld::kernel {

// Returns the model to a journal position and forgets the marks made after it.
RollReport goBackTo(SessionState& s, std::uint64_t position);

// Drops a mark of any kind: from the mark book, the journal and the table.
void forgetMark(SessionState& s, PK_ENTITY_t mark);

}  // namespace meld::kernel
