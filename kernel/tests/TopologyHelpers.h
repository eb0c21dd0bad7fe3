// Enquiry helpers shared by the topology and boolean tests: each asks through
// pk.h, expects success and frees what the kernel handed out.
#pragma once

#include "TestKernel.h"

#include <vector>

namespace kerneltest {

std::vector<int> taken(int n, int* array);
std::vector<PK_REGION_t> regionsOf(PK_BODY_t body);
std::vector<PK_SHELL_t> shellsOf(PK_REGION_t region);
std::vector<PK_FACE_t> facesOf(PK_BODY_t body);
std::vector<PK_EDGE_t> edgesOf(PK_BODY_t body);
std::vector<PK_VERTEX_t> verticesOf(PK_BODY_t body);
bool isSolid(PK_REGION_t region);
PK_SHELL_sign_t signOf(PK_SHELL_t shell);
bool isLive(PK_ENTITY_t entity);
PK_CLASS_t classOf(PK_ENTITY_t entity);
// Volume by the kernel's own mass properties at 1e-9.
double kernelVolume(PK_TOPOL_t topol);
// "solid:+ void:- ..." : each region's solidity and its shells' signs, in order.
std::string regionView(PK_BODY_t body);
// The face whose box centre is nearest the point.
PK_FACE_t faceNear(PK_BODY_t body, double x, double y, double z);

}  // namespace kerneltest
