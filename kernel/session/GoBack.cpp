#include "GoBack.h"

namespace meld::kernel {

RollReport goBackTo(SessionState& s, std::uint64_t position) {
  RollReport report = s.journal.rollTo(position);
  for (PK_ENTITY_t mark : s.marks.removeAfter(position)) forgetMark(s, mark);
  s.journal.trim();
  return report;
}

void forgetMark(SessionState& s, PK_ENTITY_t mark) {
  s.marks.remove(mark);
  s.journal.pmarkDeleted(mark);
  if (s.kiMark == mark) s.kiMark = PK_ENTITY_null;
  s.table.eraseUnjournalled(mark);
}

}  // namespace meld::kernel
