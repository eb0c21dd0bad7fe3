// Files the kernel reads and writes through the frustrum: XT data served to
// the codec, schema files by key, and writes that leave nothing behind when
// they fail.
#include "TestKernel.h"

#include "Codec.h"
#include "session/FrustrumFiles.h"

namespace kerneltest {
namespace {

using meld::kernel::FrustrumReader;
using meld::kernel::FrustrumSchemaSource;
using meld::kernel::FrustrumWriter;

// A small stream in the codec's own writing, several records long.
std::string sampleStream(meld::xt::Format format) {
  const std::string point =
      "T51 : TRANSMIT FILE created by modeller version 140000023 SCH_1400000_14000_13006"
      "239 0 29 255 5 7 0 0 0 0 1 2 3 1 0";
  meld::xt::EncodeOptions options;
  options.format = format;
  options.withHeader = false;
  return meld::xt::encode(meld::xt::decode(point), options);
}

std::string fileName(int guise, const std::string& key) {
  return std::to_string(guise) + ":" + key;
}

using FrustrumFiles = KernelSession;

TEST_F(FrustrumFiles, TheCodecReadsTextAndBinaryThroughTheFrustrumAndAMissingFileReadsNothing) {
  for (auto format : {meld::xt::Format::Text, meld::xt::Format::NeutralBinary}) {
    const bool text = format == meld::xt::Format::Text;
    const std::string stream = sampleStream(format);
    frustrumLog().files[fileName(PK_FR_guise_transmit, "part")] = stream;
    FrustrumReader reader(PK_FR_guise_transmit, text ? PK_FR_format_text : PK_FR_format_binary,
                          "part");
    ASSERT_EQ(reader.openFailure(), 0);
    meld::xt::Graph graph = meld::xt::decode(reader, text);
    EXPECT_TRUE(meld::xt::sameGraph(graph, meld::xt::decode(stream)));
  }
  FrustrumReader absent(PK_FR_guise_transmit, PK_FR_format_text, "absent");
  EXPECT_EQ(absent.openFailure(), PK_FR_not_found);
  char buffer[8];
  EXPECT_EQ(absent.read(buffer, sizeof buffer), 0u);
}

TEST_F(FrustrumFiles, SchemaFilesAreFoundByKeyUnderTheSchemaGuise) {
  frustrumLog().files[fileName(PK_FR_guise_schema, "SCH_2500123_25001")] = "line 1\nline 2\n";
  frustrumLog().files[fileName(PK_FR_guise_transmit, "SCH_9")] = "not a schema";
  FrustrumSchemaSource schemas;
  EXPECT_EQ(schemas.find("SCH_2500123_25001"), std::optional<std::string>("line 1\nline 2\n"));
  EXPECT_EQ(schemas.find("SCH_9"), std::nullopt);
}

TEST_F(FrustrumFiles, TextIsWrittenRecordByRecordWithItsHeaderData) {
  {
    FrustrumWriter writer(PK_FR_guise_transmit, PK_FR_format_text, "out",
                          "SCH=SCH_3400000_34000;USFLD_SIZE=0;");
    ASSERT_EQ(writer.openFailure(), 0);
    EXPECT_EQ(writer.write("first\nsecond\nthird"), 0);
    EXPECT_EQ(writer.commit(), 0);
  }
  const std::string name = fileName(PK_FR_guise_transmit, "out");
  EXPECT_EQ(frustrumLog().files[name], "first\nsecond\nthird");
  EXPECT_EQ(frustrumLog().writes, 3);
  EXPECT_EQ(frustrumLog().part2[name], "SCH=SCH_3400000_34000;USFLD_SIZE=0;");
}

TEST_F(FrustrumFiles, AnUnfinishedOrFailedWriteLeavesNoFile) {
  const std::string name = fileName(PK_FR_guise_transmit, "out");
  {
    FrustrumWriter writer(PK_FR_guise_transmit, PK_FR_format_binary, "out", "");
    ASSERT_EQ(writer.write(std::string(100, 'x')), 0);
    EXPECT_EQ(frustrumLog().files.count(name), 1u);
  }  // never committed
  EXPECT_EQ(frustrumLog().files.count(name), 0u);

  frustrumLog().failWriteNumber = frustrumLog().writes + 2;
  {
    FrustrumWriter writer(PK_FR_guise_transmit, PK_FR_format_text, "out", "");
    EXPECT_EQ(writer.write("a\nb\nc\n"), PK_FR_write_fail);
    EXPECT_EQ(writer.write("d\n"), PK_FR_write_fail);
    EXPECT_EQ(writer.commit(), PK_FR_write_fail);
  }
  EXPECT_EQ(frustrumLog().files.count(name), 0u);

  frustrumLog().failOpenWrite = true;
  FrustrumWriter refused(PK_FR_guise_transmit, PK_FR_format_text, "out", "");
  EXPECT_EQ(refused.openFailure(), PK_FR_could_not_open);
  EXPECT_EQ(refused.write("x"), PK_FR_could_not_open);
  EXPECT_EQ(refused.commit(), PK_FR_could_not_open);
}

}  // namespace
}  // namespace kerneltest
