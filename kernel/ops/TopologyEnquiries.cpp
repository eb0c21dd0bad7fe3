// The region and shell view of a body, and its faces, edges and vertices:
// answered from the topology held in the body's payload, so that an enquiry
// changes nothing.
#include "Bodies.h"
#include "session/KernelError.h"
#include "session/Memory.h"

#include <TopExp_Explorer.hxx>

using namespace meld::kernel;

namespace {

template <class T>
void handOutList(const std::vector<T>& items, int* count, T** array) {
  requireArg(count);
  requireArg(array);
  handOut(items, count, array);
}

}  // namespace

extern "C" PK_ERROR_code_t PK_BODY_ask_regions(PK_BODY_t body, int* n_regions, PK_REGION_t** regions) {
  return guarded([&] { handOutList(bodyTopology(body).regions, n_regions, regions); });
}

// In region order: the shells of each region in turn.
extern "C" PK_ERROR_code_t PK_BODY_ask_shells(PK_BODY_t body, int* n_shells, PK_SHELL_t** shells) {
  return guarded([&] {
    const BodyTopology& topology = bodyTopology(body);
    std::vector<PK_SHELL_t> ordered;
    for (PK_REGION_t region : topology.regions) {
      const std::vector<PK_SHELL_t>& own = topology.find(region)->shells;
      ordered.insert(ordered.end(), own.begin(), own.end());
    }
    handOutList(ordered, n_shells, shells);
  });
}

extern "C" PK_ERROR_code_t PK_BODY_ask_faces(PK_BODY_t body, int* n_faces, PK_FACE_t** faces) {
  return guarded([&] { handOutList(bodyTopology(body).faces, n_faces, faces); });
}

extern "C" PK_ERROR_code_t PK_BODY_ask_edges(PK_BODY_t body, int* n_edges, PK_EDGE_t** edges) {
  return guarded([&] { handOutList(bodyTopology(body).edges, n_edges, edges); });
}

extern "C" PK_ERROR_code_t PK_BODY_ask_vertices(PK_BODY_t body, int* n_vertices, PK_VERTEX_t** vertices) {
  return guarded([&] { handOutList(bodyTopology(body).vertices, n_vertices, vertices); });
}

extern "C" PK_ERROR_code_t PK_REGION_ask_shells(PK_REGION_t region, int* n_shells, PK_SHELL_t** shells) {
  return guarded([&] { handOutList(subEntity(region, PK_CLASS_region).shells, n_shells, shells); });
}

extern "C" PK_ERROR_code_t PK_REGION_is_solid(PK_REGION_t region, PK_LOGICAL_t* is_solid) {
  return guarded([&] {
    requireArg(is_solid);
    *is_solid = subEntity(region, PK_CLASS_region).solid ? PK_LOGICAL_true : PK_LOGICAL_false;
  });
}

extern "C" PK_ERROR_code_t PK_SHELL_find_sign(PK_SHELL_t shell, PK_SHELL_sign_t* sign) {
  return guarded([&] {
    requireArg(sign);
    *sign = subEntity(shell, PK_CLASS_shell).sign;
  });
}

// A shell's faces and, for each, whether the face's normal points away from
// the shell's region. A face's normal is the outward one where the body first
// holds it (the orientation its topology entry keeps); OCCT orients a face in
// a solid so that it points out of the material, so on the solid's side of a
// shell a face held that way points away, on the void's side towards.
extern "C" PK_ERROR_code_t PK_SHELL_ask_oriented_faces(PK_SHELL_t shell, int* n_faces, PK_FACE_t** faces,
                                                       PK_LOGICAL_t** orients) {
  return guarded([&] {
    requireArg(n_faces);
    requireArg(faces);
    requireArg(orients);
    PK_BODY_t body = PK_ENTITY_null;
    const SubEntity& entity = subEntity(shell, PK_CLASS_shell, &body);
    const BodyTopology& topology = bodyTopology(body);
    std::vector<PK_FACE_t> tags;
    std::vector<PK_LOGICAL_t> away;
    for (TopExp_Explorer ex(entity.shape, TopAbs_FACE); ex.More(); ex.Next()) {
      PK_FACE_t face = topology.tagOf(ex.Current());
      bool asHeld = ex.Current().Orientation() == topology.find(face)->shape.Orientation();
      bool solidSide = entity.role == SubRole::solidSide;
      tags.push_back(face);
      away.push_back(asHeld == solidSide ? PK_LOGICAL_true : PK_LOGICAL_false);
    }
    handOut(tags, n_faces, faces);
    try {
      handOut(away, n_faces, orients);
    } catch (...) {
      kernelFree(*faces);
      *faces = nullptr;
      *n_faces = 0;
      throw;
    }
  });
}
