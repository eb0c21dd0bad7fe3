// PK_PART_receive and PK_PART_transmit on real files and on parts the kernel
// makes: every file without procedural geometry loads into valid bodies, what we
// write reads back the same (counts, volume, names, colours), the written graph
// passes the topology checker, and failures leave neither entities nor files.
#include "PartFileSupport.h"

#include "Codec.h"
#include "TestSupport.h"
#include "TopologyCheck.h"
#include "session/Session.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>

namespace kerneltest {
namespace {

using PartFiles = KernelSession;

bool closeRelative(double a, double b, double tolerance) {
  return std::abs(a - b) <= tolerance * std::max({std::abs(a), std::abs(b), 1e-30});
}

// Reads a corpus file into the test frustrum under its own name.
std::string putCorpusFile(const std::filesystem::path& corpus, const std::string& file) {
  putPartFile(file, meldtest::readFile(corpus / file));
  return file;
}

std::vector<BodySummary> summariesOf(const std::vector<PK_PART_t>& parts) {
  std::vector<BodySummary> out;
  for (PK_BODY_t body : bodiesOf(parts)) out.push_back(summarise(body));
  return out;
}

void expectSameBodies(const std::vector<BodySummary>& before, const std::vector<BodySummary>& after,
                      const std::string& what) {
  ASSERT_EQ(before.size(), after.size()) << what;
  for (size_t i = 0; i < before.size(); ++i) {
    SCOPED_TRACE(what + " body " + std::to_string(i));
    EXPECT_EQ(before[i].type, after[i].type);
    EXPECT_EQ(before[i].faces, after[i].faces);
    EXPECT_EQ(before[i].edges, after[i].edges);
    EXPECT_EQ(before[i].vertices, after[i].vertices);
    EXPECT_TRUE(closeRelative(before[i].volume, after[i].volume, 1e-9))
        << before[i].volume << " became " << after[i].volume;
    EXPECT_EQ(before[i].name, after[i].name);
    EXPECT_EQ(before[i].colour, after[i].colour);
    EXPECT_EQ(before[i].attributes, after[i].attributes);
    EXPECT_EQ(before[i].valid, after[i].valid);
  }
}

// The file as the frustrum holds it, decoded again and checked for consistency.
void expectConsistentFile(const std::string& key) {
  meld::xt::Graph graph = meld::xt::decode(partFile(key));
  meld::xt::TopologyReport report = meld::xt::checkTopology(graph);
  EXPECT_TRUE(report.ok()) << key << ": " << (report.problems.empty() ? "" : report.problems.front());
}

// One corpus file: it loads, its bodies are those the census counts, every solid
// is valid with a positive volume, and (unless told not to) a text and a binary
// round trip keep every body as it was. One line per file goes to the test's output.
void loadAndRoundTrip(const std::filesystem::path& corpus, const CensusRow& row, bool roundTrip, int& solids) {
  SCOPED_TRACE(row.file);
  std::vector<PK_PART_t> parts;
  ASSERT_EQ(receive(putCorpusFile(corpus, row.file), &parts), PK_ERROR_no_errors) << lastMessage();
  std::vector<BodySummary> bodies = summariesOf(parts);
  EXPECT_EQ(static_cast<int>(bodies.size()), row.bodies);
  double volume = 0;
  int valid = 0;
  for (const BodySummary& b : bodies) {
    if (b.type == PK_BODY_type_solid_c) {
      EXPECT_TRUE(b.valid);
      EXPECT_GT(b.volume, 0);
      ++solids;
    }
    volume += b.volume;
    valid += b.valid;
  }
  std::printf("%s\tbodies=%zu\tvalid=%d\tvolume=%.9g\n", row.file.c_str(), bodies.size(), valid, volume);
  for (PK_transmit_format_t format : {PK_transmit_format_text_c, PK_transmit_format_neutral_c}) {
    if (!roundTrip) break;
    const std::string copy = "copy of " + row.file;
    ASSERT_EQ(transmit(parts, copy, format), PK_ERROR_no_errors) << lastMessage();
    if (const char* keep = std::getenv("MELD_KEEP_COPIES"))
      meldtest::writeFile(std::filesystem::path(keep) / (copy + (format == PK_transmit_format_text_c ? ".x_t" : ".x_b")),
                          partFile(copy));
    expectConsistentFile(copy);
    std::vector<PK_PART_t> again;
    ASSERT_EQ(receive(copy, &again, format), PK_ERROR_no_errors) << lastMessage();
    EXPECT_EQ(again.size(), parts.size());
    expectSameBodies(bodies, summariesOf(again), format == PK_transmit_format_text_c ? "text" : "binary");
    EXPECT_EQ(PK_ENTITY_delete(static_cast<int>(again.size()), again.data()), PK_ERROR_no_errors);
  }
  EXPECT_EQ(PK_ENTITY_delete(static_cast<int>(parts.size()), parts.data()), PK_ERROR_no_errors);
}

// Every file without procedural geometry round-trips, and so do the files whose
// intersection curves and blends the procedural converters build into valid
// solids. ps4-snapon_2 loads valid but does not round-trip yet;
// drone-Drone_body_V2, nxcmp-Brake_Piston, jack-3D Scissor Jack and mixer-assem
// neither (invalid bodies, or healing that adds or merges an edge on reading again).
TEST_F(PartFiles, EveryFileThatLoadsValidSurvivesARoundTrip) {
  MELD_REQUIRE_CORPUS(corpus);
  const std::set<std::string> procedural = {
      "biox-Assembly.x_t", "brepm-example_part.x_t",  "brepm-output_baseline1.x_t", "design-Part Studio 1.x_t",
      "geneva-Geneva drive.x_t", "geneva-Part1.x_t", "ps4-Ball.1.x_t", "ps4-Cone.x_t", "ps4-Ring for cone .x_t"};
  int plain = 0, withProcedural = 0, loadedOnly = 0, solids = 0;
  for (const CensusRow& row : readCensus(corpus)) {
    if (row.file == "ps4-snapon_2.x_t") {
      loadAndRoundTrip(corpus, row, false, solids);
      ++loadedOnly;
    }
    if (row.procedural && !procedural.count(row.file)) continue;
    loadAndRoundTrip(corpus, row, true, solids);
    ++(row.procedural ? withProcedural : plain);
  }
  EXPECT_EQ(plain, 37);
  EXPECT_EQ(withProcedural, static_cast<int>(procedural.size()));
  EXPECT_EQ(loadedOnly, 1);
  EXPECT_EQ(solids, 98);  // as many as the census counts in these files
}

}  // namespace
}  // namespace kerneltest
