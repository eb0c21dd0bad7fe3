#include "Tracking.h"

#include "session/Memory.h"

#include <TopExp_Explorer.hxx>

#include <algorithm>
#include <unordered_map>

namespace meld::kernel {

namespace {

// The three kinds of sub-entity a record speaks of, with their lists.
template <class Visit>
void forEachTracked(const BodyTopology& topology, Visit visit) {
  for (auto [cls, list] : {std::pair{PK_CLASS_face, &topology.faces}, {PK_CLASS_edge, &topology.edges},
                           {PK_CLASS_vertex, &topology.vertices}})
    for (PK_ENTITY_t tag : *list) visit(cls, tag);
}

// Old and new sub-entities as the nodes of one graph, joined where a new one
// is a successor of an old one: each connected part is what one record says.
class Parts {
 public:
  int add() {
    parent_.push_back(int(parent_.size()));
    return parent_.back();
  }
  int root(int node) {
    while (parent_[node] != node) node = parent_[node] = parent_[parent_[node]];
    return node;
  }
  void join(int a, int b) { parent_[root(a)] = root(b); }

 private:
  std::vector<int> parent_;
};

// The faces of a topology that hold each of its edges and vertices.
class Holders {
 public:
  explicit Holders(const BodyTopology& topology) {
    for (PK_ENTITY_t face : topology.faces)
      for (TopAbs_ShapeEnum type : {TopAbs_EDGE, TopAbs_VERTEX})
        for (TopExp_Explorer ex(topology.find(face)->shape, type); ex.More(); ex.Next()) {
          std::vector<PK_ENTITY_t>& faces = faces_[ex.Current().TShape().get()];
          if (faces.empty() || faces.back() != face) faces.push_back(face);
        }
  }
  std::vector<PK_ENTITY_t> facesHolding(const TopoDS_Shape& shape) const {
    auto it = faces_.find(shape.TShape().get());
    return it == faces_.end() ? std::vector<PK_ENTITY_t>{} : it->second;
  }

 private:
  std::unordered_map<const TopoDS_TShape*, std::vector<PK_ENTITY_t>> faces_;
};

struct Node {
  PK_ENTITY_t tag;
  PK_CLASS_t cls;
  int node;
};

struct Record {
  PK_TOPOL_track_t track;
  std::vector<Node> originals;
  std::vector<PK_ENTITY_t> products;
};

struct Group {
  std::vector<Node> olds;
  std::vector<PK_ENTITY_t> news;
};

PK_TOPOL_track_t trackOf(const Group& group) {
  if (group.news.empty()) return PK_TOPOL_track_delete_c;
  if (group.olds.size() == 1) return PK_TOPOL_track_split_c;
  return group.news.size() == 1 ? PK_TOPOL_track_merge_c : PK_TOPOL_track_derive_c;
}

// Kernel memory that goes back unless the records take it over.
class Block {
 public:
  explicit Block(std::size_t bytes) : data_(bytes ? kernelAlloc(bytes) : nullptr) {}
  ~Block() { kernelFree(data_); }
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;
  template <class T>
  T* as() const {
    return static_cast<T*>(data_);
  }
  void release() { data_ = nullptr; }

