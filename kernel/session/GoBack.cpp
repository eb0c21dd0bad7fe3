#include "GoBack.h"

#include "KernelError.h"

namespace meld::kernel {

RollReport goBackTo(SessionState& s, std::uint64_t position) {
  // Refused before anything changed when a stretch cannot be read back.
  RollReport report = s.journal.rollTo(position);
  // From here on the model is at the position: the marks follow it whatever
  // the delta store answers, and the first store failure is reported after.
  PK_ERROR_code_t failure = report.storeFailure;
  auto attempt = [&](auto&& call) {
    try {
      call();
    } catch (const KernelError& e) {
      if (failure == PK_ERROR_no_errors) failure = e.code;
    }
  };
  for (PK_ENTITY_t mark : s.marks.removeAfter(position)) attempt([&] { forgetMark(s, mark); });
  attempt([&] { s.journal.trim(); });
  require(failure == PK_ERROR_no_errors, failure);
  return report;
}

void forgetMark(SessionState& s, PK_ENTITY_t mark) {
  s.marks.remove(mark);
  if (s.kiMark == mark) s.kiMark = PK_ENTITY_null;
  s.table.eraseUnjournalled(mark);
  s.journal.pmarkDeleted(mark);  // the only step that calls the delta store
}

}  // namespace meld::kernel
