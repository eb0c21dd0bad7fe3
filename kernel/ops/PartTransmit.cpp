// PK_PART_transmit: bodies, assemblies, instances, transforms and attributes
// from the entity table into an XT node graph, encoded and written through the
// frustrum. The graph is complete before the file is opened; a failure while
// writing closes the file with the abandon action, so no file is left.
#include "Bodies.h"
#include "LastError.h"
#include "model/AttributeCodes.h"
#include "model/BodyWriter.h"
#include "session/FrustrumFiles.h"

#include "Codec.h"

#include <bit>
#include <cmath>
#include <map>
#include <unordered_set>

namespace meld::kernel {
namespace {

using model::FieldValue;
using model::GraphSink;

class PartWriter {
 public:
  PartWriter() : m_table(session().table) {}

  xt::Graph write(const std::vector<PK_PART_t>& parts) {
    std::vector<int64_t> roots;
    for (PK_PART_t part : parts) roots.push_back(partNode(part, 0));
    for (auto& [tag, node] : m_partNodes) m_sink.set(node, "highest_node_id", int64_t{0});
    int64_t root = roots.front();
    if (roots.size() > 1)
      root = m_sink.add("PART_XMT_BLOCK", {{"n_entries", static_cast<int64_t>(roots.size())}}, roots);
    for (auto& [tag, node] : m_partNodes) m_sink.set(node, "highest_node_id", m_sink.highestIndex());
    return m_sink.build(root);
  }

 private:
  int64_t partNode(PK_PART_t part, int depth) {
    if (auto it = m_partNodes.find(part); it != m_partNodes.end()) return it->second;
    require(depth < 64, PK_ERROR_bad_value);
    const Record& record = m_table.get(part);
    require(record.cls == PK_CLASS_body || record.cls == PK_CLASS_assembly, PK_ERROR_wrong_entity);
    int64_t node = record.cls == PK_CLASS_body ? body(part) : assembly(part, depth);
    m_partNodes.emplace(part, node);
    return node;
  }

  int64_t body(PK_BODY_t body) {
    const BodyData& data = bodyData(body);
    model::WrittenBody written = model::writeBody(m_sink, data.shape);
    attributesOf(body, written.body);
    for (const SubshapeAttrib& a : data.subshapeAttribs) {
      const auto& nodes = a.onGeometry ? written.geometry : written.nodes;
      auto it = nodes.find(a.shape.TShape().get());
      if (it != nodes.end()) attribute(it->second, a.attdef, a.fields);
    }
    return written.body;
  }

  int64_t assembly(PK_ASSEMBLY_t assembly, int depth) {
    int64_t node = m_sink.add("ASSEMBLY", {{"res_size", 1000.0}, {"res_linear", 1e-8}, {"state", int64_t{1}},
                                           {"type", int64_t{1}}});
    m_partNodes.emplace(assembly, node);
    int64_t previous = 0;
    for (PK_ENTITY_t tag : m_table.ownedBy(assembly)) {
      const Record& r = m_table.get(tag);
      if (r.cls != PK_CLASS_instance) continue;
      int64_t part = partNode(r.referent, depth + 1);
      int64_t inst = m_sink.add("INSTANCE", {{"type", int64_t{1}}, {"part", part}, {"assembly", node}});
      m_sink.set(inst, "node_id", inst);
      if (PK_TRANSF_t t = std::get<InstanceData>(*r.payload).transf; t != PK_ENTITY_null)
        m_sink.set(inst, "transform", transform(t, inst));
      if (previous) {
        m_sink.set(previous, "next_in_part", inst);
        m_sink.set(inst, "prev_in_part", previous);
      } else {
        m_sink.set(node, "sub_instance", inst);
      }
      previous = inst;
      auto& refs = m_refs[part];
      if (refs.empty()) m_sink.set(part, "ref_instance", inst);
      else {
        m_sink.set(refs.back(), "next_of_part", inst);
        m_sink.set(inst, "prev_of_part", refs.back());
      }
      refs.push_back(inst);
      attributesOf(tag, inst);
    }
    attributesOf(assembly, node);
    return node;
  }

