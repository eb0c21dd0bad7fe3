#include "BodyTopology.h"

#include <BRepBndLib.hxx>
#include <BRepClass3d.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Iterator.hxx>
#include <TopoDS_Shell.hxx>
#include <TopoDS_Solid.hxx>

#include <unordered_set>

namespace meld::kernel {

const SubEntity* BodyTopology::find(PK_ENTITY_t tag) const {
  auto it = entities.find(tag);
  return it == entities.end() ? nullptr : &it->second;
}

PK_ENTITY_t BodyTopology::tagOf(const TopoDS_Shape& shape, SubRole role) const {
  auto it = byKey.find(SubKey{shape.TShape().get(), role});
  return it == byKey.end() ? PK_ENTITY_null : it->second;
}

namespace {

class Deriver {
 public:
  explicit Deriver(const TagSources& sources)
      : sources_(sources), taken_(sources.used ? *sources.used : ownTaken_) {
    // A derived body is mostly its sources' sub-entities: room for them
    // up front spares growing the tables step by step.
    std::size_t expected = 0;
    for (const BodyTopology* previous : sources_.previous) expected += previous->entities.size();
    topo_->entities.reserve(expected);
    topo_->byKey.reserve(expected);
    taken_.reserve(taken_.size() + expected);
  }

  BodyTopologyPtr run(const TopoDS_Shape& shape) {
    infinite_ = add(TopoDS_Shape(), SubRole::infinite, PK_CLASS_region, topo_->regions);
    topo_->entities[infinite_].solid = false;
    std::vector<TopoDS_Shape> solids;
    for (TopExp_Explorer ex(shape, TopAbs_SOLID); ex.More(); ex.Next()) {
      if (topo_->tagOf(ex.Current()) != PK_ENTITY_null) continue;
      PK_REGION_t region = add(ex.Current(), SubRole::self, PK_CLASS_region, topo_->regions);
      topo_->entities[region].solid = true;
      solids.push_back(ex.Current());
    }
    for (const TopoDS_Shape& solid : solids) addSolidShells(solid);
    // Shells outside solids (sheets) bound no volume: the infinite region's.
    for (TopExp_Explorer ex(shape, TopAbs_SHELL); ex.More(); ex.Next())
      if (topo_->tagOf(ex.Current(), SubRole::solidSide) == PK_ENTITY_null)
        addShell(ex.Current(), SubRole::voidSide, infinite_, PK_SHELL_sign_mixed_c);
    // Faces, edges or vertices in no shell (a sheet of loose faces, a wire,
    // an acorn) make one more shell of the infinite region.
    if (hasLooseParts(shape)) addShell(shape, SubRole::voidSide, infinite_, PK_SHELL_sign_mixed_c);
    SubShapes subs;
    subs.seen.reserve(topo_->entities.bucket_count());
    collect(shape, subs);
    addAll(subs.faces, PK_CLASS_face, topo_->faces);
    addAll(subs.wires, PK_CLASS_loop, topo_->loops);
    addAll(subs.edges, PK_CLASS_edge, topo_->edges);
    addAll(subs.vertices, PK_CLASS_vertex, topo_->vertices);
    if (sources_.knownBox) {
      topo_->box = *sources_.knownBox;
    } else if (!shape.IsNull()) {
      BRepBndLib::Add(shape, topo_->box, false);
    }
    return topo_;
  }

 private:
  // The solid's side of each of its shells, and the void's side: the
  // infinite region's for the outer shell, a cavity region's for the others.
  void addSolidShells(const TopoDS_Shape& solid) {
    PK_REGION_t region = topo_->tagOf(solid);
    std::vector<TopoDS_Shape> shells;
    for (TopoDS_Iterator it(solid); it.More(); it.Next())
      if (it.Value().ShapeType() == TopAbs_SHELL) shells.push_back(it.Value());
    TopoDS_Shape outer;
    if (shells.size() == 1) {
      outer = shells.front();
    } else if (shells.size() > 1) {
      outer = BRepClass3d::OuterShell(TopoDS::Solid(solid));
    }
    for (const TopoDS_Shape& shell : shells) {
      bool isOuter = shell.IsSame(outer);
      addShell(shell, SubRole::solidSide, region,
               isOuter ? PK_SHELL_sign_positive_c : PK_SHELL_sign_negative_c);
      PK_REGION_t voidRegion = infinite_;
      if (!isOuter) {
        voidRegion = add(shell, SubRole::cavity, PK_CLASS_region, topo_->regions);
        topo_->entities[voidRegion].shape = shell;
      }
      addShell(shell, SubRole::voidSide, voidRegion,
               isOuter ? PK_SHELL_sign_negative_c : PK_SHELL_sign_positive_c);
    }
  }

