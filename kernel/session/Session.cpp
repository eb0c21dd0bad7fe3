#include "Session.h"

#include "KernelError.h"

namespace meld::kernel {

SessionState::SessionState(std::optional<PK_DELTA_frustrum_t> deltaFns)
    : journal(table, marks, deltas, rollback) {
  if (deltaFns) deltas.emplace(*deltaFns);
}

Registry& registry() {
  static Registry instance;
  return instance;
}

SessionState& session() {
  Registry& r = registry();
  require(r.session != nullptr, PK_ERROR_not_in_session);
  return *r.session;
}

const PK_SESSION_frustrum_t& frustrum() {
  session();
  return *registry().frustrum;
}

}  // namespace meld::kernel
