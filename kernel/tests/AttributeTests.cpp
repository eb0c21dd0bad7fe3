#include "TestKernel.h"

#include <string>

using namespace kerneltest;

namespace {

PK_ATTDEF_t attdef(const char* name) {
  PK_ATTDEF_t def = -1;
  EXPECT_EQ(PK_ATTDEF_find(name, &def), PK_ERROR_no_errors);
  return def;
}

}  // namespace

using Attributes = KernelSession;

// The system definitions exist from the start.
TEST_F(Attributes, StringAndUnicodeNamesRoundTrip) {
  EXPECT_NE(attdef("SDL/TYSA_NAME"), attdef("SDL/TYSA_UNAME"));
  EXPECT_EQ(attdef("SDL/NO_SUCH_THING"), PK_ENTITY_null);
  PK_BODY_t body = makeBlock(1, 1, 1);
  PK_ATTRIB_t found = -1;
  ASSERT_EQ(PK_ENTITY_ask_first_attrib(body, attdef("SDL/TYSA_NAME"), &found), PK_ERROR_no_errors);
  EXPECT_EQ(found, PK_ENTITY_null);

  PK_ATTRIB_t name = 0, uname = 0;
  ASSERT_EQ(PK_ATTRIB_create_empty(body, attdef("SDL/TYSA_NAME"), &name), PK_ERROR_no_errors);
  char* text = reinterpret_cast<char*>(1);
  ASSERT_EQ(PK_ATTRIB_ask_string(name, 0, &text), PK_ERROR_no_errors);
  EXPECT_EQ(text, nullptr);
  ASSERT_EQ(PK_ATTRIB_set_string(name, 0, "bracket"), PK_ERROR_no_errors);

  const PK_UCHAR_t wide[] = {0x0047, 0x00E4, 0x6771, 0xD83D, 0xDE00, 0};  // G, a-umlaut, CJK, emoji
  ASSERT_EQ(PK_ATTRIB_create_empty(body, attdef("SDL/TYSA_UNAME"), &uname), PK_ERROR_no_errors);
  ASSERT_EQ(PK_ATTRIB_set_ustring(uname, 0, wide), PK_ERROR_no_errors);

  ASSERT_EQ(PK_ENTITY_ask_first_attrib(body, attdef("SDL/TYSA_NAME"), &found), PK_ERROR_no_errors);
  ASSERT_EQ(found, name);
  ASSERT_EQ(PK_ATTRIB_ask_string(found, 0, &text), PK_ERROR_no_errors);
  EXPECT_STREQ(text, "bracket");
  ASSERT_EQ(PK_ENTITY_ask_first_attrib(body, attdef("SDL/TYSA_UNAME"), &found), PK_ERROR_no_errors);
  ASSERT_EQ(found, uname);
  PK_UCHAR_t* back = nullptr;
  ASSERT_EQ(PK_ATTRIB_ask_ustring(found, 0, &back), PK_ERROR_no_errors);
  EXPECT_EQ(std::u16string(reinterpret_cast<char16_t*>(back)),
            std::u16string(reinterpret_cast<const char16_t*>(wide)));
}

TEST_F(Attributes, FieldsAreCheckedAgainstTheirDefinition) {
  PK_BODY_t body = makeBlock(1, 1, 1);
  PK_ATTRIB_t name = 0;
  ASSERT_EQ(PK_ATTRIB_create_empty(body, attdef("SDL/TYSA_NAME"), &name), PK_ERROR_no_errors);
  const PK_UCHAR_t wide[] = {0x41, 0};
  EXPECT_EQ(PK_ATTRIB_set_ustring(name, 0, wide), PK_ERROR_bad_field);
  EXPECT_EQ(PK_ATTRIB_set_string(name, 1, "x"), PK_ERROR_bad_field);
  EXPECT_EQ(PK_ATTRIB_set_string(name, -1, "x"), PK_ERROR_bad_field);
  PK_UCHAR_t* back = nullptr;
  EXPECT_EQ(PK_ATTRIB_ask_ustring(name, 0, &back), PK_ERROR_bad_field);
  // A colour is one real field of three values.
  PK_ATTRIB_t colour = 0;
  const double rgb[3] = {0.1, 0.2, 0.3};
  ASSERT_EQ(PK_ATTRIB_create_empty(body, attdef("SDL/TYSA_COLOUR"), &colour), PK_ERROR_no_errors);
  ASSERT_EQ(PK_ATTRIB_set_doubles(colour, 0, 3, rgb), PK_ERROR_no_errors);
  int n = 0;
  double* values = nullptr;
  ASSERT_EQ(PK_ATTRIB_ask_doubles(colour, 0, &n, &values), PK_ERROR_no_errors);
  ASSERT_EQ(n, 3);
  EXPECT_EQ(values[2], 0.3);
  PK_MEMORY_free(values);
  int* ints = nullptr;
  EXPECT_EQ(PK_ATTRIB_ask_ints(colour, 0, &n, &ints), PK_ERROR_bad_field);
  EXPECT_EQ(PK_ATTRIB_ask_doubles(colour, 1, &n, &values), PK_ERROR_bad_field);
  char* text = nullptr;
  EXPECT_EQ(PK_ATTRIB_ask_string(colour, 0, &text), PK_ERROR_bad_field);
  PK_ATTRIB_t onAttrib = 0;
  EXPECT_EQ(PK_ATTRIB_create_empty(name, attdef("SDL/TYSA_NAME"), &onAttrib), PK_ERROR_wrong_entity);
  EXPECT_EQ(PK_ATTRIB_create_empty(body, body, &onAttrib), PK_ERROR_wrong_entity);
  PK_ATTRIB_t found = 0;
  EXPECT_EQ(PK_ENTITY_ask_first_attrib(body, PK_ENTITY_null, &found), PK_ERROR_not_an_entity);

  // Attributes go with the entity they are attached to.
  ASSERT_EQ(PK_ENTITY_delete(1, &body), PK_ERROR_no_errors);
  PK_LOGICAL_t is = PK_LOGICAL_true;
  ASSERT_EQ(PK_ENTITY_is(name, &is), PK_ERROR_no_errors);
  EXPECT_EQ(is, PK_LOGICAL_false);
}
