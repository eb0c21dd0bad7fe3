#include "EdgePcurves.h"
#include "CachedEvaluation.h"
#include "SurfaceGrid.h"
#include "WoundFaces.h"

#include <BRep_Builder.hxx>
#include <Bnd_Box2d.hxx>
#include <BRep_Tool.hxx>
#include <Geom2d_BSplineCurve.hxx>
#include <Geom_BSplineCurve.hxx>
#include <Geom_ElementarySurface.hxx>
#include <Geom_Surface.hxx>
#include <Geom_TrimmedCurve.hxx>
#include <ShapeAnalysis_Surface.hxx>
#include <Standard_Failure.hxx>
#include <TColStd_Array1OfInteger.hxx>
#include <TColStd_Array1OfReal.hxx>
#include <TColgp_Array1OfPnt2d.hxx>
#include <TopExp.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Edge.hxx>
#include <TopoDS_Face.hxx>
#include <TopoDS_Iterator.hxx>
#include <TopoDS_Vertex.hxx>
#include <gp_Vec2d.hxx>

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

namespace meld::model {
namespace {

constexpr int kMinSpans = 16;       // first samples along an edge, before refining
constexpr int kMaxDepth = 24;       // halvings of one first span
constexpr size_t kMaxFeet = 20000;  // beyond this an edge is left to healing
// How near a whole period a wire going round a surface must come (of the period).
constexpr double kWindingSlack = 1e-9;
constexpr int kNewtonSteps = 30;
// Points farther than this from their foot (or than the edge's tolerance) are
// not followed: healing decides what such an edge means.
constexpr double kMaxOffSurface = 1e-6;

// A foot point of the edge's curve at parameter t, and how it moves with t.
struct Foot {
  double t = 0;
  gp_Pnt2d uv;
  gp_Vec2d d;  // d(u,v)/dt
};

// Free-form surfaces (B-surfaces, converted blends, offsets, swept and spun
// ones): healing projects onto elementary ones in closed form. A closed
// direction must be periodic, so that following an edge across it is
// unambiguous.
bool eligible(const Handle(Geom_Surface)& s) {
  if (s.IsNull() || s->IsKind(STANDARD_TYPE(Geom_ElementarySurface))) return false;
  return (!s->IsUClosed() || s->IsUPeriodic()) && (!s->IsVClosed() || s->IsVPeriodic());
}

// Healing projects a free-form edge onto an elementary surface through a few
// points: on nxcmp-Brake_Piston's nut a helix on a cylinder came out 5e-6 m off
// under a tolerance of 1e-7 (OCCT's checker samples where it happens to fit).
// Only a face winding more than once round such a surface has such edges all
// round it (see WoundFaces.h), so those faces are followed here too: the
// faces of a periodic elementary surface with a free-form edge are walked, and
// kept only when their wires span more than a period.
bool mayWind(const Handle(Geom_Surface)& s, const TopoDS_Face& face) {
  if (s.IsNull() || !s->IsKind(STANDARD_TYPE(Geom_ElementarySurface))) return false;
  if (!s->IsUPeriodic() && !s->IsVPeriodic()) return false;
  for (TopExp_Explorer x(face, TopAbs_EDGE); x.More(); x.Next()) {
    TopLoc_Location where;
    double first = 0, last = 0;
    Handle(Geom_Curve) curve = BRep_Tool::Curve(TopoDS::Edge(x.Current()), where, first, last);
    while (auto trimmed = Handle(Geom_TrimmedCurve)::DownCast(curve)) curve = trimmed->BasisCurve();
    if (!curve.IsNull() && curve->IsKind(STANDARD_TYPE(Geom_BSplineCurve))) return true;
  }
  return false;
}

class Follower {
 public:
  // `eval` is the face's, shared by its edges so that its span cache carries
  // from one edge to the next.
  Follower(const Handle(Geom_Surface)& surface, const CachedSurface& eval, const Handle(Geom_Curve)& curve,
           double maxOff)
      : m_eval(eval), m_c(curve), m_maxOff(maxOff) {
    double u1 = 0, u2 = 0, v1 = 0, v2 = 0;
    surface->Bounds(u1, u2, v1, v2);
    m_u = Range{u1, u2, !surface->IsUPeriodic()};
    m_v = Range{v1, v2, !surface->IsVPeriodic()};
  }

