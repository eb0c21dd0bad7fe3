// Where the host program lives, for hosts that ship their data beside them.
#pragma once

#include <string>

// The directory of the running program, with its trailing '/', when the
// program's file name is one of the known host programs (compared ignoring
// case); otherwise "". Paths longer than 260 characters are cut to 260 first,
// as the host's own path buffer is that long.
std::string PSCGetHostDirectory();

// The same decision for a given program path (the testable half).
std::string PSCHostDirectoryOf(const std::string& programPath);
