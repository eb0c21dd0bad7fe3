// XT decode throughput on the largest corpus files, beside the time to read the
// same bytes from disk in the same run. Run by hand:
//   bench_xt_decode [corpus-dir] [repeats]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "BenchTiming.h"
#include "Codec.h"

namespace {

namespace fs = std::filesystem;
namespace xt = meld::xt;

using meld::bench::bestTime;
using meld::bench::readWhole;

std::vector<fs::path> largestXtFiles(const fs::path& dir, size_t count) {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(dir)) {
    auto ext = entry.path().extension().string();
    if (ext == ".x_t" || ext == ".xmt_txt") files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end(), [](auto& a, auto& b) { return fs::file_size(a) > fs::file_size(b); });
  files.resize(std::min(files.size(), count));
  return files;
}

}  // namespace

int main(int argc, char** argv) {
  // The corpus sits beside the repository unless MELD_CORPUS_DIR says otherwise.
  const char* fromEnv = std::getenv("MELD_CORPUS_DIR");
  fs::path dir = argc > 1 ? fs::path(argv[1])
                 : fromEnv ? fs::path(fromEnv)
                           : fs::path(MELD_SOURCE_DIR) / ".." / "shared" / "corpus";
  int repeats = argc > 2 ? std::atoi(argv[2]) : 10;
  if (!fs::is_directory(dir)) {
    std::fprintf(stderr, "bench_xt_decode: no corpus folder %s\nusage: bench_xt_decode [corpus-dir] [repeats]\n",
                 dir.c_str());
    return 2;
  }
  std::printf("%-28s %8s %10s %10s %10s %8s %10s %8s\n", "file", "MB", "read MB/s", "text MB/s", "ratio",
              "bin MB", "bin MB/s", "ratio");
  for (const fs::path& file : largestXtFiles(dir, 4)) {
    std::string text = readWhole(file);
    double mb = text.size() / 1e6;
    size_t sink = 0;
    double readTime = bestTime(repeats, [&] { sink += readWhole(file).size(); });
    double textTime = bestTime(repeats, [&] { sink += xt::decode(text).size(); });
    xt::EncodeOptions binary;
    binary.format = xt::Format::NeutralBinary;
    std::string bin = xt::encode(xt::decode(text), binary);
    double binTime = bestTime(repeats, [&] { sink += xt::decode(bin).size(); });
    double readRate = mb / readTime, textRate = mb / textTime, binRate = bin.size() / 1e6 / binTime;
    std::printf("%-28.28s %8.2f %10.0f %10.1f %10.3f %8.2f %10.1f %8.3f\n", file.filename().c_str(), mb, readRate,
                textRate, textRate / readRate, bin.size() / 1e6, binRate, binRate / readRate);
    if (sink == 0) std::puts("");
  }
  std::puts("ratio = decode throughput / disk-read throughput of the same bytes (1 = as fast as reading)");
  return 0;
}
