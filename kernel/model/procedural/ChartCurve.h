// The exact evaluator of an intersection curve: the branch of the intersection
// of two supports that a chart of points picks out, with the parametrisation the
// chart defines. Between chart points P_i and P_i+1 the curve point at t is
// where both supports meet the plane through the chord point at the same
// fraction, perpendicular to the chord; the scale factors make the parameter C1
// at chart points. A terminator (a singular end, where the supports touch) adds
// its singular point as one more chart point; that last piece is cut from one
// support by two planes, because there the two supports do not cross.
#pragma once

#include <memory>
#include <vector>

#include "CurveEval.h"
#include "Supports.h"

namespace meld::model::procedural {

struct ChartLimit {
  char type = 'L';     // 'L' limit, 'H' help point (closed), 'T' terminator, 'B' boundary
  char termUse = '?';  // terminators: 'F' surface[0], 'S' surface[1] defines the piece
  gp_Pnt singular;     // terminators: the singular point just beyond the chart
};

struct ChartData {
  double baseParameter = 0;
  double baseScale = 1;
  std::vector<gp_Pnt> points;
  ChartLimit start, end;
  bool boundSupport[2] = {false, false};  // a blend bound never defines a terminator piece
};

class ChartCurve : public CurveEval {
 public:
  // Throws ProceduralError when the chart cannot define a curve.
  ChartCurve(std::shared_ptr<const Support> s0, std::shared_ptr<const Support> s1, const ChartData& chart);

  // Open ends that are not terminators reach a little past the chart: edges
  // may end just beyond a chart's last point (their parameters are the
  // writer's, whose surfaces past their extent may differ from ours).
  double first() const override { return m_t.front() - m_extend[0]; }
  double last() const override { return m_t.back() + m_extend[1]; }
  void d1(double t, gp_Pnt& point, gp_Vec& derivative) const override;
  // The point alone: no normals at it, so none of the tangent's cost.
  gp_Pnt value(double t) const override;
  std::vector<double> breaks() const override { return {m_t.begin() + 1, m_t.end() - 1}; }

  bool closed() const { return m_closed; }
  size_t segments() const { return m_t.size() - 1; }
  const std::vector<double>& parameters() const { return m_t; }
  const Support& support(int k) const { return *m_support[k]; }
  // How far each chart point had to move to lie on both supports (singular
  // points are never moved); a terminator's singular point comes first.
  const std::vector<double>& shifts() const { return m_shift; }
  // Whether support k defines the curve at t (both do, except in a terminator
  // piece, where only the one that cuts it does: there the supports touch).
  bool definedBy(int k, double t) const {
    const int only = m_piece[segmentOf(t)].support;
    return only < 0 || only == k;
  }
  // Signed distances of a point to both supports (tests and verification).
  double distanceTo(int k, const gp_Pnt& point, double t) const;

 private:
  struct Node {
    gp_Pnt point;
    gp_Vec tangent;  // unit, along increasing parameter
    Seed seed[2];
    bool singular = false;
  };
  struct Piece {       // a terminator piece: one support and two planes
    int support = -1;  // which support; -1 for an ordinary segment
    gp_Vec planeNormal;
  };
  void buildNodes(const ChartData& chart);
  void seedNode(size_t i, int k);
  void refineNodes();
  void setExtensions(const ChartData& chart);
  void buildTangents();
  void buildParameters(const ChartData& chart);
  void buildTerminatorPieces(const ChartData& chart);
  size_t segmentOf(double t) const;
  bool solve(double t, size_t i, gp_Pnt& x, Seed seed[2], SupportSample sample[2]) const;
  gp_Vec tangentAt(size_t segment, const SupportSample& s0, const SupportSample& s1) const;

  std::shared_ptr<const Support> m_support[2];
  std::vector<Node> m_nodes;
  std::vector<double> m_t;               // parameter per node
  std::vector<double> m_scale;           // f per segment
  std::vector<gp_Vec> m_dStart, m_dEnd;  // derivative at both ends of each segment
  std::vector<Piece> m_piece;            // per segment
  std::vector<double> m_shift;
  bool m_closed = false;
  double m_extend[2] = {0, 0};           // reach past the first and last node
  size_t m_chartFirst = 0;               // node of chart point 0
};

}  // namespace meld::model::procedural
