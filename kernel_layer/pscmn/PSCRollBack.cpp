#include "PSCRollBack.h"

#include "PSCModeller.h"
#include "PSCPerformanceAnalyzer.h"
#include "PSCReport.h"

namespace {

const char kSource[] = "kernel_layer\\src\\pscmn\\PSCRollBack";

int g_rollbackMode = 0;

}  // namespace

void PSCRollback::SetMode(int mode) { g_rollbackMode = mode; }
int PSCRollback::Mode() { return g_rollbackMode; }

PSCRollback::PSCRollback(bool rollbackOnDestroy) : m_rollbackOnDestroy(rollbackOnDestroy) {}

PSCRollback::~PSCRollback() {
  PSCPerformanceAnalyzer analyzer("PSCRollback::~PSCRollback");
  // A destructor has no result: the record carries 0 as its own code.
  if (int rc = DeleteMarkImpl(m_rollbackOnDestroy))
    PSCReportFailure("PSCRollback::~PSCRollback", 0, "DeleteMarkImpl", rc, kSource, 17);
}

int PSCRollback::SetMark() {
  PSCPerformanceAnalyzer analyzer("PSCRollback::SetMark");
  if (g_rollbackMode != 1) return 0;
  if (m_mark != PK_ENTITY_null) return 10;
  if (PSCIsPlainMarkMode()) {
    if (int rc = PK_MARK_create(&m_mark)) {
      PSCReportFailure("PSCRollback::SetMark", 40, "PK_MARK_create", rc, kSource, 41);
      return 40;
    }
    return 0;
  }
  PK_PARTITION_t partition = PK_ENTITY_null;
  if (int rc = PK_SESSION_ask_curr_partition(&partition)) {
    PSCReportFailure("PSCRollback::SetMark", 20, "PK_SESSION_ask_curr_partition", rc, kSource, 36);
    return 20;
  }
  if (int rc = PK_PARTITION_make_pmark(partition, &m_mark)) {
    PSCReportFailure("PSCRollback::SetMark", 30, "PK_PARTITION_make_pmark", rc, kSource, 37);
    return 30;
  }
  return 0;
}

int PSCRollback::Rollback() {
  PSCPerformanceAnalyzer analyzer("PSCRollback::Rollback");
  if (int rc = DeleteMarkImpl(true)) {
    PSCReportFailure("PSCRollback::Rollback", 10, "DeleteMarkImpl", rc, kSource, 60);
    return 10;
  }
  return 0;
}

int PSCRollback::DeleteMarkImpl(bool gotoMark) {
  PSCPerformanceAnalyzer analyzer("PSCRollback::DeleteMarkImpl");
  if (m_mark == PK_ENTITY_null) return 0;
  if (gotoMark) {
    if (int rc = goBack()) return rc;
  }
  if (int rc = deleteMark(gotoMark)) return rc;
  m_mark = PK_ENTITY_null;
  return 0;
}

// Returns the modeller to the held mark; the mark stays held on failure.
int PSCRollback::goBack() {
  if (PSCIsPlainMarkMode()) {
    if (int rc = PK_MARK_goto(m_mark)) {
      PSCReportFailure("PSCRollback::DeleteMarkImpl", 10, "PK_MARK_goto", rc, kSource, 93);
      return 10;
    }
    return 0;
  }
  PK_PMARK_goto_o_t options;
  PK_PMARK_goto_o_m(options);
  int nNew = 0, nMod = 0, nDel = 0;
  PK_ENTITY_t* created = nullptr;
  PK_ENTITY_t* modified = nullptr;
  int* deleted = nullptr;
  // The entity lists are of no interest here and are left to the kernel's
  // allocator on purpose.
  if (int rc = PK_PMARK_goto_2(m_mark, &options, &nNew, &created, &nMod, &modified, &nDel,
                               &deleted)) {
    PSCReportFailure("PSCRollback::DeleteMarkImpl", 10, "PK_PMARK_goto_2", rc, kSource, 89);
    return 10;
  }
  return 0;
}

// Lets go of the held mark. A partition mark that was not gone back to is only
// forgotten, never deleted in the kernel: discarding a mark object must not
// cost a kernel call.
int PSCRollback::deleteMark(bool wentBack) {
  if (PSCIsPlainMarkMode()) {
    if (int rc = PK_MARK_delete(m_mark)) {
      PSCReportFailure("PSCRollback::DeleteMarkImpl", 20, "PK_MARK_delete", rc, kSource, 115);
      return 20;
    }
    return 0;
  }
  if (!wentBack) return 0;
  int nDeleted = 0;
  PK_PMARK_t* deleted = nullptr;
  if (int rc = PK_PMARK_delete(1, &m_mark, &nDeleted, &deleted)) {
    PSCReportFailure("PSCRollback::DeleteMarkImpl", 20, "PK_PMARK_delete", rc, kSource, 109);
    return 20;
  }
  if (deleted) PK_MEMORY_free(deleted);
  return 0;
}