  // x' = (R x + t) s: the uniform scale comes out of the matrix's columns.
  int64_t transform(PK_TRANSF_t transf, int64_t owner) {
    const auto& m = std::get<TransfData>(*m_table.get(transf, PK_CLASS_transf).payload).matrix;
    for (int j = 0; j < 3; ++j) require(m[3][j] == 0, PK_ERROR_perspective_transf);
    double s = std::sqrt(m[0][0] * m[0][0] + m[1][0] * m[1][0] + m[2][0] * m[2][0]) / m[3][3];
    require(std::isfinite(s) && s > 0, PK_ERROR_bad_transf);
    std::vector<double> rotation;
    bool identity = true, translated = false;
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) {
        rotation.push_back(m[i][j] / m[3][3] / s);
        identity = identity && std::abs(rotation.back() - (i == j ? 1 : 0)) < 1e-12;
      }
    gp_XYZ t(m[0][3] / m[3][3] / s, m[1][3] / m[3][3] / s, m[2][3] / m[3][3] / s);
    translated = t.Modulus() > 0;
    double det = rotation[0] * (rotation[4] * rotation[8] - rotation[5] * rotation[7]) -
                 rotation[1] * (rotation[3] * rotation[8] - rotation[5] * rotation[6]) +
                 rotation[2] * (rotation[3] * rotation[7] - rotation[4] * rotation[6]);
    int64_t flag = (translated ? 1 : 0) | (identity ? 0 : 2) | (std::abs(s - 1) > 1e-12 ? 4 : 0) | (det < 0 ? 8 : 0);
    int64_t node = m_sink.add("TRANSFORM", {{"owner", owner}, {"rotation_matrix", rotation}, {"translation_vector", t},
                                            {"scale", s}, {"flag", flag}});
    m_sink.set(node, "node_id", node);
    return node;
  }

  // ---- attributes ----

  void attributesOf(PK_ENTITY_t entity, int64_t owner) {
    for (PK_ENTITY_t tag : m_table.ownedBy(entity)) {
      const Record& r = m_table.get(tag);
      if (r.cls == PK_CLASS_attrib) attribute(owner, r.referent, std::get<AttribData>(*r.payload).fields);
    }
  }

  int64_t attdef(PK_ATTDEF_t tag) {
    if (auto it = m_attdefs.find(tag); it != m_attdefs.end()) return it->second;
    const AttdefData& def = std::get<AttdefData>(*m_table.get(tag, PK_CLASS_attdef).payload);
    std::vector<int64_t> name(def.name.begin(), def.name.end());
    int64_t id = m_sink.add("ATT_DEF_ID", {}, name);
    std::vector<int64_t> codes;
    for (PK_ATTRIB_field_t f : def.fields) codes.push_back(model::codeOfFieldType(f));
    std::vector<int64_t> owners = def.xt.legalOwners;
    if (owners.empty()) owners.assign(model::kLegalOwnerSlots, 1);
    std::vector<int64_t> actions(def.xt.actions.begin(), def.xt.actions.end());
    int64_t node = m_sink.add("ATTRIB_DEF", {{"identifier", id}, {"type_id", def.xt.typeId}, {"actions", actions},
                                             {"legal_owners", owners}},
                              codes);
    if (m_lastAttdef) m_sink.set(m_lastAttdef, "next", node);
    m_lastAttdef = node;
    m_attdefs.emplace(tag, node);
    return node;
  }

  int64_t values(PK_ATTRIB_field_t type, const AttribValue& value) {
    if (std::holds_alternative<std::monostate>(value)) return 0;
    const std::string valuesType = [&] {
      switch (model::valuesNodeOf(type)) {
        case model::kIntValues: return "INT_VALUES";
        case model::kRealValues: return "REAL_VALUES";
        case model::kCharValues: return "CHAR_VALUES";
        case model::kPointValues: return "POINT_VALUES";
        case model::kVectorValues: return "VECTOR_VALUES";
        case model::kDirectionValues: return "DIRECTION_VALUES";
        case model::kAxisValues: return "AXIS_VALUES";
        case model::kTagValues: return "TAG_VALUES";
        case model::kUnicodeValues: return "UNICODE_VALUES";
        default: return "";
      }
    }();
    if (valuesType.empty()) return 0;
    FieldValue data;
    if (auto* s = std::get_if<std::string>(&value)) data = std::vector<int64_t>(s->begin(), s->end());
    else if (auto* u = std::get_if<std::u16string>(&value)) {
      std::vector<int64_t> units;  // written as signed shorts, as real files do
      for (char16_t c : *u) units.push_back(static_cast<int16_t>(c));
      data = units;
    } else if (auto* i = std::get_if<std::vector<int64_t>>(&value)) data = *i;
    else if (auto* d = std::get_if<std::vector<double>>(&value)) data = *d;
    const bool realNode = valuesType != "INT_VALUES" && valuesType != "TAG_VALUES" && valuesType != "CHAR_VALUES" &&
                          valuesType != "UNICODE_VALUES";
    if (realNode != std::holds_alternative<std::vector<double>>(data)) return 0;  // a value of another kind
    return m_sink.add(valuesType, {}, data);
  }