  static bool hasLooseParts(const TopoDS_Shape& shape) {
    return TopExp_Explorer(shape, TopAbs_FACE, TopAbs_SHELL).More() ||
           TopExp_Explorer(shape, TopAbs_EDGE, TopAbs_FACE).More() ||
           TopExp_Explorer(shape, TopAbs_VERTEX, TopAbs_EDGE).More();
  }

  void addShell(const TopoDS_Shape& shell, SubRole side, PK_REGION_t region, PK_SHELL_sign_t sign) {
    PK_SHELL_t tag = add(shell, side, PK_CLASS_shell, topo_->shells);
    SubEntity& entity = topo_->entities[tag];
    entity.region = region;
    entity.sign = sign;
    topo_->entities[region].shells.push_back(tag);
  }

  // The faces, loops, edges and vertices of a shape, each once (by TShape),
  // in the order an explorer of that type meets them first: one walk over
  // the shape instead of one per type, not entering a sub-shape met before
  // (a big body's edges and vertices are each reached from several faces).
  struct SubShapes {
    std::vector<TopoDS_Shape> faces, wires, edges, vertices;
    std::unordered_set<const TopoDS_TShape*> seen;
  };

  static void collect(const TopoDS_Shape& shape, SubShapes& subs) {
    if (shape.IsNull()) return;
    if (!note(shape, subs)) return;
    for (TopoDS_Iterator it(shape); it.More(); it.Next()) collect(it.Value(), subs);
  }

  // Files the sub-shape in its list; false when it was met before.
  static bool note(const TopoDS_Shape& shape, SubShapes& subs) {
    std::vector<TopoDS_Shape>* list = nullptr;
    switch (shape.ShapeType()) {
      case TopAbs_FACE: list = &subs.faces; break;
      case TopAbs_WIRE: list = &subs.wires; break;
      case TopAbs_EDGE: list = &subs.edges; break;
      case TopAbs_VERTEX: list = &subs.vertices; break;
      default: return true;
    }
    if (!subs.seen.insert(shape.TShape().get()).second) return false;
    list->push_back(shape);
    return true;
  }

  void addAll(const std::vector<TopoDS_Shape>& shapes, PK_CLASS_t cls, std::vector<PK_ENTITY_t>& list) {
    for (const TopoDS_Shape& shape : shapes) add(shape, SubRole::self, cls, list);
  }

  // The sub-entity's tag; a sub-shape met again (a face shared by two solids)
  // is the same sub-entity.
  PK_ENTITY_t add(const TopoDS_Shape& shape, SubRole role, PK_CLASS_t cls, std::vector<PK_ENTITY_t>& list) {
    SubKey key{shape.IsNull() ? nullptr : shape.TShape().get(), role};
    auto found = topo_->byKey.find(key);
    if (found != topo_->byKey.end()) return found->second;
    PK_ENTITY_t tag = inherited(shape, key);
    if (tag == PK_ENTITY_null) tag = sources_.fresh();
    taken_.insert(tag);
    topo_->byKey.emplace(key, tag);
    SubEntity& entity = topo_->entities[tag];
    entity.cls = cls;
    entity.role = role;
    entity.shape = shape;
    list.push_back(tag);
    return tag;
  }

  PK_ENTITY_t inherited(const TopoDS_Shape& shape, const SubKey& key) const {
    for (const BodyTopology* previous : sources_.previous)
      if (PK_ENTITY_t tag = lookup(*previous, key)) return tag;
    if (!sources_.origin || shape.IsNull()) return PK_ENTITY_null;
    const TopoDS_TShape* old = sources_.origin(shape);
    if (!old) return PK_ENTITY_null;
    for (const BodyTopology* previous : sources_.previous)
      if (PK_ENTITY_t tag = lookup(*previous, SubKey{old, key.role})) return tag;
    return PK_ENTITY_null;
  }

  PK_ENTITY_t lookup(const BodyTopology& previous, const SubKey& key) const {
    auto it = previous.byKey.find(key);
    if (it == previous.byKey.end() || taken_.count(it->second)) return PK_ENTITY_null;
    return it->second;
  }

  const TagSources& sources_;
  std::shared_ptr<BodyTopology> topo_ = std::make_shared<BodyTopology>();
  std::unordered_set<PK_ENTITY_t> ownTaken_;
  std::unordered_set<PK_ENTITY_t>& taken_;
  PK_REGION_t infinite_ = PK_ENTITY_null;
};

}  // namespace

BodyTopologyPtr deriveTopology(const TopoDS_Shape& shape, const TagSources& sources) {
  return Deriver(sources).run(shape);
}

}  // namespace meld::kernel
