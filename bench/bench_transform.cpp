// Cost of PK_BODY_transform_2 against the number of moves a body has had: a
// rigid move composes into the body's one location, so the 5,000th call
// should cost what the first did.
//
// Runs in the program's own session (PSCStartModeller / PSCEndModeller).
#include "PSCFileHelpers.h"
#include "PSCModeller.h"
#include "pk.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {

void check(PK_ERROR_code_t code, const char* what) {
  if (code == PK_ERROR_no_errors) return;
  std::fprintf(stderr, "%s failed: %d\n", what, code);
  std::exit(1);
}

PK_TRANSF_t rigidStep(double angle, double shift) {
  PK_TRANSF_sf_t sf{{{std::cos(angle), -std::sin(angle), 0, shift},
                     {std::sin(angle), std::cos(angle), 0, 0},
                     {0, 0, 1, 0},
                     {0, 0, 0, 1}}};
  PK_TRANSF_t transf = 0;
  check(PK_TRANSF_create(&sf, &transf), "PK_TRANSF_create");
  return transf;
}

using Clock = std::chrono::steady_clock;

}  // namespace

int main(int argc, char** argv) {
  int calls = argc > 1 ? std::atoi(argv[1]) : 5000;
  if (calls < 1000) calls = 5000;
  const int window = calls / 10;
  PSCSetSchemaDirectory(nullptr);
  if (int step = PSCStartModeller(false, true)) {
    std::fprintf(stderr, "PSCStartModeller failed at step %d\n", step);
    return 1;
  }
  PK_BODY_t body = 0;
  check(PK_BODY_create_solid_block(1, 1, 1, nullptr, &body), "PK_BODY_create_solid_block");
  // Two motions that move back and forth, so the body stays near the origin.
  PK_TRANSF_t there = rigidStep(0.01, 0.5), back = rigidStep(-0.01, -0.5);

  double firstMicros = 0, lastMicros = 0;
  for (int i = 0; i < calls; ++i) {
    auto start = Clock::now();
    check(PK_BODY_transform_2(body, i % 2 ? back : there, 1e-6, nullptr), "PK_BODY_transform_2");
    double micros = std::chrono::duration<double, std::micro>(Clock::now() - start).count();
    if (i < window) firstMicros += micros;
    if (i >= calls - window) lastMicros += micros;
  }
  if (int step = PSCEndModeller()) {
    std::fprintf(stderr, "PSCEndModeller failed: %d\n", step);
    return 1;
  }
  firstMicros /= window;
  lastMicros /= window;
  std::printf("PK_BODY_transform_2 (rigid), %d calls on one body, microseconds per call\n", calls);
  std::printf("%-16s %-16s %8s\n", "first calls", "last calls", "ratio");
  std::printf("%-16.2f %-16.2f %8.2f\n", firstMicros, lastMicros, lastMicros / firstMicros);
  return 0;
}
