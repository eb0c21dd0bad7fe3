// Uniting many solids pass by pass, as the program does, through the kernel
// (PK_BODY_boolean_2 with a partition mark around each union) beside the
// same sequence of raw OCCT fuses and beside OCCT's one-shot fuse of all the
// solids, on an N x N grid of overlapping blocks and cylinders.
//
//   bench_unite               grids 5, 10 and 20
//   bench_unite --grid N      one grid
//
// The last line for a grid is `grid N: kernel/raw=<ratio> kernel/oneshot=<ratio>`.
// Times are process CPU seconds.
#include "PSCModeller.h"
#include "pk.h"

#include <BRepAlgoAPI_Fuse.hxx>
#include <BRepGProp.hxx>
#include <BRepPrimAPI_MakeBox.hxx>
#include <BRepPrimAPI_MakeCylinder.hxx>
#include <GProp_GProps.hxx>
#include <TopExp_Explorer.hxx>
#include <TopTools_ListOfShape.hxx>

#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <set>
#include <vector>

namespace {

void check(PK_ERROR_code_t code, const char* what) {
  if (code == PK_ERROR_no_errors) return;
  std::fprintf(stderr, "%s failed: %d\n", what, code);
  std::exit(1);
}

// Cell (i, j): a unit block or, on alternate cells, a taller cylinder of
// radius 0.55; cells 0.8 m apart, so that neighbours overlap.
constexpr double kPitch = 0.8, kRadius = 0.55, kCylHeight = 1.3, kCylBase = -0.15;

bool isBlock(int i, int j) { return (i + j) % 2 == 0; }

TopoDS_Shape occtCell(int i, int j) {
  double x = i * kPitch, y = j * kPitch;
  if (isBlock(i, j)) return BRepPrimAPI_MakeBox(gp_Pnt(x - 0.5, y - 0.5, 0), 1, 1, 1).Shape();
  return BRepPrimAPI_MakeCylinder(gp_Ax2(gp_Pnt(x, y, kCylBase), gp::DZ()), kRadius, kCylHeight).Shape();
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
  double volume = 0;
};

// Process CPU time: the machine is shared, and every run here is
// single-threaded, so CPU time is what the work costs.
struct Clock {
  using time_point = double;
  static double now() {
    timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return t.tv_sec + t.tv_nsec * 1e-9;
  }
};
double since(double start) { return Clock::now() - start; }

// One union as the program makes it: a pmark, the boolean, back to the pmark
// when it fails or falls apart, the pmark deleted.
Unite kernelUnite(KernelSlot& target, KernelSlot& tool) {
  PK_PARTITION_t partition = 0;
  check(PK_SESSION_ask_curr_partition(&partition), "PK_SESSION_ask_curr_partition");
  PK_PMARK_t pmark = 0;
  check(PK_PARTITION_make_pmark(partition, &pmark), "PK_PARTITION_make_pmark");
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
  if (result != PK_boolean_result_no_clash_c && !accepted) {
    PK_PMARK_goto_o_t go;
    PK_PMARK_goto_o_m(go);
    int n[3];
    int* lists[3];
    check(PK_PMARK_goto_2(pmark, &go, &n[0], &lists[0], &n[1], &lists[1], &n[2], &lists[2]), "PK_PMARK_goto_2");
    for (int* list : lists) PK_MEMORY_free(list);
  }
  int nDeleted = 0;
  PK_PMARK_t* deleted = nullptr;
  check(PK_PMARK_delete(1, &pmark, &nDeleted, &deleted), "PK_PMARK_delete");
  PK_MEMORY_free(deleted);
  if (result == PK_boolean_result_no_clash_c) return Unite::noClash;
  return accepted ? Unite::success : Unite::failed;
}

Run kernelRun(int n) {
  if (int step = PSCStartModeller(false, true)) {
    std::fprintf(stderr, "PSCStartModeller failed at step %d\n", step);
    std::exit(1);
  }
  std::vector<KernelSlot> slots;
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) slots.push_back(KernelSlot{kernelCell(i, j)});
  Run run;
  auto start = Clock::now();
  run.bodies = passes<KernelSlot>(slots, kernelUnite, run.unions, run.failures);
  run.seconds = since(start);
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
  std::printf("  %-8s %8.3f s  bodies %d  unions %d  failures %d  volume %.9f\n", what, r.seconds, r.bodies,
              r.unions, r.failures, r.volume);
}

void grid(int n) {
  std::printf("grid %d x %d (%d solids)\n", n, n, n * n);
  Run kernel = kernelRun(n);
  report("kernel", kernel);
  Run raw = rawRun(n);
  report("raw", raw);
  Run oneShot = oneShotRun(n);
  report("oneshot", oneShot);
  std::fflush(stdout);
  std::printf("grid %d: kernel/raw=%.3f kernel/oneshot=%.3f\n", n, kernel.seconds / raw.seconds,
              kernel.seconds / oneShot.seconds);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--grid") == 0) {
    int n = std::atoi(argv[2]);
    if (n < 1 || n > 100) {
      std::fprintf(stderr, "usage: bench_unite [--grid N], N in 1..100\n");
      return 2;
    }
    grid(n);
    return 0;
  }
  if (argc != 1) {
    std::fprintf(stderr, "usage: bench_unite [--grid N]\n");
    return 2;
  }
  for (int n : {5, 10, 20}) grid(n);
  return 0;
}
