#include "TopologyCheck.h"

#include <array>
#include <set>

namespace meld::xt {
namespace {

constexpr int kBody = 12, kLine = 30, kPlane = 50;
constexpr size_t kMaxProblems = 40;

using Vec3 = std::array<double, 3>;

// Field reads by node index and field name that never throw: an absent node, an
// absent field or a null value all read as 0.
class Nodes {
 public:
  explicit Nodes(const Graph& graph) : m_graph(graph) {}

  int type(int64_t index) const {
    long at = m_graph.find(index);
    return at < 0 ? 0 : m_graph.nodes()[static_cast<size_t>(at)].type;
  }
  int64_t get(int64_t index, std::string_view field) const {
    FieldView view = read(index, field);
    return view.ints.empty() || view.isNull() ? 0 : view.ints[0];
  }
  bool vec(int64_t index, std::string_view field, Vec3& out) const {
    FieldView view = read(index, field);
    if (view.reals.size() != 3 || view.isNull()) return false;
    out = {view.reals[0], view.reals[1], view.reals[2]};
    return true;
  }
  // Bound for every walk along a chain or ring: no chain is longer than the graph.
  size_t limit() const { return m_graph.size() + 1; }

 private:
  FieldView read(int64_t index, std::string_view field) const {
    long at = m_graph.find(index);
    return at < 0 ? FieldView{} : m_graph.field(static_cast<size_t>(at), field);
  }
  const Graph& m_graph;
};

std::string nodeName(const char* type, int64_t index) { return std::string(type) + " #" + std::to_string(index); }

class BodyChecker {
 public:
  BodyChecker(const Nodes& nodes, int64_t body, TopologyReport& report)
      : m_nodes(nodes), m_report(report) {
    m_counts.bodyIndex = body;
    m_counts.bodyType = static_cast<int>(nodes.get(body, "body_type"));
  }

  void run() {
    walkRegions();
    for (int64_t face : m_faces) checkFace(face);
    walkEdges();
    walkVertices();
    if (solid()) checkEuler();
    m_report.bodies.push_back(m_counts);
  }

 private:
  bool solid() const { return m_counts.bodyType == 1; }

  void problem(const std::string& text) {
    if (m_report.problems.size() < kMaxProblems) m_report.problems.push_back(text);
    else if (m_report.problems.size() == kMaxProblems) m_report.problems.push_back("... more problems");
  }

  // Follows a null-terminated chain; complains when it runs longer than the graph.
  template <class Visit>
  void chain(int64_t head, std::string_view next, const char* what, Visit visit) {
    size_t steps = 0;
    for (int64_t at = head; at; at = m_nodes.get(at, next)) {
      if (++steps > m_nodes.limit()) return problem(std::string(what) + " chain from #" + std::to_string(head) + " does not end");
      visit(at);
    }
  }

  // Regions, their shells, and the faces on both sides of each shell.
  void walkRegions() {
    int64_t body = m_counts.bodyIndex;
    int64_t first = m_nodes.get(body, "region");
    if (first && m_nodes.get(first, "type") != 'V')
      problem(nodeName("BODY", body) + ": the first region is not void");
    chain(first, "next", "region", [&](int64_t region) {
      ++m_counts.regions;
      bool solidRegion = m_nodes.get(region, "type") == 'S';
      chain(m_nodes.get(region, "shell"), "next", "shell", [&](int64_t shell) {
        if (m_nodes.get(shell, "region") != region)
          problem(nodeName("SHELL", shell) + ": region is not the region that lists it");
        m_counts.solidShells += solidRegion;
        walkShellFaces(shell, "face", "next", "previous", "shell");
        walkShellFaces(shell, "front_face", "next_front", "previous_front", "front_shell");
      });
    });
  }

  void walkShellFaces(int64_t shell, const char* head, const char* next, const char* previous, const char* side) {
    int64_t before = 0;
    chain(m_nodes.get(shell, head), next, "face", [&](int64_t face) {
      if (m_nodes.get(face, side) != shell)
        problem(nodeName("FACE", face) + ": " + side + " is not the shell that lists it");
      if (m_nodes.get(face, previous) != before)
        problem(nodeName("FACE", face) + ": " + previous + " does not lead back along the chain");
      before = face;
      m_faces.insert(face);
    });
  }

