#include "ChartCurve.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>

#include "ProceduralError.h"

namespace meld::model::procedural {

namespace {

constexpr int kNewtonSteps = 40;
constexpr double kConverged = 1e-14;  // metres moved by the last step
constexpr double kAccepted = 1e-10;   // a last step still this large is a failure
// Below this |n0 x n1| the supports are taken as touching (a singular point).
constexpr double kTangential = 1e-9;
// A chart point farther than this from a support means the support (or the
// chart) is not what the file meant: refuse rather than bend the curve.
constexpr double kChartOffSupport = 1e-6;
// A chart point moved farther than this and than a quarter of its distance to
// a neighbour has jumped to another branch.
constexpr double kLargestShift = 1e-5;
// Chart points closer than this to both supports are taken as they are.
constexpr double kRefined = 1e-13;

[[noreturn]] void refuse(const std::string& why, double t) {
  std::ostringstream out;
  out.precision(12);
  out << why << " at parameter " << t;
  throw ProceduralError(out.str());
}

gp_Vec unitChord(const gp_Pnt& a, const gp_Pnt& b) {
  gp_Vec d(a, b);
  return d / d.Magnitude();
}

// Solves rows . x = rhs for three rows; false when they are (nearly) dependent.
bool solve3(const gp_Vec rows[3], const double rhs[3], gp_Vec& x) {
  const double det = rows[0].Dot(rows[1].Crossed(rows[2]));
  if (std::abs(det) < 1e-14) return false;
  x = (rows[1].Crossed(rows[2]) * rhs[0] + rows[2].Crossed(rows[0]) * rhs[1] + rows[0].Crossed(rows[1]) * rhs[2]) / det;
  return true;
}

gp_Pnt hermite(const gp_Pnt& p0, const gp_Pnt& p1, const gp_Vec& d0, const gp_Vec& d1, double h, double s) {
  const double h00 = 2 * s * s * s - 3 * s * s + 1, h10 = s * s * s - 2 * s * s + s;
  const double h01 = -2 * s * s * s + 3 * s * s, h11 = s * s * s - s * s;
  return gp_Pnt(p0.XYZ() * h00 + d0.XYZ() * (h10 * h) + p1.XYZ() * h01 + d1.XYZ() * (h11 * h));
}

}  // namespace

ChartCurve::ChartCurve(std::shared_ptr<const Support> s0, std::shared_ptr<const Support> s1, const ChartData& chart)
    : m_support{std::move(s0), std::move(s1)} {
  if (chart.points.size() < 2) throw ProceduralError("chart has fewer than two points");
  if (!(std::abs(chart.baseScale) > 0) || !std::isfinite(chart.baseScale)) throw ProceduralError("chart has no scale");
  buildNodes(chart);
  refineNodes();
  buildTerminatorPieces(chart);
  buildTangents();
  buildParameters(chart);
  setExtensions(chart);
}

// The exact definition continues smoothly past an open end (the end segment's
// planes keep cutting the supports); a singular point or a closed chart ends
// the curve for good.
void ChartCurve::setExtensions(const ChartData& chart) {
  if (m_closed) return;
  constexpr double kReach = 0.1;  // of the end segment
  if (chart.start.type != 'T') m_extend[0] = kReach * (m_t[1] - m_t[0]);
  if (chart.end.type != 'T') m_extend[1] = kReach * (m_t.back() - m_t[m_t.size() - 2]);
  // Past the chart a support may stop being well-behaved (an offset of an
  // extended surface): reach only as far as the definition still solves.
  for (int end = 0; end < 2; ++end) {
    for (int attempt = 0; attempt < 6 && m_extend[end] > 0; ++attempt) {
      try {
        const double from = end == 0 ? m_t.front() : m_t.back(), sign = end == 0 ? -1 : 1;
        for (int k = 1; k <= 8; ++k) value(from + sign * m_extend[end] * k / 8);
        break;
      } catch (const ProceduralError&) {
        m_extend[end] = attempt == 5 ? 0 : m_extend[end] / 4;
      }
    }
  }
}

void ChartCurve::buildNodes(const ChartData& chart) {
  const auto& p = chart.points;
  m_closed = p.size() > 2 && p.front().Distance(p.back()) < 1e-12;
  auto add = [&](const gp_Pnt& point, bool singular) {
    Node node;
    node.point = point, node.singular = singular;
    m_nodes.push_back(node);
  };
  if (chart.start.type == 'T' && !m_closed) add(chart.start.singular, true);
  m_chartFirst = m_nodes.size();
  for (const gp_Pnt& point : p) add(point, false);
  if (chart.end.type == 'T' && !m_closed) add(chart.end.singular, true);
  for (size_t i = 0; i + 1 < m_nodes.size(); ++i)
    if (m_nodes[i].point.Distance(m_nodes[i + 1].point) < 1e-15) throw ProceduralError("chart has two equal consecutive points");
  for (size_t i = 0; i < m_nodes.size(); ++i)
    for (int k = 0; k < 2; ++k) seedNode(i, k);
}

// Chart points follow one another closely, so each one's foot is searched for
// from its neighbour's. Only the first point, and a point whose search from
// there ends off the support (another stationary point), needs the global
// search, which costs as much as a hundred local ones on a B-surface.
void ChartCurve::seedNode(size_t i, int k) {
  Node& node = m_nodes[i];
  if (i > 0) {
    Seed seed = m_nodes[i - 1].seed[k];
    try {
      if (std::abs(m_support[k]->evaluate(node.point, seed).distance) <= kChartOffSupport) {
        node.seed[k] = seed;
        return;
      }
    } catch (const ProceduralError&) {
      // left to the global search
    }
  }
  m_support[k]->initialiseSeed(node.point, node.seed[k]);
}

// Moves chart points that are off a support onto both, by the smallest step
// (Newton with the minimum-norm correction). The files' points are exact to
// 1e-14 m on surfaces we reproduce; where a support is only known by extending
// it (an offset of a B-surface evaluated past its knots) the extension may not
// be the writer's, and the curve must lie on the surfaces as we build them.
void ChartCurve::refineNodes() {
  m_shift.assign(m_nodes.size(), 0.0);
  for (size_t i = 0; i < m_nodes.size(); ++i) {
    Node& node = m_nodes[i];
    if (node.singular) continue;
    gp_Pnt x = node.point;
    Seed seed[2] = {node.seed[0], node.seed[1]};
    // Near a pole or crease of a support its normal jumps between steps; a step
    // that leaves the point farther off than the one before is undone, and the
    // nearest point found is kept.
    gp_Pnt best = x;
    Seed bestSeed[2] = {seed[0], seed[1]};
    double bestResidual = std::numeric_limits<double>::max();
    for (int step = 0; step < 100; ++step) {
      const SupportSample a = m_support[0]->evaluate(x, seed[0]), b = m_support[1]->evaluate(x, seed[1]);
      const double residual = std::max(std::abs(a.distance), std::abs(b.distance));
      if (residual >= bestResidual) break;
      best = x, bestResidual = residual, bestSeed[0] = seed[0], bestSeed[1] = seed[1];
      if (residual < kRefined) break;
      const double g = a.normal.Dot(b.normal), det = 1 - g * g;
      if (det < 1e-12) break;  // supports tangent here: leave the point to the checks
      const double la = (a.distance - g * b.distance) / det, lb = (b.distance - g * a.distance) / det;
      x.Translate(a.normal * -la + b.normal * -lb);
    }
    x = best, seed[0] = bestSeed[0], seed[1] = bestSeed[1];
    m_shift[i] = x.Distance(node.point);
    // A move comparable to the chart's own spacing would be a jump to another
    // branch, not a correction.
    double spacing = std::numeric_limits<double>::max();
    if (i > 0) spacing = std::min(spacing, node.point.Distance(m_nodes[i - 1].point));
    if (i + 1 < m_nodes.size()) spacing = std::min(spacing, node.point.Distance(m_nodes[i + 1].point));
    // An open chart's end point may lie where only the writer's extension of a
    // support reaches; its edge ends there too, so it moves with the surfaces
    // (the vertex tolerance then covers the difference).
    const bool end = !m_closed && (i == 0 || i + 1 == m_nodes.size());
    if (!end && m_shift[i] > kLargestShift && m_shift[i] > 0.25 * spacing) {
      std::ostringstream out;
      out << "chart point " << static_cast<long>(i) - static_cast<long>(m_chartFirst) << " is " << m_shift[i]
          << " m off the surfaces";
      throw ProceduralError(out.str());
    }
    if (m_shift[i] > 0) {
      node.point = x;
      node.seed[0] = seed[0], node.seed[1] = seed[1];
    }
  }
}

// The piece next to a terminator is cut from one support by two planes: one
// containing the chord and the support's normal at the singular point, one
// perpendicular to the chord.
void ChartCurve::buildTerminatorPieces(const ChartData& chart) {
  m_piece.assign(m_nodes.size() - 1, Piece{});
  auto setUp = [&](size_t segment, const ChartLimit& limit, size_t singularNode, size_t branchNode) {
    int k = limit.termUse == 'S' ? 1 : 0;
    if (chart.boundSupport[k]) k = 1 - k;
    Node& singular = m_nodes[singularNode];
    const SupportSample at = m_support[k]->evaluate(singular.point, singular.seed[k]);
    const gp_Vec chord = unitChord(m_nodes[segment].point, m_nodes[segment + 1].point);
    gp_Vec plane = chord.Crossed(at.normal);
    if (plane.Magnitude() < 1e-9) {
      Node& branch = m_nodes[branchNode];
      const SupportSample b0 = m_support[0]->evaluate(branch.point, branch.seed[0]);
      const SupportSample b1 = m_support[1]->evaluate(branch.point, branch.seed[1]);
      plane = chord.Crossed(b0.normal.Crossed(b1.normal));
    }
    if (plane.Magnitude() < 1e-12) throw ProceduralError("terminator piece has no defining plane");
    m_piece[segment] = Piece{k, plane / plane.Magnitude()};
  };
  if (m_nodes.front().singular) setUp(0, chart.start, 0, 1);
  if (m_nodes.back().singular) setUp(m_nodes.size() - 2, chart.end, m_nodes.size() - 1, m_nodes.size() - 2);
}

gp_Vec ChartCurve::tangentAt(size_t segment, const SupportSample& s0, const SupportSample& s1) const {
  const Piece& piece = m_piece[segment];
  if (piece.support < 0) return s0.normal.Crossed(s1.normal);
  return (piece.support == 0 ? s0 : s1).normal.Crossed(piece.planeNormal);
}

void ChartCurve::buildTangents() {
  const size_t n = m_nodes.size();
  for (size_t i = 0; i < n; ++i) {
    Node& node = m_nodes[i];
    const size_t segment = i + 1 < n ? i : i - 1;
    const gp_Vec chord = unitChord(m_nodes[segment].point, m_nodes[segment + 1].point);
    SupportSample s[2];
    for (int k = 0; k < 2; ++k) {
      s[k] = m_support[k]->evaluate(node.point, node.seed[k]);
      const bool pieceSurface = m_piece[segment].support < 0 || m_piece[segment].support == k;
      if (std::abs(s[k].distance) > kChartOffSupport && (!node.singular || pieceSurface)) {
        std::ostringstream out;
        out << "chart point " << static_cast<long>(i) - static_cast<long>(m_chartFirst) << " is " << std::abs(s[k].distance) << " m off surface " << k;
        throw ProceduralError(out.str());
      }
    }
    // Chart points take the crossing direction; a singular point the rule of its piece.
    gp_Vec tangent = node.singular ? tangentAt(segment, s[0], s[1]) : s[0].normal.Crossed(s[1].normal);
    if (tangent.Magnitude() < kTangential) {
      // Only a terminator's singular point may lack a crossing direction; its
      // neighbour piece has its own tangent rule.
      const bool byTerminator = (i > 0 && m_piece[i - 1].support >= 0) || (i + 1 < n && m_piece[i].support >= 0);
      if (!node.singular && !byTerminator) throw ProceduralError("supports touch at an interior chart point");
      tangent = chord;
    }
    tangent /= tangent.Magnitude();
    node.tangent = tangent.Dot(chord) < 0 ? -tangent : tangent;
  }
  if (m_closed) m_nodes.back().tangent = m_nodes.front().tangent;
}

// f_i = f_{i-1} cos b_i / cos a_i and t_{i+1} = t_i + C_i f_i from chart point 0
// both ways, so that the derivative T_i / (f cos) agrees on both sides of a node.
void ChartCurve::buildParameters(const ChartData& chart) {
  const size_t n = m_nodes.size(), segments = n - 1;
  std::vector<double> chord(segments), cosA(n, 1.0), cosB(n, 1.0);
  for (size_t i = 0; i < segments; ++i) {
    chord[i] = m_nodes[i].point.Distance(m_nodes[i + 1].point);
    const gp_Vec d = unitChord(m_nodes[i].point, m_nodes[i + 1].point);
    cosA[i] = m_nodes[i].tangent.Dot(d);
    cosB[i + 1] = m_nodes[i + 1].tangent.Dot(d);
  }
  for (size_t i = 0; i < n; ++i)
    if (!(cosA[i] > 1e-6) || !(cosB[i] > 1e-6)) throw ProceduralError("chart turns back on itself");
  m_scale.assign(segments, 0);
  m_t.assign(n, 0);
  const size_t c = m_chartFirst;
  m_scale[c] = chart.baseScale;
  for (size_t i = c + 1; i < segments; ++i) m_scale[i] = m_scale[i - 1] * cosB[i] / cosA[i];
  for (size_t i = c; i-- > 0;) m_scale[i] = m_scale[i + 1] * cosA[i + 1] / cosB[i + 1];
  m_t[c] = chart.baseParameter;
  for (size_t i = c; i < segments; ++i) m_t[i + 1] = m_t[i] + chord[i] * m_scale[i];
  for (size_t i = c; i-- > 0;) m_t[i] = m_t[i + 1] - chord[i] * m_scale[i];
  if (!(m_scale[c] > 0)) throw ProceduralError("chart scale is not positive");
  m_dStart.resize(segments);
  m_dEnd.resize(segments);
  for (size_t i = 0; i < segments; ++i) {
    m_dStart[i] = m_nodes[i].tangent / (m_scale[i] * cosA[i]);
    m_dEnd[i] = m_nodes[i + 1].tangent / (m_scale[i] * cosB[i + 1]);
  }
}

size_t ChartCurve::segmentOf(double t) const {
  const auto it = std::upper_bound(m_t.begin(), m_t.end(), t);
  const size_t after = static_cast<size_t>(it - m_t.begin());
  return std::clamp<size_t>(after == 0 ? 0 : after - 1, 0, segments() - 1);
}

// The point at t in segment i (Newton on both supports and the plane across
// the chord); `seed` and `sample` are left at it for the tangent. False at a
// chart point, whose point and derivative are stored.
bool ChartCurve::solve(double t, size_t i, gp_Pnt& x, Seed seed[2], SupportSample sample[2]) const {
  const Node &a = m_nodes[i], &b = m_nodes[i + 1];
  const double h = m_t[i + 1] - m_t[i], s = (t - m_t[i]) / h;
  if (s == 0 || s == 1) {
    x = s == 0 ? a.point : b.point;
    return false;
  }
  const gp_Vec chord(a.point, b.point);
  const gp_Vec d = chord / chord.Magnitude();
  const gp_Pnt q = a.point.Translated(chord * s);
  x = hermite(a.point, b.point, m_dStart[i], m_dEnd[i], h, s);
  const bool nearStart = (s < 0.5 && !a.singular) || b.singular;
  seed[0] = (nearStart ? a : b).seed[0], seed[1] = (nearStart ? a : b).seed[1];
  const Piece& piece = m_piece[i];
  bool converged = false;
  gp_Pnt best = x;
  double bestResidual = std::numeric_limits<double>::max();
  for (int step = 0; step < kNewtonSteps && !converged; ++step) {
    gp_Vec rows[3];
    double rhs[3];
    // After the first step the normals only steer the search (the distances
    // decide where it ends): a support may keep the normal it had.
    auto at = [&](int k) {
      if (step == 0) sample[k] = m_support[k]->evaluate(x, seed[k]);
      else m_support[k]->update(x, seed[k], sample[k]);
    };
    if (piece.support < 0) {
      for (int k = 0; k < 2; ++k) at(k);
      rows[0] = sample[0].normal, rhs[0] = -sample[0].distance;
      rows[1] = sample[1].normal, rhs[1] = -sample[1].distance;
    } else {
      const int k = piece.support;
      at(k);
      rows[0] = sample[k].normal, rhs[0] = -sample[k].distance;
      rows[1] = piece.planeNormal, rhs[1] = -piece.planeNormal.Dot(gp_Vec(q, x));
    }
    rows[2] = d, rhs[2] = -d.Dot(gp_Vec(q, x));
    gp_Vec step3;
    if (!solve3(rows, rhs, step3)) refuse("intersection curve: supports do not cross", t);
    // On a crease of a support (an offset of a C0 base) the normal flips between
    // sides and the steps rock instead of shrinking: the iterate with the
    // smallest residuals is kept, and accepted when they are below the accepted error.
    const double residual = std::max({std::abs(rhs[0]), std::abs(rhs[1]), std::abs(rhs[2])});
    if (residual < bestResidual) bestResidual = residual, best = x;
    x.Translate(step3);
    converged = step3.Magnitude() < kConverged;
  }
  if (!converged) {
    if (bestResidual > kAccepted) refuse("intersection point did not converge", t);
    x = best;
  }
  return true;
}

gp_Pnt ChartCurve::value(double t) const {
  if (!std::isfinite(t)) refuse("intersection curve evaluated", t);
  gp_Pnt x;
  Seed seed[2];
  SupportSample sample[2];
  solve(t, segmentOf(t), x, seed, sample);
  return x;
}

void ChartCurve::d1(double t, gp_Pnt& point, gp_Vec& derivative) const {
  if (!std::isfinite(t)) refuse("intersection curve evaluated", t);
  Seed seed[2];
  SupportSample sample[2];
  const size_t i = segmentOf(t);
  if (!solve(t, i, point, seed, sample)) {
    derivative = t == m_t[i] ? m_dStart[i] : m_dEnd[i];
    return;
  }
  const Piece& piece = m_piece[i];
  if (piece.support < 0) {
    for (int k = 0; k < 2; ++k) sample[k] = m_support[k]->evaluate(point, seed[k]);
  } else {
    sample[piece.support] = m_support[piece.support]->evaluate(point, seed[piece.support]);
  }
  const gp_Vec d = unitChord(m_nodes[i].point, m_nodes[i + 1].point);
  gp_Vec tangent = tangentAt(i, sample[0], sample[1]);
  if (tangent.Magnitude() < kTangential) refuse("intersection curve has no tangent", t);
  if (tangent.Dot(d) < 0) tangent.Reverse();
  derivative = tangent / (m_scale[i] * tangent.Dot(d));
}

double ChartCurve::distanceTo(int k, const gp_Pnt& point, double t) const {
  const size_t i = segmentOf(t);
  const double s = (t - m_t[i]) / (m_t[i + 1] - m_t[i]);
  Seed seed = m_nodes[s < 0.5 ? i : i + 1].seed[k];
  return m_support[k]->evaluate(point, seed).distance;
}

}  // namespace meld::model::procedural
