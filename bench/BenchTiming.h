// Small helpers shared by the benchmarks: a file's bytes, the best of
// several timed runs, and process CPU time.
#pragma once

#include <algorithm>
#include <chrono>
#include <ctime>
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

// Process CPU seconds: on a shared machine what single-threaded work costs.
inline double cpuSeconds() {
  timespec t;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return t.tv_sec + t.tv_nsec * 1e-9;
}

}  // namespace meld::bench
