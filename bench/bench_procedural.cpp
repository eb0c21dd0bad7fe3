// Receives corpus files the way the kernel does (decode, convert geometry, build
// bodies) and reports, per file: decode time, time converting procedural
// geometry (intersection curves, rolling-ball blends), time building the bodies
// with that geometry cached, the converting share of the whole, how many
// procedural nodes converted with the largest deviation from their exact
// definition, and how many bodies came out valid by OCCT's checker.
// Usage: bench_procedural [corpus-dir] [file...]  (default: the heavy four)
// MELD_BENCH_VERBOSE=1 lists every node and volume; failures are always listed.
// MELD_BENCH_UNITE=1 also unites every box-overlapping pair of valid solids.
#include <BRepAlgoAPI_Fuse.hxx>
#include <BRepBndLib.hxx>
#include <BRepCheck_Analyzer.hxx>
#include <Bnd_Box.hxx>
#include <BRepGProp.hxx>
#include <GProp_GProps.hxx>
#include <IFSelect_ReturnStatus.hxx>
#include <Interface_Static.hxx>
#include <STEPControl_Reader.hxx>
#include <TopExp_Explorer.hxx>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Codec.h"
#include "model/BodyBuilder.h"
#include "model/procedural/Survey.h"

namespace fs = std::filesystem;
using namespace meld::model;