  void checkFace(int64_t face) {
    ++m_counts.faces;
    std::vector<int64_t> loops;
    chain(m_nodes.get(face, "loop"), "next", "loop", [&](int64_t loop) {
      ++m_counts.loops;
      if (m_nodes.get(loop, "face") != face) problem(nodeName("LOOP", loop) + ": face does not lead back to its face");
      checkLoop(loop);
      loops.push_back(loop);
    });
    checkWinding(face, loops);
  }

  // A loop's fins form a ring both ways, each fin names the loop, and consecutive
  // fins meet at a vertex.
  void checkLoop(int64_t loop) {
    int64_t first = m_nodes.get(loop, "halfedge");
    if (!first) return problem(nodeName("LOOP", loop) + ": no fin");
    if (m_nodes.get(first, "loop") != loop) problem(nodeName("LOOP", loop) + ": its fin names another loop");
    int64_t fin = first;
    for (size_t steps = 0;; ++steps) {
      if (steps > m_nodes.limit() || !fin) return problem(nodeName("LOOP", loop) + ": fin ring does not close");
      ++m_counts.fins;
      int64_t forward = m_nodes.get(fin, "forward");
      if (m_nodes.get(fin, "loop") != loop) problem(nodeName("HALFEDGE", fin) + ": not in the loop whose ring holds it");
      if (m_nodes.get(forward, "backward") != fin) problem(nodeName("HALFEDGE", fin) + ": forward.backward is not the fin");
      if (m_nodes.get(fin, "edge")) checkFinEnds(fin);
      fin = forward;
      if (fin == first) return;
    }
  }

  // A fin runs into its edge's end vertex when it runs along the edge, into the start
  // when it runs against it; the fin before it in the loop ends where it starts.
  void checkFinEnds(int64_t fin) {
    int64_t edge = m_nodes.get(fin, "edge");
    int64_t head = m_nodes.get(edge, "halfedge");
    int64_t end = m_nodes.get(head, "vertex"), start = m_nodes.get(m_nodes.get(head, "other"), "vertex");
    bool along = m_nodes.get(fin, "sense") == '+';
    if (m_nodes.get(fin, "vertex") != (along ? end : start))
      problem(nodeName("HALFEDGE", fin) + ": vertex is not the edge end it runs into");
    if (m_nodes.get(m_nodes.get(fin, "backward"), "vertex") != (along ? start : end))
      problem(nodeName("HALFEDGE", fin) + ": the fin before it ends elsewhere than where it starts");
  }

  // The face lies to the left of its loops seen from the face normal's side. Checked
  // where it is exact: planar faces whose every edge is a line.
  void checkWinding(int64_t face, const std::vector<int64_t>& loops) {
    Vec3 normal;
    int64_t plane = m_nodes.get(face, "surface");
    if (m_nodes.type(plane) != kPlane || !m_nodes.vec(plane, "normal", normal) || loops.empty()) return;
    double sign = (m_nodes.get(plane, "sense") == '-') != (m_nodes.get(face, "sense") == '-') ? -1 : 1;
    double area = 0;
    for (int64_t loop : loops) {
      std::vector<Vec3> corners;
      if (!straightLoopCorners(loop, corners)) return;
      area += signedArea(corners, normal);
    }
    if (sign * area <= 0) problem(nodeName("FACE", face) + ": loops do not run counter-clockwise about the face normal");
  }

  bool straightLoopCorners(int64_t loop, std::vector<Vec3>& corners) const {
    int64_t first = m_nodes.get(loop, "halfedge"), fin = first;
    do {
      Vec3 p;
      int64_t edge = m_nodes.get(fin, "edge");
      if (!edge || m_nodes.type(m_nodes.get(edge, "curve")) != kLine) return false;
      if (!m_nodes.vec(m_nodes.get(m_nodes.get(fin, "vertex"), "point"), "pvec", p)) return false;
      corners.push_back(p);
      fin = m_nodes.get(fin, "forward");
    } while (fin && fin != first && corners.size() <= m_nodes.limit());
    return fin == first;
  }

