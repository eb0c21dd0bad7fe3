// Uniting many solids pass by pass, as the program does, through the kernel
// (PK_BODY_boolean_2 with a partition mark around each union) beside the
// same sequence of raw OCCT fuses and beside OCCT's one-shot fuse of all the
// solids, on an N x N grid of overlapping blocks and cylinders.
//
//   bench_unite               grids 5, 10 and 20
//   bench_unite --grid N      one grid
//   ... --repeat R            the kernel and one-shot runs of a grid R times
//                             in turn, each timed by its least (default 3);
//                             the raw pairwise run once
//   bench_unite DIR           every XT part file in DIR: its solids united
//                             pass by pass through the kernel
//
// The last line for a grid is `grid N: kernel/raw=<ratio> kernel/oneshot=<ratio>`.
// Times are process CPU seconds. On a shared machine they vary by half from
// run to run; the least of several runs is the one least disturbed.
#include "BenchParts.h"
#include "ops/SharedFuse.h"
#include "BenchTiming.h"

#include <BRepAlgoAPI_Fuse.hxx>
#include <BRepGProp.hxx>
#include <BRepPrimAPI_MakeBox.hxx>
#include <BRepPrimAPI_MakeCylinder.hxx>
#include <GProp_GProps.hxx>
#include <TopExp_Explorer.hxx>
#include <TopTools_ListOfShape.hxx>

#include <ctime>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <functional>
#include <map>
#include <set>
#include <vector>

