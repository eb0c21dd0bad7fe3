// PK_PART_receive: a part file through the frustrum, the codec and the model
// layer into the entity table. Everything is built before the table sees any
// of it; registering is the last step and is undone whole if it fails.
#include "Bodies.h"
#include "LastError.h"
#include "model/PartPlan.h"
#include "session/FrustrumFiles.h"
#include "session/Memory.h"

#include "Codec.h"

namespace meld::kernel {
namespace {

int frustrumFormat(PK_transmit_format_t format) {
  switch (format) {
    case PK_transmit_format_text_c: return PK_FR_format_text;
    case PK_transmit_format_binary_c:
    case PK_transmit_format_neutral_c:
    case PK_transmit_format_typed_binary_c: return PK_FR_format_binary;
    default: fail(PK_ERROR_bad_option_data);
  }
}

xt::Graph readGraph(const std::string& key, int format) {
  FrustrumReader reader(PK_FR_guise_transmit, format, key);
  if (reader.openFailure() != 0)
    throw model::ModelError(PK_ERROR_cant_open_file, "cannot open part file '" + key + "' (frustrum ifail " +
                                                         std::to_string(reader.openFailure()) + ")");
  FrustrumSchemaSource schemas;
  xt::DecodeOptions options;
  options.schemas = &schemas;
  return xt::decode(reader, format == PK_FR_format_text, options);
}

// Puts a plan into the table, remembering every tag it creates so that a
// failure half way can take them all out again.
class Registrar {
 public:
  explicit Registrar(const model::PartPlan& plan) : m_plan(plan), m_table(session().table) {}

  std::vector<PK_PART_t> run() {
    for (const model::AttdefSpec& def : m_plan.attdefs) m_attdefs.push_back(attdef(def));
    for (const model::BodySpec& body : m_plan.bodies) m_bodies.push_back(makeBody(body));
    for (const model::AssemblySpec& assembly : m_plan.assemblies) m_assemblies.push_back(makeAssembly(assembly));
    for (size_t a = 0; a < m_plan.assemblies.size(); ++a) makeInstances(a);
    std::vector<PK_PART_t> parts;
    for (const model::PartRef& root : m_plan.roots) parts.push_back(tagOf(root));
    return parts;
  }

  // Removes what run() created, newest first.
  void undo() noexcept {
    for (auto it = m_created.rbegin(); it != m_created.rend(); ++it) {
      try {
        if (m_table.exists(*it)) m_table.remove(*it);
      } catch (...) {
      }
    }
    m_created.clear();
  }

 private:
  PK_ENTITY_t create(Record record) {
    m_created.reserve(m_created.size() + 1);
    PK_ENTITY_t tag = m_table.create(std::move(record));
    m_created.push_back(tag);
    return tag;
  }

  // A definition the session already has (same name and fields) is shared.
  PK_ATTDEF_t attdef(const model::AttdefSpec& def) {
    SessionState& s = session();
    for (PK_ENTITY_t tag : m_table.ownedBy(s.partition)) {
      const Record& r = m_table.get(tag);
      if (r.cls != PK_CLASS_attdef) continue;
      const auto& existing = std::get<AttdefData>(*r.payload);
      if (existing.name == def.name && existing.fields == def.fields) return tag;
    }
    return create(Record{PK_CLASS_attdef, s.partition, PK_ENTITY_null,
                         makePayload(AttdefData{def.name, def.fields, def.xt})});
  }

  void attach(PK_ENTITY_t owner, const std::vector<model::AttribSpec>& attribs) {
    for (const model::AttribSpec& a : attribs)
      create(Record{PK_CLASS_attrib, owner, m_attdefs.at(a.attdef), makePayload(AttribData{a.fields})});
  }

  PK_BODY_t makeBody(const model::BodySpec& spec) {
    BodyData data{spec.shape, spec.type, {}, nullptr};
    for (const auto& [shape, attrib] : spec.subshapeAttribs)
      data.subshapeAttribs.push_back(SubshapeAttrib{shape, m_attdefs.at(attrib.attdef), attrib.fields, attrib.onGeometry});
    // The region and shell view and the sub-entity tags are part of every
    // body's payload: enquiries hand out tags without changing the table.
    TagSources sources;
    sources.fresh = [this] { return m_table.reserveTag(); };
    data.topology = deriveTopology(data.shape, sources);
    PK_BODY_t body = create(Record{PK_CLASS_body, PK_ENTITY_null, PK_ENTITY_null, makePayload(std::move(data))});
    attach(body, spec.attribs);
    return body;
  }

  PK_ASSEMBLY_t makeAssembly(const model::AssemblySpec& spec) {
    PK_ASSEMBLY_t assembly = create(Record{PK_CLASS_assembly, PK_ENTITY_null, PK_ENTITY_null, makePayload(AssemblyData{})});
    attach(assembly, spec.attribs);
    return assembly;
  }

  void makeInstances(size_t a) {
    for (const model::InstanceSpec& spec : m_plan.assemblies[a].instances) {
      PK_TRANSF_t transf = PK_ENTITY_null;
      if (spec.matrix) {
        TransfData data;
        for (int i = 0; i < 4; ++i)
          for (int j = 0; j < 4; ++j) data.matrix[i][j] = (*spec.matrix)[i][j];
        transf = create(Record{PK_CLASS_transf, PK_ENTITY_null, PK_ENTITY_null, makePayload(data)});
      }
      PK_INSTANCE_t instance = create(Record{PK_CLASS_instance, m_assemblies[a], tagOf(spec.part),
                                             makePayload(InstanceData{transf})});
      attach(instance, spec.attribs);
    }
  }

  PK_PART_t tagOf(const model::PartRef& ref) const {
    return ref.kind == model::PartRef::Body ? m_bodies.at(ref.index) : m_assemblies.at(ref.index);
  }

  const model::PartPlan& m_plan;
  EntityTable& m_table;
  std::vector<PK_ENTITY_t> m_created;
  std::vector<PK_ATTDEF_t> m_attdefs;
  std::vector<PK_BODY_t> m_bodies;
  std::vector<PK_ASSEMBLY_t> m_assemblies;
};

}  // namespace
}  // namespace meld::kernel

using namespace meld::kernel;

extern "C" PK_ERROR_code_t PK_PART_receive(const char* key, const PK_PART_receive_o_t* options, int* n_parts,
                                           PK_PART_t** parts) {
  return guardedWithMessage([&] {
    requireArg(key);
    requireArg(n_parts);
    requireArg(parts);
    session();
    PK_PART_receive_o_t defaults;
    PK_PART_receive_o_m(defaults);
    const PK_PART_receive_o_t& o = options ? *options : defaults;
    require(o.o_t_version >= 1, PK_ERROR_bad_option_data);
    const int format = frustrumFormat(o.transmit_format);

    meld::model::PartPlan plan = meld::model::readParts(readGraph(key, format));
    Registrar registrar(plan);
    try {
      std::vector<PK_PART_t> received = registrar.run();
      handOut(received, n_parts, parts);
    } catch (...) {
      registrar.undo();
      throw;
    }
  });
}
