// Where a real file has a STEP twin (same stem), the XT reading and OCCT's own
// STEP reader must agree on the total volume: the strongest outside check that
// our geometry, senses and instance placement are right.
#include "PartFileSupport.h"

#include "TestSupport.h"
#include "ops/Bodies.h"
#include "session/Session.h"

#include <BRepGProp.hxx>
#include <GProp_GProps.hxx>
#include <IFSelect_ReturnStatus.hxx>
#include <Interface_Static.hxx>
#include <STEPControl_Reader.hxx>

#include <cmath>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace kerneltest {
namespace {

using StepTwins = KernelSession;

double shapeVolume(const TopoDS_Shape& shape) {
  GProp_GProps props;
  BRepGProp::VolumeProperties(shape, props, 1e-9);
  return props.Mass();
}

// The volume a part places in space: a body's own, an assembly's the sum over its
// instances (a scaled instance scales its part's volume by the cube).
double placedVolume(PK_PART_t part) {
  const auto& table = meld::kernel::session().table;
  if (table.get(part).cls == PK_CLASS_body) return shapeVolume(meld::kernel::bodyData(part).shape);
  double total = 0;
  for (PK_ENTITY_t tag : table.ownedBy(part)) {
    const meld::kernel::Record& r = table.get(tag);
    if (r.cls != PK_CLASS_instance) continue;
    double scale = 1;
    if (PK_TRANSF_t t = std::get<meld::kernel::InstanceData>(*r.payload).transf) {
      PK_TRANSF_sf_t sf{};
      EXPECT_EQ(PK_TRANSF_ask(t, &sf), PK_ERROR_no_errors);
      scale = std::sqrt(sf.matrix[0][0] * sf.matrix[0][0] + sf.matrix[1][0] * sf.matrix[1][0] +
                        sf.matrix[2][0] * sf.matrix[2][0]);
    }
    total += placedVolume(r.referent) * scale * scale * scale;
  }
  return total;
}

// OCCT's STEP reader registers its settings on first use in memory it never frees;
// the leak checker is told to look away while it runs (our own code is not in it).
struct StepReaderStatics {
#if defined(__SANITIZE_ADDRESS__)
  StepReaderStatics() { __lsan_disable(); }
  ~StepReaderStatics() { __lsan_enable(); }
#endif
};

double stepVolume(const std::filesystem::path& file) {
  [[maybe_unused]] StepReaderStatics quiet;
  STEPControl_Reader reader;
  Interface_Static::SetCVal("xstep.cascade.unit", "M");  // the kernel works in metres
  if (reader.ReadFile(file.string().c_str()) != IFSelect_RetDone) return -1;
  reader.TransferRoots();
  return shapeVolume(reader.OneShape());
}

TEST_F(StepTwins, LoadedFilesAgreeWithOcctsStepReaderOnVolume) {
  MELD_REQUIRE_CORPUS(corpus);
  int compared = 0;
  for (const CensusRow& row : readCensus(corpus)) {
    if (row.procedural) continue;
    const std::filesystem::path xt = corpus / row.file;
    std::filesystem::path twin;
    for (const char* ext : {".step", ".stp", ".STEP", ".STP"}) {
      std::filesystem::path candidate = xt;
      candidate.replace_extension(ext);
      if (std::filesystem::exists(candidate)) twin = candidate;
    }
    if (twin.empty()) continue;
    SCOPED_TRACE(row.file);
    putPartFile(row.file, meldtest::readFile(xt));
    std::vector<PK_PART_t> parts;
    ASSERT_EQ(receive(row.file, &parts), PK_ERROR_no_errors) << lastMessage();
    double ours = 0;
    for (PK_PART_t part : parts) ours += placedVolume(part);
    const double theirs = stepVolume(twin);
    std::printf("%s\txt=%.12g\tstep=%.12g\n", row.file.c_str(), ours, theirs);
    EXPECT_NEAR(ours, theirs, 1e-6 * std::abs(theirs));
    ++compared;
  }
  EXPECT_GT(compared, 0);
}

}  // namespace
}  // namespace kerneltest
