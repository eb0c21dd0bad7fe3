// One OCCT shape -> the XT nodes of one BODY: regions (the infinite void first,
// a solid region per solid, a void region per cavity), shells with their back
// and front faces, loops and fins in the format's senses, dummy fins where an
// edge lacks a side, vertex fin chains, tolerances above OCCT's confusion as
// tolerant edges and vertices, and the geometry through GeometryWriter.
#pragma once

#include "GeometryWriter.h"
#include "pk.h"

#include <TopoDS_Shape.hxx>

#include <unordered_map>

namespace meld::model {

struct WrittenBody {
  int64_t body = 0;
  // The node each sub-shape became (faces, edges, vertices, wires as loops,
  // shells, solids as their regions), by TShape: attributes find their owner here.
  std::unordered_map<const void*, int64_t> nodes;
  // The surface, curve or point node written for a face, edge or vertex.
  std::unordered_map<const void*, int64_t> geometry;
};

// Throws ModelError when the shape holds something the format cannot carry.
WrittenBody writeBody(GraphSink& sink, const TopoDS_Shape& shape);

}  // namespace meld::model