  // The foot of the curve point at t by Newton on the squared distance, from
  // `guess`. A foot just past a bounded range's border is held on the border
  // (contact lines run along a blend's border, a hair outside as converted):
  // it counts when that point is still near enough. Fails where the surface
  // is singular or the point lies too far from the surface.
  bool foot(double t, const gp_Pnt2d& guess, Foot& out) const {
    gp_Pnt target, p;
    gp_Vec dc, su, sv, suu, svv, suv;
    m_c.d1(t, target, dc);
    double u = guess.X(), v = guess.Y();
    for (int step = 0; step < kNewtonSteps; ++step) {
      m_eval.d2(u, v, p, su, sv, suu, svv, suv);
      const gp_Vec r(target, p);
      const double a = su.Dot(su) + r.Dot(suu), b = su.Dot(sv) + r.Dot(suv), c = sv.Dot(sv) + r.Dot(svv);
      const double det = a * c - b * b;
      if (!(det > 1e-12 * su.SquareMagnitude() * sv.SquareMagnitude())) return false;
      const double g1 = r.Dot(su), g2 = r.Dot(sv);
      const double du = -(c * g1 - b * g2) / det, dv = -(a * g2 - b * g1) / det;
      u = m_u.reach(u + du);
      v = m_v.reach(v + dv);
      if ((su * du + sv * dv).Magnitude() > 1e-13) continue;
      // A foot a rounding error past the border stays free, with its
      // derivative; one really past it is searched for on the border.
      if (m_u.hold(u, su.Magnitude()) != u || m_v.hold(v, sv.Magnitude()) != v) break;
      if (p.Distance(target) > m_maxOff) return false;
      out.t = t;
      out.uv.SetCoord(u, v);
      out.d.SetCoord((c * dc.Dot(su) - b * dc.Dot(sv)) / det, (a * dc.Dot(sv) - b * dc.Dot(su)) / det);
      return true;
    }
    return onBorder(t, target, dc, u, v, out);
  }

  gp_Pnt onSurface(const gp_Pnt2d& uv) const { return m_eval.value(uv.X(), uv.Y()); }

 private:
  // When the free search ends past a bounded range (the curve runs beyond the
  // surface there), the nearest point of the range lies on its border: the
  // parameter past it is held there and the other one searched alone.
  bool onBorder(double t, const gp_Pnt& target, const gp_Vec& dc, double u, double v, Foot& out) const {
    const bool holdU = m_u.bounded && (u < m_u.lo || u > m_u.hi), holdV = m_v.bounded && (v < m_v.lo || v > m_v.hi);
    if (!holdU && !holdV) return false;
    u = holdU ? std::clamp(u, m_u.lo, m_u.hi) : u;
    v = holdV ? std::clamp(v, m_v.lo, m_v.hi) : v;
    gp_Pnt p;
    gp_Vec su, sv, suu, svv, suv;
    double speed = 0;  // d(free parameter)/dt
    for (int step = 0; !(holdU && holdV); ++step) {
      if (step == kNewtonSteps) return false;
      m_eval.d2(u, v, p, su, sv, suu, svv, suv);
      const gp_Vec r(target, p), along = holdU ? sv : su, second = holdU ? svv : suu;
      const double curvature = along.Dot(along) + r.Dot(second);
      if (!(curvature > 1e-12 * along.SquareMagnitude())) return false;
      const double move = -r.Dot(along) / curvature;
      speed = dc.Dot(along) / curvature;
      double& free = holdU ? v : u;
      const Range& range = holdU ? m_v : m_u;
      free = range.reach(free + move);
      if (std::abs(move) * along.Magnitude() <= 1e-13) break;
    }
    if ((holdU && m_v.bounded && (v < m_v.lo || v > m_v.hi)) || (holdV && m_u.bounded && (u < m_u.lo || u > m_u.hi)))
      return false;  // past a corner: healing decides
    const double gap = m_eval.value(u, v).Distance(target);
    if (gap > m_maxOff) return false;
    out.t = t;
    out.uv.SetCoord(u, v);
    out.d.SetCoord(holdU ? 0 : speed, holdV ? 0 : speed);
    return true;
  }

