#include "BodyWriter.h"

#include "ModelError.h"

#include <BRepBuilderAPI_Copy.hxx>
#include <BRepClass3d.hxx>
#include <BRepLib.hxx>
#include <BRepTools_WireExplorer.hxx>
#include <BRep_Tool.hxx>
#include <TopExp.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Iterator.hxx>
#include <BRep_Builder.hxx>
#include <TopoDS_Compound.hxx>
#include <TopoDS_Shell.hxx>
#include <TopoDS_Solid.hxx>
#include <TopoDS_Wire.hxx>

#include <Geom_Conic.hxx>
#include <Geom_ElementarySurface.hxx>
#include <Geom_Line.hxx>
#include <Geom_TrimmedCurve.hxx>
#include <Geom_RectangularTrimmedSurface.hxx>

#include <algorithm>
#include <unordered_set>
#include <cmath>

namespace meld::model {
namespace {

// Tolerances OCCT holds at its confusion are accurate entities in the format;
// anything above is written as a tolerant edge or vertex.
constexpr double kAccurate = 1.5e-7;

const void* key(const TopoDS_Shape& s) { return s.TShape().get(); }

class BodyWriterImpl {
 public:
  BodyWriterImpl(GraphSink& sink, const TopoDS_Shape& shape) : m_sink(sink), m_geometry(sink), m_shape(shape) {}

  WrittenBody run() {
    prepareCurves();
    markFreeformEdges();
    m_out.body = m_sink.add("BODY", {{"res_size", 1000.0}, {"res_linear", 1e-8}, {"state", int64_t{1}},
                                     {"nom_geom_state", int64_t{1}}});
    m_infinite = region('V');
    writeSolids();
    writeSheets();
    writeWires();
    finishEdges();
    finishVertices();
    finishBody();
    return std::move(m_out);
  }

 private:
  struct Fin {
    int64_t node;
    bool positive;
  };
  struct EdgeInfo {
    int64_t node = 0;
    int64_t start = 0, end = 0;  // vertex nodes
    std::vector<Fin> fins;
    bool wireframe = false;
    bool tolerant = false;  // fins carry SP-curves with the edge's parameters
    double first = 0, last = 0;
  };
  struct ShellFaces {
    int64_t shell = 0;
    std::vector<int64_t> back, front;
  };

  // Edges that only have pcurves get 3D curves, on a copy: the body's shape is shared.
  void prepareCurves() {
    for (TopExp_Explorer e(m_shape, TopAbs_EDGE); e.More(); e.Next()) {
      const TopoDS_Edge& edge = TopoDS::Edge(e.Current());
      if (!BRep_Tool::Degenerated(edge) && !BRep_Tool::IsGeometric(edge)) {
        m_shape = BRepBuilderAPI_Copy(m_shape).Shape();
        BRepLib::BuildCurves3d(m_shape);
        return;
      }
    }
  }

  // Edges that keep their pcurves: those on a free-form face (B-spline, offset,
  // swept, spun), on a free-form curve, or above OCCT's confusion, and then every
  // edge of a face that has one of them, so that a face's pcurves stay in one
  // period. A pcurve projected again from the curve would give a slightly
  // different face.
  static bool freeformCurve(const TopoDS_Edge& e) {
    double f = 0, l = 0;
    Handle(Geom_Curve) c = BRep_Tool::Curve(e, f, l);
    while (auto t = Handle(Geom_TrimmedCurve)::DownCast(c)) c = t->BasisCurve();
    return !c.IsNull() && !c->IsKind(STANDARD_TYPE(Geom_Conic)) && !c->IsKind(STANDARD_TYPE(Geom_Line));
  }

