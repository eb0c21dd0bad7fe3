// The topology checker: it finds each kind of fault planted in a correct block, and
// real files written by real kernels pass it.
#include <gtest/gtest.h>

#include "SampleParts.h"
#include "TopologyCheck.h"
#include "XtTestUtil.h"

namespace xt = meld::xt;

namespace {

// A copy of the graph with one integer field of one node replaced.
xt::Graph withField(const xt::Graph& g, int64_t index, const std::string& name, int64_t value) {
  xt::Graph out;
  for (size_t i = 0; i < g.size(); ++i) {
    const auto& node = g.nodes()[i];
    out.beginNode(*node.layout, node.index, node.varLength);
    for (size_t f = 0; f < node.layout->fields.size(); ++f) {
      xt::FieldView v = g.field(i, f);
      if (xt::isIntegerType(v.def->type)) {
        int64_t* to = out.addIntField(v.ints.size());
        std::copy(v.ints.begin(), v.ints.end(), to);
        if (node.index == index && v.def->name == name) to[0] = value;
      } else {
        std::copy(v.reals.begin(), v.reals.end(), out.addRealField(v.reals.size()));
      }
    }
  }
  return out;
}

int64_t get(const xt::Graph& g, int64_t index, const char* field) {
  return g.field(static_cast<size_t>(g.find(index)), field).integer();
}

std::string allProblems(const xt::TopologyReport& report) {
  std::string out;
  for (const auto& line : report.problems) out += line + "\n";
  return out;
}

void expectProblem(const xt::Graph& g, const std::string& expected) {
  xt::TopologyReport report = xt::checkTopology(g);
  EXPECT_NE(allProblems(report).find(expected), std::string::npos)
      << "expected a problem containing '" << expected << "', got:\n" << allProblems(report);
}

class PlantedFault : public ::testing::Test {
 protected:
  // The block body's nodes: the first face, loop and fin hang off the shell.
  void SetUp() override {
    shell = get(block, 1, "shell");
    face = get(block, shell, "face");
    loop = get(block, face, "loop");
    fin = get(block, loop, "halfedge");
    edge = get(block, fin, "edge");
  }
  xt::Graph block = xt::buildBlockPart({{{0, 0, 0}, {0.01, 0.01, 0.01}}});
  int64_t shell = 0, face = 0, loop = 0, fin = 0, edge = 0;
};

TEST_F(PlantedFault, TheUntouchedBlockPasses) {
  xt::TopologyReport report = xt::checkTopology(block);
  EXPECT_TRUE(report.ok()) << allProblems(report);
}

TEST_F(PlantedFault, BrokenLoopRings) {
  expectProblem(withField(block, fin, "forward", fin), "forward.backward is not the fin");
  expectProblem(withField(block, fin, "forward", 0), "fin ring does not close");
  expectProblem(withField(block, loop, "face", get(block, face, "next")), "face does not lead back");
  expectProblem(withField(block, fin, "loop", get(block, get(block, face, "next"), "loop")),
                "not in the loop whose ring holds it");
}

TEST_F(PlantedFault, BrokenEdgeRings) {
  int64_t head = get(block, edge, "halfedge");
  expectProblem(withField(block, head, "other", head), "1 fins in loops");
  expectProblem(withField(block, fin, "other", get(block, fin, "forward")), "in the ring of another edge");
  expectProblem(withField(block, edge, "halfedge", 0), "no fin");
}

TEST_F(PlantedFault, SensesAndEnds) {
  int64_t head = get(block, edge, "halfedge");
  int64_t partner = get(block, head, "other");
  xt::Graph twoPlus = withField(block, partner, "sense", '+');
  expectProblem(twoPlus, "2 of them '+'");
  expectProblem(twoPlus, "not the edge end it runs into");
  // The head fin defines the edge's end, so a wrong vertex there shows in its loop.
  expectProblem(withField(block, head, "vertex", get(block, partner, "vertex")), "ends elsewhere than where it starts");
  expectProblem(withField(block, face, "sense", '-'), "counter-clockwise");
}

TEST_F(PlantedFault, BrokenChainsAndCounts) {
  expectProblem(withField(block, face, "shell", 0), "is not the shell that lists it");
  int64_t vertex = get(block, 1, "vertex");
  expectProblem(withField(block, get(block, vertex, "halfedge"), "next_at_vx", get(block, vertex, "halfedge")),
                "does not end");
  expectProblem(withField(block, shell, "face", get(block, face, "next")), "previous does not lead back");
  expectProblem(withField(block, get(block, 1, "region"), "type", 'S'), "first region is not void");
}

// Real files are the judge of what the checker assumes.
TEST(TopologyCorpus, EveryRealFilePasses) {
  MELD_REQUIRE_CORPUS(corpus);
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(corpus)) {
    std::string ext = entry.path().extension().string();
    if (ext != ".x_t" && ext != ".xmt_txt") continue;
    SCOPED_TRACE(entry.path().filename().string());
    xt::Graph g = xt::decode(meldtest::readFile(entry.path()));
    xt::TopologyReport report = xt::checkTopology(g);
    EXPECT_TRUE(report.ok()) << allProblems(report);
    EXPECT_FALSE(report.bodies.empty());
    ++files;
  }
  EXPECT_GT(files, 40);
}

}  // namespace