  // One parameter's range: a bounded one is searched a little beyond its ends
  // and feet are held on it; a periodic one is followed freely across periods.
  struct Range {
    double lo = 0, hi = 0;
    bool bounded = true;
    double reach(double x) const {
      const double margin = 1e-3 * (hi - lo);
      return bounded ? std::clamp(x, lo - margin, hi + margin) : x;
    }
    // `speed`: metres per unit of this parameter there.
    double hold(double x, double speed) const {
      if (!bounded) return x;
      const double held = std::clamp(x, lo, hi);
      return std::abs(x - held) * speed > 1e-12 ? held : x;
    }
  };
  const CachedSurface& m_eval;
  CachedCurve m_c;
  double m_maxOff;
  Range m_u, m_v;
};

// The cubic through two feet with their derivatives, at t.
gp_Pnt2d hermite(const Foot& a, const Foot& b, double t) {
  const double h = b.t - a.t, s = (t - a.t) / h, s2 = s * s, s3 = s2 * s;
  const double h00 = 2 * s3 - 3 * s2 + 1, h10 = s3 - 2 * s2 + s, h01 = -2 * s3 + 3 * s2, h11 = s3 - s2;
  return gp_Pnt2d(h00 * a.uv.X() + h10 * h * a.d.X() + h01 * b.uv.X() + h11 * h * b.d.X(),
                  h00 * a.uv.Y() + h10 * h * a.d.Y() + h01 * b.uv.Y() + h11 * h * b.d.Y());
}

// Halves the span a..b until the cubic keeps within the fit tolerance of the
// foot at each half's middle; appends the feet after a, b last. Where the
// feet come onto a border or leave it the path turns sharply: the halvings
// close in on the turn.
bool refine(const Follower& f, const Foot& a, const Foot& b, int depth, std::vector<Foot>& out) {
  const double tm = 0.5 * (a.t + b.t);
  const gp_Pnt2d predicted = hermite(a, b, tm);
  Foot m;
  if (!f.foot(tm, predicted, m)) return false;
  if (f.onSurface(predicted).Distance(f.onSurface(m.uv)) <= kPcurveFitTolerance) {
    out.push_back(b);
    return true;
  }
  if (depth == 0 || out.size() > kMaxFeet) return false;
  return refine(f, a, m, depth - 1, out) && refine(f, m, b, depth - 1, out);
}

// The curve's own breaks (B-spline knots) inside (first, last), where the
// pcurve must be free to turn as the curve does, and enough points between.
std::vector<double> firstSamples(const Handle(Geom_Curve)& curve, double first, double last) {
  std::vector<double> breaks{first, last};
  Handle(Geom_Curve) basis = curve;
  while (auto trimmed = Handle(Geom_TrimmedCurve)::DownCast(basis)) basis = trimmed->BasisCurve();
  if (auto spline = Handle(Geom_BSplineCurve)::DownCast(basis)) {
    const double period = spline->IsPeriodic() ? spline->LastParameter() - spline->FirstParameter() : 0;
    for (int i = 1; i <= spline->NbKnots(); ++i)
      for (int k = period > 0 ? -2 : 0; k <= (period > 0 ? 2 : 0); ++k) {
        const double t = spline->Knot(i) + k * period;
        if (t > first && t < last) breaks.push_back(t);
      }
  }
  std::sort(breaks.begin(), breaks.end());
  breaks.erase(std::unique(breaks.begin(), breaks.end(),
                           [&](double x, double y) { return y - x <= 1e-12 * (last - first); }),
               breaks.end());
  breaks.back() = last;
  std::vector<double> samples;
  for (size_t i = 0; i + 1 < breaks.size(); ++i) {
    const int pieces = std::max(1, static_cast<int>(std::ceil(kMinSpans * (breaks[i + 1] - breaks[i]) / (last - first))));
    for (int k = 0; k < pieces; ++k) samples.push_back(breaks[i] + (breaks[i + 1] - breaks[i]) * k / pieces);
  }
  samples.push_back(last);
  return samples;
}

// Feet in increasing t joined as a C1 piecewise cubic: each span's Bezier
// points from the feet and their derivatives, interior knots doubled.
Handle(Geom2d_BSplineCurve) joinFeet(const std::vector<Foot>& feet) {
  const int spans = static_cast<int>(feet.size()) - 1;
  TColgp_Array1OfPnt2d poles(1, 2 * spans + 2);
  TColStd_Array1OfReal knots(1, spans + 1);
  TColStd_Array1OfInteger mults(1, spans + 1);
  int at = 1;
  poles(at++) = feet.front().uv;
  for (int i = 0; i < spans; ++i) {
    const Foot &a = feet[static_cast<size_t>(i)], &b = feet[static_cast<size_t>(i) + 1];
    const double third = (b.t - a.t) / 3;
    poles(at++) = a.uv.Translated(a.d * third);
    poles(at++) = b.uv.Translated(-b.d * third);
    knots(i + 1) = a.t;
    mults(i + 1) = i == 0 ? 4 : 2;
  }
  poles(at) = feet.back().uv;
  knots(spans + 1) = feet.back().t;
  mults(spans + 1) = 4;
  return new Geom2d_BSplineCurve(poles, knots, mults, 3);
}

// Follows the edge's curve over [first, last] from the end the wire enters by
// (`fromLast`), starting at `seed`. Null when any foot fails.
Handle(Geom2d_BSplineCurve) followEdge(const Follower& f, const Handle(Geom_Curve)& curve, double first,
                                       double last, bool fromLast, const gp_Pnt2d& seed) {
  std::vector<double> ts = firstSamples(curve, first, last);
  if (fromLast) std::reverse(ts.begin(), ts.end());
  std::vector<Foot> coarse(1);
  if (!f.foot(ts.front(), seed, coarse.front())) return nullptr;
  for (size_t i = 1; i < ts.size(); ++i) {
    const Foot& prev = coarse.back();
    Foot next;
    if (!f.foot(ts[i], prev.uv.Translated(prev.d * (ts[i] - prev.t)), next)) return nullptr;
    coarse.push_back(next);
  }
  if (fromLast) std::reverse(coarse.begin(), coarse.end());
  std::vector<Foot> feet{coarse.front()};
  for (size_t i = 0; i + 1 < coarse.size(); ++i)
    if (!refine(f, coarse[i], coarse[i + 1], kMaxDepth, feet)) return nullptr;
  return joinFeet(feet);
}

// What one wire's walk found: each edge followed here with its pcurve, and
// whether every edge of the wire was (none had a pcurve before, none failed).
struct WireWalk {
  struct Piece {
    TopoDS_Edge edge;
    Handle(Geom2d_BSplineCurve) pcurve;
    bool reversed = false;
  };
  std::vector<Piece> pieces;
  bool complete = true;
};

// The box of a wire's pcurves (their control points hold them).
Bnd_Box2d boxOf(const WireWalk& wire) {
  Bnd_Box2d box;
  for (const auto& piece : wire.pieces)
    for (int i = 1; i <= piece.pcurve->NbPoles(); ++i) box.Add(piece.pcurve->Pole(i));
  return box;
}

// On a periodic surface each wire is followed in the period its first foot
// fell in. A wire either closes there or goes once round the surface (the face
// is then a band, whose seam healing adds); the holes are moved by whole
// periods into the outer wire's box (the outer wire is the one with the
// largest box), a band's other wires into its period. False when the face's
// wires cannot be placed that way.
bool placeInOnePeriod(const Handle(Geom_Surface)& surface, std::vector<WireWalk>& wires) {
  const double periods[2] = {surface->IsUPeriodic() ? surface->UPeriod() : 0,
                             surface->IsVPeriodic() ? surface->VPeriod() : 0};
  std::vector<Bnd_Box2d> boxes;
  bool band = false;
  for (const WireWalk& wire : wires) {
    if (!wire.complete || wire.pieces.empty()) return false;
    const auto& first = wire.pieces.front();
    const auto& last = wire.pieces.back();
    const gp_Pnt2d start = first.reversed ? first.pcurve->EndPoint() : first.pcurve->StartPoint();
    const gp_Pnt2d end = last.reversed ? last.pcurve->StartPoint() : last.pcurve->EndPoint();
    for (int k = 0; k < 2; ++k) {
      const double across = std::abs(end.Coord(k + 1) - start.Coord(k + 1));
      if (periods[k] > 0 && across > 0.5 * periods[k]) {
        // Once round the surface: the face is a band, whose seam healing adds.
        if (std::abs(across - periods[k]) > kWindingSlack * periods[k]) return false;
        band = true;
      }
    }
    boxes.push_back(boxOf(wire));
  }
  auto area = [](const Bnd_Box2d& b) {
    double x1, y1, x2, y2;
    b.Get(x1, y1, x2, y2);
    return (x2 - x1) * (y2 - y1);
  };
  size_t outer = 0;
  for (size_t i = 1; i < boxes.size(); ++i)
    if (area(boxes[i]) > area(boxes[outer])) outer = i;
  double o[4];
  boxes[outer].Get(o[0], o[1], o[2], o[3]);
  for (size_t i = 0; i < wires.size(); ++i) {
    if (i == outer) continue;
    double w[4];
    boxes[i].Get(w[0], w[1], w[2], w[3]);
    gp_Vec2d shift(0, 0);
    for (int k = 0; k < 2; ++k) {
      double move = 0;
      if (periods[k] > 0)
        move = periods[k] * std::round(((o[k] + o[k + 2]) - (w[k] + w[k + 2])) / (2 * periods[k]));
      // A band's wires lie side by side, each in the period of the outer one.
      const double slack = 1e-9 * (o[k + 2] - o[k]);
      if (!band && (w[k] + move < o[k] - slack || w[k + 2] + move > o[k + 2] + slack)) return false;
      shift.SetCoord(k + 1, move);
    }
    if (shift.Magnitude() > 0)
      for (auto& piece : wires[i].pieces) piece.pcurve->Translate(shift);
  }
  return true;
}

// What a foot search without a start uses on one surface, built when first needed.
struct GlobalSearch {
  std::unique_ptr<SurfaceGrid> grid;
  Handle(ShapeAnalysis_Surface) analysis;
};

// One face's wires, edge by edge in wire order: each edge starts from the foot
// where the previous one ended when they share that vertex.
class FaceWalk {
 public:
  FaceWalk(const TopoDS_Face& face, const Handle(Geom_Surface)& surface,
           std::unordered_map<const Geom_Surface*, GlobalSearch>& global, FollowedPcurves& count,
           bool onlyWound)
      : m_face(face),
        m_surface(surface),
        m_eval(surface),
        m_global(global),
        m_count(count),
        m_onlyWound(onlyWound) {}