  void markFreeformEdges() {
    std::vector<TopoDS_Shape> faces;
    for (TopExp_Explorer f(m_shape, TopAbs_FACE); f.More(); f.Next()) {
      faces.push_back(f.Current());
      Handle(Geom_Surface) s = BRep_Tool::Surface(TopoDS::Face(f.Current()));
      while (auto t = Handle(Geom_RectangularTrimmedSurface)::DownCast(s)) s = t->BasisSurface();
      const bool freeformFace = !s.IsNull() && !s->IsKind(STANDARD_TYPE(Geom_ElementarySurface));
      for (TopExp_Explorer e(f.Current(), TopAbs_EDGE); e.More(); e.Next()) {
        const TopoDS_Edge& edge = TopoDS::Edge(e.Current());
        if (freeformFace || BRep_Tool::Tolerance(edge) > kAccurate || freeformCurve(edge))
          m_keepPcurves.insert(key(edge));
      }
    }
    for (const TopoDS_Shape& f : faces) {
      bool any = false;
      for (TopExp_Explorer e(f, TopAbs_EDGE); e.More() && !any; e.Next()) any = m_keepPcurves.count(key(e.Current())) != 0;
      if (any)
        for (TopExp_Explorer e(f, TopAbs_EDGE); e.More(); e.Next())
          if (!BRep_Tool::Degenerated(TopoDS::Edge(e.Current()))) m_keepPcurves.insert(key(e.Current()));
    }
  }

  int64_t region(char type) {
    int64_t r = m_sink.add("REGION", {{"body", m_out.body}, {"type", int64_t{type}}});
    m_sink.set(r, "node_id", r);
    if (!m_regions.empty()) {
      m_sink.set(m_regions.back(), "next", r);
      m_sink.set(r, "previous", m_regions.back());
    }
    m_regions.push_back(r);
    return r;
  }

  int64_t shell(int64_t inRegion, bool namesBody) {
    int64_t s = m_sink.add("SHELL", {{"region", inRegion}, {"body", namesBody ? m_out.body : 0}});
    m_sink.set(s, "node_id", s);
    auto& shells = m_shellsOf[inRegion];
    if (shells.empty()) m_sink.set(inRegion, "shell", s);
    else m_sink.set(shells.back(), "next", s);
    shells.push_back(s);
    if (namesBody && m_firstShell == 0) m_firstShell = s;
    return s;
  }

  // A shell of faces seen from its region: back faces have the region behind them.
  void shellFaces(int64_t shellNode, const TopoDS_Shape& faces, bool back, bool front) {
    ShellFaces sf;
    sf.shell = shellNode;
    for (TopExp_Explorer e(faces, TopAbs_FACE); e.More(); e.Next()) {
      int64_t f = face(TopoDS::Face(e.Current()));
      if (back) sf.back.push_back(f);
      if (front) sf.front.push_back(f);
    }
    linkFaces(sf);
  }

  void linkFaces(const ShellFaces& sf) {
    auto link = [&](const std::vector<int64_t>& faces, std::string_view head, std::string_view next,
                    std::string_view previous, std::string_view side) {
      if (faces.empty()) return;
      m_sink.set(sf.shell, head, faces.front());
      for (size_t i = 0; i < faces.size(); ++i) {
        m_sink.set(faces[i], side, sf.shell);
        if (i + 1 < faces.size()) m_sink.set(faces[i], next, faces[i + 1]);
        if (i > 0) m_sink.set(faces[i], previous, faces[i - 1]);
      }
    };
    link(sf.back, "face", "next", "previous", "shell");
    link(sf.front, "front_face", "next_front", "previous_front", "front_shell");
  }

  void writeSolids() {
    for (TopExp_Explorer s(m_shape, TopAbs_SOLID); s.More(); s.Next()) {
      const TopoDS_Solid& solid = TopoDS::Solid(s.Current());
      ++m_solids;
      int64_t r = region('S');
      m_out.nodes[key(solid)] = r;
      TopoDS_Shell outer = BRepClass3d::OuterShell(solid);
      for (TopoDS_Iterator it(solid); it.More(); it.Next()) {
        if (it.Value().ShapeType() != TopAbs_SHELL) continue;
        const TopoDS_Shape& boundary = it.Value();
        int64_t inside = shell(r, true);
        m_out.nodes[key(boundary)] = inside;
        shellFaces(inside, boundary, true, false);
        // The same faces seen from the void outside: the infinite region for the
        // outer boundary, a void region of its own for a cavity.
        int64_t voidRegion = boundary.IsSame(outer) ? m_infinite : region('V');
        shellFaces(shell(voidRegion, false), boundary, false, true);
      }
    }
  }

