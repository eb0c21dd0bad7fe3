// The built program run as a user runs it: in scratch folders, on the shipped
// kernel-made samples, checked by exit code, console, log, status file and the
// volume of what it wrote (read back by xt-inspect).
#include <gtest/gtest.h>

#include <regex>

#include "SampleBuilder.h"
#include "TestSupport.h"
#include "program_runner.h"

namespace fs = std::filesystem;

namespace {

const std::string kProgram = MELD_SOLIDS_EXE;
const std::string kInspect = XT_INSPECT_EXE;
constexpr double kMm3 = 1e-9;  // m³ per mm³

const char kRule[] = "----------------------------------------\n";

std::string banner(const std::string& in0, const std::string& in1, const std::string& out,
                   const std::string& defaultTol = "0", const std::string& maxTol = "0.01",
                   const std::string& solids = "-1") {
  return "Input File 0 : " + in0 + "\nInput File 1 : " + in1 + "\nOutput File : " + out + "\n" +
         kRule + "default_tol = " + defaultTol + "[mm]\nmax_tol = " + maxTol +
         "[mm]\ninput_solid_num = " + solids + "\n" + kRule;
}

// A scratch folder holding copies of the samples a test needs.
class Scratch {
 public:
  explicit Scratch(std::initializer_list<const char*> samples) {
    for (const char* name : samples)
      fs::copy_file(meldtest::sourceDir() / "samples" / name, m_dir.path() / name);
  }
  const fs::path& path() const { return m_dir.path(); }
  fs::path operator/(const std::string& name) const { return m_dir.path() / name; }
  std::string read(const std::string& name) const { return meldtest::readFile(*this / name); }
  bool has(const std::string& name) const { return fs::exists(*this / name); }

  e2e::RunResult run(const std::vector<std::string>& args,
                     const std::map<std::string, std::string>& env = {}) const {
    return e2e::run(kProgram, args, path(), env);
  }

 private:
  meldtest::ScopedWorkDir m_dir;
};

// The count, validity and total volume (mm³) of the bodies in a written file,
// as xt-inspect --json reports them.
void expectVolume(const fs::path& file, std::size_t bodies, double mm3) {
  const e2e::RunResult r = e2e::run(kInspect, {"--json", file.string()}, file.parent_path());
  ASSERT_EQ(r.exitCode, 0) << file;
  static const std::regex volume("\"volume\": ?([-0-9.eE+]+)"), valid("\"valid\": ?(true|false)");
  std::size_t count = 0;
  double sum = 0;
  for (std::sregex_iterator m(r.out.begin(), r.out.end(), volume), end; m != end; ++m, ++count)
    sum += std::stod((*m)[1]) / kMm3;
  for (std::sregex_iterator m(r.out.begin(), r.out.end(), valid), end; m != end; ++m)
    EXPECT_EQ((*m)[1], "true") << file;
  EXPECT_EQ(count, bodies) << file;
  EXPECT_NEAR(sum, mm3, mm3 * 1e-6) << file;
}

TEST(EndToEnd, MissingArgumentsEndSilentlyWithOne) {
  Scratch dir({});
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{}, {"only.x_t"}, {"-iin.x_t", "-k", "-llog.txt"},
        {"-oout.x_t", "-k", "-llog.txt"}}) {
    const e2e::RunResult r = dir.run(args);
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "");
  }
  EXPECT_TRUE(fs::is_empty(dir.path()));
}

// One-file runs: the transcript (the count of what remains is pinned here), the
// volume written, and the input left as it was.
TEST(EndToEnd, OneFileRunsUniteWhatOverlapsAndStripCavitiesUnlessKIsGiven) {
  const std::string remainOne = "totally 1 bodies are remained.\n";
  struct Case {
    const char *sample, *out, *tol;  // an .x_b output is written binary
    bool keepCavities;
    std::map<std::string, std::string> env;
    std::string transcript;  // after the banner
    std::size_t bodies;
    double mm3;
  } cases[] = {
      {"overlapping_solids.x_t", "out.x_t", "0", false, {}, remainOne, 1, samples::kOverlappingUnion},
      // The debug level adds body names and each union.
      {"overlapping_solids.x_t", "out.x_b", "0", false, {{"VTDBG", "1"}, {"LC_ALL", "C.UTF-8"}},
       "[0](Block A)\n[1](Block B)\n[2](W\xC3\xBCrfel C)\nsucceeded(0,1)\nsucceeded(0,2)\n" +
           remainOne,
       1, samples::kOverlappingUnion},
      {"disjoint_solids.x_t", "out.x_t", "0.001", false, {}, "totally 3 bodies are remained.\n", 3,
       samples::kDisjointSum},
      {"cavity_block.x_t", "out.x_t", "0", false, {}, remainOne, 1, samples::kCavityBlockSolid},
      {"cavity_block.x_t", "out.x_t", "0", true, {}, remainOne, 1, samples::kCavityBlockHollow}};
  for (const Case& c : cases) {
    Scratch dir({c.sample});
    const std::string input = dir.read(c.sample);
    std::vector<std::string> args{std::string("-i") + c.sample, std::string("-o") + c.out,
                                  "-llog.txt", std::string("-t") + c.tol};
    if (c.keepCavities) args.push_back("-k");
    const e2e::RunResult r = dir.run(args, c.env);
    EXPECT_EQ(r.exitCode, 0) << r.out;
    EXPECT_EQ(dir.read("log.txt"), banner(c.sample, "", c.out, c.tol) + c.transcript);
    EXPECT_EQ(dir.read(c.sample), input);
    expectVolume(dir / c.out, c.bodies, c.mm3);
  }
  // Two plain arguments are the input and the output.
  Scratch dir({"disjoint_solids.x_t"});
  EXPECT_EQ(dir.run({"disjoint_solids.x_t", "plain.x_t"}).exitCode, 0);
  expectVolume(dir / "plain.x_t", 3, samples::kDisjointSum);
}