  static double signedArea(const std::vector<Vec3>& corners, const Vec3& normal) {
    double area = 0;
    for (size_t i = 0; i < corners.size(); ++i) {
      const Vec3& a = corners[i];
      const Vec3& b = corners[(i + 1) % corners.size()];
      Vec3 cross{a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
      area += cross[0] * normal[0] + cross[1] * normal[1] + cross[2] * normal[2];
    }
    return area / 2;
  }

  void walkEdges() {
    int64_t before = 0;
    chain(m_nodes.get(m_counts.bodyIndex, "edge"), "next", "edge", [&](int64_t edge) {
      ++m_counts.edges;
      if (m_nodes.get(edge, "previous") != before) problem(nodeName("EDGE", edge) + ": previous does not lead back");
      before = edge;
      m_counts.ringEdges += m_nodes.get(m_nodes.get(edge, "halfedge"), "vertex") == 0;
      checkEdgeRing(edge);
    });
  }

  // The fins of an edge form a ring through 'other', all on that edge. A solid's
  // edge has exactly two fins in loops, of opposite sense; its head fin is '+'.
  void checkEdgeRing(int64_t edge) {
    int64_t head = m_nodes.get(edge, "halfedge");
    if (!head) return problem(nodeName("EDGE", edge) + ": no fin");
    int visible = 0, positive = 0;
    int64_t fin = head;
    for (size_t steps = 0;; ++steps) {
      if (steps > m_nodes.limit() || !fin) return problem(nodeName("EDGE", edge) + ": fin ring does not close");
      if (m_nodes.get(fin, "edge") != edge) problem(nodeName("HALFEDGE", fin) + ": in the ring of another edge");
      if (m_nodes.get(fin, "loop")) {
        ++visible;
        positive += m_nodes.get(fin, "sense") == '+';
      }
      fin = m_nodes.get(fin, "other");
      if (fin == head) break;
    }
    if (!solid()) return;
    if (visible != 2 || positive != 1)
      problem(nodeName("EDGE", edge) + ": " + std::to_string(visible) + " fins in loops, " + std::to_string(positive) +
              " of them '+' (a solid needs one of each)");
    if (m_nodes.get(head, "sense") != '+') problem(nodeName("EDGE", edge) + ": the head fin is not '+'");
  }

  void walkVertices() {
    chain(m_nodes.get(m_counts.bodyIndex, "vertex"), "next", "vertex", [&](int64_t vertex) {
      ++m_counts.vertices;
      if (!m_nodes.get(vertex, "point")) problem(nodeName("VERTEX", vertex) + ": no point");
      chain(m_nodes.get(vertex, "halfedge"), "next_at_vx", "vertex fin", [&](int64_t fin) {
        if (m_nodes.get(fin, "vertex") != vertex)
          problem(nodeName("HALFEDGE", fin) + ": chained at a vertex it does not run into");
      });
    });
  }

  // Euler-Poincare: V - E + F - (L - F) = 2 (S - G) with genus G >= 0, S the
  // boundaries (shells of solid regions). A ring edge counts as an edge closed on
  // a vertex of its own: a circle with no vertex is not a cell complex.
  void checkEuler() {
    const BodyCounts& c = m_counts;
    int twiceShellsLessGenus = c.vertices + c.ringEdges - c.edges + 2 * c.faces - c.loops;
    if (twiceShellsLessGenus % 2 != 0 || twiceShellsLessGenus > 2 * c.solidShells)
      problem(nodeName("BODY", c.bodyIndex) + ": V - E + 2F - L = " + std::to_string(twiceShellsLessGenus) +
              " does not fit " + std::to_string(c.solidShells) + " shell(s) (V " + std::to_string(c.vertices) + ", ring edges " + std::to_string(c.ringEdges) +
              ", E " + std::to_string(c.edges) + ", F " + std::to_string(c.faces) + ", L " + std::to_string(c.loops) + ")");
  }

  const Nodes& m_nodes;
  TopologyReport& m_report;
  BodyCounts m_counts;
  std::set<int64_t> m_faces;  // each face once, though both sides' shells list it
};

}  // namespace

TopologyReport checkTopology(const Graph& graph) {
  TopologyReport report;
  Nodes nodes(graph);
  for (const Graph::Node& node : graph.nodes())
    if (node.type == kBody) BodyChecker(nodes, node.index, report).run();
  return report;
}

}  // namespace meld::xt
