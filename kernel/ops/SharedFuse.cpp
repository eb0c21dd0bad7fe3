#include "SharedFuse.h"

#include "BooleanChecks.h"
#include "Bodies.h"
#include "FaceSplitter.h"
#include "session/KernelError.h"

#include <BRepCheck_Analyzer.hxx>
#include <BRep_Builder.hxx>
#include <BRep_Tool.hxx>
#include <Bnd_Box.hxx>
#include <GeomAdaptor_Surface.hxx>
#include <Geom_Surface.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Compound.hxx>
#include <TopoDS_Edge.hxx>
#include <TopoDS_Shell.hxx>
#include <TopoDS_Solid.hxx>

#include <algorithm>
#include <numeric>
#include <unordered_map>
#include <unordered_set>

namespace meld::kernel {

namespace {

constexpr double kVolumeRelativeSlack = 1e-8;  // as the booleans' invariants
constexpr int kMinimumSolids = 3;  // fewer: one pairwise fuse is all the work there is

// A split face: the arguments it lies inside, and what a union needs to
// stitch it into a solid and measure it.
struct FaceRec {
  TopoDS_Shape face;  // oriented as in the first argument that holds it
  std::vector<int> inside;  // arguments
  std::vector<std::pair<int, int>> edges;  // edge id, +1 forward / -1 reversed in `face`
  std::vector<int> vertices;
  Measures share;  // of `face` as oriented
  bool made = false;  // not a face of any argument: OCCT built it
  bool checked = false, valid = true;  // by OCCT's checker, when first needed
};

// A face of a member's boundary: the split face and whether it lies in the
// boundary reversed against the record.
using BoundaryFace = std::pair<int, bool>;

// A shape the context knows: an argument of the split or a union it made.
// The handle keeps the TShape's address from being reused while the entry
// exists.
struct Member {
  Handle(TopoDS_TShape) tshape;
  TopLoc_Location location;
  TopAbs_Orientation orientation = TopAbs_FORWARD;
  std::vector<int> arguments;  // sorted; empty while not served
  std::vector<BoundaryFace> boundary;
  Measures measures;
  bool argument = false;
  TopoDS_Shape shape() const {
    TopoDS_Shape s;
    s.TShape(tshape);
    s.Location(location);
    s.Orientation(orientation);
    return s;
  }
};

}  // namespace

// The union of members is bounded by the faces of each that lie inside none
// of the others; a face two of them share is kept once when both lie on
// the same side of it, and dropped when they lie on opposite sides.
class FuseContext {
 public:
  FuseContext(double fuzzy) : fuzzy_(fuzzy) {}

  // Registers the solids as known arguments, served by no split yet.
  void know(const std::vector<TopoDS_Shape>& solids);
  // Splits the known solids' faces; false when OCCT fails or its split is not
  // one this scheme can join.
  bool build(const std::vector<TopoDS_Shape>& solids);
  double fuzzy() const { return fuzzy_; }
  bool knows(const TopoDS_Shape& shape) const { return find(shape) != nullptr; }
  // Whether some shape it was built from or made is still held elsewhere.
  bool alive(const std::vector<TopoDS_Shape>& liveShapes) const;
  SharedUnion unite(const TopoDS_Shape& a, const TopoDS_Shape& b);
  int answered() const { return answered_; }
 private:
  const Member* find(const TopoDS_Shape& shape) const;
  int indexFace(const TopoDS_Shape& face);
  void validate(const std::vector<TopoDS_Shape>& solids, std::vector<std::vector<BoundaryFace>>& boundaries);
  void dropUnheld();
  bool facesValid(const std::vector<BoundaryFace>& boundary);
  bool insideAny(int face, unsigned mark) const;
  FaceDelta argumentDelta(const Member& a, const std::vector<BoundaryFace>& boundary) const;
  TopoDS_Shape faceOf(const BoundaryFace& entry) const {
    return entry.second ? faces_[entry.first].face.Reversed() : faces_[entry.first].face;
  }
  bool touchAtVertices(const Member& a, const Member& b);
  std::unique_ptr<ShapeHistory> historyOf(const Member& a, const Member& b, const TopoDS_Shape& solid) const;
  TopoDS_Shape joinedSolid(const std::vector<BoundaryFace>& boundary, Measures& made);

