// Cost of a mark and a goto against model size: the same small change is made
// and undone on a model of 10 bodies and on one of 10,000. Both roll-back
// paths that go through the application (partition marks with the delta store,
// session marks) should cost about the same per iteration on both models.
//
// Then the memory of the program's own pattern: a partition mark made before
// every attempt and, when the attempt succeeds, dropped without a delete (the
// kernel keeps it, and everything needed to go back to it). Each variant runs
// in a child process of its own, so that its peak resident size (VmHWM) is its
// own.
//
// The session is the program's own: its frustrum and its block-chain delta
// store, started and stopped as the program does (PSCStartModeller,
// PSCEndModeller).
#include "PSCFileHelpers.h"
#include "PSCModeller.h"
#include "pk.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/wait.h>
#include <unistd.h>

namespace {

void check(PK_ERROR_code_t code, const char* what) {
  if (code == PK_ERROR_no_errors) return;
  std::fprintf(stderr, "%s failed: %d\n", what, code);
  std::exit(1);
}

// The program's session: single-threaded, with its delta store.
void startSession() {
  if (int step = PSCStartModeller(false, true)) {
    std::fprintf(stderr, "PSCStartModeller failed at step %d\n", step);
    std::exit(1);
  }
}

void stopSession() {
  if (int step = PSCEndModeller()) {
    std::fprintf(stderr, "PSCEndModeller failed: %d\n", step);
    std::exit(1);
  }
}

PK_BODY_t block(double atX, double atY = 0) {
  PK_AXIS2_sf_t basis{{{atX, atY, 0}}, {{0, 0, 1}}, {{1, 0, 0}}};
  PK_BODY_t body = 0;
  check(PK_BODY_create_solid_block(1, 1, 1, &basis, &body), "PK_BODY_create_solid_block");
  return body;
}

// The small change: a new body, a deleted one, a moved one.
void smallChange(PK_BODY_t victim, PK_BODY_t moved, PK_TRANSF_t shift) {
  block(-5);
  check(PK_ENTITY_delete(1, &victim), "PK_ENTITY_delete");
  check(PK_BODY_transform_2(moved, shift, 1e-6, nullptr), "PK_BODY_transform_2");
}

using Clock = std::chrono::steady_clock;

struct Timing {
  double pmarkMicros;
  double markMicros;
};

Timing measure(int bodies, int iterations) {
  startSession();
  PK_BODY_t first = block(0), second = block(2);
  // A grid, well inside the 1000 m size box.
  for (int i = 2; i < bodies; ++i) block(2.0 * (i % 100), 2.0 + 2.0 * (i / 100));
  PK_TRANSF_sf_t sf{{{1, 0, 0, 0.5}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}}};
  PK_TRANSF_t shift = 0;
  check(PK_TRANSF_create(&sf, &shift), "PK_TRANSF_create");
  PK_PARTITION_t partition = 0;
  check(PK_SESSION_ask_curr_partition(&partition), "PK_SESSION_ask_curr_partition");

  auto start = Clock::now();
  for (int i = 0; i < iterations; ++i) {
    PK_PMARK_t pmark = 0;
    check(PK_PARTITION_make_pmark(partition, &pmark), "PK_PARTITION_make_pmark");
    smallChange(first, second, shift);
    PK_PMARK_goto_o_t options;
    PK_PMARK_goto_o_m(options);
    int n1, n2, n3, *a1, *a2, *a3;
    check(PK_PMARK_goto_2(pmark, &options, &n1, &a1, &n2, &a2, &n3, &a3), "PK_PMARK_goto_2");
    for (int* array : {a1, a2, a3}) PK_MEMORY_free(array);
    int n = 0;
    PK_PMARK_t* deleted = nullptr;
    check(PK_PMARK_delete(1, &pmark, &n, &deleted), "PK_PMARK_delete");
    PK_MEMORY_free(deleted);
  }
  auto middle = Clock::now();
  for (int i = 0; i < iterations; ++i) {
    PK_MARK_t mark = 0;
    check(PK_MARK_create(&mark), "PK_MARK_create");
    smallChange(first, second, shift);
    check(PK_MARK_goto(mark), "PK_MARK_goto");
    check(PK_MARK_delete(mark), "PK_MARK_delete");
  }
  auto end = Clock::now();
  stopSession();
  auto micros = [&](auto a, auto b) {
    return std::chrono::duration<double, std::micro>(b - a).count() / iterations;
  };
  return {micros(start, middle), micros(middle, end)};
}

// A value in kB from /proc/self/status ("VmHWM", "VmRSS").
long statusKb(const char* field) {
  FILE* status = std::fopen("/proc/self/status", "r");
  if (!status) return -1;
  char line[256];
  long kb = -1;
  const std::size_t length = std::strlen(field);
  while (std::fgets(line, sizeof line, status)) {
    if (std::strncmp(line, field, length) == 0 && line[length] == ':') {
      kb = std::atol(line + length + 1);
      break;
    }
  }
  std::fclose(status);
  return kb;
}

