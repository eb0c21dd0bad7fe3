// The kernel's process-wide state: what the application registered (frustrum,
// delta callbacks) and, while a session runs, the session itself.
#pragma once

#include "DeltaStore.h"
#include "EntityTable.h"
#include "Journal.h"
#include "MarkBook.h"
#include "RollbackFile.h"

#include <memory>
#include <optional>

namespace meld::kernel {

class FuseContext;  // ops/SharedFuse.cpp

// A session starts single-threaded; only PK_SESSION_set_smp turns threads on.
struct SmpSettings {
  PK_thread_t threadFormat = PK_thread_disabled_c;
  int nThreads = 0;
  PK_LOGICAL_t onSingleProcessor = PK_LOGICAL_false;
};

struct SessionState {
  explicit SessionState(std::optional<PK_DELTA_frustrum_t> deltaFns);

  EntityTable table;
  MarkBook marks;
  std::optional<DeltaStore> deltas;
  RollbackFile rollback;
  Journal journal;
  PK_PARTITION_t partition = PK_ENTITY_null;
  PK_MARK_t kiMark = PK_ENTITY_null;
  bool checkSelfInt = true;
  bool checkContinuity = true;
  SmpSettings smp;
  // Unions answered from one general fuse of the session's solids: a cache
  // outside the journal, dropped with the session. Sharing is on unless the
  // environment says MELD_SHARED_FUSE=0; tests set it per session.
  std::shared_ptr<FuseContext> fuseContext;
  std::optional<bool> shareUnions;
};

struct Registry {
  std::optional<PK_SESSION_frustrum_t> frustrum;
  std::optional<PK_DELTA_frustrum_t> deltaFns;
  std::unique_ptr<SessionState> session;
};

Registry& registry();

// The running session; PK_ERROR_not_in_session when there is none.
SessionState& session();

// The registered frustrum of a running session.
const PK_SESSION_frustrum_t& frustrum();

}  // namespace meld::kernel
