#include "SampleParts.h"

#include <algorithm>
#include <initializer_list>
#include <stdexcept>
#include <utility>
#include <variant>

#include "Codec.h"

namespace meld::xt {
namespace {

// ---------------------------------------------------------------------------
// The topology of a block, as plain numbers. Vertex v sits at corner + bit i of v
// times size[i]; face f lies on axis f / 2, on the low side when f is even.
// ---------------------------------------------------------------------------

constexpr int kFaces = 6, kEdges = 12, kVertices = 8, kFins = 24;

struct BlockTopology {
  struct Edge {
    int start, end;
  };
  struct Fin {
    int edge;
    bool positive;  // runs the way its edge runs
    int vertex;     // the vertex it runs into
  };
  std::array<std::array<int, 4>, kFaces> rings{};  // vertices of each loop, in loop order
  std::vector<Edge> edges;
  std::vector<Fin> fins;  // four per face, fin 4f + k leaves rings[f][k]
};

int faceAxis(int face) { return face / 2; }
int faceSide(int face) { return face % 2; }
int bit(int vertex, int axis) { return (vertex >> axis) & 1; }

// The face's vertices counter-clockwise about its outward normal: the face lies to
// the left of its loop seen from outside, as the format requires.
std::array<int, 4> faceRing(int face) {
  int a = faceAxis(face), u = (a + 1) % 3, w = (a + 2) % 3;
  auto vertexAt = [&](int du, int dw) { return faceSide(face) << a | du << u | dw << w; };
  // (u, w, a) is right-handed, so this square runs counter-clockwise about +a.
  std::array<int, 4> ring{vertexAt(0, 0), vertexAt(1, 0), vertexAt(1, 1), vertexAt(0, 1)};
  if (faceSide(face) == 0) std::swap(ring[1], ring[3]);
  return ring;
}

int findEdge(const std::vector<BlockTopology::Edge>& edges, int a, int b) {
  for (size_t e = 0; e < edges.size(); ++e)
    if ((edges[e].start == a && edges[e].end == b) || (edges[e].start == b && edges[e].end == a))
      return static_cast<int>(e);
  return -1;
}

// Edge directions as the kernel's own block primitive writes them: the bottom and
// top edges run against their face's loop, the upright edges run up. Every side
// face then uses its horizontal edges forwards.
std::vector<BlockTopology::Edge> blockEdges(const BlockTopology& t) {
  std::vector<BlockTopology::Edge> edges;
  for (int face : {4, 5})
    for (int k = 0; k < 4; ++k) edges.push_back({t.rings[face][(k + 1) % 4], t.rings[face][k]});
  for (int v = 0; v < 4; ++v) edges.push_back({v, v | 4});
  return edges;
}

BlockTopology blockTopology() {
  BlockTopology t;
  for (int f = 0; f < kFaces; ++f) t.rings[f] = faceRing(f);
  t.edges = blockEdges(t);
  for (int f = 0; f < kFaces; ++f)
    for (int k = 0; k < 4; ++k) {
      int from = t.rings[f][k], to = t.rings[f][(k + 1) % 4];
      int e = findEdge(t.edges, from, to);
      t.fins.push_back({e, t.edges[e].start == from, to});
    }
  return t;
}

int finOfFace(int face, int k) { return 4 * face + (k + 4) % 4; }

int otherFin(const BlockTopology& t, int fin) {
  for (int i = 0; i < kFins; ++i)
    if (i != fin && t.fins[i].edge == t.fins[fin].edge) return i;
  throw std::logic_error("block edge with one fin");
}

// The edge's '+' fin: the format heads an edge's fin ring with it.
int positiveFin(const BlockTopology& t, int edge) {
  for (int i = 0; i < kFins; ++i)
    if (t.fins[i].edge == edge && t.fins[i].positive) return i;
  throw std::logic_error("block edge without a '+' fin");
}

// Fins at a vertex, chained through next_at_vx: in a solid each fin is chained at
// the vertex it runs into (the '+' fin at its edge's end, the '-' fin at its start).
std::vector<int> finsAt(const BlockTopology& t, int vertex) {
  std::vector<int> fins;
  for (int i = 0; i < kFins; ++i)
    if (t.fins[i].vertex == vertex) fins.push_back(i);
  return fins;
}

// ---------------------------------------------------------------------------
// Node indices. One block body is the BODY node and a run of 86 nodes; within the
// run every node but the fins gets node_id = its place in the run + 1.
// ---------------------------------------------------------------------------

struct BodyRun {
  int64_t body = 0;
  int64_t base = 0;  // index of the run's first node

