#include "FaceMeasures.h"

#include "BoundaryMeasures.h"

#include <BRepGProp_Domain.hxx>
#include <BRepGProp_Face.hxx>
#include <BRepGProp_Sinert.hxx>
#include <BRepGProp_Vinert.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Face.hxx>
#include <gp.hxx>
#include <TopExp_Explorer.hxx>

#include <climits>
#include <cmath>
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

Measures integrate(const TopoDS_Shape& shape) {
  const TopoDS_Face& face = TopoDS::Face(shape);
  Measures measures;
  return boundaryMeasures(face, measures) ? measures : integratedMeasures(face);
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

// The area only scales a tolerance: it needs no subdivision.
Measures integratedMeasures(const TopoDS_Face& face) {
  BRepGProp_Face surface;
  surface.Load(face);
  BRepGProp_Vinert volume;
  volume.SetLocation(gp::Origin());
  BRepGProp_Sinert area;
  area.SetLocation(gp::Origin());
  if (surface.NaturalRestriction()) {
    volume.Perform(surface, kIntegrationEps);
    area.Perform(surface);
  } else {
    BRepGProp_Domain domain(face);
    volume.Perform(surface, domain, kIntegrationEps);
    domain.Init(face);
    area.Perform(surface, domain);
  }
  return Measures{volume.Mass(), area.Mass()};
}

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
