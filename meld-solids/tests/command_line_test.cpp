// Command-line parsing: glued values, prefix-matched long options, the
// exactly-two-arguments rule. Too few arguments, or no -i or -o, are run end to
// end in end_to_end_test (exit 1, silent).
#include <gtest/gtest.h>

#include <vector>

#include "MeldSolids.h"

namespace {

struct Parsed {
  bool ok;
  MeldCommandLine line;
};

Parsed parse(std::vector<const char*> args) {
  args.insert(args.begin(), "meld-solids");
  Parsed p{false, {}};
  p.ok = MeldParseCommandLine(int(args.size()), args.data(), p.line);
  return p;
}

TEST(CommandLine, ExactlyTwoArgumentsAreInputAndOutputAsWritten) {
  const Parsed p = parse({"-ia.x_t", "-ob.x_t"});
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.line.input0, "-ia.x_t");
  EXPECT_EQ(p.line.output, "-ob.x_t");
  EXPECT_EQ(p.line.settings.input_solid_num, -1);
  EXPECT_EQ(p.line.settings.removeInnerShells, 1);
}

TEST(CommandLine, ThreeArgumentsAreOptionsWithGluedValues) {
  const Parsed p = parse({"-ia.x_t", "-ob.x_t", "-k", "-jtool.x_b", "-llog.txt", "-sschemas",
                          "-p2", "-t0.5"});
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.line.input0, "a.x_t");
  EXPECT_EQ(p.line.output, "b.x_t");
  EXPECT_EQ(p.line.input1, "tool.x_b");
  EXPECT_EQ(p.line.logFile, "log.txt");
  EXPECT_EQ(p.line.schemaDir, "schemas");
  EXPECT_EQ(p.line.settings.booleanFunction, 2);
  EXPECT_EQ(p.line.settings.default_tol, 0.5);
  EXPECT_EQ(p.line.settings.max_tol, 0.01);
  EXPECT_EQ(p.line.settings.removeInnerShells, 0);
}

TEST(CommandLine, LongOptionsMatchByPrefixAndTheLaterOneWins) {
  Parsed p = parse({"-ia", "-ob", "-t5", "--default_tol=2", "--max_tol=0.1x",
                    "--input_solid_num=3"});
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.line.settings.default_tol, 2.0);
  EXPECT_EQ(p.line.settings.max_tol, 0.1);
  EXPECT_EQ(p.line.settings.input_solid_num, 3);
  p = parse({"-ia", "-ob", "--default_tol=2", "-t5"});
  EXPECT_EQ(p.line.settings.default_tol, 5.0);
}

TEST(CommandLine, UnknownOptionsAndBareWordsAreIgnored) {
  const Parsed p = parse({"-ia", "plain", "-z9", "-", "--nothing=1", "-A", "-ob"});
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.line.input0, "a");
  EXPECT_EQ(p.line.output, "b");
  EXPECT_EQ(p.line.settings.default_tol, 0.0);
  EXPECT_EQ(p.line.settings.booleanFunction, -1);
}

}  // namespace
