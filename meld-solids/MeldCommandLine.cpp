// Command-line parsing.
#include <cstdlib>
#include <cstring>

#include "MeldSolids.h"

namespace {

// "--name=value": true with `value` set when `text` (after the dashes) starts
// with `name`.
bool longOption(const char* text, const char* name, const char*& value) {
  const std::size_t length = std::strlen(name);
  if (std::strncmp(text, name, length) != 0) return false;
  value = text + length;
  return true;
}

void parseLongOption(const char* text, MeldSettings& settings) {
  const char* value = nullptr;
  if (longOption(text, "default_tol=", value))
    settings.default_tol = std::strtod(value, nullptr);
  else if (longOption(text, "max_tol=", value))
    settings.max_tol = std::strtod(value, nullptr);
  else if (longOption(text, "input_solid_num=", value))
    settings.input_solid_num = int(std::strtol(value, nullptr, 10));
}

struct Seen {
  bool input = false;
  bool output = false;
};

void parseOption(const char* arg, MeldCommandLine& line, Seen& seen) {
  if (arg[0] != '-') return;
  const char letter = arg[1];
  if (letter < '-' || letter > 't') return;
  const char* value = arg + 2;
  switch (letter) {
    case 'i': line.input0 = value; seen.input = true; break;
    case 'j': line.input1 = value; break;
    case 'k': line.settings.removeInnerShells = 0; break;
    case 'l': line.logFile = value; break;
    case 'o': line.output = value; seen.output = true; break;
    case 'p': line.settings.booleanFunction = int(std::strtol(value, nullptr, 10)); break;
    case 's': line.schemaDir = value; break;
    case 't': line.settings.default_tol = std::strtod(value, nullptr); break;
    case '-': parseLongOption(value, line.settings); break;
    default: break;
  }
}

}  // namespace

bool MeldParseCommandLine(int argc, const char* const* argv, MeldCommandLine& line) {
  if (argc < 3) return false;
  if (argc == 3) {
    // Two plain paths, whatever they look like.
    line.input0 = argv[1];
    line.output = argv[2];
    return true;
  }
  Seen seen;
  for (int k = 1; k < argc; ++k) parseOption(argv[k], line, seen);
  return seen.input && seen.output;
}
