// The K-interface rollback: KI_SEINTP, KI_ROLSMK, KI_ROLBLM. These report
// through ifail; kernel failures inside become KI_rollback_failure.
#include "GoBack.h"
#include "KernelError.h"

using namespace meld::kernel;

namespace {

template <class Body>
void kiGuarded(int* ifail, Body&& body) {
  if (!ifail) return;
  *ifail = 0;
  if (!registry().session) {
    *ifail = KI_not_in_session;
    return;
  }
  PK_ERROR_code_t code = guarded([&] { *ifail = body(session()); });
  if (code != PK_ERROR_no_errors) *ifail = KI_rollback_failure;
}

}  // namespace

extern "C" void KI_SEINTP(const int* code, const int* ivalue, const double* rvalue, int* ifail) {
  (void)rvalue;  // no real-valued parameter is supported
  kiGuarded(ifail, [&](SessionState& s) {
    if (!code || !ivalue || *code != KI_param_rollback_size) return KI_bad_parameter;
    return s.rollback.setSize(*ivalue);
  });
}

extern "C" void KI_ROLSMK(int* ifail) {
  kiGuarded(ifail, [&](SessionState& s) {
    std::uint64_t position = s.journal.position();
    if (int failure = s.rollback.writeMark(position)) return failure;
    // Only the last mark can be rolled back to: it replaces the previous one.
    if (s.kiMark != PK_ENTITY_null) forgetMark(s, s.kiMark);
    PK_MARK_t mark = s.table.createUnjournalled(PK_CLASS_mark);
    s.marks.add(mark, MarkKind::ki, position);
    s.kiMark = mark;
    s.journal.trim();
    return 0;
  });
}

extern "C" void KI_ROLBLM(int* ifail) {
  kiGuarded(ifail, [&](SessionState& s) {
    if (s.kiMark == PK_ENTITY_null) return int(KI_rollback_not_started);
    std::uint64_t position = s.marks.find(s.kiMark)->position;
    if (int failure = s.journal.spillToRollbackFile(position)) return failure;
    goBackTo(s, position);
    return 0;
  });
}
