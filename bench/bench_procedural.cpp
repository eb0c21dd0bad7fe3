// Converts the procedural geometry (intersection curves, rolling-ball blends) of
// corpus files and reports, per file, decode time, conversion time, how many
// nodes converted and the largest deviation from the exact definition found.
// Usage: bench_procedural [corpus-dir] [file...]  (default: the heavy four)
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Codec.h"
#include "model/NodeAccess.h"
#include "model/procedural/Survey.h"

namespace fs = std::filesystem;
using meld::model::kBlendedEdge;
using meld::model::kIntersection;

int main(int argc, char** argv) {
  fs::path corpus = argc > 1 ? fs::path(argv[1]) : fs::path(MELD_SOURCE_DIR) / ".." / "shared" / "corpus";
  std::vector<std::string> files;
  for (int i = 2; i < argc; ++i) files.push_back(argv[i]);
  if (files.empty())
    files = {"nxcmp-Brake_Piston.x_t", "drone-Drone_body_V2.x_t", "jack-3D Scissor Jack.x_t", "biox-Assembly.x_t"};
  bool verbose = std::getenv("MELD_BENCH_VERBOSE") != nullptr;
  std::printf("%-28s %8s %9s %6s %6s %10s %6s %6s %10s\n", "file", "decode_s", "convert_s", "ic_ok", "ic_bad",
              "ic_dev_m", "bl_ok", "bl_bad", "bl_dev_m");
  for (const std::string& name : files) {
    std::ifstream in(corpus / name, std::ios::binary);
    if (!in) {
      std::printf("%-28s missing\n", name.c_str());
      continue;
    }
    std::string bytes((std::istreambuf_iterator<char>(in)), {});
    auto t0 = std::chrono::steady_clock::now();
    meld::xt::Graph graph = meld::xt::decode(bytes);
    double decode = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    auto report = meld::model::procedural::survey(graph);
    std::printf("%-28.28s %8.3f %9.3f %6d %6d %10.2e %6d %6d %10.2e\n", name.c_str(), decode, report.seconds(),
                report.count(kIntersection, true), report.count(kIntersection, false), report.worstDeviation(kIntersection),
                report.count(kBlendedEdge, true), report.count(kBlendedEdge, false), report.worstDeviation(kBlendedEdge));
    for (const auto& r : report.nodes)
      if (!r.converted || verbose)
        std::printf("    #%lld %s %.3fs dev %.2e off %.2e %s\n", static_cast<long long>(r.index),
                    r.type == kIntersection ? "INTERSECTION" : "BLENDED_EDGE", r.seconds, r.deviation, r.offSupport,
                    r.error.c_str());
    std::fflush(stdout);
  }
}