  // On the face as built (forward), a wire's edges come in the order they join.
  void run() {
    std::vector<WireWalk> wires;
    for (TopoDS_Iterator w(m_face.Oriented(TopAbs_FORWARD)); w.More(); w.Next()) {
      if (w.Value().ShapeType() != TopAbs_WIRE) continue;
      wires.push_back(walk(w.Value()));
    }
    const bool periodic = m_surface->IsUPeriodic() || m_surface->IsVPeriodic();
    if (m_onlyWound) {
      bool complete = std::all_of(wires.begin(), wires.end(), [](const WireWalk& w) { return w.complete; });
      if (!complete || usesAnEdgeTwice() || !wound(wires) || !placeInOnePeriod(m_surface, wires)) return;
    } else if (periodic && (usesAnEdgeTwice() || !placeInOnePeriod(m_surface, wires))) {
      for (const WireWalk& wire : wires) m_count.left += static_cast<int>(wire.pieces.size());
      return;
    }
    TopLoc_Location none;
    for (const WireWalk& wire : wires) {
      for (const auto& piece : wire.pieces)
        BRep_Builder().UpdateEdge(piece.edge, piece.pcurve, m_surface, none, BRep_Tool::Tolerance(piece.edge));
      m_count.added += static_cast<int>(wire.pieces.size());
    }
  }

