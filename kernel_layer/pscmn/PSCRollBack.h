// One kernel mark that the driver can go back to: a partition mark normally, a
// plain session mark in plain-mark mode.
#pragma once

#include "pk.h"

class PSCRollback {
 public:
  explicit PSCRollback(bool rollbackOnDestroy);
  // Deletes the mark held; goes back to it first when built with
  // rollbackOnDestroy. Reports a failure, never throws.
  virtual ~PSCRollback();
  PSCRollback(const PSCRollback&) = delete;
  PSCRollback& operator=(const PSCRollback&) = delete;

  // Makes the mark. 0 (done, or rollback mode is not 1), 10 (a mark is
  // already held: it is kept), 20 / 30 / 40 (the kernel refused).
  int SetMark();
  // Goes back to the mark and deletes it. 0 (also when no mark is held) or 10.
  int Rollback();
  // Optionally goes back to the mark, then lets go of it. 0, 10 (going back
  // failed: the mark is kept) or 20 (deleting failed).
  int DeleteMarkImpl(bool gotoMark);

  // Process-wide: SetMark only works in mode 1.
  static void SetMode(int mode);
  static int Mode();

  PK_ENTITY_t HeldMark() const { return m_mark; }

 private:
  int goBack();
  int deleteMark(bool wentBack);

  PK_ENTITY_t m_mark = PK_ENTITY_null;
  bool m_rollbackOnDestroy;
};