  // Faces outside solids: each shell (or the loose faces together) a shell of the
  // infinite void with every face on both of its sides. (An explorer does not
  // avoid the type of its root, so pieces already written are skipped by hand.)
  void writeSheets() {
    for (TopExp_Explorer s(m_shape, TopAbs_SHELL); s.More(); s.Next()) {
      TopExp_Explorer first(s.Current(), TopAbs_FACE);
      if (!first.More() || m_faces.count(key(first.Current()))) continue;
      int64_t sh = shell(m_infinite, true);
      m_out.nodes[key(s.Current())] = sh;
      shellFaces(sh, s.Current(), true, true);
      ++m_sheets;
    }
    TopoDS_Compound loose;
    BRep_Builder().MakeCompound(loose);
    bool any = false;
    for (TopExp_Explorer f(m_shape, TopAbs_FACE); f.More(); f.Next()) {
      if (m_faces.count(key(f.Current()))) continue;
      BRep_Builder().Add(loose, f.Current());
      any = true;
    }
    if (any) {
      shellFaces(shell(m_infinite, true), loose, true, true);
      ++m_sheets;
    }
  }

  // Edges outside faces are wireframe edges of one shell; vertices outside edges
  // are acorn shells of their own.
  void writeWires() {
    std::vector<int64_t> wire;
    for (TopExp_Explorer e(m_shape, TopAbs_EDGE); e.More(); e.Next()) {
      const TopoDS_Edge& edge = TopoDS::Edge(e.Current());
      if (BRep_Tool::Degenerated(edge) || m_edges.count(key(edge))) continue;
      wire.push_back(edgeNode(edge).node);
      m_edges[key(edge)].wireframe = true;
    }
    if (!wire.empty()) {
      int64_t sh = shell(m_infinite, true);
      m_sink.set(sh, "edge", wire.front());
      for (size_t i = 0; i < wire.size(); ++i) {
        m_sink.set(wire[i], "owner", sh);
        if (i + 1 < wire.size()) m_sink.set(wire[i], "next", wire[i + 1]);
        if (i > 0) m_sink.set(wire[i], "previous", wire[i - 1]);
      }
      ++m_wires;
    }
    for (TopExp_Explorer v(m_shape, TopAbs_VERTEX); v.More(); v.Next()) {
      if (m_vertices.count(key(v.Current()))) continue;
      int64_t sh = shell(m_infinite, true);
      int64_t vx = vertexNode(TopoDS::Vertex(v.Current()));
      m_sink.set(sh, "vertex", vx);
      m_sink.set(vx, "owner", sh);
      ++m_acorns;
    }
  }

  int64_t vertexNode(const TopoDS_Vertex& v) {
    if (auto it = m_vertices.find(key(v)); it != m_vertices.end()) return it->second;
    int64_t node = m_sink.add("VERTEX", {{"owner", m_out.body}});
    m_sink.set(node, "node_id", node);
    int64_t point = m_geometry.point(BRep_Tool::Pnt(v), node);
    m_sink.set(node, "point", point);
    m_out.geometry[key(v)] = point;
    double tol = BRep_Tool::Tolerance(v);
    if (tol > kAccurate) m_sink.set(node, "tolerance", tol);
    m_vertices.emplace(key(v), node);
    m_vertexOrder.push_back(node);
    m_out.nodes[key(v)] = node;
    return node;
  }

