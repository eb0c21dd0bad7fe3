// Session marks and partition marks.
#include "GoBack.h"
#include "KernelError.h"
#include "Memory.h"

#include <algorithm>
#include <set>

using namespace meld::kernel;

namespace {

const MarkInfo& markOfKind(SessionState& s, PK_ENTITY_t tag, MarkKind kind) {
  const MarkInfo* info = s.marks.find(tag);
  require(info != nullptr && info->kind == kind, PK_ERROR_bad_mark);
  return *info;
}

DeltaStore& deltasOf(SessionState& s) {
  require(s.deltas.has_value(), PK_ERROR_rollback_not_started);
  return *s.deltas;
}

std::vector<PK_ENTITY_t> withoutAttributes(const SessionState& s, std::vector<PK_ENTITY_t> tags) {
  std::erase_if(tags, [&](PK_ENTITY_t tag) {
    const Record* r = s.table.find(tag);
    return r && r->cls == PK_CLASS_attrib;
  });
  return tags;
}

void handOutIf(bool wanted, const std::vector<PK_ENTITY_t>& tags, int* n, PK_ENTITY_t** array) {
  if (wanted) handOut(tags, n, array);
  else {
    *n = 0;
    *array = nullptr;
  }
}

}  // namespace

extern "C" PK_ERROR_code_t PK_MARK_create(PK_MARK_t* mark) {
  return guarded([&] {
    requireArg(mark);
    SessionState& s = session();
    PK_MARK_t tag = s.table.createUnjournalled(PK_CLASS_mark);
    s.marks.add(tag, MarkKind::plain, s.journal.position());
    *mark = tag;
  });
}

extern "C" PK_ERROR_code_t PK_MARK_goto(PK_MARK_t mark) {
  return guarded([&] {
    SessionState& s = session();
    goBackTo(s, markOfKind(s, mark, MarkKind::plain).position);
  });
}

extern "C" PK_ERROR_code_t PK_MARK_delete(PK_MARK_t mark) {
  return guarded([&] {
    SessionState& s = session();
    markOfKind(s, mark, MarkKind::plain);
    forgetMark(s, mark);
    s.journal.trim();
  });
}

extern "C" PK_ERROR_code_t PK_PARTITION_make_pmark(PK_PARTITION_t partition, PK_PMARK_t* pmark) {
  return guarded([&] {
    requireArg(pmark);
    SessionState& s = session();
    s.table.get(partition, PK_CLASS_partition);
    deltasOf(s);
    PK_PMARK_t tag = s.table.createUnjournalled(PK_CLASS_pmark);
    s.marks.add(tag, MarkKind::pmark, s.journal.position());
    try {
      s.journal.beginPmarkStretch(tag);
    } catch (const KernelError&) {
      s.marks.remove(tag);
      s.table.eraseUnjournalled(tag);
      throw;
    }
    *pmark = tag;
  });
}

extern "C" PK_ERROR_code_t PK_PMARK_goto_2(PK_PMARK_t pmark, const PK_PMARK_goto_o_t* options,
                                           int* n_new, PK_ENTITY_t** new_entities, int* n_mod,
                                           PK_ENTITY_t** mod_entities, int* n_del,
                                           int** del_entities) {
  return guarded([&] {
    for (const void* out : {(const void*)n_new, (const void*)new_entities, (const void*)n_mod,
                            (const void*)mod_entities, (const void*)n_del, (const void*)del_entities})
      require(out != nullptr, PK_ERROR_null_arg_address);
    PK_PMARK_goto_o_t opts;
    PK_PMARK_goto_o_m(opts);
    if (options) opts = *options;
    SessionState& s = session();
    deltasOf(s);
    std::uint64_t position = markOfKind(s, pmark, MarkKind::pmark).position;
    s.journal.sealOpenStretch();
    RollReport report = goBackTo(s, position);
    if (!opts.want_attrib_mod) report.modified = withoutAttributes(s, std::move(report.modified));
    // The goto is done. If a list cannot be handed out, none is: those
    // already allocated are freed, and the error concerns only the lists.
    *n_new = *n_mod = *n_del = 0;
    *new_entities = *mod_entities = nullptr;
    *del_entities = nullptr;
    try {
      handOutIf(opts.want_new_entities, report.created, n_new, new_entities);
      handOutIf(opts.want_mod_entities, report.modified, n_mod, mod_entities);
      handOutIf(opts.want_del_entities, report.deleted, n_del, del_entities);
    } catch (...) {
      for (void* array : {(void*)*new_entities, (void*)*mod_entities, (void*)*del_entities}) {
        try {
          kernelFree(array);
        } catch (const KernelError&) {
          // The allocation failure is the one to report.
        }
      }
      *n_new = *n_mod = *n_del = 0;
      *new_entities = *mod_entities = nullptr;
      *del_entities = nullptr;
      throw;
    }
  });
}

extern "C" PK_ERROR_code_t PK_PMARK_delete(int n_pmarks, const PK_PMARK_t* pmarks, int* n_deleted,
                                           PK_PMARK_t** deleted) {
  return guarded([&] {
    require(n_pmarks >= 0, PK_ERROR_bad_value);
    if (n_pmarks > 0) requireArg(pmarks);
    requireArg(n_deleted);
    requireArg(deleted);
    SessionState& s = session();
    std::vector<PK_PMARK_t> doomed(pmarks, pmarks + n_pmarks);
    std::set<PK_PMARK_t> distinct(doomed.begin(), doomed.end());
    require(distinct.size() == doomed.size(), PK_ERROR_duplicate_entity);
    for (PK_PMARK_t pmark : doomed) markOfKind(s, pmark, MarkKind::pmark);
    for (PK_PMARK_t pmark : doomed) forgetMark(s, pmark);
    s.journal.trim();
    handOut(doomed, n_deleted, deleted);
  });
}
