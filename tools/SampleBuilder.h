// The kernel-made sample parts: primitive solids placed, named, combined and
// gathered into assemblies through pk.h. Sizes in the comments are
// millimetres; the kernel works in metres.
#pragma once

#include "pk.h"

namespace samples {

// Each returns the part to transmit, or PK_ENTITY_null when the kernel refused
// a step. A part meant for the one-file flow is an assembly instancing its
// bodies: the flow takes only the first part of a file.

// Three 10 mm cubes at (0,0,0), (5,5,5) and (9,9,9): "Block A", "Block B" and
// the Unicode name "Würfel C". Union 2659 mm³, inputs 3000 mm³.
PK_PART_t overlappingSolids();
// A 10 mm cube "Cube", a cylinder "Pin" (r 4, h 10) and a sphere "Ball"
// (r 5), apart from each other.
PK_PART_t disjointSolids();
// A 20 mm cube "Hollow block" with a spherical cavity of r 5 at its centre.
PK_PART_t cavityBlock();
// A top assembly with a placed sub-assembly of two overlapping cubes (union
// 1776 mm³) and a sphere of r 4 on its own.
PK_PART_t smallAssembly();
// One body each, for the two-file flow: a plate "Plate" 20 x 20 x 10 and a
// cylinder "Drill" (r 5, h 30) through its middle.
PK_PART_t targetBlock();
PK_PART_t toolCylinder();

// The shipped samples: file name (its extension chooses text or binary) and
// the part written into it.
struct ShippedSample {
  const char* name;
  PK_PART_t (*build)();
};
inline constexpr ShippedSample kShipped[] = {
    {"overlapping_solids.x_t", overlappingSolids},
    {"overlapping_solids.x_b", overlappingSolids},
    {"disjoint_solids.x_t", disjointSolids},
    {"cavity_block.x_t", cavityBlock},
    {"small_assembly.x_t", smallAssembly},
    {"target_block.x_t", targetBlock},
    {"tool_cylinder.x_t", toolCylinder},
};

// Expected volumes in mm³.
inline constexpr double kPi = 3.14159265358979323846;
inline constexpr double kOverlappingUnion = 2659.0;
inline constexpr double kOverlappingSum = 3000.0;
inline constexpr double kDisjointSum = 1000.0 + kPi * 16 * 10 + 4.0 / 3.0 * kPi * 125;
inline constexpr double kCavityBlockSolid = 8000.0;
inline constexpr double kCavityBlockHollow = 8000.0 - 4.0 / 3.0 * kPi * 125;
inline constexpr double kSmallAssemblyUnion = 1776.0 + 4.0 / 3.0 * kPi * 64;
inline constexpr double kPlate = 4000.0;
inline constexpr double kPlateMinusDrill = 4000.0 - kPi * 25 * 10;
inline constexpr double kPlateAndDrill = kPi * 25 * 10;

}  // namespace samples