  EdgeInfo& edgeNode(const TopoDS_Edge& oriented) {
    if (auto it = m_edges.find(key(oriented)); it != m_edges.end()) return it->second;
    TopoDS_Edge e = TopoDS::Edge(oriented.Oriented(TopAbs_FORWARD));
    EdgeInfo info;
    info.node = m_sink.add("EDGE", {{"owner", m_out.body}});
    m_sink.set(info.node, "node_id", info.node);
    double first = 0, last = 0;
    Handle(Geom_Curve) c = BRep_Tool::Curve(e, first, last);
    if (c.IsNull()) throw ModelError(PK_ERROR_unsupported_part, "an edge has no 3D curve");
    double tol = BRep_Tool::Tolerance(e);
    info.first = first;
    info.last = last;
    TopoDS_Vertex vf, vl;
    TopExp::Vertices(e, vf, vl);
    if (vf.IsNull() || vl.IsNull()) throw ModelError(PK_ERROR_unsupported_part, "an edge without vertices");
    const bool tolerantVertex = BRep_Tool::Tolerance(vf) > kAccurate || BRep_Tool::Tolerance(vl) > kAccurate;
    if (m_keepPcurves.count(key(e))) {
      // A tolerant edge: its curve trimmed to the edge, and on every fin the
      // pcurve of its face with the same parameters, so that reading it back
      // gives the same edge.
      m_sink.set(info.node, "tolerance", tol);
      info.tolerant = true;
    }
    if (info.tolerant || tolerantVertex) {
      // The curve trimmed to the edge: its ends are not where the (tolerant)
      // vertices are, so the parameters must be said.
      int64_t basisNode = m_geometry.curve(c, first, last, 0);
      m_sink.set(info.node, "curve", m_geometry.trimmed(basisNode, first, last, c->Value(first), c->Value(last), info.node));
      m_out.geometry[key(e)] = basisNode;
    } else {
      m_out.geometry[key(e)] = m_geometry.curve(c, first, last, info.node);
      m_sink.set(info.node, "curve", m_out.geometry[key(e)]);
    }
    info.start = vertexNode(vf);
    info.end = vertexNode(vl);
    m_edgeOrder.push_back(key(e));
    m_out.nodes[key(e)] = info.node;
    return m_edges.emplace(key(e), info).first->second;
  }

  // Whether the edges' ends on the face lie at sane parameters. OCCT's
  // explorer brings points on a periodic surface into range a period at a
  // time, so a far-off end (a damaged file) keeps it busy for ever.
  static bool saneOnFace(const std::vector<TopoDS_Edge>& edges, const TopoDS_Face& f) {
    constexpr double kFar = 1e7;
    for (const TopoDS_Edge& e : edges) {
      double first = 0, last = 0;
      Handle(Geom2d_Curve) pcurve = BRep_Tool::CurveOnSurface(e, f, first, last);
      if (pcurve.IsNull()) continue;
      if (!std::isfinite(first) || !std::isfinite(last)) return false;
      for (double t : {first, last}) {
        gp_Pnt2d p = pcurve->Value(t);
        if (!(std::abs(p.X()) < kFar && std::abs(p.Y()) < kFar)) return false;
      }
    }
    return true;
  }

  // The edges of a wire in loop order, as the face sees them.
  std::vector<TopoDS_Edge> loopEdges(const TopoDS_Wire& wire, const TopoDS_Face& f) {
    std::vector<TopoDS_Edge> ordered, plain;
    for (TopoDS_Iterator it(wire); it.More(); it.Next())
      if (it.Value().ShapeType() == TopAbs_EDGE) plain.push_back(TopoDS::Edge(it.Value()));
    // Found by fuzzing: such a wire keeps its stored order.
    if (!saneOnFace(plain, f)) return plain;
    for (BRepTools_WireExplorer w(wire, f); w.More() && ordered.size() <= plain.size(); w.Next())
      ordered.push_back(w.Current());
    return ordered.size() == plain.size() ? ordered : plain;
  }

  int64_t face(const TopoDS_Face& f) {
    if (auto it = m_faces.find(key(f)); it != m_faces.end()) return it->second;
    int64_t node = m_sink.add("FACE", {});
    m_sink.set(node, "node_id", node);
    m_faces.emplace(key(f), node);
    m_out.nodes[key(f)] = node;
    Handle(Geom_Surface) surface = BRep_Tool::Surface(f);
    if (surface.IsNull()) throw ModelError(PK_ERROR_unsupported_part, "a face has no surface");
    GeometryWriter::Surface s = m_geometry.surface(surface, node);
    m_faceSurface = s;
    m_sink.set(node, "surface", s.node);
    m_out.geometry[key(f)] = s.node;
    const bool forward = f.Orientation() != TopAbs_REVERSED;
    m_sink.set(node, "sense", sense(forward != s.reversesNormal));

    std::vector<int64_t> loops;
    for (TopoDS_Iterator it(f); it.More(); it.Next()) {
      int64_t loop = 0;
      if (it.Value().ShapeType() == TopAbs_WIRE) loop = wireLoop(TopoDS::Wire(it.Value()), f, node);
      else if (it.Value().ShapeType() == TopAbs_VERTEX) loop = isolatedLoop(TopoDS::Vertex(it.Value()), node);
      if (loop == 0) continue;
      if (!loops.empty()) m_sink.set(loops.back(), "next", loop);
      else m_sink.set(node, "loop", loop);
      loops.push_back(loop);
    }
    return node;
  }

