#include "FaceSplitter.h"

#include "ShapeSnapshot.h"
#include "session/Parallelism.h"

#include <BOPAlgo_Builder.hxx>
#include <BOPAlgo_PaveFiller.hxx>
#include <BRep_Builder.hxx>
#include <TopoDS_Compound.hxx>

namespace meld::kernel {

namespace {

// The general fuse's own stages, stopped once the faces are split and
// classified, and the solids rebuilt from split faces (OCCT's drafts).
class SplitFacesBuilder : public BOPAlgo_Builder {
 public:
  std::vector<TopoDS_Shape> drafts;
  std::vector<TopTools_ListOfShape> inside;

 protected:
  void PerformInternal1(const BOPAlgo_PaveFiller& filler, const Message_ProgressRange&) override {
    myPaveFiller = const_cast<BOPAlgo_PaveFiller*>(&filler);
    myDS = myPaveFiller->PDS();
    myContext = myPaveFiller->Context();
    myFuzzyValue = myPaveFiller->FuzzyValue();
    myNonDestructive = myPaveFiller->NonDestructive();
    CheckData();
    if (HasErrors()) return;
    Prepare();
    FillImagesVertices(Message_ProgressRange());
    FillImagesEdges(Message_ProgressRange());
    FillImagesContainers(TopAbs_WIRE, Message_ProgressRange());
    FillImagesFaces(Message_ProgressRange());
    // Shells with split faces tell FillIn3DParts which solids to rebuild.
    FillImagesContainers(TopAbs_SHELL, Message_ProgressRange());
    if (HasErrors()) return;
    TopTools_DataMapOfShapeShape draftOf;
    FillIn3DParts(draftOf, Message_ProgressRange());
    if (HasErrors()) return;
    BRep_Builder builder;
    TopoDS_Compound result;
    builder.MakeCompound(result);
    for (const TopoDS_Shape& solid : myArguments) {
      const TopoDS_Shape* draft = draftOf.Seek(solid);
      drafts.push_back(draft ? *draft : solid);
      builder.Add(result, drafts.back());
      const TopTools_ListOfShape* in = myInParts.Seek(solid);
      inside.push_back(in ? *in : TopTools_ListOfShape());
    }
    myShape = result;
    // OCCT's tolerance post-treatment of all split faces is left out: a
    // union checks every face OCCT made before putting it on its boundary,
    // so a face that treatment would have mended is refused instead (and
    // that union goes pairwise), never taken as it is.
  }
};

}  // namespace

FaceSplitter::FaceSplitter() = default;
FaceSplitter::~FaceSplitter() = default;

// OCCT's filler is about a tenth faster when it may modify its arguments
// than when it copies what it would modify. The arguments are bodies' own
// shapes, which marks hold and a roll-back must find as they were, so
// whatever the run changed in them (pcurves stored on planes, tolerances
// widened where parts touch) is put back from a snapshot taken before it.
// The split stands: its faces on planes compute the same pcurves when
// asked, and a face OCCT made that needed a widened tolerance fails the
// check every made face passes before a union takes it, so that union goes
// pairwise.
bool FaceSplitter::perform(const std::vector<TopoDS_Shape>& solids, double fuzzy) {
  ShapeSnapshot before(solids);
  try {
    bool done = run(solids, fuzzy);
    before.restore();
    return done;
  } catch (...) {
    before.restore();
    throw;
  }
}

bool FaceSplitter::run(const std::vector<TopoDS_Shape>& solids, double fuzzy) {
  TopTools_ListOfShape arguments;
  for (const TopoDS_Shape& solid : solids) arguments.Append(solid);
  BOPAlgo_PaveFiller filler;
  filler.SetArguments(arguments);
  filler.SetNonDestructive(false);
  filler.SetRunParallel(sessionThreads() > 1);
  filler.SetUseOBB(false);
  filler.SetFuzzyValue(fuzzy);
  filler.Perform();
  if (filler.HasErrors()) return false;
  SplitFacesBuilder builder;
  builder.SetArguments(arguments);
  builder.SetRunParallel(sessionThreads() > 1);
  // An inverted solid cannot pass the volume checks made of the pieces, so
  // OCCT's own (costly) test for one is not needed.
  builder.SetCheckInverted(false);
  builder.PerformWithFiller(filler);
  if (builder.HasErrors() || builder.drafts.size() != solids.size()) return false;
  drafts_ = std::move(builder.drafts);
  inside_ = std::move(builder.inside);
  pieces_ = SplitPieces(builder.Images());
  return true;
}

const TopTools_ListOfShape& SplitPieces::of(const TopoDS_Shape& shape) const {
  static const TopTools_ListOfShape none;
  const TopTools_ListOfShape* images = images_.Seek(shape);
  return images ? *images : none;
}

}  // namespace meld::kernel
