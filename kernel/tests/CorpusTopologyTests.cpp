// On received corpus files: the region and shell view derived from the
// shapes agrees with the regions and shells the files hold, and a part's
// solids unite into one valid body that a partition mark takes back.
#include "Codec.h"
#include "PartFileSupport.h"
#include "TestSupport.h"
#include "TopologyHelpers.h"

#include <algorithm>
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

PK_boolean_result_t unite(PK_BODY_t target, PK_BODY_t tool) {
  PK_BODY_boolean_o_t options;
  PK_BODY_boolean_o_m(options);
  PK_boolean_r_t results;
  EXPECT_EQ(PK_BODY_boolean_2(target, 1, &tool, &options, nullptr, &results), PK_ERROR_no_errors);
  PK_boolean_result_t result = results.result;
  PK_boolean_r_f(&results);
  return result;
}

TEST_F(CorpusTopology, APartsSolidsUniteIntoOneValidBodyAndAPmarkTakesItBack) {
  MELD_REQUIRE_CORPUS(corpus);
  const std::string file = "ansgeo-blockhole_M.x_t";  // four overlapping solids
  putPartFile(file, meldtest::readFile(corpus / file));
  std::vector<PK_PART_t> parts;
  ASSERT_EQ(receive(file, &parts), PK_ERROR_no_errors) << lastMessage();
  std::vector<PK_BODY_t> bodies = bodiesOf(parts);
  ASSERT_EQ(bodies.size(), 4u);
  // The file's assembly instances them; the program drops those instances
  // before uniting (a tool that an instance uses cannot go).
  for (PK_BODY_t body : bodies) {
    int n = 0;
    PK_INSTANCE_t* refs = nullptr;
    ASSERT_EQ(PK_PART_ask_ref_instances(body, &n, &refs), PK_ERROR_no_errors);
    if (n) {
      EXPECT_EQ(PK_ENTITY_delete(n, refs), PK_ERROR_no_errors);
    }
    taken(n, refs);
  }
  std::vector<double> volumes;
  std::vector<std::vector<PK_FACE_t>> faces;
  double sum = 0, largest = 0;
  for (PK_BODY_t body : bodies) {
    volumes.push_back(kernelVolume(body));
    faces.push_back(facesOf(body));
    sum += volumes.back();
    largest = std::max(largest, volumes.back());
  }
  const PK_PMARK_t pmark = makePmark();

  for (std::size_t i = 1; i < bodies.size(); ++i) EXPECT_EQ(unite(bodies[0], bodies[i]), PK_boolean_result_success_c);
  EXPECT_EQ(regionView(bodies[0]), "void:- solid:+");
  double united = kernelVolume(bodies[0]);
  EXPECT_GE(united, largest * (1 - 1e-9));
  EXPECT_LE(united, sum * (1 + 1e-9));
  int n = -1;
  PK_check_fault_t* faults = nullptr;
  EXPECT_EQ(PK_BODY_check(bodies[0], nullptr, &n, &faults), PK_ERROR_no_errors);
  EXPECT_EQ(n, 0);

  goBackTo(pmark);
  for (std::size_t i = 0; i < bodies.size(); ++i) {
    EXPECT_TRUE(isLive(bodies[i]));
    EXPECT_EQ(facesOf(bodies[i]), faces[i]);
    EXPECT_NEAR(kernelVolume(bodies[i]), volumes[i], 1e-12 * sum);
  }
}

}  // namespace
}  // namespace kerneltest