  int64_t region(int i) const { return base + i; }  // 0 the infinite void, 1 the solid
  int64_t shell(int i) const { return base + 2 + i; }  // 0 bounds the solid, 1 the void
  int64_t face(int f) const { return base + 4 + f; }
  int64_t loop(int f) const { return base + 10 + f; }
  int64_t edge(int e) const { return base + 16 + e; }
  int64_t vertex(int v) const { return base + 28 + v; }
  int64_t plane(int f) const { return base + 36 + f; }
  int64_t line(int e) const { return base + 42 + e; }
  int64_t point(int v) const { return base + 54 + v; }
  int64_t fin(int i) const { return base + 62 + i; }
  int64_t nodeId(int64_t index) const { return index - base + 1; }

  static constexpr int64_t kHighestNodeId = 62;
  static constexpr int64_t kNodes = 86;
};

// Doubly linked, null-terminated chains over n items.
template <class IndexOf>
int64_t nextIn(int i, int n, IndexOf indexOf) { return i + 1 < n ? indexOf(i + 1) : 0; }
template <class IndexOf>
int64_t previousIn(int i, IndexOf indexOf) { return i > 0 ? indexOf(i - 1) : 0; }

// ---------------------------------------------------------------------------
// Writing nodes by field name; fields not named are null pointers, zero integers
// or null reals, which is what a writer puts in every field a block does not use.
// ---------------------------------------------------------------------------

using Value = std::variant<int64_t, double, Vec3>;
using Fields = std::initializer_list<std::pair<std::string_view, Value>>;

int64_t sense(bool positive) { return positive ? '+' : '-'; }

class NodeWriter {
 public:
  explicit NodeWriter(Graph& graph) : m_graph(graph), m_schema(*builtInSchema(kLayouts)) {}

  void add(std::string_view type, int64_t index, Fields values, const std::vector<int64_t>& entries = {}) {
    LayoutPtr layout = m_schema.byName(type);
    if (!layout) throw std::logic_error("no layout for " + std::string(type));
    m_graph.adopt(layout);
    m_graph.beginNode(*layout, index, static_cast<uint32_t>(entries.size()));
    size_t used = 0;
    for (const FieldDef& field : layout->fields) {
      const Value* value = find(values, field.name);
      used += value != nullptr;
      if (field.isVariable()) writeInts(entries);
      else if (isIntegerType(field.type)) writeInt(field, value);
      else writeReals(field, value);
    }
    if (used != values.size()) throw std::logic_error("unknown field in a " + std::string(type) + " node");
  }

 private:
  // The layouts of the kernel version our encoder identifies itself with.
  static constexpr int kLayouts = 34001;

  static const Value* find(Fields values, std::string_view name) {
    for (const auto& [key, value] : values)
      if (key == name) return &value;
    return nullptr;
  }
  void writeInts(const std::vector<int64_t>& entries) {
    int64_t* out = m_graph.addIntField(entries.size());
    std::copy(entries.begin(), entries.end(), out);
  }
  void writeInt(const FieldDef& field, const Value* value) {
    int64_t* out = m_graph.addIntField(static_cast<size_t>(field.elements()));
    std::fill(out, out + field.elements(), value ? std::get<int64_t>(*value) : 0);
  }
  void writeReals(const FieldDef& field, const Value* value) {
    int per = realsPerElement(field.type);
    double* out = m_graph.addRealField(static_cast<size_t>(per * field.elements()));
    std::fill(out, out + per * field.elements(), kNullReal);
    if (!value) return;
    if (per == 1) *out = std::get<double>(*value);
    else std::copy_n(std::get<Vec3>(*value).begin(), 3, out);
  }

