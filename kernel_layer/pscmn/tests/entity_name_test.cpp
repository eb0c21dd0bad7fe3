// Entity names from the kernel's name attributes.
#include <gtest/gtest.h>

#include <clocale>
#include <string>

#include "PSCGetEntityName.h"
#include "session_test_helpers.h"

namespace {

using sessiontest::errorRecord;
using sessiontest::makeBlock;
using sessiontest::RunningModeller;

const char kSource[] = "kernel_layer\\src\\pscmn\\PSCGetEntityName";

PK_ATTRIB_t addAttrib(PK_ENTITY_t entity, const char* attdefName) {
  PK_ATTDEF_t attdef = PK_ENTITY_null;
  EXPECT_EQ(PK_ATTDEF_find(attdefName, &attdef), 0);
  PK_ATTRIB_t attrib = PK_ENTITY_null;
  EXPECT_EQ(PK_ATTRIB_create_empty(entity, attdef, &attrib), 0);
  return attrib;
}

void setNarrowName(PK_ENTITY_t entity, const char* name) {
  ASSERT_EQ(PK_ATTRIB_set_string(addAttrib(entity, "SDL/TYSA_NAME"), 0, name), 0);
}

void setUnicodeName(PK_ENTITY_t entity, const std::u16string& name) {
  const auto* units = reinterpret_cast<const PK_UCHAR_t*>(name.c_str());
  ASSERT_EQ(PK_ATTRIB_set_ustring(addAttrib(entity, "SDL/TYSA_UNAME"), 0, units), 0);
}

// Sets LC_CTYPE for a scope.
class ScopedCtype {
 public:
  explicit ScopedCtype(const char* locale) : m_old(std::setlocale(LC_CTYPE, nullptr)) {
    m_ok = std::setlocale(LC_CTYPE, locale) != nullptr;
  }
  ~ScopedCtype() { std::setlocale(LC_CTYPE, m_old.c_str()); }
  bool ok() const { return m_ok; }

 private:
  std::string m_old;
  bool m_ok = false;
};

TEST(EntityName, UnicodeWinsOverNarrowUnlessEmptyAndUnmappableCharactersAreSubstituted) {
  RunningModeller modeller;
  ScopedCtype ascii("C");
  ASSERT_TRUE(ascii.ok());
  struct Case {
    const char* narrow;      // nullptr: no such attribute
    const char16_t* wide;    // nullptr: no such attribute
    bool unicode;            // the caller's wish
    int result;
    const char* name;        // what the string holds afterwards; it starts "untouched"
  };
  const Case cases[] = {
      {"narrow", u"wide", true, 0, "wide"},
      {"narrow", u"wide", false, 0, "narrow"},
      {"bracket", u"", true, 0, "bracket"},
      {nullptr, nullptr, true, -1, "untouched"},
      {nullptr, u"Welle \u00D8 \u89D2", true, 0, "Welle ? ?"},
  };
  for (const Case& c : cases) {
    const PK_BODY_t body = makeBlock();
    if (c.narrow) setNarrowName(body, c.narrow);
    if (c.wide) setUnicodeName(body, c.wide);
    std::string name = "untouched";
    EXPECT_EQ(PSCGetEntityName(body, name, c.unicode), c.result) << c.name;
    EXPECT_EQ(name, c.name);
    if (!c.narrow) { EXPECT_EQ(st_GetStringAttrib("SDL/TYSA_NAME", body, name), -1); }
  }
  EXPECT_EQ(modeller.log(), "");

  ScopedCtype utf8("C.UTF-8");
  if (!utf8.ok()) GTEST_SKIP() << "no C.UTF-8 locale";
  const PK_BODY_t body = makeBlock();
  setUnicodeName(body, u"Welle \u00D8 \u89D2");
  std::string name;
  EXPECT_EQ(PSCGetEntityName(body, name, true), 0);
  EXPECT_EQ(name, "Welle \xC3\x98 \xE8\xA7\x92");
}

TEST(EntityName, ANarrowNameWithoutAStringIsReportedWithCodeZero) {
  RunningModeller modeller;
  const PK_BODY_t body = makeBlock();
  addAttrib(body, "SDL/TYSA_NAME");
  std::string name = "kept";
  EXPECT_EQ(st_GetStringAttrib("SDL/TYSA_NAME", body, name), 50);
  EXPECT_EQ(modeller.log(), "");
  EXPECT_EQ(PSCGetEntityName(body, name, true), 10);
  EXPECT_EQ(name, "kept");
  EXPECT_EQ(modeller.log(), errorRecord("PSCGetEntityName", 0, "PSCGetEntityName", 50, kSource, 112));
}

TEST(EntityName, KernelFailuresCarryTheirStepCodes) {
  RunningModeller modeller;
  const PK_BODY_t body = makeBlock();
  std::string name;
  PK_ATTRIB_t attrib = PK_ENTITY_null;

  // An unknown definition is passed on; the kernel refuses it.
  const int unknownDef = PK_ENTITY_ask_first_attrib(body, PK_ENTITY_null, &attrib);
  ASSERT_NE(unknownDef, 0);
  EXPECT_EQ(st_GetStringAttrib("no such definition", body, name), 20);

  // A Unicode attribute has no narrow string field.
  const PK_BODY_t wide = makeBlock();
  setUnicodeName(wide, u"w");
  char* text = nullptr;
  ASSERT_EQ(PK_ENTITY_ask_first_attrib(wide, [] {
              PK_ATTDEF_t d = 0;
              PK_ATTDEF_find("SDL/TYSA_UNAME", &d);
              return d;
            }(), &attrib), 0);
  const int wrongField = PK_ATTRIB_ask_string(attrib, 0, &text);
  ASSERT_NE(wrongField, 0);
  EXPECT_EQ(st_GetStringAttrib("SDL/TYSA_UNAME", wide, name), 40);

  const std::string tooLong(300, 'n');
  PK_ATTDEF_t attdef = PK_ENTITY_null;
  const int badName = PK_ATTDEF_find(tooLong.c_str(), &attdef);
  ASSERT_NE(badName, 0);
  EXPECT_EQ(st_GetStringAttrib(tooLong.c_str(), body, name), 10);

  ASSERT_EQ(PK_ENTITY_delete(1, &body), 0);
  PK_ATTDEF_t uname = PK_ENTITY_null;
  ASSERT_EQ(PK_ATTDEF_find("SDL/TYSA_UNAME", &uname), 0);
  const int deadEntity = PK_ENTITY_ask_first_attrib(body, uname, &attrib);
  ASSERT_NE(deadEntity, 0);
  EXPECT_EQ(PSCGetEntityName(body, name, true), 110);

  EXPECT_EQ(modeller.log(),
            errorRecord("st_GetStringAttrib", 20, "PK_ENTITY_ask_first_attrib", unknownDef, kSource, 30) +
                errorRecord("st_GetStringAttrib", 40, "PK_ATTRIB_ask_string", wrongField, kSource, 33) +
                errorRecord("st_GetStringAttrib", 10, "PK_ATTDEF_find", badName, kSource, 29) +
                errorRecord("PSCGetEntityName", 110, "PK_ENTITY_ask_first_attrib", deadEntity, kSource, 93));
}

}  // namespace
