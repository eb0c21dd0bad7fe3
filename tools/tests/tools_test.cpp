// The kernel-made samples and xt-inspect's facts, in-process.
#include <gtest/gtest.h>

#include <filesystem>

#include "InspectFacts.h"
#include "MeldProcessFiles.h"
#include "SampleBuilder.h"
#include "../../kernel_layer/pscmn/tests/session_test_helpers.h"

namespace fs = std::filesystem;

namespace {

class Session : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(m_modeller.startResult, 0); }
  sessiontest::RunningModeller m_modeller;
};

using KernelSamples = Session;

TEST_F(KernelSamples, ShippedFilesAreWhatTheGeneratorWritesNow) {
  for (const samples::ShippedSample& sample : samples::kShipped) {
    const PK_PART_t part = sample.build();
    ASSERT_NE(part, PK_ENTITY_null) << sample.name;
    ASSERT_EQ(PSCTransmitParts(1, &part, sample.name, 0), 0) << sample.name;
    const bool same = meldtest::readFile(sample.name) ==
                      meldtest::readFile(meldtest::sourceDir() / "samples" / sample.name);
    EXPECT_TRUE(same) << sample.name << " differs: rerun build/tools/meld-make-samples samples";
  }
}

using Inspect = Session;

TEST_F(Inspect, DescribesEveryBodyOfAnAssembly) {
  const fs::path file = meldtest::sourceDir() / "samples" / "overlapping_solids.x_t";
  const inspect::FileFacts facts = inspect::inspectFile(file.string());
  ASSERT_TRUE(facts.loaded) << facts.message;
  ASSERT_EQ(facts.parts.size(), 1u);
  EXPECT_EQ(facts.parts[0].klass, "assembly");
  ASSERT_EQ(facts.bodies.size(), 3u);
  const char* names[] = {"Block A", "Block B", "W?rfel C"};
  for (std::size_t k = 0; k < 3; ++k) {
    const inspect::BodyFacts& b = facts.bodies[k];
    EXPECT_EQ(b.type, "solid");
    EXPECT_EQ(b.name, names[k]);
    EXPECT_TRUE(b.valid);
    // The outside's shell is the other side of the solid's: one OCCT shell.
    EXPECT_EQ(b.regions, 2);
    EXPECT_EQ(b.shells, 2);
    EXPECT_EQ(b.faces, 6);
    EXPECT_EQ(b.edges, 12);
    EXPECT_EQ(b.vertices, 8);
    EXPECT_NEAR(b.volume, 1e-6, 1e-15);
    EXPECT_NEAR(b.area, 6e-4, 1e-13);
    EXPECT_TRUE(b.problems.empty());
  }
  EXPECT_NEAR(facts.bodies[2].box[0], 0.009, 1e-12);
  EXPECT_NEAR(facts.bodies[2].box[5], 0.019, 1e-12);
}

TEST_F(Inspect, ACavityIsAThirdRegion) {
  const fs::path file = meldtest::sourceDir() / "samples" / "cavity_block.x_t";
  const inspect::FileFacts facts = inspect::inspectFile(file.string());
  ASSERT_TRUE(facts.loaded) << facts.message;
  ASSERT_EQ(facts.bodies.size(), 1u);
  EXPECT_EQ(facts.bodies[0].regions, 3);
  EXPECT_EQ(facts.bodies[0].shells, 4);
}

TEST_F(Inspect, AFileThatDoesNotLoadSaysWhy) {
  meldtest::writeFile("junk.x_t", "not a part file at all\n");
  for (const char* name : {"junk.x_t", "absent.x_b"}) {
    const inspect::FileFacts facts = inspect::inspectFile(name);
    EXPECT_FALSE(facts.loaded);
    EXPECT_NE(facts.kernelCode, 0);
    EXPECT_FALSE(facts.message.empty());
    const std::string json = inspect::formatJson(facts);
    EXPECT_NE(json.find("\"loaded\": false, \"kernel_code\": " + std::to_string(facts.kernelCode)),
              std::string::npos)
        << json;
  }
}

// A wire body has a length, not an area (gismo-swept holds three wire bodies).
TEST_F(Inspect, AWireBodyHasNoArea) {
  MELD_REQUIRE_CORPUS(corpus);
  const inspect::FileFacts facts = inspect::inspectFile((corpus / "gismo-swept.xmt_txt").string());
  ASSERT_TRUE(facts.loaded) << facts.message;
  int wires = 0;
  for (const inspect::BodyFacts& b : facts.bodies) {
    if (b.type != "wire") continue;
    ++wires;
    EXPECT_TRUE(b.massKnown);
    EXPECT_EQ(b.area, 0);
  }
  EXPECT_EQ(wires, 3);
}

TEST(InspectJson, EscapesNamesAndMarksUnknownValuesNull) {
  inspect::FileFacts facts;
  facts.path = "a\"b.x_t";
  facts.loaded = true;
  inspect::BodyFacts body;
  body.type = "sheet";
  body.name = "tab\there";
  facts.bodies.push_back(body);
  const std::string json = inspect::formatJson(facts);
  EXPECT_NE(json.find("\"file\": \"a\\\"b.x_t\""), std::string::npos) << json;
  EXPECT_NE(json.find("\"name\": \"tab\\u0009here\""), std::string::npos) << json;
  EXPECT_NE(json.find("\"volume\": null, \"area\": null, \"box\": null, \"valid\": false"),
            std::string::npos)
      << json;
}

}  // namespace