  Graph& m_graph;
  Schema m_schema;
};

// ---------------------------------------------------------------------------
// One block body.
// ---------------------------------------------------------------------------

class BlockBodyWriter {
 public:
  BlockBodyWriter(NodeWriter& out, const Block& block, const BodyRun& run)
      : m_out(out), m_block(block), m_run(run), m_topology(blockTopology()) {}

  void writeBody() {
    m_out.add("BODY", m_run.body,
              {{"highest_node_id", BodyRun::kHighestNodeId}, {"res_size", 1000.0},
               {"res_linear", 1e-8}, {"state", int64_t{1}}, {"body_type", int64_t{1}},
               {"nom_geom_state", int64_t{1}}, {"shell", m_run.shell(0)},
               {"boundary_surface", m_run.plane(0)}, {"boundary_curve", m_run.line(0)},
               {"boundary_point", m_run.point(0)}, {"region", m_run.region(0)},
               {"edge", m_run.edge(0)}, {"vertex", m_run.vertex(0)}});
  }

  // The run, in index order.
  void writeRun() {
    writeRegionsAndShells();
    for (int f = 0; f < kFaces; ++f) writeFace(f);
    for (int f = 0; f < kFaces; ++f) writeLoop(f);
    for (int e = 0; e < kEdges; ++e) writeEdge(e);
    for (int v = 0; v < kVertices; ++v) writeVertex(v);
    for (int f = 0; f < kFaces; ++f) writePlane(f);
    for (int e = 0; e < kEdges; ++e) writeLine(e);
    for (int v = 0; v < kVertices; ++v) writePoint(v);
    for (int i = 0; i < kFins; ++i) writeFin(i);
  }

 private:
  int64_t id(int64_t index) const { return m_run.nodeId(index); }
  auto faces() const { return [this](int f) { return m_run.face(f); }; }
  auto edges() const { return [this](int e) { return m_run.edge(e); }; }
  auto vertices() const { return [this](int v) { return m_run.vertex(v); }; }

  // The infinite void region comes first; the solid region's one shell has every
  // face on its back (normals point out of the solid), and the same faces are the
  // front faces of the void's shell. Only the solid's shell names the body.
  void writeRegionsAndShells() {
    const BodyRun& r = m_run;
    m_out.add("REGION", r.region(0), {{"node_id", id(r.region(0))}, {"body", r.body}, {"next", r.region(1)},
                                      {"shell", r.shell(1)}, {"type", int64_t{'V'}}});
    m_out.add("REGION", r.region(1), {{"node_id", id(r.region(1))}, {"body", r.body}, {"previous", r.region(0)},
                                      {"shell", r.shell(0)}, {"type", int64_t{'S'}}});
    m_out.add("SHELL", r.shell(0), {{"node_id", id(r.shell(0))}, {"body", r.body}, {"face", r.face(0)},
                                    {"region", r.region(1)}});
    m_out.add("SHELL", r.shell(1), {{"node_id", id(r.shell(1))}, {"region", r.region(0)},
                                    {"front_face", r.face(0)}});
  }

  void writeFace(int f) {
    const int64_t next = nextIn(f, kFaces, faces()), previous = previousIn(f, faces());
    m_out.add("FACE", m_run.face(f),
              {{"node_id", id(m_run.face(f))}, {"next", next}, {"previous", previous},
               {"loop", m_run.loop(f)}, {"shell", m_run.shell(0)}, {"surface", m_run.plane(f)},
               {"sense", sense(true)}, {"next_front", next}, {"previous_front", previous},
               {"front_shell", m_run.shell(1)}});
  }

