// The topology checker finds each kind of fault planted in a correct block (real
// files written by real kernels pass it: CorpusTest).
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

// Each fault, planted alone in a correct block, is reported as what it breaks.
TEST(TopologyCheck, FindsEachPlantedFault) {
  const xt::Graph block = xt::buildBlockPart({{{0, 0, 0}, {0.01, 0.01, 0.01}}});
  ASSERT_TRUE(xt::checkTopology(block).ok()) << allProblems(xt::checkTopology(block));
  // The block body's nodes: the first face, loop and fin hang off the shell.
  const int64_t shell = get(block, 1, "shell"), face = get(block, shell, "face"), loop = get(block, face, "loop");
  const int64_t fin = get(block, loop, "halfedge"), edge = get(block, fin, "edge"), head = get(block, edge, "halfedge");
  const int64_t partner = get(block, head, "other"), nextFace = get(block, face, "next");
  const int64_t vertexFin = get(block, get(block, 1, "vertex"), "halfedge");
  struct Fault {
    int64_t node;
    const char* field;
    int64_t value;
    const char* problem;
  };
  const Fault faults[] = {
      // loop rings
      {fin, "forward", fin, "forward.backward is not the fin"},
      {fin, "forward", 0, "fin ring does not close"},
      {loop, "face", nextFace, "face does not lead back"},
      {fin, "loop", get(block, nextFace, "loop"), "not in the loop whose ring holds it"},
      // edge rings
      {head, "other", head, "1 fins in loops"},
      {fin, "other", get(block, fin, "forward"), "in the ring of another edge"},
      {edge, "halfedge", 0, "no fin"},
      // senses and ends: the head fin defines the edge's end, so a wrong vertex
      // there shows in its loop
      {partner, "sense", '+', "2 of them '+'"},
      {partner, "sense", '+', "not the edge end it runs into"},
      {head, "vertex", get(block, partner, "vertex"), "ends elsewhere than where it starts"},
      {face, "sense", '-', "counter-clockwise"},
      // chains and counts
      {face, "shell", 0, "is not the shell that lists it"},
      {vertexFin, "next_at_vx", vertexFin, "does not end"},
      {shell, "face", nextFace, "previous does not lead back"},
      {get(block, 1, "region"), "type", 'S', "first region is not void"},
  };
  for (const Fault& f : faults) {
    const std::string problems = allProblems(xt::checkTopology(withField(block, f.node, f.field, f.value)));
    EXPECT_NE(problems.find(f.problem), std::string::npos)
        << "#" << f.node << "." << f.field << " = " << f.value << ": expected '" << f.problem << "', got:\n"
        << problems;
  }
}

}  // namespace
