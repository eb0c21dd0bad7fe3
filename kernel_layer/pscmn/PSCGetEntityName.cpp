#include "PSCGetEntityName.h"

#include "KxuNarrowText.h"
#include "PSCPerformanceAnalyzer.h"
#include "PSCReport.h"

namespace {

const char kSource[] = "kernel_layer\\src\\pscmn\\PSCGetEntityName";
const char kUnicodeNameAttdef[] = "SDL/TYSA_UNAME";
const char kNarrowNameAttdef[] = "SDL/TYSA_NAME";

// The outcome of looking for the Unicode name: a failure code, or 0 with the
// converted name (empty when there is none to use).
int askUnicodeName(PK_ENTITY_t entity, std::string& converted) {
  PK_ATTDEF_t attdef = PK_ENTITY_null;
  if (int rc = PK_ATTDEF_find(kUnicodeNameAttdef, &attdef)) {
    PSCReportFailure("PSCGetEntityName", 100, "PK_ATTDEF_find", rc, kSource, 91);
    return 100;
  }
  if (attdef == PK_ENTITY_null) return 0;
  PK_ATTRIB_t attrib = PK_ENTITY_null;
  if (int rc = PK_ENTITY_ask_first_attrib(entity, attdef, &attrib)) {
    PSCReportFailure("PSCGetEntityName", 110, "PK_ENTITY_ask_first_attrib", rc, kSource, 93);
    return 110;
  }
  if (attrib == PK_ENTITY_null) return 0;
  PK_UCHAR_t* ustring = nullptr;
  if (int rc = PK_ATTRIB_ask_ustring(attrib, 0, &ustring)) {
    PSCReportFailure("PSCGetEntityName", 120, "PK_ATTRIB_ask_ustring", rc, kSource, 96);
    return 120;
  }
  // The kernel keeps ownership of its string.
  converted = KxuUtf16ToLocaleNarrow(ustring);
  return 0;
}

}  // namespace

int PSCGetEntityName(PK_ENTITY_t entity, std::string& name, bool tryUnicode) {
  PSCPerformanceAnalyzer analyzer("PSCGetEntityName");
  if (tryUnicode) {
    std::string converted;
    if (int rc = askUnicodeName(entity, converted)) return rc;
    // An empty Unicode name does not count: the narrow one may still exist.
    if (!converted.empty()) {
      name = converted;
      return 0;
    }
  }
  const int rc = st_GetStringAttrib(kNarrowNameAttdef, entity, name);
  if (rc < 0) return -1;
  if (rc > 0) {
    // The record names this function as the failing call and carries 0 as its
    // own code: the narrow lookup has already reported its own step.
    PSCReportFailure("PSCGetEntityName", 0, "PSCGetEntityName", rc, kSource, 112);
    return 10;
  }
  return 0;
}

int st_GetStringAttrib(const char* attdefName, PK_ENTITY_t entity, std::string& value) {
  PSCPerformanceAnalyzer analyzer("st_GetStringAttrib");
  PK_ATTDEF_t attdef = PK_ENTITY_null;
  if (int rc = PK_ATTDEF_find(attdefName, &attdef)) {
    PSCReportFailure("st_GetStringAttrib", 10, "PK_ATTDEF_find", rc, kSource, 29);
    return 10;
  }
  // An unknown definition (null) goes on to the kernel, whose answer decides.
  PK_ATTRIB_t attrib = PK_ENTITY_null;
  if (int rc = PK_ENTITY_ask_first_attrib(entity, attdef, &attrib)) {
    PSCReportFailure("st_GetStringAttrib", 20, "PK_ENTITY_ask_first_attrib", rc, kSource, 30);
    return 20;
  }
  if (attrib == PK_ENTITY_null) return -1;
  char* string = nullptr;
  if (int rc = PK_ATTRIB_ask_string(attrib, 0, &string)) {
    PSCReportFailure("st_GetStringAttrib", 40, "PK_ATTRIB_ask_string", rc, kSource, 33);
    return 40;
  }
  if (!string) return 50;
  value = string;
  return 0;
}
