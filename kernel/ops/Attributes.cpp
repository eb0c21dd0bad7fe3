// Attribute definitions and attributes with string and Unicode string fields.
#include "session/KernelError.h"
#include "session/Memory.h"
#include "session/Session.h"

#include <cstring>

using namespace meld::kernel;

namespace {

constexpr std::size_t kMaxNameLength = 255;

bool canCarryAttributes(PK_CLASS_t cls) {
  return cls != PK_CLASS_partition && cls != PK_CLASS_pmark && cls != PK_CLASS_mark &&
         cls != PK_CLASS_attdef && cls != PK_CLASS_attrib;
}

const AttdefData& attdefData(const EntityTable& table, PK_ATTDEF_t attdef) {
  return std::get<AttdefData>(*table.get(attdef, PK_CLASS_attdef).payload);
}

const AttribData& attribData(const EntityTable& table, PK_ATTRIB_t attrib) {
  return std::get<AttribData>(*table.get(attrib, PK_CLASS_attrib).payload);
}

// The field must exist in the attribute's definition and be of that type.
void checkField(const EntityTable& table, PK_ATTRIB_t attrib, int index, PK_ATTRIB_field_t type) {
  const AttdefData& def = attdefData(table, table.get(attrib, PK_CLASS_attrib).referent);
  require(index >= 0 && std::size_t(index) < def.fields.size(), PK_ERROR_bad_field);
  require(def.fields[std::size_t(index)] == type, PK_ERROR_bad_field);
}

void setField(PK_ATTRIB_t attrib, int index, PK_ATTRIB_field_t type, AttribValue value) {
  EntityTable& table = session().table;
  checkField(table, attrib, index, type);
  AttribData changed = attribData(table, attrib);
  changed.fields[std::size_t(index)] = std::move(value);
  table.replacePayload(attrib, makePayload(std::move(changed)));
}

std::u16string fromUChars(const PK_UCHAR_t* text) {
  std::u16string out;
  for (; *text != 0; ++text) out.push_back(static_cast<char16_t>(*text));
  return out;
}

static_assert(sizeof(PK_UCHAR_t) == sizeof(char16_t));

}  // namespace

extern "C" PK_ERROR_code_t PK_ATTDEF_find(const char* name, PK_ATTDEF_t* attdef) {
  return guarded([&] {
    requireArg(name);
    requireArg(attdef);
    require(std::strlen(name) <= kMaxNameLength, PK_ERROR_bad_name);
    SessionState& s = session();
    *attdef = PK_ENTITY_null;
    for (PK_ENTITY_t tag : s.table.ownedBy(s.partition)) {
      const Record& r = s.table.get(tag);
      if (r.cls == PK_CLASS_attdef && std::get<AttdefData>(*r.payload).name == name) {
        *attdef = tag;
        return;
      }
    }
  });
}

extern "C" PK_ERROR_code_t PK_ATTRIB_create_empty(PK_ENTITY_t owner, PK_ATTDEF_t attdef,
                                                  PK_ATTRIB_t* attrib) {
  return guarded([&] {
    requireArg(attrib);
    EntityTable& table = session().table;
    require(canCarryAttributes(table.get(owner).cls), PK_ERROR_wrong_entity);
    AttribData empty;
    empty.fields.resize(attdefData(table, attdef).fields.size());
    *attrib = table.create(Record{PK_CLASS_attrib, owner, attdef, makePayload(std::move(empty))});
  });
}

extern "C" PK_ERROR_code_t PK_ATTRIB_set_string(PK_ATTRIB_t attrib, int field_index,
                                                const char* string) {
  return guarded([&] {
    requireArg(string);
    setField(attrib, field_index, PK_ATTRIB_field_string_c, std::string(string));
  });
}

extern "C" PK_ERROR_code_t PK_ATTRIB_set_ustring(PK_ATTRIB_t attrib, int field_index,
                                                 const PK_UCHAR_t* ustring) {
  return guarded([&] {
    requireArg(ustring);
    setField(attrib, field_index, PK_ATTRIB_field_ustring_c, fromUChars(ustring));
  });
}

extern "C" PK_ERROR_code_t PK_ENTITY_ask_first_attrib(PK_ENTITY_t entity, PK_ATTDEF_t attdef,
                                                      PK_ATTRIB_t* attrib) {
  return guarded([&] {
    requireArg(attrib);
    const EntityTable& table = session().table;
    table.get(entity);
    table.get(attdef, PK_CLASS_attdef);
    *attrib = PK_ENTITY_null;
    for (PK_ENTITY_t tag : table.ownedBy(entity)) {
      const Record& r = table.get(tag);
      if (r.cls == PK_CLASS_attrib && r.referent == attdef) {
        *attrib = tag;
        return;
      }
    }
  });
}

