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
#include <gp_Circ.hxx>
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

// The integral of r x dr along an edge as the face runs through it: closed
// form for lines and circles. False for other curves.
bool sweptVector(const TopoDS_Edge& edge, gp_XYZ& swept) {
  if (BRep_Tool::Degenerated(edge)) return false;
  BRepAdaptor_Curve curve(edge);
  double t0 = curve.FirstParameter(), t1 = curve.LastParameter();
  if (curve.GetType() == GeomAbs_Line) {
    swept = curve.Value(t0).XYZ().Crossed(curve.Value(t1).XYZ());
  } else if (curve.GetType() == GeomAbs_Circle) {
    // r = c + R (cos t x + sin t y): r x r' = R c x (-sin t x + cos t y) + R^2 z.
    gp_Circ circle = curve.Circle();
    const gp_Ax2& frame = circle.Position();
    gp_XYZ c = frame.Location().XYZ(), x = frame.XDirection().XYZ(), y = frame.YDirection().XYZ();
    double radius = circle.Radius();
    gp_XYZ chord = x * (std::cos(t1) - std::cos(t0)) + y * (std::sin(t1) - std::sin(t0));
    swept = c.Crossed(chord) * radius + frame.Direction().XYZ() * (radius * radius * (t1 - t0));
  } else {
    return false;
  }
  if (edge.Orientation() == TopAbs_REVERSED) swept.Reverse();
  return true;
}

// A plane face bounded by lines and circles, measured on its boundary: half
// the sum of r x dr over its edges is its area times its outward normal, and
// its cone from the origin has a third of a plane point dotted with that.
bool planeMeasures(const TopoDS_Face& face, Measures& measures) {
  BRepAdaptor_Surface surface(face, false);
  if (surface.GetType() != GeomAbs_Plane) return false;
  gp_XYZ sum(0, 0, 0);
  for (TopExp_Explorer ex(face, TopAbs_EDGE); ex.More(); ex.Next()) {
    const TopoDS_Edge& edge = TopoDS::Edge(ex.Current());
    TopAbs_Orientation o = edge.Orientation();
    if (o != TopAbs_FORWARD && o != TopAbs_REVERSED) continue;  // internal edges cancel out
    gp_XYZ swept;
    if (!sweptVector(edge, swept)) return false;
    sum += swept;
  }
  gp_XYZ areaVector = sum * 0.5;
  gp_Pnt onPlane = surface.Plane().Location();
  measures = Measures{onPlane.XYZ().Dot(areaVector) / 3.0, areaVector.Modulus()};
  return true;
}

// A face's share of the volume is that of the cone from the origin to the
// face (signed by the face's side), so that the shares of a closed shell's
// faces add up to its volume whichever shell they are in. The area only
// scales a tolerance: it needs no subdivision.
Measures integrate(const TopoDS_Shape& shape) {
  const TopoDS_Face& face = TopoDS::Face(shape);
  Measures measures;
  if (planeMeasures(face, measures)) return measures;
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
