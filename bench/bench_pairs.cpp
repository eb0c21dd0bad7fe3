// Every pair of solids of real part files united through the kernel, each
// union undone again, so that every pair starts from the bodies as read:
// how many pairs overlap, how many unite into one valid solid whose volume
// lies between the larger input's and the sum of both, and what it costs.
//
//   bench_pairs DIR [FILE-STEM...]   the XT part files of DIR (or those named)
//
// MELD_BENCH_PAIR=I,J unites only the solids I and J (0-based, in the order
// the file gives them) of each file, to look into one pair.
//
// Per file: solids, pairs tried, pairs the kernel found apart (no clash),
// pairs united, and of those the ones a whole-body check or the volume
// check refuses, the failures by reason, and process CPU seconds.
#include "BenchParts.h"
#include "BenchTiming.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>

namespace {

using namespace meld::bench;

struct Tally {
  int pairs = 0, apart = 0, united = 0, invalid = 0, invalidFromInput = 0, outOfRange = 0, split = 0, failed = 0;
  std::map<std::string, int> reasons;
  double seconds = 0;
};

bool wholeBodyValid(PK_BODY_t body) {
  PK_BODY_check_o_t options;
  PK_BODY_check_o_m(options);
  int n = 0;
  PK_check_fault_t* faults = nullptr;
  if (PK_BODY_check(body, &options, &n, &faults)) return false;
  PK_MEMORY_free(faults);
  return n == 0;
}

struct Solid {
  PK_BODY_t body;
  double volume;
  bool valid;  // as read
};

void unitePair(const Solid& first, const Solid& second, const std::string& name, Tally& tally) {
  PK_BODY_t a = first.body, b = second.body;
  double va = first.volume, vb = second.volume;
  PK_PMARK_t pmark = makePmark();
  PK_BODY_boolean_o_t options;
  PK_BODY_boolean_o_m(options);
  PK_TOPOL_track_r_t tracking;
  PK_boolean_r_t results;
  ++tally.pairs;
  PK_ERROR_code_t code = PK_BODY_boolean_2(a, 1, &b, &options, &tracking, &results);
  int result = code ? PK_boolean_result_failed_c : results.result;
  if (result == PK_boolean_result_no_clash_c) {
    ++tally.apart;
  } else if (result != PK_boolean_result_success_c) {
    ++tally.failed;
    std::string reason = code ? "error " + std::to_string(code) : lastReason();
    ++tally.reasons[reason];
    std::printf("    %s failed: %s\n", name.c_str(), reason.c_str());
  } else if (results.n_bodies != 1) {
    ++tally.split;
  } else {
    ++tally.united;
    double v = kernelVolume(a), slack = 1e-8 * (va + vb);
    if (!wholeBodyValid(a)) ++(first.valid && second.valid ? tally.invalid : tally.invalidFromInput);
    if (v < std::max(va, vb) - slack || v > va + vb + slack) {
      ++tally.outOfRange;
      std::printf("    %s volume out of range: %.9g + %.9g -> %.9g\n", name.c_str(), va, vb, v);
    }
  }
  if (!code) {
    PK_boolean_r_f(&results);
    PK_TOPOL_track_r_f(&tracking);
  }
  gotoPmark(pmark);
  deletePmark(pmark);
}

void partFile(const std::filesystem::path& file) {
  startModeller();
  std::optional<std::vector<PK_BODY_t>> solids = receiveSolids(file);
  if (solids && solids->size() > 1) {
    std::vector<Solid> read;
    int invalidInputs = 0;
    for (PK_BODY_t body : *solids) {
      read.push_back(Solid{body, kernelVolume(body), wholeBodyValid(body)});
      invalidInputs += !read.back().valid;
    }
    Tally tally;
    std::size_t onlyI = 0, onlyJ = 0;
    const char* only = std::getenv("MELD_BENCH_PAIR");
    bool one = only && std::sscanf(only, "%zu,%zu", &onlyI, &onlyJ) == 2;
    double start = cpuSeconds();
    for (std::size_t i = 0; i < read.size(); ++i)
      for (std::size_t j = i + 1; j < read.size(); ++j) {
        if (one && (i != onlyI || j != onlyJ)) continue;
        std::string name = "pair " + std::to_string(i) + "," + std::to_string(j);
        unitePair(read[i], read[j], name, tally);
      }
    tally.seconds = cpuSeconds() - start;
    std::printf("%s: solids %zu (invalid as read %d), pairs %d, apart %d, united %d (invalid %d, and %d with an "
                "invalid input; volume out of range %d), fell apart %d, failed %d, %.2f s\n",
                file.filename().c_str(), read.size(), invalidInputs, tally.pairs, tally.apart, tally.united,
                tally.invalid, tally.invalidFromInput, tally.outOfRange, tally.split, tally.failed, tally.seconds);
    for (const auto& [reason, count] : tally.reasons) std::printf("    failed %d: %s\n", count, reason.c_str());
    std::fflush(stdout);
  }
  PSCEndModeller();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || !std::filesystem::is_directory(argv[1])) {
    std::fprintf(stderr, "usage: bench_pairs DIR [FILE-STEM...]\n");
    return 2;
  }
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    const std::filesystem::path& path = entry.path();
    bool named = argc == 2 || std::any_of(argv + 2, argv + argc, [&](const char* stem) { return path.stem() == stem; });
    if (entry.is_regular_file() && isPartFile(path) && named) files.push_back(path);
  }
  std::sort(files.begin(), files.end());
  for (const auto& file : files) partFile(file);
  return 0;
}
