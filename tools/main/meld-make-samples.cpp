// meld-make-samples: builds the repository's kernel-made sample parts from
// primitive solids through pk.h and writes them with the program's own part
// writer, so that every such sample is what our kernel itself produces.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "MeldProcessFiles.h"
#include "PSCLog.h"
#include "PSCModeller.h"
#include "PSCFileHelpers.h"
#include "SampleBuilder.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kUsage =
    "usage: meld-make-samples OUTPUT_DIR\n"
    "  Writes the kernel-made sample parts into OUTPUT_DIR (created if needed):\n"
    "  overlapping_solids.x_t, overlapping_solids.x_b, disjoint_solids.x_t,\n"
    "  cavity_block.x_t, small_assembly.x_t, target_block.x_t, tool_cylinder.x_t.\n"
    "exit codes: 0 written, 1 a sample could not be built or written, 2 usage error\n";

bool writeSample(const fs::path& dir, const samples::ShippedSample& sample) {
  const PK_PART_t part = sample.build();
  if (part == PK_ENTITY_null) {
    std::fprintf(stderr, "meld-make-samples: cannot build %s\n", sample.name);
    return false;
  }
  // Written from inside the folder, so that the header's FILE= names the file
  // alone, wherever the samples are made.
  const std::string path = (dir / sample.name).string();
  if (int rc = PSCTransmitParts(1, &part, sample.name, 0)) {
    std::fprintf(stderr, "meld-make-samples: cannot write %s (kernel code %d)\n", path.c_str(), rc);
    return false;
  }
  std::printf("%s\n", path.c_str());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (!std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h"))) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  if (argc != 2 || argv[1][0] == '-' || argv[1][0] == '\0') {
    std::fputs(kUsage, stderr);
    return 2;
  }
  const fs::path dir = argv[1];
  std::error_code ec;
  fs::create_directories(dir, ec);
  if (ec || !fs::is_directory(dir)) {
    std::fprintf(stderr, "meld-make-samples: cannot use %s as output folder\n", dir.c_str());
    return 1;
  }
  fs::current_path(dir, ec);
  if (ec) {
    std::fprintf(stderr, "meld-make-samples: cannot enter %s\n", dir.c_str());
    return 1;
  }
  PSCSetSchemaDirectory(nullptr);
  if (int rc = PSCStartModeller(false, false)) {
    std::fprintf(stderr, "meld-make-samples: the modeller did not start (%d)\n", rc);
    return 1;
  }
  bool ok = true;
  for (const samples::ShippedSample& sample : samples::kShipped) ok = writeSample(dir, sample) && ok;
  PSCEndModeller();
  return ok ? 0 : 1;
}
