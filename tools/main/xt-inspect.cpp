// xt-inspect FILE...: what part files hold, as our kernel reads them.
#include <clocale>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "InspectFacts.h"
#include "PSCFileHelpers.h"
#include "PSCModeller.h"

namespace {

constexpr const char* kUsage =
    "usage: xt-inspect [--json] FILE...\n"
    "  Reads each XT part file (.x_t, .xmt_txt, .x_b, .xmt_bin) with the kernel and\n"
    "  describes its parts and bodies: type, regions, shells, faces, edges, vertices,\n"
    "  volume, area, bounding box, validity, name and colour.\n"
    "  --json  one JSON object per file (lengths in metres)\n"
    "exit codes: 0 every file loaded, 1 a file could not be loaded, 2 usage error\n";

}  // namespace

int main(int argc, char** argv) {
  std::setlocale(LC_CTYPE, "");
  bool json = false;
  std::vector<std::string> files;
  for (int k = 1; k < argc; ++k) {
    if (!std::strcmp(argv[k], "--json")) {
      json = true;
    } else if (!std::strcmp(argv[k], "--help") || !std::strcmp(argv[k], "-h")) {
      std::fputs(kUsage, stdout);
      return 0;
    } else if (argv[k][0] == '-') {
      std::fputs(kUsage, stderr);
      return 2;
    } else {
      files.emplace_back(argv[k]);
    }
  }
  if (files.empty()) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  PSCSetSchemaDirectory(nullptr);
  if (int rc = PSCStartModeller(false, false)) {
    std::fprintf(stderr, "xt-inspect: the modeller did not start (%d)\n", rc);
    return 1;
  }
  int exitCode = 0;
  for (const std::string& file : files) {
    const inspect::FileFacts facts = inspect::inspectFile(file);
    if (!facts.loaded) {
      std::fprintf(stderr, "xt-inspect: %s: %s\n", file.c_str(), facts.message.c_str());
      exitCode = 1;
    }
    std::fputs((json ? inspect::formatJson(facts) : inspect::formatText(facts)).c_str(), stdout);
  }
  PSCEndModeller();
  return exitCode;
}
