// The region and shell view derived from received shapes agrees with the
// regions and shells the corpus files themselves hold.
#include "Codec.h"
#include "PartFileSupport.h"
#include "TestSupport.h"
#include "TopologyHelpers.h"

#include <cstdio>

namespace kerneltest {
namespace {

using CorpusTopology = KernelSession;

int shellCount(PK_BODY_t body) {
  int n = 0;
  PK_SHELL_t* shells = nullptr;
  EXPECT_EQ(PK_BODY_ask_shells(body, &n, &shells), PK_ERROR_no_errors);
  taken(n, shells);
  return n;
}

TEST_F(CorpusTopology, DerivedRegionsAndShellsMatchTheFiles) {
  MELD_REQUIRE_CORPUS(corpus);
  int files = 0;
  for (const CensusRow& row : readCensus(corpus)) {
    if (row.procedural) continue;
    SCOPED_TRACE(row.file);
    std::string bytes = meldtest::readFile(corpus / row.file);
    std::map<std::string, int> counts = meld::xt::decode(bytes).countByType();
    putPartFile(row.file, bytes);
    std::vector<PK_PART_t> parts;
    ASSERT_EQ(receive(row.file, &parts), PK_ERROR_no_errors) << lastMessage();
    int regions = 0, shells = 0, solidRegions = 0;
    for (PK_BODY_t body : bodiesOf(parts)) {
      for (PK_REGION_t region : regionsOf(body)) solidRegions += isSolid(region);
      regions += static_cast<int>(regionsOf(body).size());
      shells += shellCount(body);
    }
    EXPECT_EQ(regions, counts["REGION"]);
    EXPECT_EQ(shells, counts["SHELL"]);
    std::printf("%s\tregions=%d/%d\tshells=%d/%d\tsolid regions=%d\n", row.file.c_str(), regions,
                counts["REGION"], shells, counts["SHELL"], solidRegions);
    EXPECT_EQ(PK_ENTITY_delete(static_cast<int>(parts.size()), parts.data()), PK_ERROR_no_errors);
    ++files;
  }
  EXPECT_GT(files, 0);
}

}  // namespace
}  // namespace kerneltest
