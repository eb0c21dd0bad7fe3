// Part files for the benchmarks that work through the kernel: start the
// program's own session, receive a file, and take its solid bodies as the
// program collects them.
#pragma once

#include "PSCFileHelpers.h"
#include "PSCGetAllBodyInPart.h"
#include "PSCModeller.h"
#include "pk.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace meld::bench {

inline void check(PK_ERROR_code_t code, const char* what) {
  if (code == PK_ERROR_no_errors) return;
  std::fprintf(stderr, "%s failed: %d\n", what, code);
  std::exit(1);
}

inline void startModeller() {
  if (int step = PSCStartModeller(false, true)) {
    std::fprintf(stderr, "PSCStartModeller failed at step %d\n", step);
    std::exit(1);
  }
}

inline double kernelVolume(PK_BODY_t body) {
  double amount = 0;
  if (PK_TOPOL_eval_mass_props(1, &body, 0.999999999, nullptr, &amount, nullptr, nullptr, nullptr, nullptr))
    return 0;
  return amount;
}

// The solid bodies of the parts (bodies, and bodies instanced by assemblies),
// collected as the program collects them and freed of the instances that
// refer to them, as the program does.
inline std::vector<PK_BODY_t> solidsOf(const std::vector<PK_PART_t>& parts) {
  std::vector<PK_BODY_t> solids;
  std::set<PK_BODY_t> seen;
  for (PK_PART_t part : parts) {
    int n = 0;
    PK_ENTITY_t* bodies = nullptr;
    if (int step = PSCGetAllBodyInPart(part, &n, &bodies)) {
      std::fprintf(stderr, "PSCGetAllBodyInPart failed at step %d\n", step);
      std::exit(1);
    }
    for (int i = 0; i < n; ++i) {
      PK_BODY_type_t type = 0;
      check(PK_BODY_ask_type(bodies[i], &type), "PK_BODY_ask_type");
      if (type == PK_BODY_type_solid_c && seen.insert(bodies[i]).second) solids.push_back(bodies[i]);
    }
    if (n > 0) PK_MEMORY_free(bodies);
  }
  for (PK_BODY_t body : solids) {
    int n = 0;
    PK_INSTANCE_t* refs = nullptr;
    check(PK_PART_ask_ref_instances(body, &n, &refs), "PK_PART_ask_ref_instances");
    if (n) PK_ENTITY_delete(n, refs);
    PK_MEMORY_free(refs);
  }
  return solids;
}

// Partition marks as the program uses them around each union.
inline PK_PMARK_t makePmark() {
  PK_PARTITION_t partition = 0;
  check(PK_SESSION_ask_curr_partition(&partition), "PK_SESSION_ask_curr_partition");
  PK_PMARK_t pmark = 0;
  check(PK_PARTITION_make_pmark(partition, &pmark), "PK_PARTITION_make_pmark");
  return pmark;
}

inline void gotoPmark(PK_PMARK_t pmark) {
  PK_PMARK_goto_o_t go;
  PK_PMARK_goto_o_m(go);
  int n[3];
  int* lists[3];
  check(PK_PMARK_goto_2(pmark, &go, &n[0], &lists[0], &n[1], &lists[1], &n[2], &lists[2]), "PK_PMARK_goto_2");
  for (int* list : lists) PK_MEMORY_free(list);
}

inline void deletePmark(PK_PMARK_t pmark) {
  int nDeleted = 0;
  PK_PMARK_t* deleted = nullptr;
  check(PK_PMARK_delete(1, &pmark, &nDeleted, &deleted), "PK_PMARK_delete");
  PK_MEMORY_free(deleted);
}

// The kernel's last message up to its first number, so that alike failures
// count together.
inline std::string lastReason() {
  const char* message = nullptr;
  PK_ERROR_ask_last_message(&message);
  std::string text = message ? message : "";
  return text.substr(0, text.find_first_of("0123456789"));
}

inline bool isPartFile(const std::filesystem::path& file) {
  std::string ext = file.extension().string();
  return ext == ".x_t" || ext == ".xmt_txt" || ext == ".x_b" || ext == ".xmt_bin";
}

// Receives a part file into the running session and gives its solids; no
// value (and a line saying why) when the kernel refuses the file.
inline std::optional<std::vector<PK_BODY_t>> receiveSolids(const std::filesystem::path& file) {
  std::string key = (file.parent_path() / file.stem()).string();
  int n = 0;
  PK_PART_t* parts = nullptr;
  if (int code = PSCReceivePartFile(key.c_str(), file.extension().c_str(), &n, &parts)) {
    std::printf("%s: not received (%d)\n", file.filename().c_str(), code);
    return std::nullopt;
  }
  std::vector<PK_BODY_t> solids = solidsOf(std::vector<PK_PART_t>(parts, parts + n));
  PK_MEMORY_free(parts);
  return solids;
}

}  // namespace meld::bench