  int64_t wireLoop(const TopoDS_Wire& wire, const TopoDS_Face& f, int64_t faceNode) {
    std::vector<int64_t> fins;
    int64_t loop = 0;
    for (const TopoDS_Edge& e : loopEdges(wire, f)) {
      if (BRep_Tool::Degenerated(e)) continue;  // the format has no edges of zero length
      TopAbs_Orientation o = e.Orientation();
      if (o != TopAbs_FORWARD && o != TopAbs_REVERSED) continue;
      if (loop == 0) {
        loop = m_sink.add("LOOP", {{"face", faceNode}});
        m_sink.set(loop, "node_id", loop);
        m_out.nodes[key(wire)] = loop;
      }
      EdgeInfo& info = edgeNode(e);
      bool positive = o == TopAbs_FORWARD;
      int64_t fin = m_sink.add("HALFEDGE", {{"loop", loop}, {"edge", info.node}, {"sense", sense(positive)},
                                            {"vertex", positive ? info.end : info.start}});
      info.fins.push_back({fin, positive});
      fins.push_back(fin);
      if (info.tolerant) finCurve(fin, e, f, info);
    }
    if (loop == 0) return 0;
    m_sink.set(loop, "halfedge", fins.front());
    for (size_t i = 0; i < fins.size(); ++i) {
      m_sink.set(fins[i], "forward", fins[(i + 1) % fins.size()]);
      m_sink.set(fins[i], "backward", fins[(i + fins.size() - 1) % fins.size()]);
    }
    return loop;
  }

  void finCurve(int64_t fin, const TopoDS_Edge& e, const TopoDS_Face& f, const EdgeInfo& info) {
    double pf = 0, pl = 0;
    Handle(Geom2d_Curve) pcurve = BRep_Tool::CurveOnSurface(e, f, pf, pl);
    if (pcurve.IsNull() || std::abs(pf - info.first) > 1e-12 || std::abs(pl - info.last) > 1e-12) return;
    int64_t planar = m_geometry.curve2d(pcurve, pf, pl, m_faceSurface);
    if (planar == 0) return;
    int64_t sp = m_geometry.spCurve(m_faceSurface.node, planar);
    gp_Pnt p1 = BRep_Tool::Pnt(TopExp::FirstVertex(e, true)), p2 = BRep_Tool::Pnt(TopExp::LastVertex(e, true));
    TopLoc_Location loc;
    double cf = 0, cl = 0;
    if (Handle(Geom_Curve) c = BRep_Tool::Curve(e, cf, cl); !c.IsNull()) {
      p1 = c->Value(pf);
      p2 = c->Value(pl);
    }
    m_sink.set(fin, "curve", m_geometry.trimmed(sp, pf, pl, p1, p2, fin));
  }

  int64_t isolatedLoop(const TopoDS_Vertex& v, int64_t faceNode) {
    int64_t loop = m_sink.add("LOOP", {{"face", faceNode}});
    m_sink.set(loop, "node_id", loop);
    int64_t vx = vertexNode(v);
    int64_t fin = m_sink.add("HALFEDGE", {{"loop", loop}, {"vertex", vx}, {"sense", sense(true)}});
    m_sink.set(fin, "forward", fin);
    m_sink.set(fin, "backward", fin);
    m_sink.set(loop, "halfedge", fin);
    m_finsAt[vx].push_back(fin);
    return loop;
  }

