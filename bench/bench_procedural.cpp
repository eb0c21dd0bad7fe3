// Receives corpus files the way the kernel does (decode, convert geometry, build
// bodies) and reports, per file: decode time, time converting procedural
// geometry (intersection curves, rolling-ball blends), time building the bodies
// with that geometry cached, the converting share of the whole, how many
// procedural nodes converted with the largest deviation from their exact
// definition, and how many bodies came out valid by OCCT's checker.
// Usage: bench_procedural [corpus-dir] [file...]  (default: the heavy four)
// MELD_BENCH_VERBOSE=1 lists every node and volume; failures are always listed.
// MELD_BENCH_UNITE=1 also unites every box-overlapping pair of valid solids.
// MELD_BENCH_TRIM=1 places every body as the file does and looks face by face
// at each whose volume differs from its twin solid's by more than 1e-5:
// whether the faces lie on the same surfaces and how far apart the two
// readings trim them.
#include <BRepAdaptor_Curve.hxx>
#include <BRepAdaptor_Surface.hxx>
#include <BRepAlgoAPI_Fuse.hxx>
#include <BRepBuilderAPI_MakeVertex.hxx>
#include <BRepClass_FaceClassifier.hxx>
#include <BRepExtrema_DistShapeShape.hxx>
#include <BRepTools.hxx>
#include <BRep_Tool.hxx>
#include <TopoDS_Compound.hxx>
#include <BRep_Builder.hxx>
#include <GeomAPI_ProjectPointOnSurf.hxx>
#include <GeomAdaptor_Surface.hxx>
#include <ShapeAnalysis_Edge.hxx>
#include <TopoDS.hxx>
#include <BRepBndLib.hxx>
#include <BRepCheck_Analyzer.hxx>
#include <Bnd_Box.hxx>
#include <BRepGProp.hxx>
#include <GProp_GProps.hxx>
#include <IFSelect_ReturnStatus.hxx>
#include <Interface_Static.hxx>
#include <STEPControl_Reader.hxx>
#include <TopExp_Explorer.hxx>
#include <TopLoc_Location.hxx>
#include <gp_Trsf.hxx>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Codec.h"
#include "model/BodyBuilder.h"
#include "model/PartPlan.h"
#include "model/procedural/Survey.h"

namespace fs = std::filesystem;
using namespace meld::model;

