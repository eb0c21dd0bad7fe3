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
  if (it != entities.end()) return &it->second;
  if (!base || hidden.count(tag)) return nullptr;
  return base->find(tag);
}

PK_ENTITY_t BodyTopology::tagOf(const TopoDS_Shape& shape, SubRole role) const {
  return tagOf(SubKey{shape.IsNull() ? nullptr : shape.TShape().get(), role});
}

// A base's tag counts unless it is hidden (which it is too when this
// topology gives it another sub-shape).
PK_ENTITY_t BodyTopology::tagOf(const SubKey& key) const {
  auto it = byKey.find(key);
  if (it != byKey.end()) return it->second;
  if (!base) return PK_ENTITY_null;
  PK_ENTITY_t tag = base->tagOf(key);
  return hidden.count(tag) ? PK_ENTITY_null : tag;
}

void BodyTopology::forEachTag(const std::function<void(PK_ENTITY_t)>& visit) const {
  for (const auto& entry : entities) visit(entry.first);
  if (!base) return;
  for (const auto& entry : base->entities)
    if (!hidden.count(entry.first)) visit(entry.first);
}

namespace {

class Deriver {
  // The faces, loops, edges and vertices of a shape, each once (by TShape),
  // in the order an explorer of that type meets them first: one walk over
  // the shape instead of one per type, not entering a sub-shape met before
  // (a big body's edges and vertices are each reached from several faces).
  struct SubShapes {
    std::vector<TopoDS_Shape> faces, wires, edges, vertices;
    std::unordered_set<const TopoDS_TShape*> seen;
  };

 public:
  explicit Deriver(const TagSources& sources)
      : sources_(sources), taken_(sources.used ? *sources.used : ownTaken_) {}

  BodyTopologyPtr run(const TopoDS_Shape& shape) {
    // A derived body is mostly its sources' sub-entities: room for them
    // up front spares growing the tables step by step.
    std::size_t expected = 0;
    for (const BodyTopology* previous : sources_.previous)
      expected += previous->entities.size() + (previous->base ? previous->base->entities.size() : 0);
    topo_->entities.reserve(expected);
    topo_->byKey.reserve(expected);
    taken_.reserve(taken_.size() + expected);
    addRegionsAndShells(shape);
    // Faces, edges or vertices in no shell (a sheet of loose faces, a wire,
    // an acorn) make one more shell of the infinite region.
    if (hasLooseParts(shape)) addShell(shape, SubRole::voidSide, infinite_, PK_SHELL_sign_mixed_c);
    SubShapes subs;
    subs.seen.reserve(topo_->entities.bucket_count());
    collect(shape, subs);
    addAll(subs, [](const TopoDS_Shape&) { return true; });
    setBox(shape);
    return topo_;
  }

  BodyTopologyPtr edit(const TopoDS_Shape& shape, const BodyTopologyPtr& from, const FaceDelta& delta) {
    if (!solidOfFaces(shape)) return nullptr;
    const BodyTopology& old = *from;
    editing_ = &old;
    topo_->editedFrom = from;
    topo_->base = old.base ? old.base : from;
    if (old.base) {
      topo_->entities = old.entities;
      topo_->byKey = old.byKey;
      topo_->hidden = old.hidden;
    }
    for (PK_ENTITY_t tag : old.regions) drop(tag);
    for (PK_ENTITY_t tag : old.shells) drop(tag);
    // The new faces' sub-shapes are gathered before the old faces' are let
    // go, so that a sub-shape a new face shares with an old one stays.
    SubShapes made;
    for (const TopoDS_Shape& face : delta.added) collect(face, made);
    for (const TopoDS_Shape& face : delta.removed)
      if (PK_ENTITY_t tag = old.tagOf(face)) dropFace(old, tag, made);
    // The old order, less what went, and the new sub-entities after it.
    for (auto [list, was] : {std::pair{&topo_->faces, &old.faces}, {&topo_->loops, &old.loops},
                             {&topo_->edges, &old.edges}, {&topo_->vertices, &old.vertices}})
      std::copy_if(was->begin(), was->end(), std::back_inserter(*list),
                   [&](PK_ENTITY_t tag) { return !droppedSet_.count(tag); });
    addRegionsAndShells(shape);
    addAll(made, [&](const TopoDS_Shape& s) {
      PK_ENTITY_t tag = old.tagOf(s);
      return tag == PK_ENTITY_null || droppedSet_.count(tag) != 0;
    });
    setBox(shape);
    return settled();
  }

 private:
  void addRegionsAndShells(const TopoDS_Shape& shape) {
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
  }

  void setBox(const TopoDS_Shape& shape) {
    if (sources_.knownBox) {
      topo_->box = *sources_.knownBox;
    } else if (!shape.IsNull()) {
      BRepBndLib::Add(shape, topo_->box, false);
    }
  }

  // Whether the shape is a solid made of shells of faces only: what an
  // edit handles.
  static bool solidOfFaces(const TopoDS_Shape& shape) {
    if (shape.IsNull() || shape.ShapeType() != TopAbs_SOLID) return false;
    for (TopoDS_Iterator shell(shape); shell.More(); shell.Next()) {
      if (shell.Value().ShapeType() != TopAbs_SHELL) return false;
      for (TopoDS_Iterator face(shell.Value()); face.More(); face.Next())
        if (face.Value().ShapeType() != TopAbs_FACE) return false;
    }
    return true;
  }

