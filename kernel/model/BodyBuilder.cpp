#include "BodyBuilder.h"
#include "EdgePcurves.h"
#include "PoleClosure.h"
#include "TrimmedPeriodic.h"
#include "WoundFaces.h"

#include <BRepBuilderAPI_MakeFace.hxx>
#include <BRepLib.hxx>
#include <BRep_Builder.hxx>
#include <BRep_Tool.hxx>
#include <ElCLib.hxx>
#include <GeomConvert.hxx>
#include <Geom_BSplineCurve.hxx>
#include <Geom_Circle.hxx>
#include <Geom_ElementarySurface.hxx>
#include <Geom_Ellipse.hxx>
#include <Geom_Line.hxx>
#include <Precision.hxx>
#include <ShapeAnalysis_Curve.hxx>
#include <ShapeBuild_ReShape.hxx>
#include <ShapeFix_Face.hxx>
#include <ShapeFix_Shape.hxx>
#include <ShapeFix_Shell.hxx>
#include <ShapeFix_Solid.hxx>
#include <ShapeFix_Wire.hxx>
#include <Standard_Failure.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Compound.hxx>
#include <TopoDS_Shell.hxx>
#include <TopoDS_Solid.hxx>
#include <TopoDS_Wire.hxx>

#include <algorithm>
#include <map>
#include <cmath>
#include <unordered_set>