  // Each edge's fins form a ring headed by a '+' fin, senses alternating; a side
  // no face uses gets a dummy fin. The head is chained at the edge's end vertex,
  // the fin after it at its start.
  void finishEdges() {
    std::vector<int64_t> bodyEdges;
    for (const void* k : m_edgeOrder) {
      EdgeInfo& info = m_edges.at(k);
      std::vector<int64_t> plus, minus;
      for (const Fin& fin : info.fins) (fin.positive ? plus : minus).push_back(fin.node);
      auto dummy = [&](bool positive) {
        return m_sink.add("HALFEDGE", {{"edge", info.node}, {"sense", sense(positive)},
                                       {"vertex", positive ? info.end : info.start}});
      };
      if (plus.empty()) plus.push_back(dummy(true));
      if (minus.empty()) minus.push_back(dummy(false));
      std::vector<int64_t> ring;
      for (size_t i = 0; i < std::max(plus.size(), minus.size()); ++i) {
        if (i < plus.size()) ring.push_back(plus[i]);
        if (i < minus.size()) ring.push_back(minus[i]);
      }
      for (size_t i = 0; i < ring.size(); ++i) m_sink.set(ring[i], "other", ring[(i + 1) % ring.size()]);
      m_sink.set(info.node, "halfedge", ring[0]);
      m_finsAt[info.end].push_back(ring[0]);
      m_finsAt[info.start].push_back(ring[1]);
      if (!info.wireframe) bodyEdges.push_back(info.node);
    }
    for (size_t i = 0; i < bodyEdges.size(); ++i) {
      if (i + 1 < bodyEdges.size()) m_sink.set(bodyEdges[i], "next", bodyEdges[i + 1]);
      if (i > 0) m_sink.set(bodyEdges[i], "previous", bodyEdges[i - 1]);
    }
    if (!bodyEdges.empty()) m_sink.set(m_out.body, "edge", bodyEdges.front());
  }

  void finishVertices() {
    for (size_t i = 0; i < m_vertexOrder.size(); ++i) {
      int64_t v = m_vertexOrder[i];
      if (i + 1 < m_vertexOrder.size()) m_sink.set(v, "next", m_vertexOrder[i + 1]);
      if (i > 0) m_sink.set(v, "previous", m_vertexOrder[i - 1]);
      const auto& fins = m_finsAt[v];
      if (fins.empty()) continue;
      m_sink.set(v, "halfedge", fins.front());
      for (size_t j = 0; j + 1 < fins.size(); ++j) m_sink.set(fins[j], "next_at_vx", fins[j + 1]);
    }
    if (!m_vertexOrder.empty()) m_sink.set(m_out.body, "vertex", m_vertexOrder.front());
  }

  void finishBody() {
    int64_t type = 6;  // general: a mix, or several kinds of piece
    const int kinds = (m_solids > 0) + (m_sheets > 0) + (m_wires > 0) + (m_acorns > 0);
    if (kinds == 1 && m_solids > 0) type = 1;
    else if (kinds == 1 && m_sheets > 0) type = 3;
    else if (kinds == 1 && (m_wires > 0 || m_acorns == 1)) type = 2;
    if (kinds == 0) throw ModelError(PK_ERROR_unsupported_part, "an empty body cannot be written");
    const int64_t b = m_out.body;
    m_sink.set(b, "body_type", type);
    m_sink.set(b, "region", m_regions.front());
    m_sink.set(b, "shell", m_firstShell);
    m_sink.set(b, "boundary_surface", m_geometry.surfaces());
    m_sink.set(b, "boundary_curve", m_geometry.curves());
    m_sink.set(b, "boundary_point", m_geometry.points());
    m_sink.set(b, "highest_node_id", m_sink.highestIndex());
  }

  GraphSink& m_sink;
  GeometryWriter m_geometry;
  TopoDS_Shape m_shape;
  WrittenBody m_out;
  GeometryWriter::Surface m_faceSurface;
  int64_t m_infinite = 0, m_firstShell = 0;
  int m_solids = 0, m_sheets = 0, m_wires = 0, m_acorns = 0;
  std::vector<int64_t> m_regions;
  std::unordered_map<int64_t, std::vector<int64_t>> m_shellsOf;
  std::unordered_map<const void*, int64_t> m_faces, m_vertices;
  std::unordered_map<const void*, EdgeInfo> m_edges;
  std::vector<const void*> m_edgeOrder;
  std::unordered_set<const void*> m_keepPcurves;
  std::vector<int64_t> m_vertexOrder;
  std::unordered_map<int64_t, std::vector<int64_t>> m_finsAt;
};

}  // namespace

WrittenBody writeBody(GraphSink& sink, const TopoDS_Shape& shape) {
  if (shape.IsNull()) throw ModelError(PK_ERROR_unsupported_part, "a body without a shape cannot be written");
  return BodyWriterImpl(sink, shape).run();
}

}  // namespace meld::model
