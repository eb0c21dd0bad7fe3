#include "FaceMeasures.h"

#include <BRepAdaptor_Curve.hxx>
#include <BRepAdaptor_Surface.hxx>
#include <BRepGProp_Domain.hxx>
#include <BRep_Tool.hxx>
#include <BRepGProp_Face.hxx>
#include <BRepGProp_Sinert.hxx>
#include <BRepGProp_Vinert.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Edge.hxx>
#include <TopoDS_Face.hxx>
#include <gp.hxx>
#include <TopExp_Explorer.hxx>

#include <climits>
#include <mutex>
#include <unordered_map>

namespace meld::kernel {

namespace {

constexpr double kIntegrationEps = 1e-9;
constexpr std::size_t kCacheLimit = 500000;  // faces; the cache starts again beyond

// A face's contribution depends on its surface, its place and its side.
struct FaceKey {
  const TopoDS_TShape* tshape;
  TopLoc_Location location;
  TopAbs_Orientation orientation;
  bool operator==(const FaceKey& o) const {
    return tshape == o.tshape && location.IsEqual(o.location) && orientation == o.orientation;
  }
};

struct FaceKeyHash {
  std::size_t operator()(const FaceKey& k) const {
    return std::hash<const void*>()(k.tshape) ^ (std::size_t(k.location.HashCode(INT_MAX)) << 3) ^
           std::size_t(k.orientation);
  }
};

struct Cached {
  Handle(TopoDS_TShape) keepAlive;  // the key's pointer stays valid while cached
  Measures measures;
};

std::mutex cacheMutex;
std::unordered_map<FaceKey, Cached, FaceKeyHash>& cache() {
  static std::unordered_map<FaceKey, Cached, FaceKeyHash> faces;
  return faces;
}

// Gauss integration without subdivision is exact on a plane bounded by
// lines (the integrands are polynomials there); anything else is integrated
// adaptively.
bool exactWithoutSubdivision(const TopoDS_Face& face) {
  BRepAdaptor_Surface surface(face, false);
  if (surface.GetType() != GeomAbs_Plane) return false;
  for (TopExp_Explorer ex(face, TopAbs_EDGE); ex.More(); ex.Next()) {
    const TopoDS_Edge& edge = TopoDS::Edge(ex.Current());
    if (BRep_Tool::Degenerated(edge) || BRepAdaptor_Curve(edge).GetType() != GeomAbs_Line) return false;
  }
  return true;
}

// A face's share of the volume is that of the cone from the origin to the
// face (signed by the face's side), so that the shares of a closed shell's
// faces add up to its volume whichever shell they are in. The area only
// scales a tolerance: it needs no subdivision.
Measures integrate(const TopoDS_Shape& shape) {
  const TopoDS_Face& face = TopoDS::Face(shape);
  BRepGProp_Face surface;
  surface.Load(face);
  BRepGProp_Vinert volume;
  volume.SetLocation(gp::Origin());
  BRepGProp_Sinert area;
  area.SetLocation(gp::Origin());
  bool exact = exactWithoutSubdivision(face);
  if (surface.NaturalRestriction()) {
    exact ? volume.Perform(surface) : (void)volume.Perform(surface, kIntegrationEps);
    area.Perform(surface);
  } else {
    BRepGProp_Domain domain(face);
    exact ? volume.Perform(surface, domain) : (void)volume.Perform(surface, domain, kIntegrationEps);
    domain.Init(face);
    area.Perform(surface, domain);
  }
  return Measures{volume.Mass(), area.Mass()};
}

Measures faceMeasures(const TopoDS_Shape& face) {
  FaceKey key{face.TShape().get(), face.Location(), face.Orientation()};
  {
    std::lock_guard<std::mutex> lock(cacheMutex);
    auto it = cache().find(key);
    if (it != cache().end()) return it->second.measures;
  }
  Measures measures = integrate(face);
  std::lock_guard<std::mutex> lock(cacheMutex);
  if (cache().size() >= kCacheLimit) cache().clear();
  cache().emplace(key, Cached{face.TShape(), measures});
  return measures;
}

}  // namespace

Measures measure(const TopoDS_Shape& shape) {
  Measures total;
  for (TopExp_Explorer ex(shape, TopAbs_FACE); ex.More(); ex.Next()) {
    Measures face = faceMeasures(ex.Current());
    total.volume += face.volume;
    total.area += face.area;
  }
  return total;
}

}  // namespace meld::kernel