PK_TRANSF_t scaling(double factor) {
  PK_TRANSF_sf_t sf{{{factor, 0, 0, 0}, {0, factor, 0, 0}, {0, 0, factor, 0}, {0, 0, 0, 1}}};
  PK_TRANSF_t transf = 0;
  check(PK_TRANSF_create(&sf, &transf), "PK_TRANSF_create");
  return transf;
}

// One variant of the dropped-mark pattern, run in this process: `rounds`
// times, make a pmark (unless `marks` is false), give one body a new shape
// `replacements` times, and drop the mark. A scaling transform rebuilds the
// whole shape, as a boolean builds a new one. Returns the growth of the peak
// resident size over the rounds, in kB.
long droppedMarkGrowthKb(int rounds, bool marks, int replacements) {
  startSession();
  PK_BODY_t body = block(0);
  PK_TRANSF_t up = scaling(2), down = scaling(0.5);
  bool grown = false;
  PK_PARTITION_t partition = 0;
  check(PK_SESSION_ask_curr_partition(&partition), "PK_SESSION_ask_curr_partition");
  // The pattern: a pmark, the shape replaced, the mark object let go (nothing
  // is asked of the kernel when it goes).
  auto round = [&] {
    if (marks) {
      PK_PMARK_t pmark = 0;
      check(PK_PARTITION_make_pmark(partition, &pmark), "PK_PARTITION_make_pmark");
    }
    // Up and down in turn, so that the body stays the same size.
    for (int r = 0; r < replacements; ++r, grown = !grown)
      check(PK_BODY_transform_2(body, grown ? down : up, 1e-6, nullptr), "PK_BODY_transform_2");
  };
  round();  // first-use allocations do not count
  const long before = statusKb("VmHWM");
  for (int i = 0; i < rounds; ++i) round();
  const long growth = statusKb("VmHWM") - before;
  stopSession();
  return growth;
}

// Runs the variant in a child process and hands back what it measured.
long inChild(int rounds, bool marks, int replacements) {
  int fds[2];
  if (pipe(fds) != 0) return -1;
  pid_t child = fork();
  if (child == 0) {
    close(fds[0]);
    long growth = droppedMarkGrowthKb(rounds, marks, replacements);
    ssize_t written = write(fds[1], &growth, sizeof growth);
    _exit(written == sizeof growth ? 0 : 1);
  }
  close(fds[1]);
  long growth = -1;
  if (read(fds[0], &growth, sizeof growth) != sizeof growth) growth = -1;
  close(fds[0]);
  int status = 0;
  waitpid(child, &status, 0);
  return growth;
}

void reportDroppedMarks(int rounds) {
  std::printf("memory of %d rounds of: pmark, replace a body's shape, drop the mark\n", rounds);
  std::printf("%-44s %14s %16s\n", "", "peak RSS growth", "per round");
  struct Variant {
    const char* name;
    bool marks;
    int replacements;
  } variants[] = {{"no mark, 2 replacements (control)", false, 2},
                  {"dropped pmark, no change", true, 0},
                  {"dropped pmark, 1 replacement", true, 1},
                  {"dropped pmark, 2 replacements", true, 2},
                  {"dropped pmark, 4 replacements", true, 4}};
  for (const Variant& v : variants) {
    long kb = inChild(rounds, v.marks, v.replacements);
    std::printf("%-44s %11ld kB %13.0f B\n", v.name, kb, kb * 1024.0 / rounds);
  }
}

}  // namespace

int main(int argc, char** argv) {
  int iterations = argc > 1 ? std::atoi(argv[1]) : 2000;
  if (iterations <= 0) iterations = 2000;
  PSCSetSchemaDirectory(nullptr);
  // Memory first, from a small heap: a child forked after the large model
  // would reuse the heap that model freed and show no growth.
  int rounds = argc > 2 ? std::atoi(argv[2]) : 5000;
  if (rounds <= 0) rounds = 5000;
  reportDroppedMarks(rounds);
  std::printf("\n");
  Timing small = measure(10, iterations);
  Timing large = measure(10000, iterations);
  std::printf("mark + small change + goto, %d iterations, microseconds per iteration\n", iterations);
  std::printf("%-28s %12s %12s %8s\n", "", "10 bodies", "10000 bodies", "ratio");
  std::printf("%-28s %12.2f %12.2f %8.2f\n", "pmark / goto_2 / delete", small.pmarkMicros,
              large.pmarkMicros, large.pmarkMicros / small.pmarkMicros);
  std::printf("%-28s %12.2f %12.2f %8.2f\n", "mark / goto / delete", small.markMicros,
              large.markMicros, large.markMicros / small.markMicros);
  return 0;
}
