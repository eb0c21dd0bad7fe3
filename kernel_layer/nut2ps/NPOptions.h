// The process option table: small integer-indexed settings shared by the
// driver and the rollback layers, held as reals.
#pragma once

// Index of the option that chooses the rollback road: 1 rolls back with
// kernel marks, anything else through the K-interface rollback file.
constexpr int NP_OPTION_ROLLBACK_WITH_MARKS = 54;
constexpr int NP_OPTION_COUNT = 64;

// Out-of-range indices are ignored (set) or read as 0 (get).
void NPSetOption(int index, int value);
int NPGetOption(int index);