namespace {

using namespace meld::bench;


// Cell (i, j): a unit block or, on alternate cells, a taller cylinder of
// radius 0.55; cells 0.8 m apart, so that neighbours overlap.
constexpr double kPitch = 0.8, kRadius = 0.55, kCylHeight = 1.3, kCylBase = -0.15;

bool isBlock(int i, int j) { return (i + j) % 2 == 0; }

TopoDS_Shape occtCell(int i, int j) {
  double x = i * kPitch, y = j * kPitch;
  if (isBlock(i, j)) return BRepPrimAPI_MakeBox(gp_Pnt(x - 0.5, y - 0.5, 0), 1, 1, 1).Shape();
  return BRepPrimAPI_MakeCylinder(gp_Ax2(gp_Pnt(x, y, kCylBase), gp::DZ(), gp::DX()), kRadius, kCylHeight).Shape();
}

PK_BODY_t kernelCell(int i, int j) {
  double x = i * kPitch, y = j * kPitch;
  PK_BODY_t body = 0;
  if (isBlock(i, j)) {
    PK_AXIS2_sf_t at{{{x, y, 0}}, {{0, 0, 1}}, {{1, 0, 0}}};
    check(PK_BODY_create_solid_block(1, 1, 1, &at, &body), "PK_BODY_create_solid_block");
  } else {
    PK_AXIS2_sf_t at{{{x, y, kCylBase}}, {{0, 0, 1}}, {{1, 0, 0}}};
    check(PK_BODY_create_solid_cyl(kRadius, kCylHeight, &at, &body), "PK_BODY_create_solid_cyl");
  }
  return body;
}

enum class Unite { success, noClash, failed };

// The program's passes over a slot list: each live slot in turn is the
// target and is united with every later live slot; a pass that leaves as
// many slots as it started with ends the work.
template <class Slot>
int passes(std::vector<Slot>& slots, const std::function<Unite(Slot&, Slot&)>& unite, int& unions, int& failures) {
  auto live = [&] {
    int n = 0;
    for (const Slot& s : slots) n += !s.empty();
    return n;
  };
  for (;;) {
    int before = live();
    for (std::size_t i = 0; i < slots.size(); ++i) {
      if (slots[i].empty()) continue;
      for (std::size_t j = i + 1; j < slots.size(); ++j) {
        if (slots[j].empty()) continue;
        Unite u = unite(slots[i], slots[j]);
        unions += u == Unite::success;
        failures += u == Unite::failed;
        if (u == Unite::success) slots[j].clear();
      }
    }
    int after = live();
    if (after == 1 || after == before) return after;
  }
}

struct KernelSlot {
  PK_BODY_t body = 0;
  bool empty() const { return body == 0; }
  void clear() { body = 0; }
};

struct RawSlot {
  TopoDS_Shape shape;
  bool empty() const { return shape.IsNull(); }
  void clear() { shape.Nullify(); }
};

int solidCount(const TopoDS_Shape& shape) {
  int n = 0;
  for (TopExp_Explorer ex(shape, TopAbs_SOLID); ex.More(); ex.Next()) ++n;
  return n;
}

double volume(const TopoDS_Shape& shape) {
  GProp_GProps props;
  BRepGProp::VolumeProperties(shape, props, 1e-9);
  return props.Mass();
}

struct Run {
  double seconds = 0;
  int bodies = 0, unions = 0, failures = 0;
  int shared = 0;  // unions the kernel answered from its shared split
  double volume = 0;
};

// Process CPU time: the machine is shared, and every run here is
// single-threaded, so CPU time is what the work costs.
struct Clock {
  static double now() { return cpuSeconds(); }
};
double since(double start) { return Clock::now() - start; }

// Why unions were undone: the kernel's message for a failure, "split" for a
// union that fell apart into several bodies.
std::map<std::string, int>& undone() {
  static std::map<std::string, int> reasons;
  return reasons;
}


// One union as the program makes it: a pmark, the boolean, back to the pmark
// when it fails or falls apart, the pmark deleted.
Unite kernelUnite(KernelSlot& target, KernelSlot& tool) {
  PK_PMARK_t pmark = makePmark();
  PK_BODY_boolean_o_t options;
  PK_BODY_boolean_o_m(options);
  PK_TOPOL_track_r_t tracking;
  PK_boolean_r_t results;
  PK_ERROR_code_t code = PK_BODY_boolean_2(target.body, 1, &tool.body, &options, &tracking, &results);
  int result = code ? PK_boolean_result_failed_c : results.result;
  bool accepted = result == PK_boolean_result_success_c && results.n_bodies == 1;
  if (!code) {
    PK_boolean_r_f(&results);
    PK_TOPOL_track_r_f(&tracking);
  }
  if (result == PK_boolean_result_failed_c) {
    ++undone()[lastReason()];
  } else if (result == PK_boolean_result_success_c && !accepted) {
    ++undone()["split into several bodies"];
  }
  if (result != PK_boolean_result_no_clash_c && !accepted) gotoPmark(pmark);
  deletePmark(pmark);
  if (result == PK_boolean_result_no_clash_c) return Unite::noClash;
  return accepted ? Unite::success : Unite::failed;
}

Run kernelRun(int n) {
  startModeller();
  std::vector<KernelSlot> slots;
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) slots.push_back(KernelSlot{kernelCell(i, j)});
  Run run;
  auto start = Clock::now();
  run.bodies = passes<KernelSlot>(slots, kernelUnite, run.unions, run.failures);
  run.seconds = since(start);
  run.shared = meld::kernel::sharedUnionsAnswered();
  for (const KernelSlot& s : slots) {
    if (s.empty()) continue;
    double amount = 0;
    check(PK_TOPOL_eval_mass_props(1, &s.body, 0.999999999, nullptr, &amount, nullptr, nullptr, nullptr, nullptr),
          "PK_TOPOL_eval_mass_props");
    run.volume += amount;
  }
  PSCEndModeller();
  return run;
}

// Plain OCCT fuses of the same pairs in the same order; a fuse that leaves
// more than one solid is no clash.
Unite rawUnite(RawSlot& target, RawSlot& tool) {
  BRepAlgoAPI_Fuse fuse(target.shape, tool.shape);
  if (!fuse.IsDone() || fuse.HasErrors()) return Unite::failed;
  if (solidCount(fuse.Shape()) != 1) return Unite::noClash;
  target.shape = fuse.Shape();
  return Unite::success;
}

Run rawRun(int n) {
  std::vector<RawSlot> slots;
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) slots.push_back(RawSlot{occtCell(i, j)});
  Run run;
  auto start = Clock::now();
  run.bodies = passes<RawSlot>(slots, rawUnite, run.unions, run.failures);
  run.seconds = since(start);
  for (const RawSlot& s : slots)
    if (!s.empty()) run.volume += volume(s.shape);
  return run;
}

Run oneShotRun(int n) {
  TopTools_ListOfShape first, rest;
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) (i == 0 && j == 0 ? first : rest).Append(occtCell(i, j));
  Run run;
  auto start = Clock::now();
  BRepAlgoAPI_Fuse fuse;
  fuse.SetArguments(first);
  fuse.SetTools(rest);
  fuse.Build();
  run.seconds = since(start);
  run.failures = !fuse.IsDone() || fuse.HasErrors();
  if (!run.failures) {
    run.bodies = solidCount(fuse.Shape());
    run.volume = volume(fuse.Shape());
  }
  return run;
}

