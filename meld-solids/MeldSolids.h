// The program MeldSolids: command line, run and exit code.
#pragma once

#include <string>

#include "MeldSettings.h"

// What the command line says.
struct MeldCommandLine {
  MeldSettings settings;
  std::string input0, input1, output, logFile, schemaDir;
};

// Parses the arguments (argv[0] is the program). Returns false when the run
// must end at once with exit code 1: fewer than two arguments, or -i or -o
// missing. With exactly two arguments they are the input and output paths as
// written; with more, only options count (values glued to their letter).
bool MeldParseCommandLine(int argc, const char* const* argv, MeldCommandLine& line);

// Runs the whole job and returns the exit code: 0, 1, 110, 210 or 220.
int MeldSolidsMain(int argc, const char* const* argv);
