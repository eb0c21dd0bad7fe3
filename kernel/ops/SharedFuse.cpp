#include "SharedFuse.h"

#include "BooleanChecks.h"
#include "Bodies.h"
#include "session/KernelError.h"
#include "session/Parallelism.h"

#include <BOPAlgo_Builder.hxx>
#include <BOPAlgo_PaveFiller.hxx>
#include <BRepCheck_Analyzer.hxx>
#include <BRep_Builder.hxx>
#include <BRep_Tool.hxx>
#include <Bnd_Box.hxx>
#include <GeomAdaptor_Surface.hxx>
#include <Geom_Surface.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Edge.hxx>
#include <TopoDS_Iterator.hxx>
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

// A split face and the cells on its two sides.
struct FaceRec {
  TopoDS_Shape face;  // oriented as in cells[0]
  int cells[2] = {-1, -1};
  bool reversed[2] = {false, false};  // in that cell, against `face`
  std::vector<std::pair<int, int>> edges;  // edge id, +1 forward / -1 reversed in `face`
  Measures share;  // of `face` as oriented
  bool made = false;  // not a face of any argument: OCCT built it
  bool checked = false, valid = true;  // by OCCT's checker, when first needed
};

struct CellRec {
  std::vector<int> faces;
  std::vector<int> vertices;
  double volume = 0;
  bool valid = true;
};

// A shape the context knows: an argument of the general fuse or a union it
// made. The handle keeps the TShape's address from being reused while the
// entry exists.
struct Member {
  Handle(TopoDS_TShape) tshape;
  TopLoc_Location location;
  TopAbs_Orientation orientation = TopAbs_FORWARD;
  std::vector<int> cells;  // sorted
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

class FuseContext {
 public:
  FuseContext(double fuzzy) : fuzzy_(fuzzy) {}

  // Registers the solids as known arguments, served by no cell yet.
  void know(const std::vector<TopoDS_Shape>& solids);
  // Splits the known solids; false when the general fuse fails or its result is
  // not made of cells this scheme can join.
  bool build(const std::vector<TopoDS_Shape>& solids);
  double fuzzy() const { return fuzzy_; }
  bool knows(const TopoDS_Shape& shape) const { return find(shape) != nullptr; }
  // Whether some shape it was built from or made is still held elsewhere.
  bool alive(const std::vector<TopoDS_Shape>& liveShapes) const;
  SharedUnion unite(const TopoDS_Shape& a, const TopoDS_Shape& b);
  int answered() const { return answered_; }

 private:
  const Member* find(const TopoDS_Shape& shape) const;
  bool runGeneralFuse(const std::vector<TopoDS_Shape>& solids, double fuzzy);
  bool indexCells();
  bool indexFace(const TopoDS_Shape& face, int cell);
  void validate(const std::vector<TopoDS_Shape>& solids);
  void dropUnheld();
  bool faceValid(int face);
  std::unique_ptr<ShapeHistory> historyOf(const Member& a, const Member& b, const TopoDS_Shape& solid) const;
  TopoDS_Shape joinedSolid(const std::vector<std::pair<int, bool>>& boundary, Measures& made);