void report(const char* what, const Run& r) {
  std::printf("  %-8s %8.3f s  bodies %d  unions %d  failures %d  volume %.9f", what, r.seconds, r.bodies,
              r.unions, r.failures, r.volume);
  if (r.shared) std::printf("  (%d from the shared split)", r.shared);
  std::printf("\n");
  std::fflush(stdout);
}

void grid(int n, int repeats) {
  std::printf("grid %d x %d (%d solids), kernel and one-shot the least of %d runs\n", n, n, n * n, repeats);
  Run kernel, oneShot;
  for (int i = 0; i < repeats; ++i) {
    Run k = kernelRun(n), o = oneShotRun(n);
    if (std::getenv("MELD_BENCH_VERBOSE")) std::printf("    run %d: kernel %.3f s, one-shot %.3f s\n", i + 1, k.seconds, o.seconds);
    if (i == 0 || k.seconds < kernel.seconds) kernel = k;
    if (i == 0 || o.seconds < oneShot.seconds) oneShot = o;
  }
  report("kernel", kernel);
  report("oneshot", oneShot);
  Run raw = rawRun(n);
  report("raw", raw);
  std::printf("grid %d: kernel/raw=%.3f kernel/oneshot=%.3f\n", n, kernel.seconds / raw.seconds,
              kernel.seconds / oneShot.seconds);
}

// ---- part files ----

void partFile(const std::filesystem::path& file) {
  if (!isPartFile(file)) return;
  startModeller();
  std::optional<std::vector<PK_BODY_t>> solids = receiveSolids(file);
  if (!solids) {
    PSCEndModeller();
    return;
  }
  std::vector<KernelSlot> slots;
  double before = 0, largest = 0;
  for (PK_BODY_t body : *solids) {
    slots.push_back(KernelSlot{body});
    double v = kernelVolume(body);
    before += v;
    largest = std::max(largest, v);
  }
  Run run;
  double start = Clock::now();
  run.bodies = slots.size() > 1 ? passes<KernelSlot>(slots, kernelUnite, run.unions, run.failures) : int(slots.size());
  run.seconds = since(start);
  for (const KernelSlot& s : slots)
    if (!s.empty()) run.volume += kernelVolume(s.body);
  bool volumeOk = run.volume <= before * (1 + 1e-9) && run.volume >= largest * (1 - 1e-9);
  std::printf("%s: solids %zu, unions %d (%d from the shared split), failures %d, bodies left %d, %.3f s, volume %.9g -> %.9g (%s)\n",
              file.filename().c_str(), slots.size(), run.unions, meld::kernel::sharedUnionsAnswered(), run.failures,
              run.bodies, run.seconds, before, run.volume, volumeOk ? "within [largest, sum]" : "OUTSIDE [largest, sum]");
  for (const auto& [reason, count] : undone()) std::printf("    undone %d: %s\n", count, reason.c_str());
  undone().clear();
  std::fflush(stdout);
  PSCEndModeller();
}

void folder(const std::filesystem::path& dir) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(dir))
    if (entry.is_regular_file()) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  for (const auto& file : files) partFile(file);
}

}  // namespace

int usage() {
  std::fprintf(stderr, "usage: bench_unite [--grid N] [--repeat R] | DIR   (N in 1..100, R in 1..20)\n");
  return 2;
}

int main(int argc, char** argv) {
  if (argc == 2 && std::filesystem::is_directory(argv[1])) {
    folder(argv[1]);
    return 0;
  }
  std::vector<int> sizes{5, 10, 20};
  int repeats = 3;
  for (int i = 1; i < argc; i += 2) {
    if (i + 1 >= argc) return usage();
    int value = std::atoi(argv[i + 1]);
    if (std::strcmp(argv[i], "--grid") == 0 && value >= 1 && value <= 100) {
      sizes = {value};
    } else if (std::strcmp(argv[i], "--repeat") == 0 && value >= 1 && value <= 20) {
      repeats = value;
    } else {
      return usage();
    }
  }
  for (int n : sizes) grid(n, repeats);
  return 0;
}