  void writeLoop(int f) {
    m_out.add("LOOP", m_run.loop(f),
              {{"node_id", id(m_run.loop(f))}, {"halfedge", m_run.fin(finOfFace(f, 0))}, {"face", m_run.face(f)}});
  }

  void writeEdge(int e) {
    m_out.add("EDGE", m_run.edge(e),
              {{"node_id", id(m_run.edge(e))}, {"halfedge", m_run.fin(positiveFin(m_topology, e))},
               {"previous", previousIn(e, edges())}, {"next", nextIn(e, kEdges, edges())},
               {"curve", m_run.line(e)}, {"owner", m_run.body}});
  }

  void writeVertex(int v) {
    m_out.add("VERTEX", m_run.vertex(v),
              {{"node_id", id(m_run.vertex(v))}, {"halfedge", m_run.fin(finsAt(m_topology, v).front())},
               {"previous", previousIn(v, vertices())}, {"next", nextIn(v, kVertices, vertices())},
               {"point", m_run.point(v)}, {"owner", m_run.body}});
  }

  void writeFin(int i) {
    const BlockTopology::Fin& fin = m_topology.fins[i];
    int face = i / 4, k = i % 4;
    m_out.add("HALFEDGE", m_run.fin(i),
              {{"loop", m_run.loop(face)}, {"forward", m_run.fin(finOfFace(face, k + 1))},
               {"backward", m_run.fin(finOfFace(face, k - 1))}, {"vertex", m_run.vertex(fin.vertex)},
               {"other", m_run.fin(otherFin(m_topology, i))}, {"edge", m_run.edge(fin.edge)},
               {"next_at_vx", nextAtVertex(i)}, {"sense", sense(fin.positive)}});
  }

  int64_t nextAtVertex(int fin) const {
    std::vector<int> chain = finsAt(m_topology, m_topology.fins[fin].vertex);
    for (size_t j = 0; j + 1 < chain.size(); ++j)
      if (chain[j] == fin) return m_run.fin(chain[j + 1]);
    return 0;
  }

  // ---- geometry: points on vertices, lines on edges, planes on faces ----

  Vec3 position(int v) const {
    Vec3 p;
    for (int a = 0; a < 3; ++a) p[a] = m_block.corner[a] + bit(v, a) * m_block.size[a];
    return p;
  }
  // Planes and lines are placed at the foot of the block's base centre, as the
  // kernel's block primitive places them.
  Vec3 baseCentre() const {
    return {m_block.corner[0] + m_block.size[0] / 2, m_block.corner[1] + m_block.size[1] / 2, m_block.corner[2]};
  }
  static Vec3 unit(int axis, double sign) {
    Vec3 u{0, 0, 0};
    u[axis] = sign;
    return u;
  }

  void writePlane(int f) {
    int a = faceAxis(f);
    Vec3 origin = baseCentre();
    origin[a] = m_block.corner[a] + faceSide(f) * m_block.size[a];
    m_out.add("PLANE", m_run.plane(f),
              {{"node_id", id(m_run.plane(f))}, {"owner", m_run.face(f)},
               {"next", nextIn(f, kFaces, [this](int i) { return m_run.plane(i); })},
               {"previous", previousIn(f, [this](int i) { return m_run.plane(i); })},
               {"sense", sense(true)}, {"pvec", origin}, {"normal", unit(a, faceSide(f) ? 1.0 : -1.0)},
               {"x_axis", unit((a + 1) % 3, 1.0)}});
  }

