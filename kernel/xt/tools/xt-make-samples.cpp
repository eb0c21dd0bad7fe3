// xt-make-samples: writes the repository's sample part files (samples/) from
// blocks built by our own code, so that no shipped sample is a copy of anyone's file.
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string_view>

#include "SampleParts.h"
#include "XtError.h"

namespace fs = std::filesystem;
namespace xt = meld::xt;

namespace {

constexpr const char* kUsage =
    "usage: xt-make-samples OUTPUT_DIR\n"
    "  Writes the sample parts (block.x_t, block.x_b, two_blocks.x_t, tool_block.x_t)\n"
    "  into OUTPUT_DIR, creating it if needed; existing files of those names are replaced.\n"
    "exit codes: 0 written, 1 a file could not be built or written, 2 usage error\n";

bool writeSample(const fs::path& dir, const xt::SampleFile& sample) {
  const fs::path path = dir / sample.name;
  std::string bytes;
  try {
    bytes = xt::encodeSample(sample);
  } catch (const std::exception& e) {
    std::cerr << "xt-make-samples: cannot build " << sample.name << ": " << e.what() << "\n";
    return false;
  }
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out.write(bytes.data(), static_cast<std::streamsize>(bytes.size())) || !out.flush()) {
    std::cerr << "xt-make-samples: cannot write " << path.string() << ": " << std::strerror(errno) << "\n";
    return false;
  }
  std::cout << path.string() << "  " << bytes.size() << " bytes\n";
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (std::string_view(argv[1]) == "--help" || std::string_view(argv[1]) == "-h")) {
    std::cout << kUsage;
    return 0;
  }
  if (argc != 2 || argv[1][0] == '-' || argv[1][0] == '\0') {
    std::cerr << kUsage;
    return 2;
  }
  const fs::path dir = argv[1];
  std::error_code ec;
  fs::create_directories(dir, ec);
  if (ec || !fs::is_directory(dir)) {
    std::cerr << "xt-make-samples: cannot use " << dir.string() << " as output folder"
              << (ec ? ": " + ec.message() : std::string()) << "\n";
    return 1;
  }
  bool ok = true;
  for (const xt::SampleFile& sample : xt::sampleSet()) ok = writeSample(dir, sample) && ok;
  return ok ? 0 : 1;
}
