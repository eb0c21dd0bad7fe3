#include "NPRollbackMark.h"

#include "NPOptions.h"
#include "NPRollBack.h"

NPRollbackMark::NPRollbackMark() {
  PSCRollback::SetMode(NPGetOption(NP_OPTION_ROLLBACK_WITH_MARKS));
  if (NPGetOption(NP_OPTION_ROLLBACK_WITH_MARKS) == 1)
    m_pscRollback = std::make_unique<PSCRollback>(false);
}

NPRollbackMark::~NPRollbackMark() = default;

int NPRollbackMark::SetMark() {
  if (m_pscRollback) return m_pscRollback->SetMark();
  int rc = NPRollBackSetMark();
  if (rc == 0) m_fileMarkSet = 1;
  return rc;
}

int NPRollbackMark::Rollback() {
  if (m_pscRollback) return m_pscRollback->Rollback();
  m_fileMarkSet = 0;
  return NPRollBack();
}
