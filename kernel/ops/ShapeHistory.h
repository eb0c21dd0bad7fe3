// What an operation made of the sub-shapes of its inputs, in the terms the
// body layer needs to carry tags and sub-shape attributes over: the old
// sub-shape a new one came from, and the new pieces of an old one.
#pragma once

#include <BRepTools_History.hxx>
#include <TopoDS_Shape.hxx>
#include <TopoDS_TShape.hxx>

#include <unordered_map>
#include <vector>

namespace meld::kernel {

class ShapeHistory {
 public:
  // Nothing changed: every sub-shape that is still there is itself.
  ShapeHistory() = default;
  // The history of an OCCT operation on these inputs (the target first, so
  // that a piece made from both keeps the target's sub-shape as its origin).
  ShapeHistory(const Handle(BRepTools_History)& history, const std::vector<TopoDS_Shape>& inputs);

  // The old face or solid a piece was made from (modified), or null.
  const TopoDS_TShape* origin(const TopoDS_Shape& piece) const;
  // Names the old sub-shape a piece was made from, over what the history
  // says (an operation that builds its result itself knows better).
  void addOrigin(const TopoDS_Shape& piece, const TopoDS_Shape& old);
  // The old sub-shape's successors: its modified pieces, none when the
  // operation removed it, itself otherwise.
  std::vector<TopoDS_Shape> successors(const TopoDS_Shape& old) const;

 private:
  Handle(BRepTools_History) history_;
  std::unordered_map<const TopoDS_TShape*, const TopoDS_TShape*> origins_;
};

}  // namespace meld::kernel
