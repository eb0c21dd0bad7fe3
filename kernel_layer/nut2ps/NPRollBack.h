// The K-interface rollback road: the kernel's rollback file, sized once from
// "ROLBK", a mark set in it, and a roll back to that mark. Every entry point
// does nothing while option 54 asks for kernel marks instead.
#pragma once

// Sizes the rollback file. 0 or 2110.
int st_RollBackInit();
// Initialises once per process (successful or not), then sets a mark.
// 0, 2010 (initialisation failed) or 2110 (the kernel refused the mark).
int NPRollBackSetMark();
// Rolls back to the last mark. 0 or 2110.
int NPRollBack();
// The rollback file size in bytes: "ROLBK" millions of bytes (32-bit, wraps
// on purpose: the kernel's size check catches it), else 1024000000.
int NPRollBackFileSize();
// The message box telling the user to mend "ROLBK".
void NPRollBackSizeMessage();
// The message box telling the user to check "VTX_ROLBK_FILE".
void NPRollBackOpenMessage();

// For tests: forget that initialisation was tried.
void NPRollBackResetForTesting();
