// OCCT's general fuse of many solids taken only as far as unions by face
// classification need: every face split where the solids cross, split faces
// that coincide made one, and for each solid the split faces of the others
// that lie inside it. The split solids (cells) and the tolerance treatment
// of all of them, about half of a general fuse, are not built.
#pragma once

#include <TopTools_DataMapOfShapeListOfShape.hxx>
#include <TopTools_ListOfShape.hxx>
#include <TopoDS_Shape.hxx>

#include <memory>
#include <vector>

namespace meld::kernel {

// What the split made of the solids' faces, edges and vertices: OCCT's
// images of them, in which pieces that coincide are already the one they
// were made into. Pieces are named by their sub-shape, not by their
// orientation in the solids (OCCT's history would test each face piece's
// orientation against its origin, a geometric test nobody here needs).
class SplitPieces {
 public:
  SplitPieces() = default;
  explicit SplitPieces(const TopTools_DataMapOfShapeListOfShape& images) : images_(images) {}
  // Empty when the shape was not split.
  const TopTools_ListOfShape& of(const TopoDS_Shape& shape) const;
  void swap(SplitPieces& other) { images_.Exchange(other.images_); }

 private:
  TopTools_DataMapOfShapeListOfShape images_;
};

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
  // Each face, edge and vertex of the solids and its split pieces, handed
  // over (the splitter keeps none).
  void takePieces(SplitPieces& into) { into.swap(pieces_); }

 private:
  bool run(const std::vector<TopoDS_Shape>& solids, double fuzzy);

  std::vector<TopoDS_Shape> drafts_;
  std::vector<TopTools_ListOfShape> inside_;
  SplitPieces pieces_;
};

}  // namespace meld::kernel
