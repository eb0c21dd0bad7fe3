// OCCT's general fuse of many solids taken only as far as unions by face
// classification need: every face split where the solids cross, split faces
// that coincide made one, and for each solid the split faces of the others
// that lie inside it. The split solids (cells) and the tolerance treatment
// of all of them, about half of a general fuse, are not built.
#pragma once

#include <BRepTools_History.hxx>
#include <TopTools_ListOfShape.hxx>
#include <TopoDS_Shape.hxx>

#include <memory>
#include <vector>

namespace meld::kernel {

class FaceSplitter {
 public:
  FaceSplitter();
  ~FaceSplitter();

  // Splits the solids' faces against each other; false when OCCT fails.
  bool perform(const std::vector<TopoDS_Shape>& solids, double fuzzy);

  // Solid i rebuilt from its split faces, each oriented as in the solid;
  // the solid itself when nothing cut it.
  const TopoDS_Shape& draft(int i) const { return drafts_[std::size_t(i)]; }
  // The split faces of the other solids that lie inside solid i.
  const TopTools_ListOfShape& inside(int i) const { return inside_[std::size_t(i)]; }
  // Each face of the solids and its split pieces.
  const Handle(BRepTools_History)& history() const { return history_; }

 private:
  std::vector<TopoDS_Shape> drafts_;
  std::vector<TopTools_ListOfShape> inside_;
  Handle(BRepTools_History) history_;
};

}  // namespace meld::kernel
