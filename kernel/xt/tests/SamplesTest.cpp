// The shipped samples: what samples/ holds is what the generator writes now, it
// decodes to the generator's graph, and every block is a correct solid where it was
// asked to be.
#include <gtest/gtest.h>

#include <set>

#include "SampleParts.h"
#include "TopologyCheck.h"
#include "XtTestUtil.h"

namespace xt = meld::xt;

namespace {

std::string committedSample(const std::string& name) {
  return meldtest::readFile(meldtest::sourceDir() / "samples" / name);
}

// Node positions of one type, in stream order.
std::vector<size_t> nodesOfType(const xt::Graph& g, int type) {
  std::vector<size_t> found;
  for (size_t i = 0; i < g.size(); ++i)
    if (g.nodes()[i].type == type) found.push_back(i);
  return found;
}

xt::Vec3 vec(const xt::Graph& g, size_t node, const char* field) {
  auto f = g.field(node, field);
  return {f.real(0), f.real(1), f.real(2)};
}

size_t at(const xt::Graph& g, int64_t index) {
  long position = g.find(index);
  EXPECT_GE(position, 0) << "no node #" << index;
  return static_cast<size_t>(std::max(position, 0L));
}

int64_t ptr(const xt::Graph& g, size_t node, const char* field) { return g.field(node, field).integer(); }

// The eight corners of a block as the generator computes them.
std::set<xt::Vec3> corners(const xt::Block& b) {
  std::set<xt::Vec3> out;
  for (int v = 0; v < 8; ++v)
    out.insert({b.corner[0] + (v & 1) * b.size[0], b.corner[1] + (v >> 1 & 1) * b.size[1],
                b.corner[2] + (v >> 2 & 1) * b.size[2]});
  return out;
}

// Points reached from the body's vertex chain.
std::set<xt::Vec3> bodyPoints(const xt::Graph& g, size_t body) {
  std::set<xt::Vec3> out;
  for (int64_t v = ptr(g, body, "vertex"); v; v = ptr(g, at(g, v), "next"))
    out.insert(vec(g, at(g, ptr(g, at(g, v), "point")), "pvec"));
  return out;
}

// Every face's normal as the format defines it (the plane's normal, turned by the
// plane's sense and by the face's sense) points away from the block's centre: the
// plane's own point lies on its outer side.
void expectFacesPointOut(const xt::Graph& g, size_t body, const xt::Block& block) {
  int faces = 0;
  for (int64_t face = ptr(g, at(g, ptr(g, body, "shell")), "face"); face; face = ptr(g, at(g, face), "next"), ++faces) {
    size_t plane = at(g, ptr(g, at(g, face), "surface"));
    xt::Vec3 n = vec(g, plane, "normal"), p = vec(g, plane, "pvec");
    bool flipped = (g.field(plane, "sense").integer() == '-') != (g.field(at(g, face), "sense").integer() == '-');
    double outward = 0;
    for (int i = 0; i < 3; ++i) outward += n[i] * (p[i] - (block.corner[i] + block.size[i] / 2));
    EXPECT_GT(flipped ? -outward : outward, 0) << "FACE #" << face << " points into its block";
  }
  EXPECT_EQ(faces, 6);
}

TEST(Samples, CommittedFilesAreWhatTheGeneratorWritesNowAndDecodeToItsGraph) {
  for (const auto& sample : xt::sampleSet()) {
    SCOPED_TRACE(sample.name);
    std::string committed = committedSample(sample.name);
    ASSERT_FALSE(committed.empty()) << "samples/" << sample.name << " is missing";
    EXPECT_TRUE(committed == xt::encodeSample(sample))
        << "samples/" << sample.name << " differs from the generator: run `xt-make-samples samples`";
    xt::Graph decoded = xt::decode(committed);
    std::string why;
    EXPECT_TRUE(xt::sameGraph(xt::buildBlockPart(sample.blocks), decoded, &why)) << why;
    EXPECT_EQ(decoded.prefix.format, sample.format);
    EXPECT_EQ(decoded.danglingPointers, 0);
    EXPECT_EQ(decoded.header.value("APPL"), "MeldSolids xt-make-samples");
  }
}

// Typed binary declares its byte order in its flags and writes every value in
// it: a sample in each order reads back to the graph it was written from. Big
// endian is the neutral form under other flags.
TEST(Samples, TypedBinaryReadsBackInEachByteOrder) {
  const xt::Graph part = xt::buildBlockPart({{{0, 0, 0}, {0.01, 0.02, 0.03}}, {{0.005, 0, 0}, {0.01, 0.01, 0.01}}});
  auto encoded = [&](xt::Format format, bool little) {
    xt::EncodeOptions options;
    options.format = format;
    options.littleEndian = little;
    options.withHeader = false;
    return xt::encode(part, options);
  };
  const std::string neutral = encoded(xt::Format::NeutralBinary, false);
  const std::string big = encoded(xt::Format::TypedBinary, false);
  const std::string little = encoded(xt::Format::TypedBinary, true);
  EXPECT_EQ(big.substr(0, 7), std::string("PS\0\1\0\0\0", 7));
  EXPECT_EQ(little.substr(0, 7), std::string("PS\0\1\1\0\0", 7));
  EXPECT_EQ(big.substr(7), neutral.substr(4));
  ASSERT_EQ(little.size(), big.size());
  // The length of the version string, a short, comes first after the flags.
  EXPECT_EQ(little.substr(7, 2), std::string{big[8]} + big[7]);
  EXPECT_NE(little.substr(7), big.substr(7));

  for (bool isLittle : {false, true}) {
    SCOPED_TRACE(isLittle ? "little endian" : "big endian");
    xt::Graph decoded = xt::decode(isLittle ? little : big);
    std::string why;
    EXPECT_TRUE(xt::sameGraph(part, decoded, &why)) << why;
    EXPECT_EQ(decoded.prefix.format, xt::Format::TypedBinary);
    EXPECT_EQ(decoded.prefix.littleEndian, isLittle);
    EXPECT_EQ(decoded.danglingPointers, 0);
  }
}

TEST(Samples, RootedAsRealWritersRootOneOrSeveralParts) {
  xt::Graph one = xt::buildBlockPart({{{0, 0, 0}, {1, 1, 1}}});
  EXPECT_EQ(one.nodes().front().layout->name, "BODY");
  EXPECT_EQ(one.nodes().front().index, 1);

  xt::Graph three = xt::buildBlockPart({{{0, 0, 0}, {1, 1, 1}}, {{2, 0, 0}, {1, 1, 1}}, {{4, 0, 0}, {1, 1, 1}}});
  const auto& root = three.nodes().front();
  ASSERT_EQ(root.layout->name, "PART_XMT_BLOCK");
  EXPECT_EQ(root.index, 1);
  auto entries = three.field(0, "entries");
  ASSERT_EQ(entries.elements(), 3u);
  EXPECT_EQ(three.field(0, "n_entries").integer(), 3);
  for (size_t i = 0; i < 3; ++i) EXPECT_EQ(three.nodes()[at(three, entries.integer(i))].layout->name, "BODY");
}

TEST(Samples, EveryBlockIsACorrectSolidWhereItWasAsked) {
  std::vector<xt::Block> blocks = {{{0, 0, 0}, {0.01, 0.01, 0.01}},
                                   {{-0.25, 0.5, 1.5}, {0.5, 0.002, 3}},
                                   {{0.005, 0.005, 0.005}, {0.01, 0.01, 0.01}}};
  xt::Graph g = xt::decode(xt::encode(xt::buildBlockPart(blocks)));
  xt::TopologyReport report = xt::checkTopology(g);
  for (const auto& line : report.problems) ADD_FAILURE() << line;
  ASSERT_EQ(report.bodies.size(), blocks.size());
  auto bodies = nodesOfType(g, 12);
  for (size_t b = 0; b < blocks.size(); ++b) {
    SCOPED_TRACE("block " + std::to_string(b));
    const xt::BodyCounts& c = report.bodies[b];
    EXPECT_EQ(c.bodyType, 1);
    EXPECT_EQ(c.regions, 2);
    EXPECT_EQ(c.solidShells, 1);
    EXPECT_EQ(c.loops, 6);
    EXPECT_EQ(c.fins, 24);
    EXPECT_EQ(c.vertices - c.edges + c.faces, 2) << c.vertices << " " << c.edges << " " << c.faces;
    EXPECT_EQ(bodyPoints(g, bodies[b]), corners(blocks[b]));
    expectFacesPointOut(g, bodies[b], blocks[b]);
  }
}

TEST(Samples, NodeIdsAreUniqueWithinEachBodyAndTheHighestIsRecorded) {
  xt::Graph g = xt::buildBlockPart({{{0, 0, 0}, {1, 1, 1}}});
  std::set<int64_t> ids;
  for (size_t i = 0; i < g.size(); ++i) {
    int field = g.nodes()[i].layout->find("node_id");
    if (field < 0) continue;
    int64_t id = g.field(i, static_cast<size_t>(field)).integer();
    EXPECT_GT(id, 0) << g.nodes()[i].layout->name;
    EXPECT_TRUE(ids.insert(id).second) << "node_id " << id << " twice";
  }
  EXPECT_EQ(g.field(0, "highest_node_id").integer(), *ids.rbegin());
}

TEST(Samples, RefusesPartsWithoutBlocksAndFlatBlocks) {
  EXPECT_THROW(xt::buildBlockPart({}), std::invalid_argument);
  EXPECT_THROW(xt::buildBlockPart({{{0, 0, 0}, {1, 0, 1}}}), std::invalid_argument);
  EXPECT_THROW(xt::buildBlockPart({{{0, 0, 0}, {1, 1, -1}}}), std::invalid_argument);
}

}  // namespace
