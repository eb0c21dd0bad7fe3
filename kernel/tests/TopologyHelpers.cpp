#include "TopologyHelpers.h"

#include <cmath>

namespace kerneltest {

std::vector<int> taken(int n, int* array) {
  std::vector<int> items(array, array + n);
  if (array) {
    EXPECT_EQ(PK_MEMORY_free(array), PK_ERROR_no_errors);
  }
  return items;
}

#define MELD_LIST(fn, arg)                               \
  int n = 0;                                             \
  int* items = nullptr;                                  \
  EXPECT_EQ(fn(arg, &n, &items), PK_ERROR_no_errors);    \
  return taken(n, items)

std::vector<PK_REGION_t> regionsOf(PK_BODY_t body) { MELD_LIST(PK_BODY_ask_regions, body); }
std::vector<PK_SHELL_t> shellsOf(PK_REGION_t region) { MELD_LIST(PK_REGION_ask_shells, region); }
std::vector<PK_FACE_t> facesOf(PK_BODY_t body) { MELD_LIST(PK_BODY_ask_faces, body); }
std::vector<PK_EDGE_t> edgesOf(PK_BODY_t body) { MELD_LIST(PK_BODY_ask_edges, body); }
std::vector<PK_VERTEX_t> verticesOf(PK_BODY_t body) { MELD_LIST(PK_BODY_ask_vertices, body); }
#undef MELD_LIST

bool isSolid(PK_REGION_t region) {
  PK_LOGICAL_t solid = PK_LOGICAL_false;
  EXPECT_EQ(PK_REGION_is_solid(region, &solid), PK_ERROR_no_errors);
  return solid == PK_LOGICAL_true;
}

PK_SHELL_sign_t signOf(PK_SHELL_t shell) {
  PK_SHELL_sign_t sign = 0;
  EXPECT_EQ(PK_SHELL_find_sign(shell, &sign), PK_ERROR_no_errors);
  return sign;
}

bool isLive(PK_ENTITY_t entity) {
  PK_LOGICAL_t is = PK_LOGICAL_false;
  EXPECT_EQ(PK_ENTITY_is(entity, &is), PK_ERROR_no_errors);
  return is == PK_LOGICAL_true;
}

PK_CLASS_t classOf(PK_ENTITY_t entity) {
  PK_CLASS_t cls = 0;
  EXPECT_EQ(PK_ENTITY_ask_class(entity, &cls), PK_ERROR_no_errors);
  return cls;
}

double kernelVolume(PK_TOPOL_t topol) {
  double amount = 0;
  EXPECT_EQ(PK_TOPOL_eval_mass_props(1, &topol, 0.999999999, nullptr, &amount, nullptr, nullptr, nullptr,
                                     nullptr),
            PK_ERROR_no_errors);
  return amount;
}

std::string regionView(PK_BODY_t body) {
  std::string view;
  for (PK_REGION_t region : regionsOf(body)) {
    if (!view.empty()) view += ' ';
    view += isSolid(region) ? "solid:" : "void:";
    for (PK_SHELL_t shell : shellsOf(region)) view += signOf(shell) == PK_SHELL_sign_positive_c ? '+' : '-';
  }
  return view;
}

PK_FACE_t faceNear(PK_BODY_t body, double x, double y, double z) {
  PK_FACE_t best = 0;
  double bestDistance = 1e300;
  for (PK_FACE_t face : facesOf(body)) {
    PK_BOX_t box;
    EXPECT_EQ(PK_TOPOL_find_box(face, &box), PK_ERROR_no_errors);
    double d = std::hypot((box.coord[0] + box.coord[3]) / 2 - x, (box.coord[1] + box.coord[4]) / 2 - y,
                          (box.coord[2] + box.coord[5]) / 2 - z);
    if (d < bestDistance) best = face, bestDistance = d;
  }
  return best;
}

}  // namespace kerneltest
