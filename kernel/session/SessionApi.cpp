// PK_SESSION_ functions and the registration of the application's callbacks.
#include "KernelError.h"
#include "Parallelism.h"
#include "Session.h"
#include "SystemAttdefs.h"

#include <OSD.hxx>

#include <cstdlib>
#include <cstring>

using namespace meld::kernel;

namespace {

constexpr int kMaxUserField = 16;

bool hasKernelSlots(const PK_SESSION_frustrum_t& f) {
  return f.fstart && f.fstop && f.fmallo && f.fmfree && f.ffoprd && f.ffopwr && f.ffclos &&
         f.ffread && f.ffwrit && f.ffoprb && f.ffseek && f.fftell;
}

bool hasAllDeltaFns(const PK_DELTA_frustrum_t& d) {
  return d.open_for_write_fn && d.open_for_read_fn && d.close_fn && d.write_fn && d.read_fn &&
         d.delete_fn;
}

void checkStartOptions(const PK_SESSION_start_o_t* options) {
  if (!options) return;
  require(options->o_t_version >= 1, PK_ERROR_bad_option_data);
  require(options->user_field >= 0 && options->user_field <= kMaxUserField,
          PK_ERROR_bad_user_field_size);
  // This kernel keeps no journal file; asking for one is refused, not ignored.
  require(options->journal_file == nullptr || options->journal_file[0] == '\0',
          PK_ERROR_bad_option_data);
}

// OCCT's handlers turn a memory fault inside a kernel call into an error code.
// MELD_NO_FAULT_CATCHING=1 leaves faults to the process instead, so that a
// sanitizer or a fuzzer sees the fault where it happens rather than a clean
// error return.
void installSignalHandlers() {
  static bool done = false;
  if (done) return;
  const char* leave = std::getenv("MELD_NO_FAULT_CATCHING");
  if (!(leave && std::strcmp(leave, "1") == 0)) OSD::SetSignal(Standard_False);
  done = true;
}

void checkSmpOptions(const PK_SESSION_smp_o_t& o) {
  require(o.o_t_version >= 1, PK_ERROR_bad_option_data);
  bool disabled = o.thread_format == PK_thread_disabled_c;
  require(disabled || o.thread_format == PK_thread_per_processor_c ||
              o.thread_format == PK_thread_absolute_c,
          PK_ERROR_bad_option_data);
  require(disabled ? o.n_threads >= 0 : o.n_threads >= 1, PK_ERROR_bad_option_data);
}

}  // namespace

extern "C" PK_ERROR_code_t PK_SESSION_register_frustrum(const PK_SESSION_frustrum_t* fr) {
  return guarded([&] {
    requireArg(fr);
    require(registry().session == nullptr, PK_ERROR_already_in_session);
    require(hasKernelSlots(*fr), PK_ERROR_frustrum_incomplete);
    registry().frustrum = *fr;
  });
}

extern "C" PK_ERROR_code_t PK_DELTA_register_callbacks(const PK_DELTA_frustrum_t* callbacks) {
  return guarded([&] {
    requireArg(callbacks);
    require(hasAllDeltaFns(*callbacks), PK_ERROR_frustrum_incomplete);
    Registry& r = registry();
    // Allowed while no pmark exists. Deltas already written belong to the
    // store that took them: while the journal still holds one (a deleted
    // pmark's stretch that an older mark needs) the store cannot change either.
    if (r.session)
      require(!r.session->marks.anyOfKind(MarkKind::pmark) && !r.session->journal.holdsDeltas(),
              PK_ERROR_already_in_session);
    r.deltaFns = *callbacks;
    if (r.session) r.session->deltas.emplace(*callbacks);
  });
}

extern "C" PK_ERROR_code_t PK_SESSION_start(const PK_SESSION_start_o_t* options) {
  return guarded([&] {
    Registry& r = registry();
    require(r.frustrum.has_value(), PK_ERROR_frustrum_not_registered);
    require(r.session == nullptr, PK_ERROR_already_in_session);
    checkStartOptions(options);
    installSignalHandlers();
    int ifail = 0;
    r.frustrum->fstart(&ifail);
    require(ifail == PK_FR_no_errors, PK_ERROR_frustrum_failure);
    auto state = std::make_unique<SessionState>(r.deltaFns);
    state->partition = state->table.createUnjournalled(PK_CLASS_partition);
    createSystemAttdefs(state->table, state->partition);
    applyParallelism(threadsFor(state->smp));
    r.session = std::move(state);
  });
}

extern "C" PK_ERROR_code_t PK_SESSION_stop(void) {
  return guarded([&] {
    SessionState& s = session();
    s.journal.clear();
    s.rollback.close();
    Registry& r = registry();
    r.session.reset();
    applyParallelism(1);
    int ifail = 0;
    r.frustrum->fstop(&ifail);
    require(ifail == PK_FR_no_errors, PK_ERROR_frustrum_failure);
  });
}

extern "C" PK_ERROR_code_t PK_SESSION_set_check_self_int(PK_LOGICAL_t check) {
  return guarded([&] { session().checkSelfInt = check != PK_LOGICAL_false; });
}

extern "C" PK_ERROR_code_t PK_SESSION_ask_check_self_int(PK_LOGICAL_t* check) {
  return guarded([&] {
    requireArg(check);
    *check = session().checkSelfInt ? PK_LOGICAL_true : PK_LOGICAL_false;
  });
}

extern "C" PK_ERROR_code_t PK_SESSION_set_check_continuity(PK_LOGICAL_t check) {
  return guarded([&] { session().checkContinuity = check != PK_LOGICAL_false; });
}

extern "C" PK_ERROR_code_t PK_SESSION_ask_check_continuity(PK_LOGICAL_t* check) {
  return guarded([&] {
    requireArg(check);
    *check = session().checkContinuity ? PK_LOGICAL_true : PK_LOGICAL_false;
  });
}

extern "C" PK_ERROR_code_t PK_SESSION_set_smp(const PK_SESSION_smp_o_t* options) {
  return guarded([&] {
    requireArg(options);
    SessionState& s = session();
    checkSmpOptions(*options);
    s.smp = SmpSettings{options->thread_format, options->n_threads, options->on_single_processor};
    applyParallelism(threadsFor(s.smp));
  });
}

extern "C" PK_ERROR_code_t PK_SESSION_ask_smp(PK_SESSION_smp_r_t* smp) {
  return guarded([&] {
    requireArg(smp);
    const SmpSettings& s = session().smp;
    *smp = PK_SESSION_smp_r_t{s.threadFormat, s.nThreads, s.onSingleProcessor, processorCount()};
  });
}

extern "C" PK_ERROR_code_t PK_SESSION_ask_curr_partition(PK_PARTITION_t* partition) {
  return guarded([&] {
    requireArg(partition);
    *partition = session().partition;
  });
}