 private:
  struct End {
    TopoDS_Vertex vertex;
    gp_Pnt2d uv;
  };

  // Whether a wire's pcurves span more than a period of the surface.
  bool wound(const std::vector<WireWalk>& wires) const {
    for (const WireWalk& wire : wires) {
      double box[4];
      boxOf(wire).Get(box[0], box[1], box[2], box[3]);
      if (m_surface->IsUPeriodic() && box[2] - box[0] > m_surface->UPeriod() * (1 + kWoundShare)) return true;
      if (m_surface->IsVPeriodic() && box[3] - box[1] > m_surface->VPeriod() * (1 + kWoundShare)) return true;
    }
    return false;
  }

  // An edge bounding the face twice is a seam: two pcurves, healing's work.
  bool usesAnEdgeTwice() const {
    std::unordered_map<const TopoDS_TShape*, int> uses;
    for (TopExp_Explorer x(m_face, TopAbs_EDGE); x.More(); x.Next())
      if (++uses[x.Current().TShape().get()] > 1) return true;
    return false;
  }

  WireWalk walk(const TopoDS_Shape& wire) {
    WireWalk out;
    std::optional<End> last;
    for (TopoDS_Iterator e(wire); e.More(); e.Next()) {
      if (e.Value().ShapeType() != TopAbs_EDGE) continue;
      const TopoDS_Edge& edge = TopoDS::Edge(e.Value());
      const bool reversed = edge.Orientation() == TopAbs_REVERSED;
      const TopoDS_Vertex enter = TopExp::FirstVertex(edge, true), leave = TopExp::LastVertex(edge, true);
      TopLoc_Location none;
      double first = 0, last3d = 0;
      if (Handle(Geom2d_Curve) has = BRep_Tool::CurveOnSurface(edge, m_surface, none, first, last3d)) {
        out.complete = false;
        last = End{leave, has->Value(reversed ? first : last3d)};
        continue;
      }
      std::optional<gp_Pnt2d> seed;
      if (last && !enter.IsNull() && last->vertex.IsSame(enter)) seed = last->uv;
      Handle(Geom2d_BSplineCurve) pcurve = follow(edge, seed);
      if (pcurve.IsNull()) {
        out.complete = false;
        ++m_count.left;
        last.reset();
        continue;
      }
      out.pieces.push_back({edge, pcurve, reversed});
      last = End{leave, reversed ? pcurve->StartPoint() : pcurve->EndPoint()};
    }
    return out;
  }

