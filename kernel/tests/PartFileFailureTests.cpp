// What receive and transmit do with what they cannot handle: procedural
// geometry, undecodable or inconsistent data, perspective transforms, a
// frustrum that fails. The session keeps exactly its entities; no file is left.
#include "PartFileSupport.h"

#include "Codec.h"
#include "TestSupport.h"
#include "model/BodyWriter.h"
#include "session/Session.h"

#include <BRepPrimAPI_MakeBox.hxx>

namespace kerneltest {
namespace {

using PartFileFailures = KernelSession;

size_t entityCount() { return meld::kernel::session().table.size(); }

const std::vector<double> kIdentity{1, 0, 0, 0, 1, 0, 0, 0, 1};

// A file made of nodes: a block body, optionally under an assembly whose instance
// has a transform with this matrix and these perspective terms.
std::string blockFile(bool placed, const std::vector<double>& rotation = kIdentity,
                      gp_XYZ perspective = gp_XYZ(0, 0, 0.5)) {
  meld::model::GraphSink sink;
  meld::model::WrittenBody body = meld::model::writeBody(sink, BRepPrimAPI_MakeBox(1.0, 2.0, 3.0).Shape());
  int64_t root = body.body;
  if (placed) {
    int64_t assembly = sink.add("ASSEMBLY", {{"res_size", 1000.0}, {"res_linear", 1e-8}, {"type", int64_t{1}}});
    int64_t instance = sink.add("INSTANCE", {{"node_id", int64_t{900}}, {"type", int64_t{1}}, {"part", body.body},
                                             {"assembly", assembly}});
    int64_t transform = sink.add("TRANSFORM", {{"owner", instance}, {"rotation_matrix", rotation},
                                               {"translation_vector", gp_XYZ(0, 0, 0)}, {"scale", 1.0},
                                               {"perspective_vector", perspective}});
    sink.set(instance, "transform", transform);
    sink.set(assembly, "sub_instance", instance);
    root = assembly;
  }
  return meld::xt::encode(sink.build(root));
}

TEST_F(PartFileFailures, ProceduralGeometryThatCannotBeBuiltIsRefusedNamingTheNodeAndLeavesNothing) {
  // ps4-Ball.1 with one chart point of an intersection curve moved 1 mm off
  // both of its surfaces (a chart spacing of about 2 mm): no curve through it
  // lies on the faces, so the body cannot be built.
  MELD_REQUIRE_CORPUS(corpus);
  std::string bytes = meldtest::readFile(corpus / "ps4-Ball.1.x_t");
  const std::string y = ".02776321132793085";  // chart point 1 of the first chart
  ASSERT_EQ(bytes.find(y), bytes.rfind(y));
  ASSERT_NE(bytes.find(y), std::string::npos);
  bytes.replace(bytes.find(y), y.size(), ".02876321132793085");
  putPartFile("moved chart point", bytes);
  const size_t before = entityCount();
  std::vector<PK_PART_t> parts;
  EXPECT_EQ(receive("moved chart point", &parts), PK_ERROR_bad_geometry);
  EXPECT_TRUE(parts.empty());
  EXPECT_EQ(entityCount(), before);
  const std::string message = lastMessage();
  EXPECT_NE(message.find("INTERSECTION node "), std::string::npos) << message;
  EXPECT_NE(message.find("chart point 1 "), std::string::npos) << message;
}

TEST_F(PartFileFailures, BadDataGivesItsCodeAndMessageAndLeavesTheSessionAsItWas) {
  std::vector<PK_PART_t> parts;
  const size_t before = entityCount();

  EXPECT_EQ(receive("nowhere", &parts), PK_ERROR_cant_open_file);
  EXPECT_NE(lastMessage().find("nowhere"), std::string::npos);

  const std::string good = blockFile(false);
  putPartFile("cut", good.substr(0, good.size() / 2));
  EXPECT_EQ(receive("cut", &parts), PK_ERROR_bad_part_data);
  EXPECT_NE(lastMessage().find("cannot decode"), std::string::npos) << lastMessage();

  putPartFile("perspective", blockFile(true));
  EXPECT_EQ(receive("perspective", &parts), PK_ERROR_perspective_transf);
  EXPECT_NE(lastMessage().find("TRANSFORM node"), std::string::npos) << lastMessage();
  putPartFile("sheared", blockFile(true, {1, 0.5, 0, 0, 1, 0, 0, 0, 1}, gp_XYZ(0, 0, 0)));
  EXPECT_EQ(receive("sheared", &parts), PK_ERROR_bad_transf);

  // A region chain that leads to a face: the builder stops there.
  meld::model::GraphSink sink;
  meld::model::WrittenBody body = meld::model::writeBody(sink, BRepPrimAPI_MakeBox(1.0, 1.0, 1.0).Shape());
  int64_t face = sink.add("FACE", {{"node_id", int64_t{999}}});
  sink.set(body.body, "region", face);
  putPartFile("tangled", meld::xt::encode(sink.build(body.body)));
  EXPECT_EQ(receive("tangled", &parts), PK_ERROR_bad_topology);
  EXPECT_NE(lastMessage().find("FACE node"), std::string::npos) << lastMessage();

  EXPECT_TRUE(parts.empty());
  EXPECT_EQ(entityCount(), before);

  putPartFile("placed", blockFile(true, {0, -1, 0, 1, 0, 0, 0, 0, 1}, gp_XYZ(0, 0, 0)));
  ASSERT_EQ(receive("placed", &parts), PK_ERROR_no_errors) << lastMessage();
  putPartFile("good", good);
  ASSERT_EQ(receive("good", &parts), PK_ERROR_no_errors);
  EXPECT_EQ(lastMessage(), "");
  ASSERT_EQ(parts.size(), 1u);
  EXPECT_NEAR(volumeOf(parts[0]), 6.0, 1e-9);
}

TEST_F(PartFileFailures, AFailedTransmitLeavesNoFile) {
  PK_BODY_t block = makeBlock(1, 1, 1);
  frustrumLog().failWriteNumber = frustrumLog().writes + 3;
  EXPECT_EQ(transmit({block}, "broken"), PK_ERROR_transmit_failed);
  EXPECT_FALSE(hasPartFile("broken"));
  EXPECT_NE(lastMessage().find("no file is left"), std::string::npos);

  frustrumLog().failWriteNumber = 0;
  frustrumLog().failOpenWrite = true;
  EXPECT_EQ(transmit({block}, "refused"), PK_ERROR_cant_open_file);
  EXPECT_FALSE(hasPartFile("refused"));

  frustrumLog().failOpenWrite = false;
  EXPECT_EQ(transmit({block, block}, "twice"), PK_ERROR_duplicate_entity);
  EXPECT_EQ(transmit({PK_ENTITY_null}, "nothing"), PK_ERROR_not_an_entity);
  EXPECT_FALSE(hasPartFile("twice"));
  EXPECT_EQ(transmit({block}, "fine"), PK_ERROR_no_errors);
  EXPECT_EQ(frustrumLog().part2["4:fine"], "SCH=SCH_3400000_34000;USFLD_SIZE=0;");
}

TEST_F(PartFileFailures, ATransmitVersionOutsideWhatFilesCanBeIsRefusedBeforeAnythingIsWritten) {
  PK_BODY_t a = makeBlock(1, 1, 1), b = makeBlock(2, 2, 2);
  auto transmitFor = [](const std::vector<PK_PART_t>& parts, const std::string& key, int version) {
    PK_PART_transmit_o_t options;
    PK_PART_transmit_o_m(options);
    options.transmit_version = version;
    return PK_PART_transmit(static_cast<int>(parts.size()), parts.data(), key.c_str(), &options);
  };
  EXPECT_EQ(transmitFor({a}, "v69", 69), PK_ERROR_bad_option_data);
  EXPECT_NE(lastMessage().find("transmit_version 69"), std::string::npos);
  EXPECT_EQ(transmitFor({a}, "v341", 341), PK_ERROR_bad_option_data);
  // Before 9.0 a file held one part.
  EXPECT_EQ(transmitFor({a, b}, "v80", 80), PK_ERROR_bad_option_data);
  EXPECT_FALSE(hasPartFile("v69") || hasPartFile("v341") || hasPartFile("v80"));
  EXPECT_EQ(transmitFor({a, b}, "v90", 90), PK_ERROR_no_errors);
  EXPECT_EQ(transmitFor({a}, "v70", 70), PK_ERROR_no_errors);
  EXPECT_EQ(transmitFor({a}, "v340", 340), PK_ERROR_no_errors);
}

// A fuzzed file whose pcurve ends lie absurdly far out on a periodic surface:
// writing it back once never finished (OCCT's wire explorer stepped a period
// at a time). It must now be written, or refused, like any other.
TEST_F(PartFileFailures, FarOffPcurveEndsDoNotStopTheWriter) {
  putPartFile("far", meldtest::readFile(meldtest::sourceDir() / "kernel/tests/data/far_pcurve_ends.x_t"));
  std::vector<PK_PART_t> parts;
  ASSERT_EQ(receive("far", &parts), PK_ERROR_no_errors) << lastMessage();
  if (transmit(parts, "far_again") != PK_ERROR_no_errors) {
    EXPECT_FALSE(hasPartFile("far_again"));
    EXPECT_FALSE(lastMessage().empty());
  }
}

}  // namespace
}  // namespace kerneltest