TEST(EndToEnd, TwoFileRunSubtractsWithP1AndIntersectsWithP2) {
  Scratch dir({"target_block.x_t", "tool_cylinder.x_t"});
  const std::string target = dir.read("target_block.x_t"), tool = dir.read("tool_cylinder.x_t");
  e2e::RunResult r =
      dir.run({"-itarget_block.x_t", "-jtool_cylinder.x_t", "-ocut.x_t", "-p1", "-llog.txt"});
  EXPECT_EQ(r.exitCode, 0) << r.out;
  EXPECT_EQ(dir.read("log.txt"), banner("target_block.x_t", "tool_cylinder.x_t", "cut.x_t"));
  expectVolume(dir / "cut.x_t", 1, samples::kPlateMinusDrill);
  r = dir.run({"-itarget_block.x_t", "-jtool_cylinder.x_t", "-ocommon.x_b", "-p2"});
  EXPECT_EQ(r.exitCode, 0) << r.out;
  expectVolume(dir / "common.x_b", 1, samples::kPlateAndDrill);
  EXPECT_EQ(dir.read("target_block.x_t"), target);
  EXPECT_EQ(dir.read("tool_cylinder.x_t"), tool);
}

TEST(EndToEnd, WrongSolidCountEndsWith210AndItsLogLine) {
  Scratch dir({"overlapping_solids.x_t"});
  const e2e::RunResult r =
      dir.run({"-ioverlapping_solids.x_t", "-oout.x_t", "-llog.txt", "--input_solid_num=2"});
  EXPECT_EQ(r.exitCode, 210);
  EXPECT_EQ(r.out, "ERROR : rc = 3, invalid number of solid body\n");
  EXPECT_EQ(dir.read("log.txt"), banner("overlapping_solids.x_t", "", "out.x_t", "0", "0.01", "2") +
                                     "Unexpected number of input solid, 3 (2 expected).\n");
  EXPECT_FALSE(dir.has("out.x_t"));
  // The right count lets the run go on.
  EXPECT_EQ(dir.run({"-ioverlapping_solids.x_t", "-oout.x_t", "--input_solid_num=3"}).exitCode, 0);
}

TEST(EndToEnd, UnreadableInputSaysSoAndWritesNothing) {
  Scratch dir({});
  meldtest::writeFile(dir / "broken.x_t", "**ABCDEFGHIJKLMNOPQRSTUVWXYZ garbage, not a part\n");
  const std::string before = dir.read("broken.x_t");
  for (const char* input : {"-imissing.x_t", "-ibroken.x_t"}) {
    const e2e::RunResult r = dir.run({input, "-oout.x_t", "-k"});
    EXPECT_EQ(r.exitCode, 210) << input;
    EXPECT_EQ(r.out.rfind("Cannot load part.\nERROR : rc = 110, PK_PART_receive\n", 0), 0u)
        << r.out;
    EXPECT_FALSE(dir.has("out.x_t")) << input;
  }
  EXPECT_EQ(dir.read("broken.x_t"), before);
  const e2e::RunResult two = dir.run({"-ibroken.x_t", "-jmissing.x_t", "-oout.x_t"});
  EXPECT_EQ(two.exitCode, 220);
  EXPECT_FALSE(dir.has("out.x_t"));
}

TEST(EndToEnd, StatusFileIsAppendedRunAfterRunOnlyWithADebugLevel) {
  Scratch dir({});
  const std::vector<std::string> failing{"-imissing.x_t", "-oout.x_t", "-llog.txt"};
  ASSERT_EQ(dir.run(failing).exitCode, 210);
  EXPECT_FALSE(dir.has("erutil.stat"));
  ASSERT_EQ(dir.run(failing, {{"VTDBG", "1"}}).exitCode, 210);
  const std::string first = dir.read("erutil.stat");
  ASSERT_FALSE(first.empty());
  EXPECT_NE(dir.read("log.txt").find("main = 210 : st_ProcessFiles1 = 200 \n"
                                     "      [meld-solids\\MeldSolids],[854]\n"),
            std::string::npos);
  ASSERT_EQ(dir.run(failing, {{"VTDBG", "1"}}).exitCode, 210);
  const std::string second = dir.read("erutil.stat");
  EXPECT_GT(second.size(), first.size());
  EXPECT_EQ(second.compare(0, first.size(), first), 0);
}

TEST(EndToEnd, AFileOfLooseBodiesIsWorkedOnItsFirstPartOnly) {
  // A PART_XMT_BLOCK root gives one part per body; the first is a body, which
  // cannot hold an instance: that is reported and the job still succeeds.
  Scratch dir({"two_blocks.x_t"});
  const e2e::RunResult r = dir.run({"-itwo_blocks.x_t", "-oout.x_t", "-k"});
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(r.out.rfind("PS file has 2 pars.\nUse Fisrt Part.\nERROR : rc = ", 0), 0u) << r.out;
  EXPECT_NE(r.out.find(", PK_INSTANCE_create\n"), std::string::npos) << r.out;
  expectVolume(dir / "out.x_t", 1, 1000.0);
}

}  // namespace
