// How attribute field types and values are written in part files: a field type
// code per field of a definition, one *_VALUES node per field of an attribute.
#pragma once

#include "NodeAccess.h"
#include "pk.h"

namespace meld::model {

// XT field type codes: 1 int, 2 real, 3 char, 4 point, 5 vector, 6 direction,
// 7 axis, 8 tag, 9 pointer, 10 unicode. 0 when the code is unknown.
inline PK_ATTRIB_field_t fieldTypeOfCode(int64_t code) {
  switch (code) {
    case 1: return PK_ATTRIB_field_integer_c;
    case 2: return PK_ATTRIB_field_real_c;
    case 3: return PK_ATTRIB_field_string_c;
    case 4: return PK_ATTRIB_field_coordinate_c;
    case 5: return PK_ATTRIB_field_vector_c;
    case 6: return PK_ATTRIB_field_direction_c;
    case 7: return PK_ATTRIB_field_axis_c;
    case 8: return PK_ATTRIB_field_tag_c;
    case 9: return PK_ATTRIB_field_pointer_c;
    case 10: return PK_ATTRIB_field_ustring_c;
    default: return 0;
  }
}

inline int64_t codeOfFieldType(PK_ATTRIB_field_t type) {
  for (int64_t code = 1; code <= 10; ++code)
    if (fieldTypeOfCode(code) == type) return code;
  return 0;
}

// The *_VALUES node type that holds a field of that type.
inline int valuesNodeOf(PK_ATTRIB_field_t type) {
  switch (type) {
    case PK_ATTRIB_field_integer_c: return kIntValues;
    case PK_ATTRIB_field_real_c: return kRealValues;
    case PK_ATTRIB_field_string_c: return kCharValues;
    case PK_ATTRIB_field_coordinate_c: return kPointValues;
    case PK_ATTRIB_field_vector_c: return kVectorValues;
    case PK_ATTRIB_field_direction_c: return kDirectionValues;
    case PK_ATTRIB_field_axis_c: return kAxisValues;
    case PK_ATTRIB_field_tag_c: return kTagValues;
    case PK_ATTRIB_field_pointer_c: return kTagValues;
    case PK_ATTRIB_field_ustring_c: return kUnicodeValues;
    default: return 0;
  }
}

// Legal owner flags are indexed by owner type: 0 assembly, 1 instance, 2 body,
// 3 shell, 4 face, 5 loop, 6 edge, 7 vertex, 8 feature, 9 surface, 10 curve,
// 11 point, 12 region, 13 fin.
inline constexpr int kLegalOwnerSlots = 14;

}  // namespace meld::model
