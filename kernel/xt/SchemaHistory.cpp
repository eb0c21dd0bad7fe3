// Layouts of files written without an embedded schema. Such a file carries no field
// descriptions, so its layouts must be known: they are the base layouts with the
// changes each kernel version made, as real files of each version show them.
// Only schema numbers that real files have confirmed are built in; any other number
// goes to the schema source (a guess between two known versions could misread data).
#include <algorithm>
#include <array>

#include "Schema.h"

namespace meld::xt {
namespace {

constexpr int kBody = 12, kHalfedge = 17, kRegion = 19, kLimit = 41, kIntersection = 38,
              kAssembly = 10, kList = 70, kPointerBlock = 74, kAttribDef = 80, kTransform = 100;

constexpr std::array kKnownSchemas = {9008,  10004, 11004, 12006, 13006, 15003, 17106,
                                      19008, 20000, 28002, 31001, 32001, 33103, 34001,
                                      34101, 35001, 35102, 36001, 37102};

FieldDef ptr(const char* name, int ptrClass) { return FieldDef{name, 'p', ptrClass, 0, true}; }
FieldDef scalar(const char* name, char type) { return FieldDef{name, type, 0, 0, true}; }

void setLegalOwners(Schema& s, int count) {
  s.replace(kAttribDef, "legal_owners", FieldDef{"legal_owners", 'l', 0, count, true});
}

// V9 to V12: LIST with 12 fields, ATTRIB_DEF without field names; V9/V10 fins
// without attributes and 13 legal owners; V9 bodies without nom_geom_state.
void applyBefore13006(Schema& s, int n) {
  s.insertBefore(kList, "list_block", ptr("finger_block", 1012));
  s.append(kList, scalar("finger_index", 'd'));
  s.append(kList, scalar("notransmit", 'l'));
  s.remove(kAttribDef, "field_names");
  setLegalOwners(s, (n < 11000 || n == 12006) ? 13 : 14);
  if (n < 11000) s.remove(kHalfedge, "attributes_features");
  if (n < 10000) s.remove(kBody, "nom_geom_state");
}

// Every schema after 13006 (from 15003 on) writes LIST in its struct order.
void applyModernList(Schema& s) {
  s.remove(kList, "list_type");
  s.remove(kList, "size_of_entry");
  s.insertBefore(kList, "owner", scalar("list_type", 'u'));
  s.insertBefore(kList, "owner", scalar("notransmit", 'l'));
  s.insertBefore(kList, "list_block", scalar("finger_index", 'd'));
  s.insertBefore(kList, "list_block", ptr("finger_block", 1012));
}

void applyIndexMaps(Schema& s) {  // 19008
  s.append(kBody, scalar("index_map_offset", 'd'));
  s.append(kBody, ptr("index_map", 82));
  s.append(kBody, ptr("node_id_index_map", 82));
  s.append(kBody, ptr("schema_embedding_map", 82));
  s.insertBefore(kPointerBlock, "next_block", scalar("index_map_offset", 'd'));
}

void applyCompoundBodies(Schema& s) {  // 28002
  s.replace(kBody, "old_owner", ptr("owner", 1040));
  s.insertBefore(kBody, "index_map_offset", ptr("boundary_mesh", 1006));
  s.append(kBody, ptr("child", 12));
  s.append(kBody, scalar("lowest_node_id", 'd'));
  s.append(kRegion, ptr("owner", 12));
  s.insertBefore(kLimit, "hvec", scalar("term_use", 'c'));
}

void applyMeshes(Schema& s) {  // 31001
  s.remove(kBody, "boundary_mesh");
  for (int part : {kBody, kAssembly}) {
    s.insertBefore(part, "key", ptr("mesh", 1006));
    s.insertBefore(part, "key", ptr("polyline", 1008));
    s.append(part, ptr("mesh_offset_data", 206));
  }
  s.insertBefore(kBody, "region", ptr("boundary_mesh", 1006));
  s.insertBefore(kBody, "region", ptr("boundary_polyline", 1008));
  s.append(kIntersection, ptr("intersection_data", 204));
}

void applyLattices(Schema& s) {  // 33103
  s.insertBefore(kBody, "surface", ptr("lattice", 222));
  s.insertBefore(kAssembly, "surface", ptr("lattice", 222));
  s.append(kTransform, ptr("precision", 229));
}

void applyFrames(Schema& s) {  // 34001
  s.insertBefore(kBody, "boundary_surface", ptr("boundary_lattice", 222));
  s.insertBefore(kRegion, "type", ptr("frame", 230));
  setLegalOwners(s, 16);
}

}  // namespace

std::optional<Schema> builtInSchema(int n) {
  if (std::find(kKnownSchemas.begin(), kKnownSchemas.end(), n) == kKnownSchemas.end())
    return std::nullopt;
  Schema s = baseSchema();
  if (n < 13006) applyBefore13006(s, n);
  if (n > 13006) applyModernList(s);
  if (n >= 19008) applyIndexMaps(s);
  if (n >= 28002) applyCompoundBodies(s);
  if (n >= 31001) applyMeshes(s);
  if (n >= 33103) applyLattices(s);
  if (n >= 34001) applyFrames(s);
  if (n >= 36001) setLegalOwners(s, 17);
  return s;
}

}  // namespace meld::xt