  double fuzzy_;
  SplitPieces pieces_;
  std::vector<FaceRec> faces_;
  std::unordered_map<const TopoDS_TShape*, int> faceIds_, edgeIds_, vertexIds_;
  std::unordered_map<const TopoDS_TShape*, Member> members_;
  // Scratch marks, stamped per union so that nothing needs clearing.
  std::vector<unsigned> argumentMark_, faceMark_, edgeMark_, vertexMark_;
  std::vector<int> faceAt_, edgeUses_, edgeBalance_, edgeFirst_;
  unsigned stamp_ = 0;
  int answered_ = 0;
};

namespace {

bool sameLocated(const TopoDS_Shape& a, const TopLoc_Location& location, TopAbs_Orientation orientation) {
  return a.Location().IsEqual(location) && a.Orientation() == orientation;
}

}  // namespace

const Member* FuseContext::find(const TopoDS_Shape& shape) const {
  if (shape.IsNull()) return nullptr;
  auto it = members_.find(shape.TShape().get());
  if (it == members_.end() || !sameLocated(shape, it->second.location, it->second.orientation)) return nullptr;
  return &it->second;
}

bool FuseContext::alive(const std::vector<TopoDS_Shape>& liveShapes) const {
  return std::any_of(liveShapes.begin(), liveShapes.end(), [&](const TopoDS_Shape& s) { return knows(s); });
}

// Every argument is known from the start, served or not, so that a context
// that did not split its solids (or failed to) is not built again for the
// same bodies.
void FuseContext::know(const std::vector<TopoDS_Shape>& solids) {
  for (const TopoDS_Shape& solid : solids) {
    Member member;
    member.tshape = solid.TShape();
    member.location = solid.Location();
    member.orientation = solid.Orientation();
    member.argument = true;
    members_.emplace(solid.TShape().get(), std::move(member));
  }
}

bool FuseContext::build(const std::vector<TopoDS_Shape>& solids) {
  // Exact first, as the pairwise path: a fuzzy value slows the intersection.
  FaceSplitter split;
  bool done = split.perform(solids, 0);
  if (!done && fuzzy_ > 0) done = split.perform(solids, fuzzy_);
  if (!done) return false;
  split.takePieces(pieces_);
  std::vector<std::vector<BoundaryFace>> boundaries(solids.size());
  for (std::size_t i = 0; i < solids.size(); ++i) {
    for (TopExp_Explorer f(split.draft(int(i)), TopAbs_FACE); f.More(); f.Next()) {
      int id = indexFace(f.Current());
      if (id < 0) return false;
      boundaries[i].emplace_back(id, f.Current().Orientation() != faces_[id].face.Orientation());
    }
  }
  for (std::size_t i = 0; i < solids.size(); ++i) {
    for (const TopoDS_Shape& face : split.inside(int(i))) {
      auto it = faceIds_.find(face.TShape().get());
      if (it == faceIds_.end()) return false;
      faces_[it->second].inside.push_back(int(i));
    }
  }
  argumentMark_.assign(solids.size(), 0);
  faceMark_.assign(faces_.size(), 0);
  faceAt_.assign(faces_.size(), 0);
  vertexMark_.assign(vertexIds_.size(), 0);
  edgeMark_.assign(edgeIds_.size(), 0);
  edgeUses_.assign(edgeIds_.size(), 0);
  edgeBalance_.assign(edgeIds_.size(), 0);
  edgeFirst_.assign(edgeIds_.size(), -1);
  validate(solids, boundaries);
  return true;
}

// The split face's record, made when first seen; -1 for a face this scheme
// cannot join (internal or external, or one topology in two places).
int FuseContext::indexFace(const TopoDS_Shape& face) {
  TopAbs_Orientation o = face.Orientation();
  if (o != TopAbs_FORWARD && o != TopAbs_REVERSED) return -1;
  auto [at, added] = faceIds_.emplace(face.TShape().get(), int(faces_.size()));
  if (!added) return faces_[at->second].face.Location().IsEqual(face.Location()) ? at->second : -1;
  FaceRec rec;
  rec.face = face;
  for (TopExp_Explorer e(face, TopAbs_EDGE); e.More(); e.Next()) {
    const TopoDS_Edge& edge = TopoDS::Edge(e.Current());
    TopAbs_Orientation eo = edge.Orientation();
    if (BRep_Tool::Degenerated(edge) || (eo != TopAbs_FORWARD && eo != TopAbs_REVERSED)) continue;
    int id = edgeIds_.emplace(edge.TShape().get(), int(edgeIds_.size())).first->second;
    rec.edges.emplace_back(id, eo == TopAbs_FORWARD ? 1 : -1);
  }
  for (TopExp_Explorer v(face, TopAbs_VERTEX); v.More(); v.Next())
    rec.vertices.push_back(vertexIds_.emplace(v.Current().TShape().get(), int(vertexIds_.size())).first->second);
  std::sort(rec.vertices.begin(), rec.vertices.end());
  rec.vertices.erase(std::unique(rec.vertices.begin(), rec.vertices.end()), rec.vertices.end());
  faces_.push_back(std::move(rec));
  return at->second;
}

// An argument is served only when its split faces, each once, enclose its
// own volume. Faces OCCT made are checked when a union first puts them on
// its boundary (faces that only ever lie inside another argument are never
// part of a result).
void FuseContext::validate(const std::vector<TopoDS_Shape>& solids,
                           std::vector<std::vector<BoundaryFace>>& boundaries) {
  std::unordered_set<const TopoDS_TShape*> argumentFaces;
  for (const TopoDS_Shape& solid : solids)
    for (TopExp_Explorer f(solid, TopAbs_FACE); f.More(); f.Next()) argumentFaces.insert(f.Current().TShape().get());
  for (FaceRec& rec : faces_) {
    rec.made = argumentFaces.count(rec.face.TShape().get()) == 0;
    rec.share = measure(rec.face);
  }
  for (std::size_t i = 0; i < solids.size(); ++i) {
    Measures measures = measure(solids[i]);
    double sum = 0;
    ++stamp_;
    bool once = true;
    for (auto [face, reversed] : boundaries[i]) {
      once &= faceMark_[face] != stamp_;
      faceMark_[face] = stamp_;
      sum += reversed ? -faces_[face].share.volume : faces_[face].share.volume;
    }
    double slack = kVolumeRelativeSlack * measures.volume + fuzzy_ * measures.area;
    if (!once || boundaries[i].empty() || std::abs(sum - measures.volume) > slack) continue;
    Member& known = members_.at(solids[i].TShape().get());
    // Two bodies placing one topology in two places are one key here: only
    // the one registered first is served.
    if (!sameLocated(solids[i], known.location, known.orientation)) continue;
    known.arguments = {int(i)};
    known.boundary = std::move(boundaries[i]);
    known.measures = measures;
  }
}

// A face of the inputs is as valid as they are; one OCCT made passes its
// checker, asked once per face. The faces a union checks first are checked
// together, so that an edge two of them share is checked once.
bool FuseContext::facesValid(const std::vector<BoundaryFace>& boundary) {
  std::vector<int> unchecked;
  for (auto [face, reversed] : boundary) {
    const FaceRec& rec = faces_[face];
    if (rec.made && rec.checked && !rec.valid) return false;
    if (rec.made && !rec.checked) unchecked.push_back(face);
  }
  if (unchecked.empty()) return true;
  BRep_Builder builder;
  TopoDS_Compound faces;
  builder.MakeCompound(faces);
  for (int face : unchecked) builder.Add(faces, faces_[face].face);
  BRepCheck_Analyzer analyzer(faces, true);
  bool valid = true;
  for (int face : unchecked) {
    FaceRec& rec = faces_[face];
    rec.checked = true;
    rec.valid = analyzer.IsValid(rec.face);
    valid &= rec.valid;
  }
  return valid;
}

// Unions nobody holds any more (undone, or united further and their pmark
// gone) are forgotten; the arguments stay, a roll-back may bring them back.
void FuseContext::dropUnheld() {
  for (auto it = members_.begin(); it != members_.end();) {
    if (!it->second.argument && it->second.tshape->GetRefCount() == 1)
      it = members_.erase(it);
    else
      ++it;
  }
}

namespace {

int findRoot(std::vector<int>& parent, int i) {
  while (parent[i] != i) i = parent[i] = parent[parent[i]];
  return i;
}

}  // namespace

// The solid bounded by these faces, its outer shell first and its cavities
// after, with the volume they enclose; null when an edge is not used
// exactly twice, once each way, or when there is not exactly one outer
// shell.
TopoDS_Shape FuseContext::joinedSolid(const std::vector<BoundaryFace>& boundary, Measures& made) {
  std::vector<int> parent(boundary.size());
  std::iota(parent.begin(), parent.end(), 0);
  std::vector<int> touched;
  ++stamp_;
  for (std::size_t i = 0; i < boundary.size(); ++i) {
    const FaceRec& rec = faces_[boundary[i].first];
    for (auto [edge, sign] : rec.edges) {
      if (edgeMark_[edge] != stamp_) {
        edgeMark_[edge] = stamp_;
        edgeUses_[edge] = edgeBalance_[edge] = 0;
        edgeFirst_[edge] = int(i);
        touched.push_back(edge);
      } else {
        parent[findRoot(parent, int(i))] = findRoot(parent, edgeFirst_[edge]);
      }
      ++edgeUses_[edge];
      edgeBalance_[edge] += boundary[i].second ? -sign : sign;
    }
  }
  for (int edge : touched)
    if (edgeUses_[edge] != 2 || edgeBalance_[edge] != 0) return {};
  std::unordered_map<int, std::size_t> shellOf;
  std::vector<TopoDS_Shell> shells;
  std::vector<double> volumes;
  BRep_Builder builder;
  for (std::size_t i = 0; i < boundary.size(); ++i) {
    int root = findRoot(parent, int(i));
    auto [at, added] = shellOf.emplace(root, shells.size());
    if (added) {
      shells.emplace_back();
      builder.MakeShell(shells.back());
      volumes.push_back(0);
    }
    const FaceRec& rec = faces_[boundary[i].first];
    builder.Add(shells[at->second], boundary[i].second ? rec.face.Reversed() : rec.face);
    volumes[at->second] += boundary[i].second ? -rec.share.volume : rec.share.volume;
    made.area += rec.share.area;
  }
  // The outer shell encloses the solid's volume; a cavity's faces point into
  // the void they bound, so its shell encloses a negative one.
  auto outer = std::find_if(volumes.begin(), volumes.end(), [](double v) { return v > 0; });
  if (outer == volumes.end() || std::count_if(volumes.begin(), volumes.end(), [](double v) { return v > 0; }) != 1)
    return {};
  made.volume = std::accumulate(volumes.begin(), volumes.end(), 0.0);
  TopoDS_Solid solid;
  builder.MakeSolid(solid);
  std::size_t first = std::size_t(outer - volumes.begin());
  shells[first].Closed(true);
  builder.Add(solid, shells[first]);
  for (std::size_t i = 0; i < shells.size(); ++i) {
    if (i == first) continue;
    shells[i].Closed(true);
    builder.Add(solid, shells[i]);
  }
  return solid;
}

// Faces, edges and vertices of an argument become their split pieces (the
// split's images); those of a union the context made are already split and
// persist or vanish. Both solids are taken into the new one, the target's
// first.
std::unique_ptr<ShapeHistory> FuseContext::historyOf(const Member& a, const Member& b, const TopoDS_Shape& solid) const {
  Handle(BRepTools_History) history = new BRepTools_History;
  std::vector<TopoDS_Shape> arguments;
  for (const Member* m : {&a, &b}) {
    TopoDS_Shape shape = m->shape();
    history->AddModified(shape, solid);
    if (!m->argument) continue;
    arguments.push_back(shape);
    for (TopAbs_ShapeEnum type : {TopAbs_FACE, TopAbs_EDGE, TopAbs_VERTEX})
      for (TopExp_Explorer ex(shape, type); ex.More(); ex.Next()) {
        const TopoDS_Shape& old = ex.Current();
        if (history->IsRemoved(old) || !history->Modified(old).IsEmpty()) continue;
        for (const TopoDS_Shape& piece : pieces_.of(old)) history->AddModified(old, piece);
      }
  }
  auto shapeHistory = std::make_unique<ShapeHistory>(history, arguments);
  shapeHistory->addOrigin(solid, a.shape());
  return shapeHistory;
}

// An argument's body holds its own faces, not the split ones its boundary
// is made of: what the union took and gave is counted against those.
FaceDelta FuseContext::argumentDelta(const Member& a, const std::vector<BoundaryFace>& boundary) const {
  std::unordered_set<const TopoDS_TShape*> own, kept;
  const TopoDS_Shape shape = a.shape();
  for (TopExp_Explorer f(shape, TopAbs_FACE); f.More(); f.Next()) own.insert(f.Current().TShape().get());
  FaceDelta delta;
  for (const BoundaryFace& entry : boundary) {
    const TopoDS_TShape* face = faces_[entry.first].face.TShape().get();
    kept.insert(face);
    if (!own.count(face)) delta.added.push_back(faceOf(entry));
  }
  for (TopExp_Explorer f(shape, TopAbs_FACE); f.More(); f.Next())
    if (!kept.count(f.Current().TShape().get())) delta.removed.push_back(f.Current());
  return delta;
}

// Whether the face lies inside an argument marked with this stamp and side.
bool FuseContext::insideAny(int face, unsigned mark) const {
  for (int argument : faces_[face].inside)
    if (argumentMark_[argument] == mark) return true;
  return false;
}

bool FuseContext::touchAtVertices(const Member& a, const Member& b) {
  ++stamp_;
  for (auto [face, reversed] : a.boundary)
    for (int v : faces_[face].vertices) vertexMark_[v] = stamp_;
  for (auto [face, reversed] : b.boundary)
    for (int v : faces_[face].vertices)
      if (vertexMark_[v] == stamp_) return true;
  return false;
}

SharedUnion FuseContext::unite(const TopoDS_Shape& targetShape, const TopoDS_Shape& toolShape) {
  SharedUnion out;
  dropUnheld();
  const Member* a = find(targetShape);
  const Member* b = find(toolShape);
  if (!a || !b || a == b || a->arguments.empty() || b->arguments.empty()) return out;
  // The target's arguments carry one stamp, the tool's the next.
  stamp_ += 2;
  const unsigned inA = stamp_ - 1, inB = stamp_;
  for (int argument : a->arguments) argumentMark_[argument] = inA;
  for (int argument : b->arguments) {
    if (argumentMark_[argument] == inA) return out;
    argumentMark_[argument] = inB;
  }
  // The boundary: each side's faces that lie inside none of the other's
  // arguments, shared faces once or not at all.
  bool meet = false;
  std::vector<BoundaryFace> boundary;
  boundary.reserve(a->boundary.size() + b->boundary.size());
  FaceDelta delta;
  for (const BoundaryFace& entry : a->boundary) {
    if (insideAny(entry.first, inB)) {
      meet = true;
      delta.removed.push_back(faceOf(entry));
      continue;
    }
    faceMark_[entry.first] = inB;
    faceAt_[entry.first] = int(boundary.size());
    boundary.push_back(entry);
  }
  for (const BoundaryFace& entry : b->boundary) {
    if (insideAny(entry.first, inA)) {
      meet = true;
    } else if (faceMark_[entry.first] == inB) {
      meet = true;
      BoundaryFace& shared = boundary[std::size_t(faceAt_[entry.first])];
      if (shared.second != entry.second) {  // the two lie on either side of it
        delta.removed.push_back(faceOf(shared));
        shared.first = -1;
      }
    } else {
      boundary.push_back(entry);
      delta.added.push_back(faceOf(entry));
    }
  }
  if (!meet) {
    // Apart, unless they touch at an edge or a vertex (the pairwise fuse
    // decides what that makes), or might meet within a tolerance the exact
    // split did not use.
    if (touchAtVertices(*a, *b) || fuzzy_ > 0) return out;
    out.kind = SharedUnion::Kind::noClash;
    ++answered_;
    return out;
  }
  boundary.erase(std::remove_if(boundary.begin(), boundary.end(), [](const BoundaryFace& e) { return e.first < 0; }),
                 boundary.end());
  if (!facesValid(boundary)) return out;
  Measures made;
  TopoDS_Shape solid = joinedSolid(boundary, made);
  if (solid.IsNull() || !volumesAgree(PK_boolean_unite_c, a->measures, {b->measures}, made, fuzzy_)) return out;
  out.history = historyOf(*a, *b, solid);
  out.faceDelta = a->argument ? argumentDelta(*a, boundary) : std::move(delta);
  Member joined;
  joined.tshape = solid.TShape();
  joined.location = solid.Location();
  joined.orientation = solid.Orientation();
  std::set_union(a->arguments.begin(), a->arguments.end(), b->arguments.begin(), b->arguments.end(),
                 std::back_inserter(joined.arguments));
  joined.boundary = std::move(boundary);
  joined.measures = made;
  members_.emplace(solid.TShape().get(), std::move(joined));
  out.kind = SharedUnion::Kind::joined;
  out.solid = solid;
  ++answered_;
  return out;
}

namespace {

bool sharingEnabledByDefault() {
  static const bool enabled = [] {
    const char* value = std::getenv("MELD_SHARED_FUSE");
    return !(value && std::string(value) == "0");
  }();
  return enabled;
}

// The shapes of the live solid bodies.
std::vector<std::pair<PK_BODY_t, TopoDS_Shape>> liveSolids() {
  std::vector<std::pair<PK_BODY_t, TopoDS_Shape>> solids;
  for (PK_BODY_t body : session().table.bodies()) {
    const BodyData& data = bodyData(body);
    if (data.type == PK_BODY_type_solid_c && !data.shape.IsNull() && data.shape.ShapeType() == TopAbs_SOLID)
      solids.emplace_back(body, data.shape);
  }
  return solids;
}

// Whether every face lies on a plane, cylinder, cone, sphere or torus. On
// freeform faces OCCT's general fuse costs far more than the pairwise fuses
// it would replace and often fails (on the corpus it took 22 s to fail on
// nxcmp-Brake_Piston's 12 solids and 5 s on biox-Assembly's 8, whose
// pairwise unions take 15 s and 25 s in all), so such solids are left to
// the pairwise path.
bool elementaryFaces(const std::vector<TopoDS_Shape>& solids) {
  for (const TopoDS_Shape& solid : solids) {
    for (TopExp_Explorer f(solid, TopAbs_FACE); f.More(); f.Next()) {
      TopLoc_Location location;
      const Handle(Geom_Surface)& surface = BRep_Tool::Surface(TopoDS::Face(f.Current()), location);
      if (surface.IsNull() || GeomAdaptor_Surface(surface).GetType() > GeomAbs_Torus) return false;
    }
  }
  return true;
}

// The live solids whose boxes (grown by the tolerance) meet another's.
std::vector<TopoDS_Shape> overlappingSolids(const std::vector<std::pair<PK_BODY_t, TopoDS_Shape>>& live,
                                            double fuzzy, PK_BODY_t target, PK_BODY_t tool) {
  std::vector<Bnd_Box> boxes;
  for (const auto& entry : live) {
    boxes.push_back(bodyTopology(entry.first).box);
    boxes.back().Enlarge(fuzzy);
  }
  std::vector<TopoDS_Shape> solids;
  bool hasTarget = false, hasTool = false;
  for (std::size_t i = 0; i < live.size(); ++i) {
    bool overlaps = false;
    for (std::size_t j = 0; j < live.size() && !overlaps; ++j) overlaps = i != j && !boxes[i].IsOut(boxes[j]);
    if (!overlaps) continue;
    solids.push_back(live[i].second);
    hasTarget |= live[i].first == target;
    hasTool |= live[i].first == tool;
  }
  if (!hasTarget || !hasTool) solids.clear();
  return solids;
}

}  // namespace

SharedUnion uniteShared(PK_BODY_t target, PK_BODY_t tool, double fuzzy) {
  SessionState& s = session();
  if (!s.shareUnions.value_or(sharingEnabledByDefault())) {
    s.fuseContext.reset();
    return {};
  }
  const TopoDS_Shape& a = bodyData(target).shape;
  const TopoDS_Shape& b = bodyData(tool).shape;
  if (a.IsNull() || b.IsNull() || a.ShapeType() != TopAbs_SOLID || b.ShapeType() != TopAbs_SOLID) return {};
  std::shared_ptr<FuseContext>& context = s.fuseContext;
  if (!context || !context->knows(a) || !context->knows(b)) {
    auto live = liveSolids();
    std::vector<TopoDS_Shape> liveShapes;
    for (const auto& entry : live) liveShapes.push_back(entry.second);
    if (context && context->alive(liveShapes)) return {};
    context.reset();
    std::vector<TopoDS_Shape> solids = overlappingSolids(live, fuzzy, target, tool);
    if (int(solids.size()) < kMinimumSolids) return {};
    context = std::make_shared<FuseContext>(fuzzy);
    context->know(solids);
    try {
      OCC_CATCH_SIGNALS
      if (elementaryFaces(solids)) context->build(solids);
    } catch (const Standard_Failure&) {
      // A context that failed still knows its arguments, so that it is not
      // built again for the same bodies.
    }
  }
  if (context->fuzzy() != fuzzy) return {};
  return context->unite(a, b);
}

int sharedUnionsAnswered() {
  const SessionState& s = session();
  return s.fuseContext ? s.fuseContext->answered() : 0;
}

}  // namespace meld::kernel
