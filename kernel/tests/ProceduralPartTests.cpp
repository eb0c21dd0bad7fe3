// Real files whose bodies rest on procedural geometry (intersection curves,
// rolling-ball blends) load through PK_PART_receive into valid solids. The
// large files of this kind are bench_procedural's business.
#include "PartFileSupport.h"

#include "TestSupport.h"

namespace kerneltest {
namespace {

using ProceduralParts = KernelSession;

TEST_F(ProceduralParts, SmallFilesWithBlendsAndIntersectionsLoadIntoValidSolids) {
  MELD_REQUIRE_CORPUS(corpus);
  int solids = 0;
  for (const char* file : {"ps4-Ball.1.x_t", "ps4-Cone.x_t", "ps4-Ring for cone .x_t", "brepm-example_part.x_t",
                           "brepm-output_baseline1.x_t", "design-Part Studio 1.x_t", "ps4-snapon_2.x_t",
                           "geneva-Part1.x_t"}) {
    SCOPED_TRACE(file);
    putPartFile(file, meldtest::readFile(corpus / file));
    std::vector<PK_PART_t> parts;
    ASSERT_EQ(receive(file, &parts), PK_ERROR_no_errors) << lastMessage();
    for (PK_BODY_t body : bodiesOf(parts)) {
      const BodySummary b = summarise(body);
      if (b.type != PK_BODY_type_solid_c) continue;
      EXPECT_TRUE(b.valid);
      EXPECT_GT(b.volume, 0);
      ++solids;
    }
    EXPECT_EQ(PK_ENTITY_delete(static_cast<int>(parts.size()), parts.data()), PK_ERROR_no_errors);
  }
  EXPECT_EQ(solids, 15);
}

}  // namespace
}  // namespace kerneltest
