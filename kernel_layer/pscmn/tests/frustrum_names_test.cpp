// File names built from the kernel's key, guise and format; the schema
// directory; the driver's extension, format and output helpers; trace lines.
#include <gtest/gtest.h>

#include "PSCLog.h"
#include "frustrum_test_helpers.h"

using namespace frutest;

namespace {

class FrustrumNames : public FrustrumTest {
 protected:
  // The first line of the file that a read open of `key` finds.
  std::string whichFile(int guise, int format, const std::string& key) {
    Opened in = openRead(guise, format, key, 0);
    if (in.ifail != 0) return ifailText(in.ifail);
    std::string line = readPiece(guise, in.strid, 100);
    close(guise, in.strid);
    return line;
  }
  void makeFiles(std::initializer_list<const char*> names) {
    for (const char* name : names) meldtest::writeFile(m_dir.path() / name, std::string(name) + "\n");
  }
};

TEST_F(FrustrumNames, WriteNamesUseLongExtensionsAndFormatSuffixes) {
  struct Case {
    int guise;
    int format;
    const char* fileName;
  };
  const Case cases[] = {
      {PK_FR_guise_snapshot, kText, "k.snp_txt"},  {PK_FR_guise_journal, kBinary, "k.jnl_bin"},
      {PK_FR_guise_transmit_noname, kText, "k.xmt"}, {PK_FR_guise_schema, kBinary, "k.sch_bin"},
      {PK_FR_guise_licence, kText, "k.lnc_txt"},   {PK_FR_guise_transmit_partition, kBinary, "k.xmp_bin"},
      {PK_FR_guise_transmit_deltas, kText, "k.xmd_txt"}, {PK_FR_guise_debug_report, kText, "k.xml"},
      {PK_FR_guise_snapshot, 7, "k.snp"},
  };
  meldtest::ScopedEnv shortNames("VTX_PSC_USE_SHORT_NAME_SCHEMA", "1");  // reads only
  for (const Case& c : cases) {
    Opened out = openWrite(c.guise, c.format, "k");
    ASSERT_EQ(out.ifail, 0) << c.fileName;
    ASSERT_EQ(close(c.guise, out.strid), 0);
    EXPECT_TRUE(exists(c.fileName)) << c.fileName;
  }
}

TEST_F(FrustrumNames, TransmitNamesComeFromTheDriver) {
  char key[301];
  std::filesystem::create_directory("out");
  PSCSetOutputFile("out/res", key);
  EXPECT_STREQ(key, "res");
  PSCSetTransmitExtension(".X_T");
  Opened out = openWrite(kTransmit, kText, "kernel_key");
  ASSERT_EQ(out.ifail, 0);
  ASSERT_EQ(close(kTransmit, out.strid), 0);
  std::string header = fileText("out/res.X_T");
  EXPECT_NE(header.find("KEY=kernel_key;\nFILE=out/res.X_T;\n"), std::string::npos);

  makeFiles({"model.X_T", "model.xmt"});
  EXPECT_EQ(whichFile(kTransmit, kText, "model"), "model.X_T\n");
  EXPECT_EQ(whichFile(PK_FR_guise_transmit_noname, kText, "model"), "model.xmt\n");
}

TEST_F(FrustrumNames, SchemaReadsUseTheDirectoryAndShortNamesWhenAsked) {
  std::filesystem::create_directory("schemas");
  std::filesystem::create_directory("env_schemas");
  makeFiles({"schemas/S1.sch_txt", "schemas/S1.S_T", "schemas/S1.S_B", "k.snp_txt", "k.N_T",
             "S2.sch_txt", "env_schemas/S2.sch_txt"});
  PSCSetSchemaDirectory("schemas");
  EXPECT_EQ(whichFile(PK_FR_guise_schema, kText, "S1"), "schemas/S1.sch_txt\n");
  {
    meldtest::ScopedEnv shortNames("VTX_PSC_USE_SHORT_NAME_SCHEMA", "1");
    EXPECT_EQ(whichFile(PK_FR_guise_schema, kText, "S1"), "schemas/S1.S_T\n");
    EXPECT_EQ(whichFile(PK_FR_guise_schema, kBinary, "S1"), "schemas/S1.S_B\n");
    EXPECT_EQ(whichFile(PK_FR_guise_snapshot, kText, "k"), "k.snp_txt\n");
  }
  meldtest::ScopedEnv zero("VTX_PSC_USE_SHORT_NAME_SCHEMA", "0");
  EXPECT_EQ(whichFile(PK_FR_guise_schema, kText, "S1"), "schemas/S1.sch_txt\n");
  {
    // No argument: P_SCHEMA, else no directory.
    meldtest::ScopedEnv variable("P_SCHEMA", "env_schemas");
    PSCSetSchemaDirectory(nullptr);
    EXPECT_STREQ(PSCGetSchemaDirectory(), "env_schemas");
    EXPECT_EQ(whichFile(PK_FR_guise_schema, kText, "S2"), "env_schemas/S2.sch_txt\n");
  }
  PSCSetSchemaDirectory(nullptr);
  EXPECT_EQ(PSCGetSchemaDirectory(), nullptr);
  EXPECT_EQ(whichFile(PK_FR_guise_schema, kText, "S2"), "S2.sch_txt\n");
  // A directory that would make the name too long is dropped silently.
  PSCSetSchemaDirectory(std::string(252, 'd').c_str());
  EXPECT_EQ(whichFile(PK_FR_guise_schema, kText, "S2"), "S2.sch_txt\n");
}

TEST_F(FrustrumNames, BadNamesGiveIfail1AndAKeyOf256CharactersAborts) {
  EXPECT_EQ(openRead(PK_FR_guise_schema, kText, " S1").ifail, PK_FR_bad_name);
  PSCSetSchemaDirectory("schemas");  // the key is checked before the directory
  EXPECT_EQ(openRead(PK_FR_guise_schema, kText, " S1").ifail, PK_FR_bad_name);
  EXPECT_EQ(openRead(kTransmit, kText, " part").ifail, PK_FR_bad_name);
  // The key fits, the name with its extension does not.
  Opened tooLong = openWrite(PK_FR_guise_journal, kText, std::string(250, 'j'));
  EXPECT_EQ(tooLong.ifail, PK_FR_bad_name);
  EXPECT_EQ(tooLong.strid, -1);
  EXPECT_DEATH(openRead(kTransmit, kText, std::string(256, 'k')), "file key of 256 characters");
}

TEST(DriverSettings, PartFileExtensionTransmitFormatAndOutputKey) {
  // Found at the end, ignoring case; a bare extension is not a name with one.
  const std::pair<const char*, int> extensions[] = {
      {"dir/a.X_T", 5}, {"gismo-swept.xmt_txt", 11}, {"a.XMT_BIN", 1}, {"a.x_b", 1},
      {".x_t", -1},     {".xmt_txt", -1},            {"part.step", -1}, {"x_t", -1}, {nullptr, -1}};
  for (auto [name, at] : extensions)
    EXPECT_EQ(PSCFindPartFileExtension(name), at < 0 ? nullptr : name + at) << (name ? name : "null");
  // Text only for the exact text extensions.
  const std::tuple<int, const char*, int> formats[] = {
      {1, ".X_T", 1},         {1, ".x_b", 2},         {0, ".xmt_TXT", 18220}, {2, ".x_t", 18220},
      {2, ".xmt_bin", 18221}, {2, ".x_tt", 18221},    {0, nullptr, 18221},    {1, nullptr, 2}};
  for (auto [family, extension, format] : formats)
    EXPECT_EQ(PSCTransmitFormatFor(family, extension), format) << (extension ? extension : "null");

  PSCSetTransmitExtension(".xmt_txt");
  EXPECT_STREQ(PSCGetTransmitExtension(), ".xmt_txt");
  PSCSetTransmitExtension("abc");
  EXPECT_STREQ(PSCGetTransmitExtension(), ".x_b");
  PSCSetTransmitExtension(nullptr);
  EXPECT_STREQ(PSCGetTransmitExtension(), ".x_b");
  char key[301];
  PSCSetOutputFile("/work/out/united", key);
  EXPECT_STREQ(key, "united");
  EXPECT_STREQ(PSCGetOutputBase(), "/work/out/united");
  PSCSetOutputFile("plain", key);
  EXPECT_STREQ(key, "plain");
  PSCSetOutputFile("dir/", key);
  EXPECT_STREQ(key, "");
}

TEST_F(FrustrumNames, OpensAreTracedWhenAskedReadsAsTranscriptWritesAsDetail) {
  std::filesystem::create_directory("schemas");
  makeFiles({"schemas/S1.S_T"});
  PSCSetSchemaDirectory("schemas");
  meldtest::ScopedEnv shortNames("VTX_PSC_USE_SHORT_NAME_SCHEMA", "1");
  // Opens a short-named schema file and writes a journal with the log open.
  auto traceOfOpens = [this](const char* trace, const char* debugLevel) {
    meldtest::ScopedEnv traceVariable("VTDBG_FRUSTRUM", trace);
    meldtest::ScopedEnv level("VTDBG", debugLevel);
    EXPECT_EQ(PSCInitializeLog("trace.log", nullptr), 0);
    whichFile(PK_FR_guise_schema, kText, "S1");
    close(PK_FR_guise_journal, openWrite(PK_FR_guise_journal, kText, "j").strid);
    PSCTerminateLog();
    return fileText("trace.log");
  };
  const std::string readLines =
      ">>> USING SHORT NAME SCHEMA\n"
      ">>> Opening file \"schemas/S1.S_T\" to Read at Frustrum.\n"
      ">>>         file \"schemas/S1.S_T\" opened.\n";
  const std::string writeLines =
      ">>> Opening file \"j.jnl_txt\" to write at Frustrum.\n"
      ">>>         file \"j.jnl_txt\" opened.\n";
  EXPECT_EQ(traceOfOpens("1", "6"), readLines + writeLines);
  EXPECT_EQ(traceOfOpens("1", "0"), readLines);
  EXPECT_EQ(traceOfOpens("0", "6"), "");
}

}  // namespace