// Strings handed out point into the attribute's payload: owned by the kernel,
// valid until the attribute changes or the session stops.
extern "C" PK_ERROR_code_t PK_ATTRIB_ask_string(PK_ATTRIB_t attrib, int field_index, char** string) {
  return guarded([&] {
    requireArg(string);
    const EntityTable& table = session().table;
    checkField(table, attrib, field_index, PK_ATTRIB_field_string_c);
    const auto* value = std::get_if<std::string>(&attribData(table, attrib).fields[std::size_t(field_index)]);
    *string = value ? const_cast<char*>(value->c_str()) : nullptr;
  });
}

extern "C" PK_ERROR_code_t PK_ATTRIB_ask_ustring(PK_ATTRIB_t attrib, int field_index,
                                                 PK_UCHAR_t** ustring) {
  return guarded([&] {
    requireArg(ustring);
    const EntityTable& table = session().table;
    checkField(table, attrib, field_index, PK_ATTRIB_field_ustring_c);
    const auto* value =
        std::get_if<std::u16string>(&attribData(table, attrib).fields[std::size_t(field_index)]);
    *ustring = value ? reinterpret_cast<PK_UCHAR_t*>(const_cast<char16_t*>(value->c_str())) : nullptr;
  });
}

namespace {

bool holdsDoubles(PK_ATTRIB_field_t type) {
  return type == PK_ATTRIB_field_real_c || type == PK_ATTRIB_field_coordinate_c || type == PK_ATTRIB_field_vector_c ||
         type == PK_ATTRIB_field_direction_c || type == PK_ATTRIB_field_axis_c;
}
bool holdsInts(PK_ATTRIB_field_t type) {
  return type == PK_ATTRIB_field_integer_c || type == PK_ATTRIB_field_tag_c || type == PK_ATTRIB_field_pointer_c;
}

// The field's type, checked to be one of the numeric kinds asked for.
PK_ATTRIB_field_t numericField(const EntityTable& table, PK_ATTRIB_t attrib, int index, bool doubles) {
  const AttdefData& def = attdefData(table, table.get(attrib, PK_CLASS_attrib).referent);
  require(index >= 0 && std::size_t(index) < def.fields.size(), PK_ERROR_bad_field);
  PK_ATTRIB_field_t type = def.fields[std::size_t(index)];
  require(doubles ? holdsDoubles(type) : holdsInts(type), PK_ERROR_bad_field);
  return type;
}

void setNumeric(PK_ATTRIB_t attrib, int index, bool doubles, AttribValue value) {
  EntityTable& table = session().table;
  numericField(table, attrib, index, doubles);
  AttribData changed = attribData(table, attrib);
  changed.fields[std::size_t(index)] = std::move(value);
  table.replacePayload(attrib, makePayload(std::move(changed)));
}

}  // namespace

extern "C" PK_ERROR_code_t PK_ATTRIB_ask_doubles(PK_ATTRIB_t attrib, int field_index, int* n_doubles,
                                                 double** doubles) {
  return guarded([&] {
    requireArg(n_doubles);
    requireArg(doubles);
    const EntityTable& table = session().table;
    numericField(table, attrib, field_index, true);
    const auto* value = std::get_if<std::vector<double>>(&attribData(table, attrib).fields[std::size_t(field_index)]);
    handOut(value ? *value : std::vector<double>{}, n_doubles, doubles);
  });
}

extern "C" PK_ERROR_code_t PK_ATTRIB_ask_ints(PK_ATTRIB_t attrib, int field_index, int* n_ints, int** ints) {
  return guarded([&] {
    requireArg(n_ints);
    requireArg(ints);
    const EntityTable& table = session().table;
    numericField(table, attrib, field_index, false);
    const auto* value = std::get_if<std::vector<int64_t>>(&attribData(table, attrib).fields[std::size_t(field_index)]);
    std::vector<int> out;
    if (value)
      for (int64_t v : *value) out.push_back(static_cast<int>(v));
    handOut(out, n_ints, ints);
  });
}

extern "C" PK_ERROR_code_t PK_ATTRIB_set_doubles(PK_ATTRIB_t attrib, int field_index, int n_doubles,
                                                 const double* doubles) {
  return guarded([&] {
    require(n_doubles >= 0, PK_ERROR_bad_value);
    if (n_doubles > 0) requireArg(doubles);
    setNumeric(attrib, field_index, true, std::vector<double>(doubles, doubles + n_doubles));
  });
}

extern "C" PK_ERROR_code_t PK_ATTRIB_set_ints(PK_ATTRIB_t attrib, int field_index, int n_ints, const int* ints) {
  return guarded([&] {
    require(n_ints >= 0, PK_ERROR_bad_value);
    if (n_ints > 0) requireArg(ints);
    setNumeric(attrib, field_index, false, std::vector<int64_t>(ints, ints + n_ints));
  });
}