namespace {

// Volumes by OCCT's adaptive integration: its default Gauss order is off by up
// to 4e-4 relative on converted blend faces (nxcmp-Brake_Piston), more than the
// 1e-5 the comparison with the STEP twins looks for.
constexpr double kVolumeAccuracy = 1e-9;

double since(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

struct Bodies {
  int total = 0, built = 0, valid = 0;
  int followed = 0, leftToHealing = 0;  // pcurves the builder found itself / left to healing
  double volume = 0;
  std::vector<double> volumes;
  std::vector<TopoDS_Shape> shapes;  // as built, valid or not, in `volumes` order
  std::vector<std::string> names;
  std::vector<TopoDS_Shape> validSolids;
  std::vector<std::string> errors;
};

// Every body built as receiving builds it; `seconds` is the building alone (the
// checks and volumes after it are not part of receiving).
Bodies buildBodies(GeometryCache& cache, double& seconds) {
  Bodies out;
  const auto& nodes = cache.graph().nodes();
  std::vector<std::pair<long, TopoDS_Shape>> built;
  const auto t0 = std::chrono::steady_clock::now();
  for (size_t i = 0; i < nodes.size(); ++i) {
    if (nodes[i].type != kBody) continue;
    ++out.total;
    try {
      BodyBuilder builder(cache);
      built.emplace_back(static_cast<long>(i), builder.build(static_cast<long>(i)).shape);
      out.followed += builder.followed().added;
      out.leftToHealing += builder.followed().left;
    } catch (const std::exception& e) {
      out.errors.push_back(e.what());
    } catch (const Standard_Failure& e) {
      out.errors.push_back(cache.nodes().describe(static_cast<long>(i)) + ": OCCT: " + e.GetMessageString());
    }
  }
  seconds = since(t0);
  for (const auto& [node, shape] : built) {
    ++out.built;
    if (BRepCheck_Analyzer(shape).IsValid()) {
      ++out.valid;
      for (TopExp_Explorer ex(shape, TopAbs_SOLID); ex.More(); ex.Next()) out.validSolids.push_back(ex.Current());
    } else {
      out.errors.push_back(cache.nodes().describe(node) + ": not valid");
    }
    double volume = 0;
    for (TopExp_Explorer ex(shape, TopAbs_SOLID); ex.More(); ex.Next()) {
      GProp_GProps props;
      BRepGProp::VolumeProperties(ex.Current(), props, kVolumeAccuracy);
      volume += std::abs(props.Mass());
      if (props.Mass() < 0) out.errors.push_back(cache.nodes().describe(node) + ": a solid is inside out");
    }
    out.volume += volume;
    out.volumes.push_back(volume);
    out.shapes.push_back(shape);
    out.names.push_back(cache.nodes().describe(node));
  }
  return out;
}

double solidVolume(const TopoDS_Shape& shape) {
  double volume = 0;
  for (TopExp_Explorer ex(shape, TopAbs_SOLID); ex.More(); ex.Next()) {
    GProp_GProps props;
    BRepGProp::VolumeProperties(ex.Current(), props, kVolumeAccuracy);
    volume += std::abs(props.Mass());
  }
  return volume;
}

// Every pair of valid solids whose boxes overlap, united by OCCT's fuse: a
// union counts when the result is valid and its volume lies between the larger
// input's and the sum of both (the converted geometry is usable, not merely valid).
void unitePairs(const std::vector<TopoDS_Shape>& solids) {
  int pairs = 0, united = 0;
  const auto t0 = std::chrono::steady_clock::now();
  for (size_t i = 0; i < solids.size(); ++i)
    for (size_t j = i + 1; j < solids.size(); ++j) {
      Bnd_Box a, b;
      BRepBndLib::Add(solids[i], a);
      BRepBndLib::Add(solids[j], b);
      if (a.IsOut(b)) continue;
      ++pairs;
      try {
        BRepAlgoAPI_Fuse fuse(solids[i], solids[j]);
        if (!fuse.IsDone() || fuse.HasErrors()) {
          std::printf("    pair %zu-%zu: fuse failed\n", i, j);
          continue;
        }
        const double va = solidVolume(solids[i]), vb = solidVolume(solids[j]), v = solidVolume(fuse.Shape());
        const double slack = 1e-5 * (va + vb);  // GProp integrates B-spline faces to about this
        const bool valid = BRepCheck_Analyzer(fuse.Shape()).IsValid();
        if (valid && v >= std::max(va, vb) - slack && v <= va + vb + slack) ++united;
        else std::printf("    pair %zu-%zu: valid %d, volumes %.6e + %.6e -> %.6e\n", i, j, valid, va, vb, v);
      } catch (const Standard_Failure&) {
      }
    }
  std::printf("    unions: %d of %d box-overlapping pairs of valid solids united valid with a plausible volume, %.2f s\n",
              united, pairs, since(t0));
}

// The STEP file with the same stem, read by OCCT: seconds and total solid volume.
struct Twin {
  bool found = false;
  double seconds = 0, volume = 0;
  std::vector<double> volumes;
  std::vector<TopoDS_Shape> solids;
};

Twin readTwin(const fs::path& xt) {
  Twin twin;
  for (const char* ext : {".step", ".STEP", ".stp"}) {
    const fs::path step = fs::path(xt).replace_extension(ext);
    if (!fs::exists(step)) continue;
    const auto t0 = std::chrono::steady_clock::now();
    STEPControl_Reader reader;
    Interface_Static::SetCVal("xstep.cascade.unit", "M");  // the kernel works in metres
    if (reader.ReadFile(step.string().c_str()) != IFSelect_RetDone) return twin;
    reader.TransferRoots();
    const TopoDS_Shape shape = reader.OneShape();
    twin.seconds = since(t0);
    for (TopExp_Explorer ex(shape, TopAbs_SOLID); ex.More(); ex.Next()) {
      GProp_GProps props;
      BRepGProp::VolumeProperties(ex.Current(), props, kVolumeAccuracy);
      twin.volume += std::abs(props.Mass());
      twin.volumes.push_back(std::abs(props.Mass()));
      twin.solids.push_back(ex.Current());
    }
    twin.found = true;
    return twin;
  }
  return twin;
}

// ---- where a body and its twin solid differ ----

struct FaceAt {
  TopoDS_Face face;
  GeomAbs_SurfaceType type;
  gp_Pnt centre;
  double area;
};

std::vector<FaceAt> facesOf(const TopoDS_Shape& shape) {
  std::vector<FaceAt> out;
  for (TopExp_Explorer ex(shape, TopAbs_FACE); ex.More(); ex.Next()) {
    const TopoDS_Face& face = TopoDS::Face(ex.Current());
    GProp_GProps props;
    BRepGProp::SurfaceProperties(face, props, kVolumeAccuracy);
    out.push_back({face, BRepAdaptor_Surface(face).GetType(), props.CentreOfMass(), props.Mass()});
  }
  return out;
}

// How far the twin face's interior points lie from our face's surface.
double surfaceGap(const TopoDS_Face& twin, const TopoDS_Face& ours) {
  TopLoc_Location at;
  const Handle(Geom_Surface)& surface = BRep_Tool::Surface(ours, at);
  BRepAdaptor_Surface their(twin);
  double u0, u1, v0, v1, worst = 0;
  BRepTools::UVBounds(twin, u0, u1, v0, v1);
  for (int i = 1; i < 8; ++i)
    for (int j = 1; j < 8; ++j) {
      gp_Pnt2d uv(u0 + (u1 - u0) * i / 8, v0 + (v1 - v0) * j / 8);
      if (BRepClass_FaceClassifier(twin, uv, 1e-9).State() != TopAbs_IN) continue;
      GeomAPI_ProjectPointOnSurf foot(their.Value(uv.X(), uv.Y()).Transformed(at.Transformation().Inverted()), surface);
      if (foot.NbPoints()) worst = std::max(worst, foot.LowerDistance());
    }
  return worst;
}

// The largest disagreement between an edge's 3D curve and its pcurve on the
// face, and how far the edges' points lie from the other face's boundary.
void trimGaps(const TopoDS_Face& face, const TopoDS_Face& other, double& ownDeviation, double& boundaryGap) {
  BRep_Builder builder;
  TopoDS_Compound boundary;
  builder.MakeCompound(boundary);
  for (TopExp_Explorer ex(other, TopAbs_EDGE); ex.More(); ex.Next()) builder.Add(boundary, ex.Current());
  for (TopExp_Explorer ex(face, TopAbs_EDGE); ex.More(); ex.Next()) {
    const TopoDS_Edge& edge = TopoDS::Edge(ex.Current());
    double deviation = 0;
    ShapeAnalysis_Edge().CheckSameParameter(edge, face, deviation, 23);
    ownDeviation = std::max(ownDeviation, deviation);
    BRepAdaptor_Curve curve(edge);
    for (int k = 0; k <= 4; ++k) {
      const double t = curve.FirstParameter() + (curve.LastParameter() - curve.FirstParameter()) * k / 4;
      BRepExtrema_DistShapeShape d(BRepBuilderAPI_MakeVertex(curve.Value(t)).Vertex(), boundary, Extrema_ExtFlag_MIN);
      if (d.IsDone()) boundaryGap = std::max(boundaryGap, d.Value());
    }
  }
}

// Faces paired by surface type and nearest centre; for each pair whose areas
// differ, whether both lie on one surface and how far apart they are trimmed.
void compareTrim(const std::string& name, const TopoDS_Shape& ours, const TopoDS_Shape& twin) {
  GProp_GProps a, b;
  BRepGProp::VolumeProperties(ours, a, kVolumeAccuracy);
  BRepGProp::VolumeProperties(twin, b, kVolumeAccuracy);
  const double shift = a.CentreOfMass().Distance(b.CentreOfMass());
  std::printf("    %s: volume %.9e against %.9e (%+.2e), centres %.2e m apart\n", name.c_str(), a.Mass(), b.Mass(),
              (a.Mass() - b.Mass()) / b.Mass(), shift);
  if (shift > 1e-4) {
    std::printf("      placed elsewhere in the twin: not compared face by face\n");
    return;
  }
  std::vector<FaceAt> mine = facesOf(ours), theirs = facesOf(twin);
  std::vector<bool> taken(theirs.size());
  double surface = 0, ownDeviation = 0, twinDeviation = 0, gap = 0, areaDiff = 0;
  int differing = 0;
  for (const FaceAt& f : mine) {
    int best = -1;
    for (std::size_t j = 0; j < theirs.size(); ++j)
      if (!taken[j] && theirs[j].type == f.type &&
          (best < 0 || f.centre.Distance(theirs[j].centre) < f.centre.Distance(theirs[std::size_t(best)].centre)))
        best = int(j);
    if (best < 0) continue;
    const FaceAt& t = theirs[std::size_t(best)];
    taken[std::size_t(best)] = true;
    if (std::abs(f.area - t.area) <= 1e-6 * t.area) continue;
    ++differing;
    areaDiff += f.area - t.area;
    surface = std::max(surface, surfaceGap(t.face, f.face));
    trimGaps(f.face, t.face, ownDeviation, gap);
    trimGaps(t.face, f.face, twinDeviation, gap);
  }
  std::printf("      %d face pairs differ in area (ours %+.3e m2 in all); their twin faces lie within %.1e m of our\n"
              "      surfaces; edges against their own faces: ours within %.1e m, the twin's %.1e m; boundaries\n"
              "      up to %.1e m apart\n",
              differing, areaDiff, surface, ownDeviation, twinDeviation, gap);
}

// ---- where the file places each body ----

gp_Trsf trsfOf(const std::array<std::array<double, 4>, 4>& m, bool transposed) {
  gp_Trsf t;
  auto r = [&](int i, int j) { return transposed ? m[j][i] : m[i][j]; };
  t.SetValues(r(0, 0), r(0, 1), r(0, 2), m[0][3], r(1, 0), r(1, 1), r(1, 2), m[1][3], r(2, 0), r(2, 1), r(2, 2),
              m[2][3]);
  return t;
}

struct Placement {
  size_t body;    // into PartPlan::bodies
  gp_Trsf trsf;   // the instance rotations read row by row, as the kernel reads them
  gp_Trsf other;  // the same rotations read column by column
};

// Every placement of every body: the instance transforms composed from the
// file's roots down (a body two instances use has two).
void place(const PartPlan& plan, const PartRef& ref, const gp_Trsf& trsf, const gp_Trsf& other,
           std::vector<Placement>& out) {
  if (ref.kind == PartRef::Body) {
    out.push_back({ref.index, trsf, other});
    return;
  }
  for (const InstanceSpec& inst : plan.assemblies[ref.index].instances)
    place(plan, inst.part, inst.matrix ? trsf * trsfOf(*inst.matrix, false) : trsf,
          inst.matrix ? other * trsfOf(*inst.matrix, true) : other, out);
}

gp_Pnt centreOf(const TopoDS_Shape& shape) {
  GProp_GProps props;
  BRepGProp::VolumeProperties(shape, props, kVolumeAccuracy);
  return props.CentreOfMass();
}

// Each placed body whose volume differs from its twin solid's by more than
// 1e-5, against the twin solid of that volume nearest to where the file puts
// it; and whether the twin puts it where the rotations read row by row put
// it or where read column by column.
void compareTrims(const Bodies& bodies, const Twin& twin, const meld::xt::Graph& graph) {
  const PartPlan plan = readParts(graph);
  std::vector<Placement> placements;
  for (const PartRef& root : plan.roots) place(plan, root, gp_Trsf(), gp_Trsf(), placements);
  std::vector<gp_Pnt> twinCentres;
  for (const TopoDS_Shape& solid : twin.solids) twinCentres.push_back(centreOf(solid));
  std::vector<double> volumes;
  for (const BodySpec& body : plan.bodies) volumes.push_back(solidVolume(body.shape));
  double placed = 0;
  for (const Placement& p : placements) placed += volumes[p.body];
  std::printf("    %zu bodies placed %zu times: volume %.9e m3 against the twin's %.9e (%+.2e)\n", plan.bodies.size(),
              placements.size(), placed, twin.volume, (placed - twin.volume) / twin.volume);
  for (const Placement& p : placements) {
    const TopoDS_Shape& shape = plan.bodies[p.body].shape;
    const double v = volumes[p.body];
    auto best = std::min_element(twin.volumes.begin(), twin.volumes.end(),
                                 [&](double x, double y) { return std::abs(x - v) < std::abs(y - v); });
    if (best == twin.volumes.end() || std::abs(*best - v) <= 1e-5 * *best) continue;
    const gp_Pnt rows = centreOf(shape).Transformed(p.trsf), columns = centreOf(shape).Transformed(p.other);
    // Of the twin solids of about that volume, the one nearest the placed body.
    size_t nearest = size_t(best - twin.volumes.begin());
    for (size_t j = 0; j < twin.solids.size(); ++j)
      if (std::abs(twin.volumes[j] - *best) <= 1e-3 * *best &&
          twinCentres[j].Distance(rows) < twinCentres[nearest].Distance(rows))
        nearest = j;
    auto named = std::find_if(bodies.volumes.begin(), bodies.volumes.end(),
                              [&](double w) { return std::abs(w - v) <= 1e-12 * v; });
    const std::string name =
        named == bodies.volumes.end() ? "a body" : bodies.names[size_t(named - bodies.volumes.begin())];
    std::printf("    %s as placed: the twin solid is %.2e m from it with the rotations read by rows, %.2e m by columns\n",
                name.c_str(), twinCentres[nearest].Distance(rows), twinCentres[nearest].Distance(columns));
    compareTrim(name, shape.Moved(TopLoc_Location(p.trsf)), twin.solids[nearest]);
  }
}

}  // namespace

int main(int argc, char** argv) {
  fs::path corpus = argc > 1 ? fs::path(argv[1]) : fs::path(MELD_SOURCE_DIR) / ".." / "shared" / "corpus";
  std::vector<std::string> files;
  for (int i = 2; i < argc; ++i) files.push_back(argv[i]);
  if (files.empty())
    files = {"nxcmp-Brake_Piston.x_t", "drone-Drone_body_V2.x_t", "jack-3D Scissor Jack.x_t", "biox-Assembly.x_t"};
  const bool verbose = std::getenv("MELD_BENCH_VERBOSE") != nullptr;
  std::printf("%-26s %8s %9s %8s %6s %6s %6s %9s %6s %6s %9s %7s %12s\n", "file", "decode_s", "convert_s", "build_s",
              "share", "ic_ok", "ic_bad", "ic_dev_m", "bl_ok", "bl_bad", "bl_dev_m", "valid", "volume_m3");
  for (const std::string& name : files) {
    std::ifstream in(corpus / name, std::ios::binary);
    if (!in) {
      std::printf("%-26s missing\n", name.c_str());
      continue;
    }
    std::string bytes((std::istreambuf_iterator<char>(in)), {});
    auto t0 = std::chrono::steady_clock::now();
    meld::xt::Graph graph = meld::xt::decode(bytes);
    const double decode = since(t0);
    GeometryCache cache(graph);
    t0 = std::chrono::steady_clock::now();
    const auto report = procedural::survey(cache);
    const double convert = since(t0);
    double build = 0;
    const Bodies bodies = buildBodies(cache, build);
    std::printf("%-26.26s %8.3f %9.3f %8.3f %5.0f%% %6d %6d %9.2e %6d %6d %9.2e %3d/%-3d %12.6e\n", name.c_str(), decode,
                convert, build, 100 * convert / (decode + convert + build), report.count(kIntersection, true),
                report.count(kIntersection, false), report.worstDeviation(kIntersection), report.count(kBlendedEdge, true),
                report.count(kBlendedEdge, false), report.worstDeviation(kBlendedEdge), bodies.valid, bodies.total,
                bodies.volume);
    // All the digits: a change to how bodies are built must not move them.
    std::printf("    bodies: total volume %.15e m3; pcurves followed %d, left to healing %d\n", bodies.volume,
                bodies.followed, bodies.leftToHealing);
    const Twin twin = readTwin(corpus / name);
    if (verbose)
      for (double v : twin.volumes) std::printf("    STEP solid volume %.9e\n", v);
    if (twin.found) {
      // Body by body: each body against the STEP solid of nearest volume (a
      // twin may hold extra solids, or the same solid twice).
      std::vector<double> left = twin.volumes;
      double worst = 0;
      int within = 0;
      for (double v : bodies.volumes) {
        if (left.empty()) break;
        auto best = std::min_element(left.begin(), left.end(),
                                     [&](double a, double b) { return std::abs(a - v) < std::abs(b - v); });
        const double rel = std::abs(*best - v) / std::max(*best, 1e-30);
        worst = std::max(worst, rel);
        within += rel <= 1e-5;
        left.erase(best);
      }
      std::printf("    STEP twin per body: %d of %zu bodies within 1e-5 relative of a twin solid, worst %.2e\n", within,
                  bodies.volumes.size(), worst);
    }
    if (twin.found)
      std::printf("    STEP twin: read %.3f s (receive %.3f s, ratio %.2f), %d solids, volume %.9e m3, relative difference %.2e\n",
                  twin.seconds, decode + convert + build, twin.seconds / (decode + convert + build), int(twin.solids.size()), twin.volume,
                  std::abs(bodies.volume - twin.volume) / twin.volume);
    for (const auto& r : report.nodes)
      if (!r.converted || verbose)
        std::printf("    #%lld %s %.3fs dev %.2e off %.2e %s\n", static_cast<long long>(r.index),
                    r.type == kIntersection ? "INTERSECTION" : "BLENDED_EDGE", r.seconds, r.deviation, r.offSupport,
                    r.error.c_str());
    for (const auto& e : bodies.errors) std::printf("    body: %s\n", e.c_str());
    if (std::getenv("MELD_BENCH_UNITE")) unitePairs(bodies.validSolids);
    if (twin.found && std::getenv("MELD_BENCH_TRIM")) compareTrims(bodies, twin, graph);
    if (verbose)
      for (double v : bodies.volumes) std::printf("    body volume %.15e\n", v);
    std::fflush(stdout);
  }
}