namespace {

// Volumes by OCCT's adaptive integration: its default Gauss order is off by up
// to 4e-4 relative on converted blend faces (nxcmp-Brake_Piston), more than the
// 1e-5 the comparison with the STEP twins looks for.
constexpr double kVolumeAccuracy = 1e-9;

double since(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

struct Bodies {
  int total = 0, built = 0, valid = 0;
  double volume = 0;
  std::vector<double> volumes;
  std::vector<TopoDS_Shape> validSolids;
  std::vector<std::string> errors;
};

// Every body built as receiving builds it; `seconds` is the building alone (the
// checks and volumes after it are not part of receiving).
Bodies buildBodies(GeometryCache& cache, double& seconds) {
  Bodies out;
  const auto& nodes = cache.graph().nodes();
  std::vector<std::pair<long, TopoDS_Shape>> built;
  const auto t0 = std::chrono::steady_clock::now();
  for (size_t i = 0; i < nodes.size(); ++i) {
    if (nodes[i].type != kBody) continue;
    ++out.total;
    try {
      BodyBuilder builder(cache);
      built.emplace_back(static_cast<long>(i), builder.build(static_cast<long>(i)).shape);
    } catch (const std::exception& e) {
      out.errors.push_back(e.what());
    } catch (const Standard_Failure& e) {
      out.errors.push_back(cache.nodes().describe(static_cast<long>(i)) + ": OCCT: " + e.GetMessageString());
    }
  }
  seconds = since(t0);
  for (const auto& [node, shape] : built) {
    ++out.built;
    if (BRepCheck_Analyzer(shape).IsValid()) {
      ++out.valid;
      for (TopExp_Explorer ex(shape, TopAbs_SOLID); ex.More(); ex.Next()) out.validSolids.push_back(ex.Current());
    } else {
      out.errors.push_back(cache.nodes().describe(node) + ": not valid");
    }
    double volume = 0;
    for (TopExp_Explorer ex(shape, TopAbs_SOLID); ex.More(); ex.Next()) {
      GProp_GProps props;
      BRepGProp::VolumeProperties(ex.Current(), props, kVolumeAccuracy);
      volume += std::abs(props.Mass());
      if (props.Mass() < 0) out.errors.push_back(cache.nodes().describe(node) + ": a solid is inside out");
    }
    out.volume += volume;
    out.volumes.push_back(volume);
  }
  return out;
}

double solidVolume(const TopoDS_Shape& shape) {
  double volume = 0;
  for (TopExp_Explorer ex(shape, TopAbs_SOLID); ex.More(); ex.Next()) {
    GProp_GProps props;
    BRepGProp::VolumeProperties(ex.Current(), props, kVolumeAccuracy);
    volume += std::abs(props.Mass());
  }
  return volume;
}

// Every pair of valid solids whose boxes overlap, united by OCCT's fuse: a
// union counts when the result is valid and its volume lies between the larger
// input's and the sum of both (the converted geometry is usable, not merely valid).
void unitePairs(const std::vector<TopoDS_Shape>& solids) {
  int pairs = 0, united = 0;
  const auto t0 = std::chrono::steady_clock::now();
  for (size_t i = 0; i < solids.size(); ++i)
    for (size_t j = i + 1; j < solids.size(); ++j) {
      Bnd_Box a, b;
      BRepBndLib::Add(solids[i], a);
      BRepBndLib::Add(solids[j], b);
      if (a.IsOut(b)) continue;
      ++pairs;
      try {
        BRepAlgoAPI_Fuse fuse(solids[i], solids[j]);
        if (!fuse.IsDone() || fuse.HasErrors()) {
          std::printf("    pair %zu-%zu: fuse failed\n", i, j);
          continue;
        }
        const double va = solidVolume(solids[i]), vb = solidVolume(solids[j]), v = solidVolume(fuse.Shape());
        const double slack = 1e-5 * (va + vb);  // GProp integrates B-spline faces to about this
        const bool valid = BRepCheck_Analyzer(fuse.Shape()).IsValid();
        if (valid && v >= std::max(va, vb) - slack && v <= va + vb + slack) ++united;
        else std::printf("    pair %zu-%zu: valid %d, volumes %.6e + %.6e -> %.6e\n", i, j, valid, va, vb, v);
      } catch (const Standard_Failure&) {
      }
    }
  std::printf("    unions: %d of %d box-overlapping pairs of valid solids united valid with a plausible volume, %.2f s\n",
              united, pairs, since(t0));
}

// The STEP file with the same stem, read by OCCT: seconds and total solid volume.
struct Twin {
  bool found = false;
  int solids = 0;
  double seconds = 0, volume = 0;
  std::vector<double> volumes;
};

Twin readTwin(const fs::path& xt) {
  Twin twin;
  for (const char* ext : {".step", ".STEP", ".stp"}) {
    const fs::path step = fs::path(xt).replace_extension(ext);
    if (!fs::exists(step)) continue;
    const auto t0 = std::chrono::steady_clock::now();
    STEPControl_Reader reader;
    Interface_Static::SetCVal("xstep.cascade.unit", "M");  // the kernel works in metres
    if (reader.ReadFile(step.string().c_str()) != IFSelect_RetDone) return twin;
    reader.TransferRoots();
    const TopoDS_Shape shape = reader.OneShape();
    twin.seconds = since(t0);
    for (TopExp_Explorer ex(shape, TopAbs_SOLID); ex.More(); ex.Next()) {
      GProp_GProps props;
      BRepGProp::VolumeProperties(ex.Current(), props, kVolumeAccuracy);
      twin.volume += std::abs(props.Mass());
      twin.volumes.push_back(std::abs(props.Mass()));
      ++twin.solids;
    }
    twin.found = true;
    return twin;
  }
  return twin;
}

}  // namespace

int main(int argc, char** argv) {
  fs::path corpus = argc > 1 ? fs::path(argv[1]) : fs::path(MELD_SOURCE_DIR) / ".." / "shared" / "corpus";
  std::vector<std::string> files;
  for (int i = 2; i < argc; ++i) files.push_back(argv[i]);
  if (files.empty())
    files = {"nxcmp-Brake_Piston.x_t", "drone-Drone_body_V2.x_t", "jack-3D Scissor Jack.x_t", "biox-Assembly.x_t"};
  const bool verbose = std::getenv("MELD_BENCH_VERBOSE") != nullptr;
  std::printf("%-26s %8s %9s %8s %6s %6s %6s %9s %6s %6s %9s %7s %12s\n", "file", "decode_s", "convert_s", "build_s",
              "share", "ic_ok", "ic_bad", "ic_dev_m", "bl_ok", "bl_bad", "bl_dev_m", "valid", "volume_m3");
  for (const std::string& name : files) {
    std::ifstream in(corpus / name, std::ios::binary);
    if (!in) {
      std::printf("%-26s missing\n", name.c_str());
      continue;
    }
    std::string bytes((std::istreambuf_iterator<char>(in)), {});
    auto t0 = std::chrono::steady_clock::now();
    meld::xt::Graph graph = meld::xt::decode(bytes);
    const double decode = since(t0);
    GeometryCache cache(graph);
    t0 = std::chrono::steady_clock::now();
    const auto report = procedural::survey(cache);
    const double convert = since(t0);
    double build = 0;
    const Bodies bodies = buildBodies(cache, build);
    std::printf("%-26.26s %8.3f %9.3f %8.3f %5.0f%% %6d %6d %9.2e %6d %6d %9.2e %3d/%-3d %12.6e\n", name.c_str(), decode,
                convert, build, 100 * convert / (decode + convert + build), report.count(kIntersection, true),
                report.count(kIntersection, false), report.worstDeviation(kIntersection), report.count(kBlendedEdge, true),
                report.count(kBlendedEdge, false), report.worstDeviation(kBlendedEdge), bodies.valid, bodies.total,
                bodies.volume);
    const Twin twin = readTwin(corpus / name);
    if (verbose)
      for (double v : twin.volumes) std::printf("    STEP solid volume %.9e\n", v);
    if (twin.found) {
      // Body by body: each body against the STEP solid of nearest volume (a
      // twin may hold extra solids, or the same solid twice).
      std::vector<double> left = twin.volumes;
      double worst = 0;
      int within = 0;
      for (double v : bodies.volumes) {
        if (left.empty()) break;
        auto best = std::min_element(left.begin(), left.end(),
                                     [&](double a, double b) { return std::abs(a - v) < std::abs(b - v); });
        const double rel = std::abs(*best - v) / std::max(*best, 1e-30);
        worst = std::max(worst, rel);
        within += rel <= 1e-5;
        left.erase(best);
      }
      std::printf("    STEP twin per body: %d of %zu bodies within 1e-5 relative of a twin solid, worst %.2e\n", within,
                  bodies.volumes.size(), worst);
    }
    if (twin.found)
      std::printf("    STEP twin: read %.3f s (receive %.3f s, ratio %.2f), %d solids, volume %.9e m3, relative difference %.2e\n",
                  twin.seconds, decode + convert + build, twin.seconds / (decode + convert + build), twin.solids, twin.volume,
                  std::abs(bodies.volume - twin.volume) / twin.volume);
    for (const auto& r : report.nodes)
      if (!r.converted || verbose)
        std::printf("    #%lld %s %.3fs dev %.2e off %.2e %s\n", static_cast<long long>(r.index),
                    r.type == kIntersection ? "INTERSECTION" : "BLENDED_EDGE", r.seconds, r.deviation, r.offSupport,
                    r.error.c_str());
    for (const auto& e : bodies.errors) std::printf("    body: %s\n", e.c_str());
    if (std::getenv("MELD_BENCH_UNITE")) unitePairs(bodies.validSolids);
    if (verbose)
      for (double v : bodies.volumes) std::printf("    body volume %.9e\n", v);
    std::fflush(stdout);
  }
}
