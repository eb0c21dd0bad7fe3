// The rollback front object of the driver: set a mark, go back to it. It uses
// kernel marks when option 54 is 1 when it is built, otherwise the
// K-interface rollback file.
#pragma once

#include <memory>

#include "PSCRollBack.h"

class NPRollbackMark {
 public:
  NPRollbackMark();
  // Drops a kernel mark still held without going back to it.
  virtual ~NPRollbackMark();
  NPRollbackMark(const NPRollbackMark&) = delete;
  NPRollbackMark& operator=(const NPRollbackMark&) = delete;

  int SetMark();
  int Rollback();

  bool UsesKernelMarks() const { return m_pscRollback != nullptr; }
  bool FileMarkSet() const { return m_fileMarkSet != 0; }
  // The kernel mark held, or 0 (none held, or the rollback-file road).
  PK_ENTITY_t HeldMark() const { return m_pscRollback ? m_pscRollback->HeldMark() : PK_ENTITY_null; }

 private:
  std::unique_ptr<PSCRollback> m_pscRollback;
  int m_fileMarkSet = 0;
};
