// Small helpers shared by the benchmarks: a file's bytes, and the best of
// several timed runs.
#pragma once

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace meld::bench {

inline std::string readWhole(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Best of `repeats` runs, in seconds: the least disturbed by other work.
template <class F>
double bestTime(int repeats, F&& run) {
  using Clock = std::chrono::steady_clock;
  double best = 1e30;
  for (int i = 0; i < repeats; ++i) {
    auto start = Clock::now();
    run();
    best = std::min(best, std::chrono::duration<double>(Clock::now() - start).count());
  }
  return best;
}

}  // namespace meld::bench