  double fuzzy_;
  TopoDS_Shape result_;
  Handle(BRepTools_History) history_;
  TopTools_DataMapOfShapeListOfShape images_;
  std::vector<CellRec> cells_;
  std::vector<FaceRec> faces_;
  std::vector<std::vector<int>> vertexCells_;
  std::unordered_map<const TopoDS_TShape*, int> cellIds_, faceIds_, edgeIds_, vertexIds_;
  std::unordered_map<const TopoDS_TShape*, Member> members_;
  // Scratch marks, stamped per union so that nothing needs clearing.
  std::vector<unsigned> cellMark_, edgeMark_;
  std::vector<int> edgeUses_, edgeBalance_, edgeFirst_;
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

bool FuseContext::runGeneralFuse(const std::vector<TopoDS_Shape>& solids, double fuzzy) {
  TopTools_ListOfShape arguments;
  for (const TopoDS_Shape& solid : solids) arguments.Append(solid);
  BOPAlgo_PaveFiller filler;
  filler.SetArguments(arguments);
  filler.SetNonDestructive(true);
  filler.SetRunParallel(sessionThreads() > 1);
  filler.SetUseOBB(false);
  filler.SetFuzzyValue(fuzzy);
  filler.Perform();
  if (filler.HasErrors()) return false;
  BOPAlgo_Builder builder;
  builder.SetArguments(arguments);
  builder.SetRunParallel(sessionThreads() > 1);
  // An inverted argument cannot pass the volume check that follows, so
  // OCCT's own (costly) test for one is not needed.
  builder.SetCheckInverted(false);
  builder.PerformWithFiller(filler);
  if (builder.HasErrors()) return false;
  result_ = builder.Shape();
  history_ = builder.History();
  images_ = builder.Images();
  return !result_.IsNull() && !history_.IsNull();
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
  bool done = runGeneralFuse(solids, 0);
  if (!done && fuzzy_ > 0) done = runGeneralFuse(solids, fuzzy_);
  if (!done || !indexCells()) return false;
  validate(solids);
  images_.Clear();
  return true;
}

bool FuseContext::indexCells() {
  for (TopoDS_Iterator it(result_); it.More(); it.Next()) {
    if (it.Value().ShapeType() != TopAbs_SOLID) return false;
    int id = int(cells_.size());
    if (!cellIds_.emplace(it.Value().TShape().get(), id).second) return false;
    cells_.emplace_back();
    for (TopExp_Explorer f(it.Value(), TopAbs_FACE); f.More(); f.Next())
      if (!indexFace(f.Current(), id)) return false;
    std::vector<int>& vertices = cells_[id].vertices;
    for (TopExp_Explorer v(it.Value(), TopAbs_VERTEX); v.More(); v.Next()) {
      auto [at, added] = vertexIds_.emplace(v.Current().TShape().get(), int(vertexCells_.size()));
      if (added) vertexCells_.emplace_back();
      vertices.push_back(at->second);
    }
    std::sort(vertices.begin(), vertices.end());
    vertices.erase(std::unique(vertices.begin(), vertices.end()), vertices.end());
    for (int v : vertices) vertexCells_[v].push_back(id);
  }
  cellMark_.assign(cells_.size(), 0);
  edgeMark_.assign(edgeIds_.size(), 0);
  edgeUses_.assign(edgeIds_.size(), 0);
  edgeBalance_.assign(edgeIds_.size(), 0);
  edgeFirst_.assign(edgeIds_.size(), -1);
  return !cells_.empty();
}

// A face has a cell on each side at most; one seen twice in a cell (an
// internal face) or in a third cell is beyond this scheme.
bool FuseContext::indexFace(const TopoDS_Shape& face, int cell) {
  TopAbs_Orientation o = face.Orientation();
  if (o != TopAbs_FORWARD && o != TopAbs_REVERSED) return false;
  auto [at, added] = faceIds_.emplace(face.TShape().get(), int(faces_.size()));
  if (!added) {
    FaceRec& rec = faces_[at->second];
    if (rec.cells[1] >= 0 || rec.cells[0] == cell || !rec.face.Location().IsEqual(face.Location())) return false;
    rec.cells[1] = cell;
    rec.reversed[1] = o != rec.face.Orientation();
    cells_[cell].faces.push_back(at->second);
    return true;
  }
  FaceRec rec;
  rec.face = face;
  rec.cells[0] = cell;
  for (TopExp_Explorer e(face, TopAbs_EDGE); e.More(); e.Next()) {
    const TopoDS_Edge& edge = TopoDS::Edge(e.Current());
    TopAbs_Orientation eo = edge.Orientation();
    if (BRep_Tool::Degenerated(edge) || (eo != TopAbs_FORWARD && eo != TopAbs_REVERSED)) continue;
    int id = edgeIds_.emplace(edge.TShape().get(), int(edgeIds_.size())).first->second;
    rec.edges.emplace_back(id, eo == TopAbs_FORWARD ? 1 : -1);
  }
  faces_.push_back(std::move(rec));
  cells_[cell].faces.push_back(at->second);
  return true;
}

// Every cell has positive volume, and an argument is served only when its
// cells' volumes add up to its own. Faces OCCT made are checked when a union
// first puts them on its boundary (faces that only ever lie between cells of
// one body are never part of a result).
void FuseContext::validate(const std::vector<TopoDS_Shape>& solids) {
  std::unordered_set<const TopoDS_TShape*> argumentFaces;
  for (const TopoDS_Shape& solid : solids)
    for (TopExp_Explorer f(solid, TopAbs_FACE); f.More(); f.Next()) argumentFaces.insert(f.Current().TShape().get());
  for (FaceRec& rec : faces_) {
    rec.made = argumentFaces.count(rec.face.TShape().get()) == 0;
    rec.share = measure(rec.face);
  }
  for (CellRec& cell : cells_) {
    for (int f : cell.faces) {
      const FaceRec& rec = faces_[f];
      bool reversed = rec.reversed[rec.cells[0] == int(&cell - cells_.data()) ? 0 : 1];
      cell.volume += reversed ? -rec.share.volume : rec.share.volume;
    }
    if (cell.volume <= 0) cell.valid = false;
  }
  for (const TopoDS_Shape& solid : solids) {
    Member member;
    member.measures = measure(solid);
    bool served = true;
    double sum = 0;
    const TopTools_ListOfShape* pieces = images_.Seek(solid);
    TopTools_ListOfShape self;
    self.Append(solid);
    for (const TopoDS_Shape& piece : pieces ? *pieces : self) {
      auto it = cellIds_.find(piece.TShape().get());
      if (it == cellIds_.end() || !cells_[it->second].valid) {
        served = false;
        break;
      }
      member.cells.push_back(it->second);
      sum += cells_[it->second].volume;
    }
    double slack = kVolumeRelativeSlack * member.measures.volume + fuzzy_ * member.measures.area;
    if (!served || member.cells.empty() || std::abs(sum - member.measures.volume) > slack) continue;
    std::sort(member.cells.begin(), member.cells.end());
    member.cells.erase(std::unique(member.cells.begin(), member.cells.end()), member.cells.end());
    Member& known = members_.at(solid.TShape().get());
    // Two bodies placing one topology in two places are one key here: only
    // the one registered first is served.
    if (!sameLocated(solid, known.location, known.orientation)) continue;
    known.cells = std::move(member.cells);
    known.measures = member.measures;
  }
}

// A face of the inputs is as valid as they are; one OCCT made passes its
// checker, asked once per face.
bool FuseContext::faceValid(int face) {
  FaceRec& rec = faces_[face];
  if (!rec.made || rec.checked) return rec.valid;
  rec.checked = true;
  rec.valid = BRepCheck_Analyzer(rec.face, true).IsValid();
  return rec.valid;
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

// The solid bounded by these faces (face id, reversed against the record),
// its outer shell first and its cavities after; null when an edge is not
// used exactly twice, once each way, or when there is not exactly one outer
// shell.
TopoDS_Shape FuseContext::joinedSolid(const std::vector<std::pair<int, bool>>& boundary, Measures& made) {
  std::vector<int> parent(boundary.size());
  std::iota(parent.begin(), parent.end(), 0);
  std::vector<int> touched;
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

// Faces of an argument become their split faces (the general fuse's
// history); faces of a union the context made are already split and persist
// or vanish. Both solids are taken into the new one, the target's first.
std::unique_ptr<ShapeHistory> FuseContext::historyOf(const Member& a, const Member& b, const TopoDS_Shape& solid) const {
  Handle(BRepTools_History) history = new BRepTools_History;
  std::vector<TopoDS_Shape> arguments;
  for (const Member* m : {&a, &b}) {
    TopoDS_Shape shape = m->shape();
    history->AddModified(shape, solid);
    if (!m->argument) continue;
    arguments.push_back(shape);
    for (TopExp_Explorer f(shape, TopAbs_FACE); f.More(); f.Next()) {
      if (history->IsRemoved(f.Current()) || !history->Modified(f.Current()).IsEmpty()) continue;
      for (const TopoDS_Shape& piece : history_->Modified(f.Current())) history->AddModified(f.Current(), piece);
    }
  }
  auto shapeHistory = std::make_unique<ShapeHistory>(history, arguments);
  shapeHistory->addOrigin(solid, a.shape());
  return shapeHistory;
}

SharedUnion FuseContext::unite(const TopoDS_Shape& targetShape, const TopoDS_Shape& toolShape) {
  SharedUnion out;
  dropUnheld();
  const Member* a = find(targetShape);
  const Member* b = find(toolShape);
  if (!a || !b || a == b || a->cells.empty() || b->cells.empty()) return out;
  // The target's cells marked; the tool meets it when they share a cell or
  // a face lies between their cells.
  ++stamp_;
  for (int c : a->cells) cellMark_[c] = stamp_;
  bool meet = false;
  for (int c : b->cells) {
    if (cellMark_[c] == stamp_) meet = true;
    for (int f : cells_[c].faces) {
      const FaceRec& rec = faces_[f];
      int other = rec.cells[0] == c ? rec.cells[1] : rec.cells[0];
      if (other >= 0 && cellMark_[other] == stamp_) meet = true;
    }
  }
  if (!meet) {
    // Apart, unless they touch at an edge or a vertex (the pairwise fuse
    // decides what that makes), or might meet within a tolerance the exact
    // split did not use.
    for (int c : b->cells)
      for (int v : cells_[c].vertices)
        for (int other : vertexCells_[v])
          if (cellMark_[other] == stamp_) return out;
    if (fuzzy_ > 0) return out;
    out.kind = SharedUnion::Kind::noClash;
    ++answered_;
    return out;
  }
  std::vector<int> cells;
  std::set_union(a->cells.begin(), a->cells.end(), b->cells.begin(), b->cells.end(), std::back_inserter(cells));
  for (int c : b->cells) cellMark_[c] = stamp_;
  // The boundary: faces with exactly one of the union's cells beside them,
  // oriented as in that cell.
  std::vector<std::pair<int, bool>> boundary;
  for (int c : cells) {
    for (int f : cells_[c].faces) {
      const FaceRec& rec = faces_[f];
      int side = rec.cells[0] == c ? 0 : 1;
      int other = rec.cells[1 - side];
      if (other >= 0 && cellMark_[other] == stamp_) continue;
      boundary.emplace_back(f, rec.reversed[side]);
    }
  }
  if (!std::all_of(boundary.begin(), boundary.end(), [&](const auto& entry) { return faceValid(entry.first); }))
    return out;
  Measures made;
  for (int c : cells) made.volume += cells_[c].volume;
  TopoDS_Shape solid = joinedSolid(boundary, made);
  if (solid.IsNull() || !volumesAgree(PK_boolean_unite_c, a->measures, {b->measures}, made, fuzzy_)) return out;
  out.history = historyOf(*a, *b, solid);
  Member joined;
  joined.tshape = solid.TShape();
  joined.location = solid.Location();
  joined.orientation = solid.Orientation();
  joined.cells = std::move(cells);
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
