// Cost of a mark and a goto against model size: the same small change is made
// and undone on a model of 10 bodies and on one of 10,000. Both roll-back
// paths that go through the application (partition marks with the delta store,
// session marks) should cost about the same per iteration on both models.
#include "pk.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

namespace {

// A bare frustrum: memory from malloc, no files.
void fstart(int* ifail) { *ifail = 0; }
void fstop(int* ifail) { *ifail = 0; }
void fmallo(const int* n, char** memory, int* ifail) {
  *memory = static_cast<char*>(std::malloc(std::size_t(*n)));
  *ifail = *memory ? 0 : PK_FR_memory_full;
}
void fmfree(const int*, char** memory, int* ifail) {
  std::free(*memory);
  *ifail = 0;
}
void ffoprd(const int*, const int*, const char*, const int*, const int*, int*, int* ifail) { *ifail = PK_FR_not_found; }
void ffopwr(const int*, const int*, const char*, const int*, const char*, const int*, int*, int* ifail) { *ifail = PK_FR_open_fail; }
void ffclos(const int*, const int*, const int*, int* ifail) { *ifail = 0; }
void ffread(const int*, const int*, const int*, char*, int*, int* ifail) { *ifail = PK_FR_end_of_file; }
void ffwrit(const int*, const int*, const int*, const char*, int* ifail) { *ifail = PK_FR_write_fail; }
void ffoprb(const int*, const int*, const int*, int*, int*, int* ifail) { *ifail = PK_FR_open_fail; }
void ffseek(const int*, const int*, const int*, int* ifail) { *ifail = PK_FR_unspecified; }
void fftell(const int*, const int*, int*, int* ifail) { *ifail = PK_FR_unspecified; }

// A delta store keeping each delta in a string with a read cursor.
std::map<PK_DELTA_t, std::pair<std::string, std::size_t>> store;
PK_DELTA_t nextKey = 1;
PK_ERROR_code_t openW(PK_PMARK_t, PK_DELTA_t* key) {
  *key = nextKey++;
  store[*key];
  return 0;
}
PK_ERROR_code_t openR(PK_DELTA_t key) {
  store.at(key).second = 0;
  return 0;
}
PK_ERROR_code_t closeD(PK_DELTA_t) { return 0; }
PK_ERROR_code_t writeD(PK_DELTA_t key, unsigned n, const char* bytes) {
  store.at(key).first.append(bytes, n);
  return 0;
}
PK_ERROR_code_t readD(PK_DELTA_t key, unsigned n, char* bytes) {
  auto& [data, at] = store.at(key);
  if (at + n > data.size()) return PK_ERROR_delta_read_past_end;
  std::memcpy(bytes, data.data() + at, n);
  at += n;
  return 0;
}
PK_ERROR_code_t deleteD(PK_DELTA_t key) {
  store.erase(key);
  return 0;
}

void check(PK_ERROR_code_t code, const char* what) {
  if (code == PK_ERROR_no_errors) return;
  std::fprintf(stderr, "%s failed: %d\n", what, code);
  std::exit(1);
}

void startSession() {
  PK_SESSION_frustrum_t f;
  PK_SESSION_frustrum_o_m(f);
  f.fstart = fstart, f.fstop = fstop, f.fmallo = fmallo, f.fmfree = fmfree;
  f.ffoprd = ffoprd, f.ffopwr = ffopwr, f.ffclos = ffclos, f.ffread = ffread;
  f.ffwrit = ffwrit, f.ffoprb = ffoprb, f.ffseek = ffseek, f.fftell = fftell;
  check(PK_SESSION_register_frustrum(&f), "PK_SESSION_register_frustrum");
  PK_DELTA_frustrum_t d{openW, openR, closeD, writeD, readD, deleteD};
  check(PK_DELTA_register_callbacks(&d), "PK_DELTA_register_callbacks");
  PK_SESSION_start_o_t options;
  PK_SESSION_start_o_m(options);
  check(PK_SESSION_start(&options), "PK_SESSION_start");
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
  check(PK_SESSION_stop(), "PK_SESSION_stop");
  auto micros = [&](auto a, auto b) {
    return std::chrono::duration<double, std::micro>(b - a).count() / iterations;
  };
  return {micros(start, middle), micros(middle, end)};
}

}  // namespace

int main(int argc, char** argv) {
  int iterations = argc > 1 ? std::atoi(argv[1]) : 2000;
  if (iterations <= 0) iterations = 2000;
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