  // A face that went, and those of its loops, edges and vertices that no
  // new face holds.
  void dropFace(const BodyTopology& old, PK_ENTITY_t tag, const SubShapes& made) {
    const SubEntity* face = old.find(tag);
    drop(tag);
    if (!face) return;
    SubShapes gone;
    collect(face->shape, gone);
    for (const std::vector<TopoDS_Shape>* list : {&gone.wires, &gone.edges, &gone.vertices}) {
      for (const TopoDS_Shape& sub : *list) {
        if (made.seen.count(sub.TShape().get())) continue;
        PK_ENTITY_t subTag = old.tagOf(sub);
        if (subTag != PK_ENTITY_null && !droppedSet_.count(subTag)) drop(subTag);
      }
    }
  }

  // Takes the sub-entity out of the topology being edited. An edit gives an
  // old tag to a new sub-shape only once it has dropped it, so every base
  // tag this topology redefines is hidden too.
  void drop(PK_ENTITY_t tag) {
    auto it = topo_->entities.find(tag);
    if (it != topo_->entities.end()) {
      const TopoDS_Shape& shape = it->second.shape;
      auto key = topo_->byKey.find(SubKey{shape.IsNull() ? nullptr : shape.TShape().get(), it->second.role});
      if (key != topo_->byKey.end() && key->second == tag) topo_->byKey.erase(key);
      topo_->entities.erase(it);
    }
    if (topo_->base->find(tag)) topo_->hidden.insert(tag);
    topo_->dropped.push_back(tag);
    droppedSet_.insert(tag);
  }

  // An edited topology whose own part has grown past an eighth of its base
  // is made whole again, so that an edit costs what it changed and lookups
  // never go more than one base deep.
  BodyTopologyPtr settled() {
    const BodyTopology& base = *topo_->base;
    if (topo_->entities.size() + topo_->hidden.size() <= std::max<std::size_t>(64, base.entities.size() / 8))
      return topo_;
    auto whole = std::make_shared<BodyTopology>();
    whole->entities.reserve(base.entities.size() + topo_->entities.size());
    whole->byKey.reserve(base.byKey.size() + topo_->byKey.size());
    for (const auto& [key, tag] : base.byKey)
      if (topo_->tagOf(key) == tag) whole->byKey.emplace(key, tag);
    for (const auto& [tag, entity] : base.entities)
      if (!topo_->hidden.count(tag)) whole->entities.emplace(tag, entity);
    for (const auto& entry : topo_->entities) whole->entities.insert(entry);
    for (const auto& entry : topo_->byKey) whole->byKey.insert(entry);
    whole->editedFrom = topo_->editedFrom;
    whole->dropped = std::move(topo_->dropped);
    whole->added = std::move(topo_->added);
    whole->regions = std::move(topo_->regions);
    whole->shells = std::move(topo_->shells);
    whole->faces = std::move(topo_->faces);
    whole->loops = std::move(topo_->loops);
    whole->edges = std::move(topo_->edges);
    whole->vertices = std::move(topo_->vertices);
    whole->box = topo_->box;
    return whole;
  }

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

  // The faces, loops, edges and vertices gathered, those the filter lets
  // through.
  void addAll(const SubShapes& subs, const std::function<bool(const TopoDS_Shape&)>& wanted) {
    for (auto [shapes, cls, list] : {std::tuple{&subs.faces, PK_CLASS_face, &topo_->faces},
                                     {&subs.wires, PK_CLASS_loop, &topo_->loops},
                                     {&subs.edges, PK_CLASS_edge, &topo_->edges},
                                     {&subs.vertices, PK_CLASS_vertex, &topo_->vertices}})
      for (const TopoDS_Shape& shape : *shapes)
        if (wanted(shape)) add(shape, SubRole::self, cls, *list);
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
    entity = SubEntity{};
    entity.cls = cls;
    entity.role = role;
    entity.shape = shape;
    list.push_back(tag);
    if (editing_) topo_->added.push_back(tag);
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

  // An edit keeps the old topology's sub-entities it did not drop: their
  // tags are taken.
  PK_ENTITY_t lookup(const BodyTopology& previous, const SubKey& key) const {
    PK_ENTITY_t tag = previous.tagOf(key);
    if (tag == PK_ENTITY_null || taken_.count(tag)) return PK_ENTITY_null;
    if (&previous == editing_ && !droppedSet_.count(tag)) return PK_ENTITY_null;
    return tag;
  }

  const TagSources& sources_;
  std::shared_ptr<BodyTopology> topo_ = std::make_shared<BodyTopology>();
  std::unordered_set<PK_ENTITY_t> ownTaken_;
  std::unordered_set<PK_ENTITY_t>& taken_;
  PK_REGION_t infinite_ = PK_ENTITY_null;
  const BodyTopology* editing_ = nullptr;  // the topology an edit starts from
  std::unordered_set<PK_ENTITY_t> droppedSet_;
};

}  // namespace

BodyTopologyPtr deriveTopology(const TopoDS_Shape& shape, const TagSources& sources) {
  return Deriver(sources).run(shape);
}

BodyTopologyPtr editTopology(const TopoDS_Shape& shape, const TagSources& sources, const BodyTopologyPtr& from,
                             const FaceDelta& delta) {
  if (!from) return nullptr;
  return Deriver(sources).edit(shape, from, delta);
}

}  // namespace meld::kernel