 private:
  void* data_;
};

void handOutRecords(const std::vector<Record>& records, PK_TOPOL_track_r_t* out) {
  std::size_t nOriginals = 0, nProducts = 0;
  for (const Record& r : records) nOriginals += r.originals.size(), nProducts += r.products.size();
  Block recordBlock(records.size() * sizeof(PK_TOPOL_track_record_r_t));
  Block origs(nOriginals * sizeof(int)), classes(nOriginals * sizeof(PK_CLASS_t));
  Block prods(nProducts * sizeof(PK_TOPOL_t));
  auto* filled = recordBlock.as<PK_TOPOL_track_record_r_t>();
  int* nextOrig = origs.as<int>();
  PK_CLASS_t* nextClass = classes.as<PK_CLASS_t>();
  PK_TOPOL_t* nextProd = prods.as<PK_TOPOL_t>();
  for (std::size_t i = 0; i < records.size(); ++i) {
    const Record& r = records[i];
    filled[i] = {r.track, int(r.originals.size()), r.originals.empty() ? nullptr : nextOrig,
                 r.originals.empty() ? nullptr : nextClass, int(r.products.size()),
                 r.products.empty() ? nullptr : nextProd};
    for (const Node& o : r.originals) *nextOrig++ = o.tag, *nextClass++ = o.cls;
    nextProd = std::copy(r.products.begin(), r.products.end(), nextProd);
  }
  *out = {int(records.size()), filled, origs.as<int>(), classes.as<PK_CLASS_t>(), prods.as<PK_TOPOL_t>()};
  for (Block* b : {&recordBlock, &origs, &classes, &prods}) b->release();
}

}  // namespace

void TopologyTracker::report(const ShapeHistory& history, const std::vector<BodyTopologyPtr>& results,
                             PK_TOPOL_track_r_t* out) const {
  Parts parts;
  // The new sub-entities, and what each lies in (for a created one's origin).
  std::unordered_map<PK_ENTITY_t, int> newNode;
  std::vector<std::pair<PK_ENTITY_t, const BodyTopology*>> news;
  for (const BodyTopologyPtr& result : results)
    forEachTracked(*result, [&](PK_CLASS_t, PK_ENTITY_t tag) {
      newNode.emplace(tag, parts.add());
      news.emplace_back(tag, result.get());
    });
  // The old ones, joined to their successors where those are still there.
  std::vector<Node> olds;
  for (const BodyTopologyPtr& input : inputs_)
    forEachTracked(*input, [&](PK_CLASS_t cls, PK_ENTITY_t tag) {
      const SubEntity* entity = input->find(tag);
      if (!entity) return;
      olds.push_back({tag, cls, parts.add()});
      for (const TopoDS_Shape& successor : history.successors(entity->shape))
        for (const BodyTopologyPtr& result : results) {
          auto it = newNode.find(result->tagOf(successor));
          if (it != newNode.end()) parts.join(olds.back().node, it->second);
        }
    });
  // One group per connected part, in the order of its first old member.
  std::unordered_map<int, std::size_t> groupOf;
  std::vector<Group> groups;
  for (const Node& old : olds) {
    auto [it, added] = groupOf.emplace(parts.root(old.node), groups.size());
    if (added) groups.emplace_back();
    groups[it->second].olds.push_back(old);
  }
  std::vector<std::pair<PK_ENTITY_t, const BodyTopology*>> created;
  for (const auto& made : news) {
    auto it = groupOf.find(parts.root(newNode.at(made.first)));
    if (it == groupOf.end()) created.push_back(made);
    else groups[it->second].news.push_back(made.first);
  }
  std::vector<Record> records;
  for (const Group& g : groups) {
    bool itself = g.olds.size() == 1 && g.news.size() == 1 && g.olds[0].tag == g.news[0];
    if (!itself) records.push_back({trackOf(g), g.olds, g.news});
  }
  // A created edge or vertex (where faces now cross) comes from the old
  // faces whose pieces hold it.
  std::unordered_map<const BodyTopology*, Holders> holders;
  for (const auto& [tag, topology] : created) {
    Record record{PK_TOPOL_track_create_c, {}, {tag}};
    auto held = holders.try_emplace(topology, *topology).first->second.facesHolding(topology->find(tag)->shape);
    for (PK_ENTITY_t face : held) {
      auto it = groupOf.find(parts.root(newNode.at(face)));
      if (it == groupOf.end()) continue;
      for (const Node& origin : groups[it->second].olds)
        if (origin.cls == PK_CLASS_face && std::none_of(record.originals.begin(), record.originals.end(),
                                                         [&](const Node& n) { return n.tag == origin.tag; }))
          record.originals.push_back(origin);
    }
    records.push_back(std::move(record));
  }
  handOutRecords(records, out);
}

}  // namespace meld::kernel