namespace meld::model {
namespace {

constexpr double kMinTolerance = 1e-7;  // OCCT's confusion: nothing holds less

// An XT tolerance (null: accurate) as an OCCT one.
double tolerance(const NodeAccess& n, long node) {
  double t = n.real(node, "tolerance");
  return std::isfinite(t) ? std::max(t, kMinTolerance) : kMinTolerance;
}

// The parameter of a point on a curve: exact for the conics, by projection otherwise.
double parameterOf(const Handle(Geom_Curve)& curve, const gp_Pnt& p) {
  if (auto line = Handle(Geom_Line)::DownCast(curve)) return ElCLib::Parameter(line->Lin(), p);
  if (auto circle = Handle(Geom_Circle)::DownCast(curve)) return ElCLib::Parameter(circle->Circ(), p);
  if (auto ellipse = Handle(Geom_Ellipse)::DownCast(curve)) return ElCLib::Parameter(ellipse->Elips(), p);
  gp_Pnt projected;
  double parameter = 0;
  ShapeAnalysis_Curve().Project(curve, p, Precision::Confusion(), projected, parameter, false);
  return parameter;
}

// A closed curve that is not periodic (a converted closed chart, G1 but not C1 in
// its parameter where it closes) as a periodic one with the same parameter on
// its base range, so that an edge can run through the closing point.
Handle(Geom_Curve) wrapped(const Handle(Geom_Curve)& closed) {
  Handle(Geom_BSplineCurve) spline = Handle(Geom_BSplineCurve)::DownCast(closed);
  if (spline.IsNull()) spline = GeomConvert::CurveToBSplineCurve(closed);
  spline = Handle(Geom_BSplineCurve)::DownCast(spline->Copy());
  spline->SetPeriodic();
  return spline;
}

// Widens a vertex's tolerance to reach a point that must lie on it (a curve end).
void reach(BRep_Builder& b, const TopoDS_Vertex& v, const gp_Pnt& p) {
  double d = BRep_Tool::Pnt(v).Distance(p);
  if (d > BRep_Tool::Tolerance(v)) b.UpdateVertex(v, d * 1.001);
}

// Whether every edge of the face runs along it twice, once each way: a whole
// sphere or torus sent as one face bounded by its seam.
bool boundedOnlyBySeams(const TopoDS_Face& face) {
  std::map<const void*, int> uses;
  for (TopExp_Explorer x(face, TopAbs_EDGE); x.More(); x.Next())
    uses[x.Current().TShape().get()] += x.Current().Orientation() == TopAbs_FORWARD ? 1 : 100;
  if (uses.empty()) return false;
  for (const auto& [edge, count] : uses)
    if (count != 101) return false;
  return true;
}

// The whole-body healing leaves loops as the file's senses give them (the area
// a loop encloses misjudges them on converted blend surfaces). A face bounded
// only by its seam on an elementary surface still needs its loop turned the
// right way, and there the enclosed area is a reliable guide, so such faces
// are healed first, one by one, with that fix on. Replacements go to `context`.
TopoDS_Shape orientLoopsOnElementarySurfaces(const TopoDS_Shape& shape,
                                             const Handle(ShapeBuild_ReShape)& context) {
  bool changed = false;
  for (TopExp_Explorer x(shape, TopAbs_FACE); x.More(); x.Next()) {
    const TopoDS_Face& face = TopoDS::Face(x.Current());
    TopLoc_Location where;
    Handle(Geom_Surface) surface = BRep_Tool::Surface(face, where);
    if (surface.IsNull() || !surface->IsKind(STANDARD_TYPE(Geom_ElementarySurface))) continue;
    if (!boundedOnlyBySeams(face)) continue;
    ShapeFix_Face fixer(face);
    fixer.SetPrecision(kMinTolerance);
    fixer.SetMinTolerance(kMinTolerance);
    fixer.SetMaxTolerance(1e-2);
    fixer.FixWireTool()->FixShiftedMode() = 0;  // as the whole-body pass below
    fixer.Perform();
    if (fixer.Face().IsSame(face) && fixer.Face().IsEqual(face)) continue;
    context->Replace(face, fixer.Face());
    changed = true;
  }
  return changed ? context->Apply(shape) : shape;
}

// Domes on surfaces of revolution closed at their poles, once healing has given
// their ring its pcurve. Replacements go to `context`.
TopoDS_Shape closeDomesAtPoles(const TopoDS_Shape& shape, const Handle(ShapeBuild_ReShape)& context) {
  bool changed = false;
  for (TopExp_Explorer x(shape, TopAbs_FACE); x.More(); x.Next()) {
    TopoDS_Face closed = closedAtPole(TopoDS::Face(x.Current()));
    if (closed.IsNull()) continue;
    context->Replace(x.Current(), closed);
    changed = true;
  }
  return changed ? context->Apply(shape) : shape;
}

}  // namespace

void BodyBuilder::badTopology(long node, const std::string& why) const {
  throw ModelError(PK_ERROR_bad_topology, "bad topology at " + m_n.describe(node) + ": " + why);
}

void BodyBuilder::checkType(long node, int type) const {
  if (m_n.type(node) != type) badTopology(node, "a pointer leads to a node of the wrong type");
}

// A null-terminated (or, as some writers leave it, circular) chain of one node type.
std::vector<long> BodyBuilder::chain(long first, std::string_view next, int type) {
  std::vector<long> nodes;
  std::unordered_set<long> seen;
  for (long at = first; at != kNone && seen.insert(at).second; at = m_n.ptr(at, next)) {
    checkType(at, type);
    nodes.push_back(at);
  }
  return nodes;
}

TopoDS_Vertex BodyBuilder::vertex(long node) {
  if (auto it = m_vertices.find(node); it != m_vertices.end()) return it->second;
  checkType(node, kVertex);
  long point = m_n.ptr(node, "point");
  if (point == kNone) badTopology(node, "vertex without a point");
  TopoDS_Vertex v;
  BRep_Builder().MakeVertex(v, m_cache.point(point), tolerance(m_n, node));
  m_vertices.emplace(node, v);
  m_topology[node] = v;
  return v;
}

BodyBuilder::Edge BodyBuilder::edge(long node) {
  if (auto it = m_edges.find(node); it != m_edges.end()) return it->second;
  checkType(node, kEdge);
  long head = m_n.ptr(node, "halfedge");
  if (head == kNone) badTopology(node, "edge without fins");
  checkType(head, kHalfedge);
  long other = m_n.ptr(head, "other");
  long headVertex = m_n.ptr(head, "vertex");
  long otherVertex = other == kNone ? kNone : m_n.ptr(other, "vertex");
  // The '+' fin runs into the edge's end, the '-' fin into its start.
  bool headPositive = m_n.character(head, "sense") != '-';
  long start = headPositive ? otherVertex : headVertex, end = headPositive ? headVertex : otherVertex;
  if ((start == kNone) != (end == kNone)) badTopology(node, "edge with one vertex");

  double tol = tolerance(m_n, node);
  long curve = m_n.ptr(node, "curve");
  bool onSurfaceOnly = curve == kNone;
  if (!onSurfaceOnly && m_n.type(curve) == kTrimmedCurve) {
    long basis = m_n.ptr(curve, "basis_curve");
    onSurfaceOnly = basis != kNone && m_n.type(basis) == kSpCurve;
  }
  if (!onSurfaceOnly && m_n.type(curve) == kSpCurve) onSurfaceOnly = true;
  Edge built = onSurfaceOnly ? edgeFromFins(node, start, end, tol) : edgeOnCurve(node, curve, start, end, tol);
  if (!onSurfaceOnly) attachFinCurves(node, built, curve);
  m_edges.emplace(node, built);
  m_topology[node] = built.edge;
  return built;
}

// An edge on its 3D curve. The OCCT edge runs with the curve's parameter; when the
// XT edge runs the other way the edge is marked flipped and its fins turn round.
BodyBuilder::Edge BodyBuilder::edgeOnCurve(long node, long curveNode, long start, long end, double tol) {
  long basis = curveNode;
  bool forward = m_cache.sense(curveNode) > 0;
  double a = 0, b = 0;
  bool trimmed = m_n.type(curveNode) == kTrimmedCurve;
  if (trimmed) {
    basis = m_n.require(curveNode, "basis_curve", PK_ERROR_bad_geometry);
    double p1 = m_n.real(curveNode, "parm_1"), p2 = m_n.real(curveNode, "parm_2");
    if (!std::isfinite(p1) || !std::isfinite(p2) || p1 == p2)
      throw ModelError(PK_ERROR_bad_geometry, m_n.describe(curveNode) + ": trim parameters");
    forward = p2 > p1;
    a = std::min(p1, p2);
    b = std::max(p1, p2);
  }
  Handle(Geom_Curve) curve = m_cache.curve(basis);
  const bool ring = start == kNone;
  if (!trimmed) {
    if (ring) {
      a = curve->FirstParameter();
      b = curve->IsPeriodic() ? a + curve->Period() : curve->LastParameter();
      if (Precision::IsInfinite(a) || Precision::IsInfinite(b))
        badTopology(node, "ring edge on an open curve");
    } else {
      double ts = parameterOf(curve, m_cache.point(m_n.ptr(start, "point")));
      double te = parameterOf(curve, m_cache.point(m_n.ptr(end, "point")));
      a = forward ? ts : te;
      b = forward ? te : ts;
      if (curve->IsPeriodic()) {
        const double period = curve->Period();
        while (b - a > period + Precision::PConfusion()) b -= period;
        while (b <= a + Precision::PConfusion() || (start == end && b - a < period - 1e-9)) b += period;
      } else if (start == end && curve->IsClosed()) {
        a = curve->FirstParameter();
        b = curve->LastParameter();
      } else if (b < a && curve->IsClosed()) {
        // The edge runs through the closing point of a closed curve (a closed
        // intersection chart): the other piece would be the edge's complement.
        curve = wrapped(curve);
        b += curve->Period();
      } else if (b < a) {
        std::swap(a, b);
        forward = !forward;
      }
    }
  }
  if (trimmed && !curve->IsPeriodic()) {
    // A converted basis (an intersection) ends at its chart's end parameter as
    // we compute it, which may differ from the writer's in the last digits;
    // OCCT refuses edge ranges that pass a curve's end at all.
    const double slack = 1e-5 * (curve->LastParameter() - curve->FirstParameter());
    if (a < curve->FirstParameter() && a > curve->FirstParameter() - slack) a = curve->FirstParameter();
    if (b > curve->LastParameter() && b < curve->LastParameter() + slack) b = curve->LastParameter();
  }
  if (!(b > a)) badTopology(node, "edge of zero length on its curve");

  BRep_Builder builder;
  TopoDS_Edge e;
  builder.MakeEdge(e, curve, tol);
  TopoDS_Vertex first, last;
  if (ring) {
    builder.MakeVertex(first, curve->Value(a), tol);
    last = first;
  } else {
    first = vertex(forward ? start : end);
    last = vertex(forward ? end : start);
  }
  builder.Add(e, first.Oriented(TopAbs_FORWARD));
  builder.Add(e, last.Oriented(TopAbs_REVERSED));
  builder.Range(e, a, b);
  reach(builder, first, curve->Value(a));
  reach(builder, last, curve->Value(b));
  return Edge{e, !forward};
}

bool BodyBuilder::faceFlipped(long face) const {
  long surfaceNode = m_n.ptr(face, "surface");
  if (surfaceNode == kNone) return false;
  bool flipped = (m_n.character(face, "sense") == '-') != (m_cache.sense(surfaceNode) < 0);
  return m_cache.reversesNormal(surfaceNode) ? !flipped : flipped;
}

// A tolerant edge whose curve is trimmed and whose fins carry SP-curves over the
// same parameters (what this kernel writes): those are the edge's pcurves as
// they were, on each face (two on a face the edge bounds twice, a seam).
void BodyBuilder::attachFinCurves(long node, const Edge& built, long curveNode) {
  if (m_n.type(curveNode) != kTrimmedCurve) return;
  const double p1 = m_n.real(curveNode, "parm_1"), p2 = m_n.real(curveNode, "parm_2");
  const double a = std::min(p1, p2), b = std::max(p1, p2), slack = 1e-12 * (1 + std::abs(a) + std::abs(b));
  struct Use {
    Handle(Geom2d_Curve) curve;
    bool along;
  };
  std::map<long, std::vector<Use>> uses;
  std::unordered_set<long> seen;
  for (long fin = m_n.ptr(node, "halfedge"); fin != kNone && seen.insert(fin).second; fin = m_n.ptr(fin, "other")) {
    long loop = m_n.ptr(fin, "loop"), fc = m_n.ptr(fin, "curve");
    if (loop == kNone || fc == kNone || m_n.type(fc) != kTrimmedCurve) continue;
    long sp = m_n.ptr(fc, "basis_curve");
    if (sp == kNone || m_n.type(sp) != kSpCurve) continue;
    const double q1 = m_n.real(fc, "parm_1"), q2 = m_n.real(fc, "parm_2");
    if (!(std::abs(std::min(q1, q2) - a) <= slack && std::abs(std::max(q1, q2) - b) <= slack)) continue;
    long face = m_n.ptr(loop, "face");
    if (face == kNone) continue;
    long surfaceNode = m_n.ptr(face, "surface");
    if (surfaceNode == kNone || m_n.ptr(sp, "surface") != surfaceNode) continue;
    bool along = (m_n.character(fin, "sense") != '-') != built.flipped;
    if (faceFlipped(face)) along = !along;
    uses[surfaceNode].push_back({m_cache.spCurve2d(sp), along});
  }
  BRep_Builder builder;
  const double tol = BRep_Tool::Tolerance(built.edge);
  for (auto& [surfaceNode, list] : uses) {
    Handle(Geom_Surface) surface = m_cache.surface(surfaceNode);
    if (list.size() == 1) builder.UpdateEdge(built.edge, list[0].curve, surface, TopLoc_Location(), tol);
    else if (list.size() == 2 && list[0].along != list[1].along) {
      const Use& forward = list[0].along ? list[0] : list[1];
      const Use& reversed = list[0].along ? list[1] : list[0];
      builder.UpdateEdge(built.edge, forward.curve, reversed.curve, surface, TopLoc_Location(), tol);
    }
  }
}

// A tolerant edge: no 3D curve, its fins carry (trimmed) SP-curves. The 3D curve is
// built from one fin's curve on its surface; the other faces get theirs when the
// body is healed.
BodyBuilder::Edge BodyBuilder::edgeFromFins(long node, long start, long end, double tol) {
  long head = m_n.ptr(node, "halfedge");
  long chosen = kNone;
  std::unordered_set<long> seen;
  for (long fin = head; fin != kNone && seen.insert(fin).second; fin = m_n.ptr(fin, "other"))
    if (m_n.ptr(fin, "loop") != kNone && m_n.ptr(fin, "curve") != kNone) {
      chosen = fin;
      break;
    }
  if (chosen == kNone) badTopology(node, "edge with neither a curve nor fin curves");
  long finCurve = m_n.ptr(chosen, "curve");
  long sp = finCurve;
  double p1 = NodeAccess::nan(), p2 = NodeAccess::nan();
  if (m_n.type(finCurve) == kTrimmedCurve) {
    sp = m_n.require(finCurve, "basis_curve", PK_ERROR_bad_geometry);
    p1 = m_n.real(finCurve, "parm_1");
    p2 = m_n.real(finCurve, "parm_2");
  }
  if (m_n.type(sp) != kSpCurve)
    throw ModelError(PK_ERROR_bad_geometry, m_n.describe(finCurve) + ": fin curve is not on a surface");
  Handle(Geom2d_Curve) c2d = m_cache.spCurve2d(sp);
  Handle(Geom_Surface) surface = m_cache.surface(m_n.require(sp, "surface", PK_ERROR_bad_geometry));
  if (!std::isfinite(p1) || !std::isfinite(p2)) {
    p1 = c2d->FirstParameter();
    p2 = c2d->LastParameter();
  }
  double a = std::min(p1, p2), b = std::max(p1, p2);
  if (!(b > a)) badTopology(node, "fin curve of zero length");

  BRep_Builder builder;
  TopoDS_Edge e;
  builder.MakeEdge(e);
  builder.UpdateEdge(e, c2d, surface, TopLoc_Location(), tol);
  builder.Range(e, surface, TopLoc_Location(), a, b);
  builder.Range(e, a, b, true);
  if (!BRepLib::BuildCurve3d(e, std::max(tol, 1e-5)))
    throw ModelError(PK_ERROR_bad_geometry, "cannot build a 3D curve for " + m_n.describe(node));
  TopLoc_Location loc;
  double f = 0, l = 0;
  Handle(Geom_Curve) curve = BRep_Tool::Curve(e, loc, f, l);
  if (curve.IsNull()) throw ModelError(PK_ERROR_bad_geometry, "cannot build a 3D curve for " + m_n.describe(node));

  // Which way the fin's curve runs along the XT edge. A fin's curve runs with the
  // fin, from parm_1 to parm_2, and a '-' fin runs against its edge; where the
  // two vertices are apart, the one nearer the curve's first point says it too.
  bool forward = (p2 > p1) == (m_n.character(chosen, "sense") != '-');
  TopoDS_Vertex first, last;
  if (start == kNone) {
    builder.MakeVertex(first, curve->Value(f), tol);
    last = first;
  } else {
    gp_Pnt at = curve->Value(f);
    gp_Pnt ps = m_cache.point(m_n.ptr(start, "point")), pe = m_cache.point(m_n.ptr(end, "point"));
    if (start != end) forward = at.Distance(ps) <= at.Distance(pe);
    first = vertex(forward ? start : end);
    last = vertex(forward ? end : start);
  }
  builder.Add(e, first.Oriented(TopAbs_FORWARD));
  builder.Add(e, last.Oriented(TopAbs_REVERSED));
  reach(builder, first, curve->Value(f));
  reach(builder, last, curve->Value(l));
  return Edge{e, !forward};
}

// A loop as a wire of oriented edges, or an isolated vertex. Built in the frame of
// the face's surface: when the face normal runs against the surface normal, every
// fin turns round and the ring is walked backwards.
TopoDS_Shape BodyBuilder::loopWire(long loop, bool faceFlipped, const TopoDS_Face&) {
  long head = m_n.ptr(loop, "halfedge");
  if (head == kNone) badTopology(loop, "loop without fins");
  std::vector<long> fins;
  std::unordered_set<long> seen;
  for (long fin = head; fin != kNone && seen.insert(fin).second; fin = m_n.ptr(fin, "forward")) {
    checkType(fin, kHalfedge);
    if (m_n.ptr(fin, "loop") != loop) badTopology(loop, "a fin of the loop names another loop");
    fins.push_back(fin);
  }
  if (m_n.ptr(fins.back(), "forward") != head) badTopology(loop, "the fin ring does not close");
  if (fins.size() == 1 && m_n.ptr(head, "edge") == kNone) {
    long v = m_n.ptr(head, "vertex");
    if (v == kNone) badTopology(loop, "isolated loop without a vertex");
    TopoDS_Shape isolated = vertex(v).Oriented(TopAbs_INTERNAL);
    m_topology[loop] = isolated;
    return isolated;
  }
  if (faceFlipped) std::reverse(fins.begin(), fins.end());
  BRep_Builder builder;
  TopoDS_Wire wire;
  builder.MakeWire(wire);
  for (long fin : fins) {
    long e = m_n.ptr(fin, "edge");
    if (e == kNone) badTopology(loop, "a fin without an edge in a loop of several fins");
    Edge built = edge(e);
    bool positive = m_n.character(fin, "sense") != '-';
    bool along = positive != built.flipped;
    if (faceFlipped) along = !along;
    builder.Add(wire, along ? built.edge : TopoDS::Edge(built.edge.Reversed()));
  }
  m_topology[loop] = wire;
  return wire;
}

TopoDS_Face BodyBuilder::face(long node) {
  if (auto it = m_faces.find(node); it != m_faces.end()) return it->second;
  checkType(node, kFace);
  long surfaceNode = m_n.ptr(node, "surface");
  if (surfaceNode == kNone) badTopology(node, "face without a surface");
  Handle(Geom_Surface) surface = m_cache.surface(surfaceNode);
  // The face normal is the surface's natural normal when face and surface senses agree.
  bool flipped = (m_n.character(node, "sense") == '-') != (m_cache.sense(surfaceNode) < 0);
  if (m_cache.reversesNormal(surfaceNode)) flipped = !flipped;

  std::vector<long> loops = chain(m_n.ptr(node, "loop"), "next", kLoop);
  TopoDS_Face f;
  if (loops.empty()) {
    // A closed surface with no boundary (a whole sphere or torus).
    BRepBuilderAPI_MakeFace whole(surface, Precision::Confusion());
    if (!whole.IsDone()) badTopology(node, "face without loops on a surface that is not closed");
    f = whole.Face();
  } else {
    BRep_Builder builder;
    builder.MakeFace(f, surface, Precision::Confusion());
    for (long loop : loops) {
      if (m_n.ptr(loop, "face") != node) badTopology(loop, "loop names another face");
      builder.Add(f, loopWire(loop, flipped, f));
    }
  }
  if (flipped) f.Reverse();
  m_faces.emplace(node, f);
  m_topology[node] = f;
  return f;
}

BuiltBody BodyBuilder::build(long body) {
  checkType(body, kBody);
  BuiltBody out;
  const int64_t xtType = m_n.integer(body, "body_type");
  switch (xtType) {
    case 1: out.type = PK_BODY_type_solid_c; break;
    case 2: out.type = PK_BODY_type_wire_c; break;
    case 3: out.type = PK_BODY_type_sheet_c; break;
    case 6: out.type = PK_BODY_type_general_c; break;
    default:
      throw ModelError(PK_ERROR_unsupported_part,
                       m_n.describe(body) + ": body type " + std::to_string(xtType) + " is not supported");
  }
  if (m_n.ptr(body, "child") != kNone)
    throw ModelError(PK_ERROR_unsupported_part, m_n.describe(body) + ": compound bodies are not supported");

  BRep_Builder builder;
  std::vector<TopoDS_Shape> pieces;
  std::unordered_set<long> facesUsed;
  bool anyVertex = false;
  std::vector<long> regions = chain(m_n.ptr(body, "region"), "next", kRegion);
  if (regions.empty()) badTopology(body, "body without regions");
  for (long region : regions)
    if (m_n.ptr(region, "body") != kNone && m_n.ptr(region, "body") != body)
      badTopology(region, "region of another body");
  // Solid regions first: their faces are the solids' boundaries. A void region's
  // shells then add only faces no solid has (sheets), wireframe edges and acorn
  // vertices; the faces between a solid and the void are not pieces of their own.
  for (bool solidPass : {true, false}) {
    for (long region : regions) {
      const bool solid = m_n.character(region, "type") == 'S';
      if (solid != solidPass) continue;
      TopoDS_Solid solidShape;
      if (solid) builder.MakeSolid(solidShape);
      for (long shell : chain(m_n.ptr(region, "shell"), "next", kShell)) {
        if (m_n.ptr(shell, "region") != region) badTopology(shell, "shell names another region");
        TopoDS_Shell shellShape;
        builder.MakeShell(shellShape);
        int faces = 0;
        // Back faces have the region behind them (their normal points out of it).
        for (long f : chain(m_n.ptr(shell, "face"), "next", kFace)) {
          if (!facesUsed.insert(f).second && !solid) continue;
          builder.Add(shellShape, face(f));
          ++faces;
        }
        for (long f : chain(m_n.ptr(shell, "front_face"), "next_front", kFace)) {
          if (!facesUsed.insert(f).second && !solid) continue;
          builder.Add(shellShape, solid ? face(f).Reversed() : face(f));
          ++faces;
        }
        if (faces > 0) {
          m_topology[shell] = shellShape;
          if (solid) builder.Add(solidShape, shellShape);
          else pieces.push_back(shellShape);
        }
        for (long e : chain(m_n.ptr(shell, "edge"), "next", kEdge)) pieces.push_back(edge(e).edge);
        if (long v = m_n.ptr(shell, "vertex"); v != kNone) {
          pieces.push_back(vertex(v));
          anyVertex = true;
        }
      }
      if (solid) {
        if (solidShape.NbChildren() == 0) badTopology(region, "solid region without a boundary");
        m_topology[region] = solidShape;
        pieces.push_back(solidShape);
      }
    }
  }
  if (pieces.empty()) badTopology(body, "body without faces, edges or vertices");
  if (anyVertex && pieces.size() == 1 && out.type == PK_BODY_type_wire_c) out.type = PK_BODY_type_acorn_c;

  TopoDS_Shape shape;
  if (pieces.size() == 1) {
    shape = pieces.front();
  } else {
    TopoDS_Compound compound;
    builder.MakeCompound(compound);
    for (const TopoDS_Shape& piece : pieces) builder.Add(compound, piece);
    shape = compound;
  }

  // What the format leaves implicit: pcurves, seam edges of periodic faces, same
  // parameter. Tolerances stay what the file says unless a curve end needs more.
  Handle(ShapeBuild_ReShape) turned = new ShapeBuild_ReShape;
  shape = orientLoopsOnElementarySurfaces(shape, turned);
  m_followed = followPcurves(shape);
  Handle(ShapeFix_Shape) fix = new ShapeFix_Shape(shape);
  fix->SetPrecision(kMinTolerance);
  fix->SetMinTolerance(kMinTolerance);
  fix->SetMaxTolerance(1e-2);
  // Pcurves the file gave keep their period: shifting them onto the base period
  // approximates them again.
  fix->FixWireTool()->FixShiftedMode() = 0;
  // Faces and shells keep the orientation the file's senses give them: healing
  // that turned them round would hide a wrong reading of the senses.
  fix->FixShellTool()->FixOrientationMode() = 0;
  fix->FixSolidTool()->FixShellOrientationMode() = 0;
  // Nor do loops get turned round by the area they enclose on the surface: on
  // converted blend surfaces that estimate misjudges (nxcmp-Brake_Piston BODY 7).
  fix->FixFaceTool()->FixOrientationMode() = 0;
  // Wires are not searched for crossing edges: the files' wires do not cross,
  // and the fix would widen vertex tolerances past the file's where pcurves
  // meet at a hair's angle. It was a third of healing's time.
  fix->FixWireTool()->FixSelfIntersectionMode() = 0;
  fix->Perform();
  Handle(ShapeBuild_ReShape) context = fix->Context();
  Handle(ShapeBuild_ReShape) untrimmed = new ShapeBuild_ReShape;
  Handle(ShapeBuild_ReShape) poles = new ShapeBuild_ReShape;
  Handle(ShapeBuild_ReShape) wound = new ShapeBuild_ReShape;
  out.shape = splitWoundFaces(closeDomesAtPoles(untrimPeriodicFaces(fix->Shape(), untrimmed), poles), wound);
  for (auto& [node, piece] : m_topology)
    out.topology.emplace(node,
                         wound->Apply(poles->Apply(untrimmed->Apply(context->Apply(turned->Apply(piece))))));
  return out;
}

}  // namespace meld::model