  // The edge's pcurve followed from the end its wire enters by, starting at
  // `seed` or, without one, at a global search's foot. Null when it fails.
  Handle(Geom2d_BSplineCurve) follow(const TopoDS_Edge& edge, std::optional<gp_Pnt2d> seed) {
    const bool reversed = edge.Orientation() == TopAbs_REVERSED;
    TopLoc_Location where;
    double first = 0, last = 0;
    Handle(Geom_Curve) curve = BRep_Tool::Curve(edge, where, first, last);
    if (curve.IsNull() || !where.IsIdentity() || BRep_Tool::Degenerated(edge)) return nullptr;
    const Follower follower(m_surface, m_eval, curve, std::max(BRep_Tool::Tolerance(edge), kMaxOffSurface));
    if (!seed) seed = globalSeed(follower, curve, reversed ? last : first);
    return followEdge(follower, curve, first, last, reversed, *seed);
  }

  // The foot of the curve's point at t with no neighbour to start from: from
  // the nearest node of the surface's grid, else by OCCT's global search. Both
  // are set up once per surface and shared by every face on it.
  gp_Pnt2d globalSeed(const Follower& follower, const Handle(Geom_Curve)& curve, double t) {
    GlobalSearch& search = m_global[m_surface.get()];
    if (!search.grid) search.grid = std::make_unique<SurfaceGrid>(m_eval);
    Foot foot;
    const gp_Pnt p = curve->Value(t);
    if (const auto node = search.grid->nearest(p); node && follower.foot(t, *node, foot)) return foot.uv;
    if (search.analysis.IsNull()) search.analysis = new ShapeAnalysis_Surface(m_surface);
    return search.analysis->ValueOfUV(p, kMaxOffSurface);
  }

  const TopoDS_Face& m_face;
  Handle(Geom_Surface) m_surface;
  CachedSurface m_eval;  // shared by the followers of the face's edges
  std::unordered_map<const Geom_Surface*, GlobalSearch>& m_global;
  FollowedPcurves& m_count;
  bool m_onlyWound;  // an elementary surface: kept only when a wire winds (mayWind)
};

}  // namespace

FollowedPcurves followPcurves(const TopoDS_Shape& shape) {
  FollowedPcurves count;
  std::unordered_map<const Geom_Surface*, GlobalSearch> global;
  for (TopExp_Explorer x(shape, TopAbs_FACE); x.More(); x.Next()) {
    const TopoDS_Face& face = TopoDS::Face(x.Current());
    TopLoc_Location where;
    Handle(Geom_Surface) surface = BRep_Tool::Surface(face, where);
    if (!where.IsIdentity()) continue;
    const bool onlyWound = !eligible(surface);
    if (onlyWound && !mayWind(surface, face)) continue;
    try {
      FaceWalk(face, surface, global, count, onlyWound).run();
    } catch (const Standard_Failure&) {
      // A surface OCCT cannot evaluate here: healing takes the face's edges.
    }
  }
  return count;
}

}  // namespace meld::model
