// Parts the kernel makes, written and read back: assemblies with instances and
// transforms, names (plain and Unicode), colours, attributes on faces, several
// parts in one file, in text and in binary.
#include "PartFileSupport.h"

#include "ops/Bodies.h"
#include "session/Session.h"

#include <TopExp_Explorer.hxx>

#include <cstring>

namespace kerneltest {
namespace {

using PartRoundTrip = KernelSession;

PK_ATTDEF_t attdef(const char* name) {
  PK_ATTDEF_t def = PK_ENTITY_null;
  EXPECT_EQ(PK_ATTDEF_find(name, &def), PK_ERROR_no_errors);
  return def;
}

void name(PK_ENTITY_t entity, const char* text) {
  PK_ATTRIB_t a = 0;
  ASSERT_EQ(PK_ATTRIB_create_empty(entity, attdef("SDL/TYSA_NAME"), &a), PK_ERROR_no_errors);
  ASSERT_EQ(PK_ATTRIB_set_string(a, 0, text), PK_ERROR_no_errors);
}

void colour(PK_ENTITY_t entity, double r, double g, double b) {
  PK_ATTRIB_t a = 0;
  const double rgb[3] = {r, g, b};
  ASSERT_EQ(PK_ATTRIB_create_empty(entity, attdef("SDL/TYSA_COLOUR"), &a), PK_ERROR_no_errors);
  ASSERT_EQ(PK_ATTRIB_set_doubles(a, 0, 3, rgb), PK_ERROR_no_errors);
}

std::u16string unicodeName(PK_ENTITY_t entity) {
  PK_ATTRIB_t a = 0;
  EXPECT_EQ(PK_ENTITY_ask_first_attrib(entity, attdef("SDL/TYSA_UNAME"), &a), PK_ERROR_no_errors);
  PK_UCHAR_t* text = nullptr;
  if (a) PK_ATTRIB_ask_ustring(a, 0, &text);
  std::u16string out;
  for (; text && *text; ++text) out.push_back(char16_t(*text));
  return out;
}

PK_TRANSF_t turnAndMove() {
  // A quarter turn about z, then 5 m along x.
  PK_TRANSF_sf_t sf{{{0, -1, 0, 5}, {1, 0, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}}};
  PK_TRANSF_t t = 0;
  EXPECT_EQ(PK_TRANSF_create(&sf, &t), PK_ERROR_no_errors);
  return t;
}

std::vector<PK_INSTANCE_t> instancesOf(PK_ASSEMBLY_t assembly) {
  std::vector<PK_INSTANCE_t> out;
  for (PK_ENTITY_t tag : meld::kernel::session().table.ownedBy(assembly))
    if (meld::kernel::session().table.get(tag).cls == PK_CLASS_instance) out.push_back(tag);
  return out;
}

TEST_F(PartRoundTrip, AnAssemblyKeepsItsInstancesTransformsNamesAndColours) {
  PK_BODY_t block = makeBlock(1, 2, 3);
  PK_BODY_t cylinder = 0;
  ASSERT_EQ(PK_BODY_create_solid_cyl(0.5, 2, nullptr, &cylinder), PK_ERROR_no_errors);
  name(block, "block");
  colour(cylinder, 0.25, 0.5, 0.75);
  const PK_UCHAR_t wide[] = {0x89D2, 0x0041, 0};  // a character past 0x7FFF: written as a negative short
  PK_ATTRIB_t uname = 0;
  ASSERT_EQ(PK_ATTRIB_create_empty(cylinder, attdef("SDL/TYSA_UNAME"), &uname), PK_ERROR_no_errors);
  ASSERT_EQ(PK_ATTRIB_set_ustring(uname, 0, wide), PK_ERROR_no_errors);
  PK_ASSEMBLY_t assembly = 0;
  ASSERT_EQ(PK_ASSEMBLY_create_empty(&assembly), PK_ERROR_no_errors);
  name(assembly, "pair");
  PK_INSTANCE_t first = 0, second = 0;
  PK_INSTANCE_sf_t sf{assembly, block, PK_ENTITY_null};
  ASSERT_EQ(PK_INSTANCE_create(&sf, &first), PK_ERROR_no_errors);
  sf = PK_INSTANCE_sf_t{assembly, cylinder, turnAndMove()};
  ASSERT_EQ(PK_INSTANCE_create(&sf, &second), PK_ERROR_no_errors);
  name(second, "moved cylinder");

  for (PK_transmit_format_t format : {PK_transmit_format_text_c, PK_transmit_format_neutral_c, PK_transmit_format_typed_binary_c}) {
    SCOPED_TRACE(format);
    ASSERT_EQ(transmit({assembly}, "assembly", format), PK_ERROR_no_errors) << lastMessage();
    // Typed binary says so, and this machine's byte order, in its first bytes.
    std::string typedMark("PS\0\1", 4);
    EXPECT_EQ(partFile("assembly").find(typedMark) == 0, format == PK_transmit_format_typed_binary_c);
    std::vector<PK_PART_t> parts;
    ASSERT_EQ(receive("assembly", &parts, format), PK_ERROR_no_errors) << lastMessage();
    ASSERT_EQ(parts.size(), 1u);
    PK_CLASS_t cls = 0;
    ASSERT_EQ(PK_ENTITY_ask_class(parts[0], &cls), PK_ERROR_no_errors);
    ASSERT_EQ(cls, PK_CLASS_assembly);
    std::vector<PK_BODY_t> bodies = bodiesOf(parts);
    ASSERT_EQ(bodies.size(), 2u);
    BodySummary b0 = summarise(bodies[0]), b1 = summarise(bodies[1]);
    EXPECT_EQ(b0.name, "block");
    EXPECT_NEAR(b0.volume, 6, 1e-9);
    EXPECT_EQ(b1.colour, (std::vector<double>{0.25, 0.5, 0.75}));
    EXPECT_EQ(unicodeName(bodies[1]), u"\u89D2A");
    EXPECT_NEAR(b1.volume, M_PI * 0.25 * 2, 1e-9);

    std::vector<PK_INSTANCE_t> instances = instancesOf(parts[0]);
    ASSERT_EQ(instances.size(), 2u);
    const auto& placed = std::get<meld::kernel::InstanceData>(*meld::kernel::session().table.get(instances[1]).payload);
    ASSERT_NE(placed.transf, PK_ENTITY_null);
    PK_TRANSF_sf_t back{};
    ASSERT_EQ(PK_TRANSF_ask(placed.transf, &back), PK_ERROR_no_errors);
    EXPECT_EQ(back.matrix[0][1], -1);
    EXPECT_EQ(back.matrix[1][0], 1);
    EXPECT_EQ(back.matrix[0][3], 5);
    EXPECT_EQ(std::get<meld::kernel::InstanceData>(*meld::kernel::session().table.get(instances[0]).payload).transf,
              PK_ENTITY_null);
    PK_ATTRIB_t instanceName = 0;
    ASSERT_EQ(PK_ENTITY_ask_first_attrib(instances[1], attdef("SDL/TYSA_NAME"), &instanceName), PK_ERROR_no_errors);
    char* text = nullptr;
    ASSERT_EQ(PK_ATTRIB_ask_string(instanceName, 0, &text), PK_ERROR_no_errors);
    EXPECT_STREQ(text, "moved cylinder");
  }
}

TEST_F(PartRoundTrip, SeveralPartsComeBackInOrderWhereTheyWereWithTheirFaceAttributes) {
  PK_BODY_t small = makeBlock(1, 1, 1), large = makeBlock(2, 2, 2, 10);
  // A colour on one face of the large block, carried in the body's payload.
  meld::kernel::BodyData data = meld::kernel::bodyData(large);
  TopExp_Explorer face(data.shape, TopAbs_FACE);
  face.Next();
  data.subshapeAttribs.push_back({face.Current(), attdef("SDL/TYSA_COLOUR"), {std::vector<double>{1, 0, 0}}});
  meld::kernel::session().table.replacePayload(large, meld::kernel::makePayload(data));

  // A moved body is written where it is.
  PK_BODY_t cylinder = 0;
  ASSERT_EQ(PK_BODY_create_solid_cyl(0.5, 2, nullptr, &cylinder), PK_ERROR_no_errors);
  ASSERT_EQ(PK_BODY_transform_2(cylinder, turnAndMove(), 0, nullptr), PK_ERROR_no_errors);

  ASSERT_EQ(transmit({large, small, cylinder}, "three", PK_transmit_format_neutral_c), PK_ERROR_no_errors)
      << lastMessage();
  std::vector<PK_PART_t> parts;
  ASSERT_EQ(receive("three", &parts, PK_transmit_format_neutral_c), PK_ERROR_no_errors) << lastMessage();
  ASSERT_EQ(parts.size(), 3u);
  EXPECT_NEAR(volumeOf(parts[0]), 8, 1e-9);
  EXPECT_NEAR(volumeOf(parts[1]), 1, 1e-9);
  EXPECT_EQ(boxOf(parts[2]), boxOf(cylinder));
  EXPECT_NEAR(volumeOf(parts[2]), M_PI * 0.25 * 2, 1e-9);
  EXPECT_TRUE(summarise(parts[2]).valid);
  const auto& back = meld::kernel::bodyData(parts[0]).subshapeAttribs;
  ASSERT_EQ(back.size(), 1u);
  EXPECT_EQ(back[0].shape.ShapeType(), TopAbs_FACE);
  EXPECT_EQ(back[0].attdef, attdef("SDL/TYSA_COLOUR"));
  EXPECT_EQ(std::get<std::vector<double>>(back[0].fields[0]), (std::vector<double>{1, 0, 0}));
  bool onTheBody = false;
  for (TopExp_Explorer f(meld::kernel::bodyData(parts[0]).shape, TopAbs_FACE); f.More(); f.Next())
    onTheBody = onTheBody || f.Current().IsSame(back[0].shape);
  EXPECT_TRUE(onTheBody);
}

}  // namespace
}  // namespace kerneltest
