#include "ShapeHistory.h"

#include <TopExp.hxx>
#include <TopTools_IndexedMapOfShape.hxx>
#include <TopTools_ListOfShape.hxx>

namespace meld::kernel {

ShapeHistory::ShapeHistory(const Handle(BRepTools_History)& history, const std::vector<TopoDS_Shape>& inputs)
    : history_(history) {
  if (history_.IsNull()) return;
  // Faces and solids only: a split face or solid hands its tag to a piece;
  // split edges and vertices, far more numerous, are simply new.
  for (const TopoDS_Shape& input : inputs) {
    for (TopAbs_ShapeEnum type : {TopAbs_SOLID, TopAbs_FACE}) {
      TopTools_IndexedMapOfShape subs;
      TopExp::MapShapes(input, type, subs);
      for (int i = 1; i <= subs.Extent(); ++i) {
        const TopTools_ListOfShape& pieces = history_->Modified(subs(i));
        for (const TopoDS_Shape& piece : pieces) origins_.emplace(piece.TShape().get(), subs(i).TShape().get());
      }
    }
  }
}

const TopoDS_TShape* ShapeHistory::origin(const TopoDS_Shape& piece) const {
  auto it = origins_.find(piece.TShape().get());
  return it == origins_.end() ? nullptr : it->second;
}

void ShapeHistory::addOrigin(const TopoDS_Shape& piece, const TopoDS_Shape& old) {
  origins_[piece.TShape().get()] = old.TShape().get();
}

std::vector<TopoDS_Shape> ShapeHistory::successors(const TopoDS_Shape& old) const {
  if (history_.IsNull() || !BRepTools_History::IsSupportedType(old)) return {old};
  if (history_->IsRemoved(old)) return {};
  const TopTools_ListOfShape& pieces = history_->Modified(old);
  if (pieces.IsEmpty()) return {old};
  return std::vector<TopoDS_Shape>(pieces.begin(), pieces.end());
}

}  // namespace meld::kernel
