// The body checks of uniting: solid or not, still alive, proper solid region;
// and the removal of inner shells.
#include <algorithm>
#include <vector>

#include "MeldUnite.h"
#include "PSCAutoCaller.h"
#include "PSCLog.h"
#include "PSCReport.h"

namespace {

using KernelArray = PSCAutoCaller<int*, PSCPKFreeCallee>;

void report(const char* function, int code, const char* callee, int result, int line) {
  PSCReportFailure(function, code, callee, result, kMeldSolidsSource, line);
}

// Whether any shell of the region is positive; a kernel error is reported and
// answers `failed`.
bool regionHasPositiveShell(PK_REGION_t region, bool& failed) {
  int nShells = 0;
  PK_SHELL_t* shells = nullptr;
  if (int rc = PK_REGION_ask_shells(region, &nShells, &shells)) {
    report("st_HasInvalidRegion", 0, "PK_REGION_ask_shells", rc, 62);
    failed = true;
    return false;
  }
  KernelArray shellsGuard(shells);
  PK_LOGICAL_t solid = PK_LOGICAL_false;
  if (int rc = PK_REGION_is_solid(region, &solid)) {
    report("st_HasInvalidRegion", 0, "PK_REGION_is_solid", rc, 69);
    failed = true;
    return false;
  }
  if (!solid) return false;
  for (int s = 0; s < nShells; ++s) {
    PK_SHELL_sign_t sign = 0;
    if (int rc = PK_SHELL_find_sign(shells[s], &sign)) {
      report("st_HasInvalidRegion", 0, "PK_SHELL_find_sign", rc, 77);
      failed = true;
      return false;
    }
    if (sign == PK_SHELL_sign_positive_c) return true;
  }
  return false;
}

// Adds the faces of a region that has no positive shell to `keep`: that is the
// outside region, whose shells are the outer skins of the solids. Returns 0 or
// the step code.
int keepFacesOfRegionWithoutPositiveShell(PK_REGION_t region, std::vector<PK_FACE_t>& keep) {
  int nShells = 0;
  PK_SHELL_t* shells = nullptr;
  if (int rc = PK_REGION_ask_shells(region, &nShells, &shells)) {
    PSCPrintError(rc, "PK_REGION_ask_shells");
    return 110;
  }
  KernelArray shellsGuard(shells);
  for (int s = 0; s < nShells; ++s) {
    PK_SHELL_sign_t sign = 0;
    if (int rc = PK_SHELL_find_sign(shells[s], &sign)) {
      PSCPrintError(rc, "PK_SHELL_find_sign");
      return 120;
    }
    if (sign == PK_SHELL_sign_positive_c) return 0;
  }
  for (int s = 0; s < nShells; ++s) {
    int nFaces = 0;
    PK_FACE_t* faces = nullptr;
    PK_LOGICAL_t* orients = nullptr;
    if (int rc = PK_SHELL_ask_oriented_faces(shells[s], &nFaces, &faces, &orients)) {
      PSCPrintError(rc, "PK_SHELL_ask_oriented_faces");
      return 130;
    }
    KernelArray facesGuard(faces);
    PSCAutoCaller<PK_LOGICAL_t*, PSCPKFreeCallee> orientsGuard(orients);
    keep.insert(keep.end(), faces, faces + nFaces);
  }
  return 0;
}

}  // namespace

bool st_IsSolidBody(PK_BODY_t body) {
  PK_BODY_type_t type = 0;
  if (int rc = PK_BODY_ask_type(body, &type)) {
    report("st_IsSolidBody", 1, "PK_BODY_ask_type", rc, 229);
    return false;
  }
  return type == PK_BODY_type_solid_c;
}

PK_ENTITY_t st_RefreshEntity(PK_ENTITY_t entity, const char* message) {
  PK_LOGICAL_t alive = PK_LOGICAL_false;
  if (int rc = PK_ENTITY_is(entity, &alive)) {
    // The record names the body-type query on purpose: it is what the log's
    // readers grep for when a body goes missing.
    report("st_RefreshEntity", 0, "PK_BODY_ask_type", rc, 97);
    alive = PK_LOGICAL_false;
  }
  if (alive) return entity;
  if (message) PSCWriteLog(11, 0, message);
  return PK_ENTITY_null;
}

bool st_HasInvalidRegion(PK_BODY_t body) {
  int nRegions = 0;
  PK_REGION_t* regions = nullptr;
  if (int rc = PK_BODY_ask_regions(body, &nRegions, &regions)) {
    report("st_HasInvalidRegion", 0, "PK_BODY_ask_regions", rc, 52);
    return true;
  }
  KernelArray regionsGuard(regions);
  // Kernel errors count as invalid so that the union is undone.
  for (int r = 0; r < nRegions; ++r) {
    bool failed = false;
    if (regionHasPositiveShell(regions[r], failed)) return false;
    if (failed) return true;
  }
  return true;
}

int st_RemoveInnerShellInBody(PK_BODY_t body) {
  int nRegions = 0;
  PK_REGION_t* regions = nullptr;
  if (int rc = PK_BODY_ask_regions(body, &nRegions, &regions)) {
    PSCPrintError(rc, "PK_BODY_ask_regions");
    return 100;
  }
  KernelArray regionsGuard(regions);
  // The outside and one solid: nothing inside to strip.
  if (nRegions <= 2) return 0;
  std::vector<PK_FACE_t> keep;
  for (int r = 0; r < nRegions; ++r)
    if (int rc = keepFacesOfRegionWithoutPositiveShell(regions[r], keep)) return rc;

  int nFaces = 0;
  PK_FACE_t* faces = nullptr;
  if (int rc = PK_BODY_ask_faces(body, &nFaces, &faces)) {
    PSCPrintError(rc, "PK_BODY_ask_faces");
    return 140;
  }
  KernelArray facesGuard(faces);
  std::vector<PK_FACE_t> all(faces, faces + nFaces);
  std::sort(all.begin(), all.end());
  std::sort(keep.begin(), keep.end());
  std::vector<PK_FACE_t> doomed;
  std::set_difference(all.begin(), all.end(), keep.begin(), keep.end(), std::back_inserter(doomed));
  if (doomed.empty()) return 0;
  if (int rc = PK_FACE_delete(static_cast<int>(doomed.size()), doomed.data(), PK_FACE_heal_yes_c)) {
    PSCPrintError(rc, "PK_FACE_delete");
    return 150;
  }
  return 0;
}