  void writeLine(int e) {
    const BlockTopology::Edge& edge = m_topology.edges[e];
    int a = 0;
    while (bit(edge.start, a) == bit(edge.end, a)) ++a;
    Vec3 origin = position(edge.start);
    origin[a] = baseCentre()[a];
    m_out.add("LINE", m_run.line(e),
              {{"node_id", id(m_run.line(e))}, {"owner", m_run.edge(e)},
               {"next", nextIn(e, kEdges, [this](int i) { return m_run.line(i); })},
               {"previous", previousIn(e, [this](int i) { return m_run.line(i); })},
               {"sense", sense(true)}, {"pvec", origin}, {"direction", unit(a, bit(edge.end, a) ? 1.0 : -1.0)}});
  }

  void writePoint(int v) {
    m_out.add("POINT", m_run.point(v),
              {{"node_id", id(m_run.point(v))}, {"owner", m_run.vertex(v)},
               {"next", nextIn(v, kVertices, [this](int i) { return m_run.point(i); })},
               {"previous", previousIn(v, [this](int i) { return m_run.point(i); })},
               {"pvec", position(v)}});
  }

  NodeWriter& m_out;
  Block m_block;
  BodyRun m_run;
  BlockTopology m_topology;
};

void checkBlocks(const std::vector<Block>& blocks) {
  if (blocks.empty()) throw std::invalid_argument("a part needs at least one block");
  for (const Block& block : blocks)
    for (double length : block.size)
      if (!(length > 0)) throw std::invalid_argument("a block's size must be positive");
}

// Index 1 is the root; several bodies follow it as indices 2.., then their runs.
std::vector<BodyRun> layOutRuns(size_t bodies) {
  std::vector<BodyRun> runs(bodies);
  const int64_t firstBody = bodies == 1 ? 1 : 2;
  int64_t next = firstBody + static_cast<int64_t>(bodies);
  for (size_t b = 0; b < bodies; ++b) {
    runs[b].body = firstBody + static_cast<int64_t>(b);
    runs[b].base = next;
    next += BodyRun::kNodes;
  }
  return runs;
}

}  // namespace

Graph buildBlockPart(const std::vector<Block>& blocks) {
  checkBlocks(blocks);
  Graph graph;
  NodeWriter out(graph);
  std::vector<BodyRun> runs = layOutRuns(blocks.size());
  std::vector<BlockBodyWriter> bodies;
  for (size_t b = 0; b < blocks.size(); ++b) bodies.emplace_back(out, blocks[b], runs[b]);
  if (blocks.size() > 1) {
    std::vector<int64_t> parts;
    for (const BodyRun& run : runs) parts.push_back(run.body);
    out.add("PART_XMT_BLOCK", 1, {{"n_entries", static_cast<int64_t>(parts.size())}}, parts);
  }
  for (BlockBodyWriter& body : bodies) body.writeBody();
  for (BlockBodyWriter& body : bodies) body.writeRun();
  return graph;
}

const std::vector<SampleFile>& sampleSet() {
  // A 10 mm cube at the origin, and the same cube moved 5 mm along every axis: the
  // one-file unite of two_blocks.x_t and the two-file unite of block.x_t with
  // tool_block.x_t have the same answer.
  static const Block cube{{0, 0, 0}, {0.01, 0.01, 0.01}};
  static const Block movedCube{{0.005, 0.005, 0.005}, {0.01, 0.01, 0.01}};
  static const std::vector<SampleFile> set = {
      {"block.x_t", {cube}, Format::Text},
      {"block.x_b", {cube}, Format::NeutralBinary},
      {"two_blocks.x_t", {cube, movedCube}, Format::Text},
      {"tool_block.x_t", {movedCube}, Format::Text},
  };
  return set;
}

std::string encodeSample(const SampleFile& sample) {
  EncodeOptions options;
  options.format = sample.format;
  options.part1 = {{"APPL", "MeldSolids xt-make-samples"}, {"KEY", sample.name.substr(0, sample.name.find('.'))}};
  return encode(buildBlockPart(sample.blocks), options);
}

}  // namespace meld::xt
