#include "PartFileSupport.h"

#include "TestSupport.h"
#include "ops/Bodies.h"
#include "session/Session.h"

#include <BRepCheck_Analyzer.hxx>
#include <BRepGProp.hxx>
#include <GProp_GProps.hxx>
#include <TopExp.hxx>
#include <TopTools_IndexedMapOfShape.hxx>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>

namespace kerneltest {

namespace {
std::string transmitName(const std::string& key) { return std::to_string(PK_FR_guise_transmit) + ":" + key; }

int count(const TopoDS_Shape& shape, TopAbs_ShapeEnum type) {
  TopTools_IndexedMapOfShape map;
  TopExp::MapShapes(shape, type, map);
  return map.Extent();
}
}  // namespace

void putPartFile(const std::string& key, const std::string& bytes) { frustrumLog().files[transmitName(key)] = bytes; }
std::string partFile(const std::string& key) { return frustrumLog().files[transmitName(key)]; }
bool hasPartFile(const std::string& key) { return frustrumLog().files.count(transmitName(key)) != 0; }

PK_ERROR_code_t receive(const std::string& key, std::vector<PK_PART_t>* parts, PK_transmit_format_t format) {
  PK_PART_receive_o_t options;
  PK_PART_receive_o_m(options);
  options.transmit_format = format;
  int n = 0;
  PK_PART_t* array = nullptr;
  PK_ERROR_code_t code = PK_PART_receive(key.c_str(), &options, &n, &array);
  parts->assign(array, array + n);
  if (array) PK_MEMORY_free(array);
  return code;
}

PK_ERROR_code_t transmit(const std::vector<PK_PART_t>& parts, const std::string& key, PK_transmit_format_t format) {
  PK_PART_transmit_o_t options;
  PK_PART_transmit_o_m(options);
  options.transmit_format = format;
  return PK_PART_transmit(static_cast<int>(parts.size()), parts.data(), key.c_str(), &options);
}

std::string lastMessage() {
  const char* message = nullptr;
  EXPECT_EQ(PK_ERROR_ask_last_message(&message), PK_ERROR_no_errors);
  return message ? message : "";
}

std::vector<PK_BODY_t> bodiesOf(const std::vector<PK_PART_t>& parts) {
  std::vector<PK_BODY_t> bodies;
  std::set<PK_PART_t> seen;
  std::vector<PK_PART_t> pending(parts.rbegin(), parts.rend());
  while (!pending.empty()) {
    PK_PART_t part = pending.back();
    pending.pop_back();
    if (!seen.insert(part).second) continue;
    PK_CLASS_t cls = 0;
    EXPECT_EQ(PK_ENTITY_ask_class(part, &cls), PK_ERROR_no_errors);
    if (cls == PK_CLASS_body) {
      bodies.push_back(part);
      continue;
    }
    int n = 0;
    PK_PART_t* sub = nullptr;
    EXPECT_EQ(PK_ASSEMBLY_ask_parts(part, &n, &sub), PK_ERROR_no_errors);
    for (int i = n - 1; i >= 0; --i) pending.push_back(sub[i]);
    if (sub) PK_MEMORY_free(sub);
  }
  return bodies;
}

BodySummary summarise(PK_BODY_t body) {
  BodySummary s;
  const TopoDS_Shape& shape = meld::kernel::bodyData(body).shape;
  EXPECT_EQ(PK_BODY_ask_type(body, &s.type), PK_ERROR_no_errors);
  s.faces = count(shape, TopAbs_FACE);
  s.edges = count(shape, TopAbs_EDGE);
  s.vertices = count(shape, TopAbs_VERTEX);
  GProp_GProps props;
  BRepGProp::VolumeProperties(shape, props, 1e-9);
  s.volume = props.Mass();
  s.valid = BRepCheck_Analyzer(shape).IsValid();
  const auto& table = meld::kernel::session().table;
  for (PK_ENTITY_t tag : table.ownedBy(body)) s.attributes += table.get(tag).cls == PK_CLASS_attrib;
  s.attributes += static_cast<int>(meld::kernel::bodyData(body).subshapeAttribs.size());
  PK_ATTDEF_t nameDef = 0, unameDef = 0, colourDef = 0;
  PK_ATTDEF_find("SDL/TYSA_NAME", &nameDef);
  PK_ATTDEF_find("SDL/TYSA_UNAME", &unameDef);
  PK_ATTDEF_find("SDL/TYSA_COLOUR", &colourDef);
  PK_ATTRIB_t attrib = 0;
  if (PK_ENTITY_ask_first_attrib(body, nameDef, &attrib) == PK_ERROR_no_errors && attrib) {
    char* text = nullptr;
    PK_ATTRIB_ask_string(attrib, 0, &text);
    if (text) s.name = text;
  } else if (PK_ENTITY_ask_first_attrib(body, unameDef, &attrib) == PK_ERROR_no_errors && attrib) {
    PK_UCHAR_t* text = nullptr;
    PK_ATTRIB_ask_ustring(attrib, 0, &text);
    for (; text && *text; ++text) s.name += *text < 128 ? char(*text) : '?';
  }
  if (PK_ENTITY_ask_first_attrib(body, colourDef, &attrib) == PK_ERROR_no_errors && attrib) {
    int n = 0;
    double* values = nullptr;
    EXPECT_EQ(PK_ATTRIB_ask_doubles(attrib, 0, &n, &values), PK_ERROR_no_errors);
    s.colour.assign(values, values + n);
    if (values) PK_MEMORY_free(values);
  }
  return s;
}

std::vector<CensusRow> readCensus(const std::filesystem::path& corpus) {
  std::stringstream in(meldtest::readFile(corpus.parent_path() / "reference" / "corpus-census.tsv"));
  std::vector<CensusRow> rows;
  std::string line;
  std::vector<std::string> names;
  auto split = [](const std::string& text) {
    std::vector<std::string> cells;
    std::stringstream cellIn(text);
    for (std::string cell; std::getline(cellIn, cell, '\t');) cells.push_back(cell);
    return cells;
  };
  if (!std::getline(in, line)) return rows;
  names = split(line);
  while (std::getline(in, line)) {
    auto cells = split(line);
    CensusRow row;
    for (size_t i = 0; i < names.size() && i < cells.size(); ++i) {
      if (names[i] == "file") row.file = cells[i];
      if (names[i] == "bodies") row.bodies = std::stoi(cells[i]);
      if ((names[i] == "INTERSECTION" || names[i] == "BLENDED_EDGE" || names[i] == "BLEND_BOUND" ||
           names[i] == "PE_CURVE" || names[i] == "PE_SURF") &&
          cells[i] != "0")
        row.procedural = true;
    }
    if (!row.file.empty()) rows.push_back(row);
  }
  return rows;
}

}  // namespace kerneltest
