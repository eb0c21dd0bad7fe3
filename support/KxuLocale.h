// Numeric-locale guards for message output.
//
// Numbers written into logs and status files must not depend on the user's
// locale (a decimal comma would break every reader of those files), so output
// code runs under a KxuAutoRestoreLocale. When such code hands control back to
// a host callback, a KxuTempRollbackLocale gives the user's locale back for
// the callback's duration.
//
// Only LC_NUMERIC is touched. The depth and the saved locale are process-wide
// and unlocked: the guards are meant for the one thread that does the output.
#pragma once

// Switches LC_NUMERIC to "C" for its scope (outermost guard only).
class KxuAutoRestoreLocale {
 public:
  KxuAutoRestoreLocale();
  virtual ~KxuAutoRestoreLocale();
  KxuAutoRestoreLocale(const KxuAutoRestoreLocale&) = delete;
  KxuAutoRestoreLocale& operator=(const KxuAutoRestoreLocale&) = delete;

 private:
  bool m_changedLocale = false;
};

// Restores the locale saved by the outermost KxuAutoRestoreLocale for its scope
// and puts "C" back at the end. Outside any guard it does nothing.
class KxuTempRollbackLocale {
 public:
  KxuTempRollbackLocale();
  virtual ~KxuTempRollbackLocale();
  KxuTempRollbackLocale(const KxuTempRollbackLocale&) = delete;
  KxuTempRollbackLocale& operator=(const KxuTempRollbackLocale&) = delete;

 private:
  int m_savedDepth = 0;
};

// Number of live KxuAutoRestoreLocale guards (0 while rolled back).
int KxuLocaleGuardDepth();