  void attribute(int64_t owner, PK_ATTDEF_t def, const std::vector<AttribValue>& fields) {
    const AttdefData& d = std::get<AttdefData>(*m_table.get(def, PK_CLASS_attdef).payload);
    std::vector<int64_t> pointers;
    for (size_t i = 0; i < fields.size() && i < d.fields.size(); ++i) pointers.push_back(values(d.fields[i], fields[i]));
    int64_t node = m_sink.add("ATTRIBUTE", {{"definition", attdef(def)}, {"owner", owner}}, pointers);
    m_sink.set(node, "node_id", node);
    auto& chain = m_attribsOf[owner];
    if (chain.empty()) m_sink.set(owner, "attributes_features", node);
    else {
      m_sink.set(chain.back(), "next", node);
      m_sink.set(node, "previous", chain.back());
    }
    chain.push_back(node);
  }

  const EntityTable& m_table;
  GraphSink m_sink;
  std::map<PK_PART_t, int64_t> m_partNodes;
  std::map<int64_t, std::vector<int64_t>> m_refs, m_attribsOf;
  std::map<PK_ATTDEF_t, int64_t> m_attdefs;
  int64_t m_lastAttdef = 0;
};

xt::Format formatOf(PK_transmit_format_t format) {
  switch (format) {
    case PK_transmit_format_text_c: return xt::Format::Text;
    case PK_transmit_format_binary_c:
    case PK_transmit_format_neutral_c: return xt::Format::NeutralBinary;
    case PK_transmit_format_typed_binary_c: return xt::Format::TypedBinary;
    default: fail(PK_ERROR_bad_option_data);
  }
}

// The version a file is written for: 0 (ours), or one from 7.0 up to ours,
// as major * 10 + minor. We write one form only, the base schema at our own
// version, which is the oldest we can write faithfully, so an older request
// is met with that form. Versions 7.0 to 8.0 could hold one part per file,
// and that limit still stands for them.
void checkTransmitVersion(int version, int nParts) {
  constexpr int kOldest = 70, kFirstWithSeveralParts = 90;
  const int ours = std::stoi(xt::kWriterVersion) / 10000;  // "3400000" is 34.0.0
  if (version == 0) return;
  if (version < kOldest || version > ours)
    throw model::ModelError(PK_ERROR_bad_option_data, "transmit_version " + std::to_string(version) +
                                                          " is not a version from 70 (7.0) to " +
                                                          std::to_string(ours) + " (ours)");
  if (version < kFirstWithSeveralParts && nParts > 1)
    throw model::ModelError(PK_ERROR_bad_option_data, "transmit_version " + std::to_string(version) +
                                                          " holds one part per file; " + std::to_string(nParts) +
                                                          " were given");
}

void writeFile(const std::string& key, xt::Format format, const std::string& bytes) {
  const bool text = format == xt::Format::Text;
  const std::string part2 = std::string("SCH=") + xt::kWriterSchemaKey + ";USFLD_SIZE=0;";
  FrustrumWriter writer(PK_FR_guise_transmit, text ? PK_FR_format_text : PK_FR_format_binary, key, part2);
  if (writer.openFailure() != 0)
    throw model::ModelError(PK_ERROR_cant_open_file, "cannot open '" + key + "' for writing (frustrum ifail " +
                                                         std::to_string(writer.openFailure()) + ")");
  int ifail = writer.write(bytes);
  if (ifail == 0) ifail = writer.commit();
  if (ifail != 0)
    throw model::ModelError(PK_ERROR_transmit_failed,
                            "writing '" + key + "' failed (frustrum ifail " + std::to_string(ifail) + "); no file is left");
}

}  // namespace
}  // namespace meld::kernel

using namespace meld::kernel;

extern "C" PK_ERROR_code_t PK_PART_transmit(int n_parts, const PK_PART_t* parts, const char* key,
                                            const PK_PART_transmit_o_t* options) {
  return guardedWithMessage([&] {
    requireArg(key);
    require(n_parts > 0, PK_ERROR_bad_value);
    requireArg(parts);
    session();
    PK_PART_transmit_o_t defaults;
    PK_PART_transmit_o_m(defaults);
    const PK_PART_transmit_o_t& o = options ? *options : defaults;
    require(o.o_t_version >= 1, PK_ERROR_bad_option_data);
    const meld::xt::Format format = formatOf(o.transmit_format);
    checkTransmitVersion(o.transmit_version, n_parts);
    std::vector<PK_PART_t> list(parts, parts + n_parts);
    std::unordered_set<PK_PART_t> distinct(list.begin(), list.end());
    require(distinct.size() == list.size(), PK_ERROR_duplicate_entity);

    meld::xt::Graph graph = PartWriter().write(list);
    meld::xt::EncodeOptions encode;
    encode.format = format;
    encode.littleEndian = std::endian::native == std::endian::little;  // typed binary: this machine's order
    encode.withHeader = false;  // the frustrum writes the header from the part-2 data
    writeFile(key, format, meld::xt::encode(graph, encode));
  });
}
