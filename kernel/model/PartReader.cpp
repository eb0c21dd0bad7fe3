// The graph -> PartPlan walk: roots, assemblies and instances with their
// transforms, bodies, and the attributes of all of them.
#include "AttributeCodes.h"
#include "BodyBuilder.h"
#include "PartPlan.h"

#include <Standard_Failure.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS_Iterator.hxx>

#include <cmath>
#include <unordered_map>
#include <unordered_set>

namespace meld::model {
namespace {

using Matrix = std::array<std::array<double, 4>, 4>;

class PartReader {
 public:
  explicit PartReader(const xt::Graph& graph) : m_cache(graph), m_n(m_cache.nodes()) {}

  PartPlan read() {
    if (m_n.graph().size() == 0) throw ModelError(PK_ERROR_no_parts, "the file holds no nodes");
    for (long root : roots()) m_plan.roots.push_back(part(root, 0));
    if (m_plan.roots.empty()) throw ModelError(PK_ERROR_no_parts, "the file holds no body or assembly");
    readAttributes();
    return std::move(m_plan);
  }

 private:
  // The transmitted parts: the root itself, or the entries of a PART_XMT_BLOCK
  // (or of the older POINTER_LIS_BLOCK chain), in order.
  std::vector<long> roots() {
    const long root = 0;
    switch (m_n.type(root)) {
      case kBody:
      case kAssembly: return {root};
      case kPartXmtBlock:
      case kPointerLisBlock: break;
      default:
        throw ModelError(PK_ERROR_no_parts, "the file's first node is a " + m_n.describe(root) +
                                                ", not a body, an assembly or a list of parts");
    }
    std::vector<long> parts;
    std::unordered_set<long> blocks;
    for (long block = root; block != kNone && blocks.insert(block).second;
         block = m_n.type(block) == kPointerLisBlock ? m_n.ptr(block, "next_block") : kNone) {
      xt::FieldView entries = m_n.view(block, "entries");
      int64_t count = m_n.integer(block, "n_entries", static_cast<int64_t>(entries.ints.size()));
      for (size_t i = 0; i < entries.ints.size() && static_cast<int64_t>(i) < count; ++i) {
        if (entries.ints[i] == 0) continue;
        long entry = m_n.graph().find(entries.ints[i]);
        if (entry == kNone) continue;
        int type = m_n.type(entry);
        if (type == kBody || type == kAssembly) parts.push_back(entry);
        else throw ModelError(PK_ERROR_bad_topology, "the part list names a " + m_n.describe(entry));
      }
    }
    return parts;
  }

  PartRef part(long node, int depth) {
    if (auto it = m_parts.find(node); it != m_parts.end()) return it->second;
    if (depth > 64 || !m_building.insert(node).second)
      throw ModelError(PK_ERROR_bad_topology, m_n.describe(node) + " instances itself");
    PartRef ref = m_n.type(node) == kBody ? body(node) : assembly(node, depth);
    m_building.erase(node);
    m_parts.emplace(node, ref);
    return ref;
  }

  PartRef body(long node) {
    BodyBuilder builder(m_cache);
    BuiltBody built = builder.build(node);
    size_t index = m_plan.bodies.size();
    BodySpec spec;
    spec.shape = built.shape;
    spec.type = built.type;
    m_plan.bodies.push_back(std::move(spec));
    for (auto& [topology, shape] : built.topology) m_subshapes[topology] = {index, shape};
    return PartRef{PartRef::Body, index};
  }

  PartRef assembly(long node, int depth) {
    if (m_n.type(node) != kAssembly) throw ModelError(PK_ERROR_bad_topology, m_n.describe(node) + " is not a part");
    AssemblySpec spec;
    std::vector<std::pair<long, size_t>> instances;
    std::unordered_set<long> seen;
    for (long inst = m_n.ptr(node, "sub_instance"); inst != kNone && seen.insert(inst).second;
         inst = m_n.ptr(inst, "next_in_part")) {
      if (m_n.type(inst) != kInstance) throw ModelError(PK_ERROR_bad_topology, m_n.describe(inst) + " in an instance chain");
      long instanced = m_n.ptr(inst, "part");
      if (instanced == kNone) throw ModelError(PK_ERROR_bad_topology, m_n.describe(inst) + " instances nothing");
      InstanceSpec instance;
      instance.part = part(instanced, depth + 1);
      if (long t = m_n.ptr(inst, "transform"); t != kNone) instance.matrix = transform(t);
      instances.emplace_back(inst, spec.instances.size());
      spec.instances.push_back(std::move(instance));
    }
    size_t index = m_plan.assemblies.size();
    m_plan.assemblies.push_back(std::move(spec));
    for (auto [inst, position] : instances) m_instances[inst] = {index, position};
    return PartRef{PartRef::Assembly, index};
  }

  // x' = (R x + t) s, with the file's small corrections added when it has them.
  // The matrix is stored row by row.
  Matrix transform(long node) {
    if (m_n.type(node) != kTransform) throw ModelError(PK_ERROR_bad_topology, m_n.describe(node) + " is not a transform");
    xt::FieldView r = m_n.view(node, "rotation_matrix");
    if (r.reals.size() != 9 || r.isNull()) throw ModelError(PK_ERROR_bad_geometry, m_n.describe(node) + ": no rotation");
    double rot[9];
    for (int i = 0; i < 9; ++i) rot[i] = r.reals[static_cast<size_t>(i)];
    gp_Vec t = m_n.vec(node, "translation_vector");
    if (long precision = m_n.ptr(node, "precision"); precision != kNone) {
      xt::FieldView extra = m_n.view(precision, "rotation_matrix");
      for (size_t i = 0; i < 9 && i < extra.reals.size() && !extra.isNull(); ++i) rot[i] += extra.reals[i];
      if (m_n.has(precision, "translation_vector") && !m_n.isNull(precision, "translation_vector"))
        t += m_n.vec(precision, "translation_vector");
    }
    double s = m_n.real(node, "scale");
    if (!std::isfinite(s)) s = 1;
    // A rotation or reflection: rows of unit length at right angles (a shear or a
    // non-uniform scale has no place in a B-rep transform).
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) {
        double dot = rot[3 * i] * rot[3 * j] + rot[3 * i + 1] * rot[3 * j + 1] + rot[3 * i + 2] * rot[3 * j + 2];
        if (std::abs(dot - (i == j ? 1 : 0)) > 1e-9)
          throw ModelError(PK_ERROR_bad_transf, m_n.describe(node) + " is not a rotation (general affine)");
      }
    if (!(s > 0)) throw ModelError(PK_ERROR_bad_transf, m_n.describe(node) + " has a scale that is not positive");
    if (!m_n.isNull(node, "perspective_vector") && m_n.vec(node, "perspective_vector").SquareMagnitude() > 0)
      throw ModelError(PK_ERROR_perspective_transf, m_n.describe(node) + " has perspective terms");
    Matrix m{};
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) m[i][j] = rot[3 * i + j] * s;
      m[i][3] = t.Coord(i + 1) * s;
    }
    m[3][3] = 1;
    for (const auto& row : m)
      for (double v : row)
        if (!std::isfinite(v)) throw ModelError(PK_ERROR_bad_geometry, m_n.describe(node) + " is not finite");
    return m;
  }

  // ---- attributes ----

  size_t attdef(long node) {
    if (auto it = m_attdefs.find(node); it != m_attdefs.end()) return it->second;
    if (m_n.type(node) != kAttribDef) throw ModelError(PK_ERROR_bad_topology, m_n.describe(node) + " is not a definition");
    AttdefSpec spec;
    long id = m_n.ptr(node, "identifier");
    if (id == kNone) throw ModelError(PK_ERROR_bad_topology, m_n.describe(node) + " has no name");
    spec.name = m_n.view(id, "string").text();
    spec.xt.typeId = m_n.integer(node, "type_id", 9000);
    xt::FieldView actions = m_n.view(node, "actions");
    for (size_t i = 0; i < 8 && i < actions.ints.size(); ++i) spec.xt.actions[i] = actions.ints[i];
    xt::FieldView owners = m_n.view(node, "legal_owners");
    spec.xt.legalOwners.assign(owners.ints.begin(), owners.ints.end());
    for (int64_t code : m_n.view(node, "fields").ints) {
      if (code == 0) continue;  // padding some writers add after the codes
      PK_ATTRIB_field_t type = fieldTypeOfCode(code);
      if (type == 0) throw ModelError(PK_ERROR_bad_topology, m_n.describe(node) + ": unknown field type " + std::to_string(code));
      spec.fields.push_back(type);
    }
    size_t index = m_plan.attdefs.size();
    m_plan.attdefs.push_back(std::move(spec));
    m_attdefs.emplace(node, index);
    return index;
  }

  AttribValue value(long node) {
    switch (m_n.type(node)) {
      case kCharValues: return m_n.view(node, "values").text();
      case kUnicodeValues: {
        std::u16string text;
        for (int64_t c : m_n.view(node, "values").ints) text.push_back(static_cast<char16_t>(static_cast<uint16_t>(c)));
        return text;
      }
      case kIntValues:
      case kTagValues: {
        xt::FieldView v = m_n.view(node, "values");
        return std::vector<int64_t>(v.ints.begin(), v.ints.end());
      }
      case kRealValues:
      case kPointValues:
      case kVectorValues:
      case kAxisValues:
      case kDirectionValues: {
        xt::FieldView v = m_n.view(node, "values");
        return std::vector<double>(v.reals.begin(), v.reals.end());
      }
      default: throw ModelError(PK_ERROR_bad_topology, m_n.describe(node) + " is not a field value");
    }
  }

  AttribSpec attrib(long node) {
    AttribSpec spec;
    long def = m_n.ptr(node, "definition");
    if (def == kNone) throw ModelError(PK_ERROR_bad_topology, m_n.describe(node) + " has no definition");
    spec.attdef = attdef(def);
    const size_t fields = m_plan.attdefs[spec.attdef].fields.size();
    xt::FieldView values = m_n.view(node, "fields");
    spec.fields.resize(fields);
    for (size_t i = 0; i < fields && i < values.ints.size(); ++i) {
      long v = values.ints[i] == 0 ? kNone : m_n.graph().find(values.ints[i]);
      if (v != kNone) spec.fields[i] = value(v);
    }
    return spec;
  }

  // The face, edge or vertex whose geometry a surface, curve or point is (its
  // owner field), or kNone.
  long geometryUser(long geometry) const {
    const int type = m_n.type(geometry);
    if (type == kPoint || (type >= kLine && type <= kIntersection) || (type >= kPlane && type <= kSpunSurf) ||
        type == kBSurface || type == kBCurve || type == kTrimmedCurve || type == kSpCurve || type == kPeSurf ||
        type == kPeCurve) {
      long user = m_n.ptr(geometry, "owner");
      if (user != kNone && (m_n.type(user) == kFace || m_n.type(user) == kEdge || m_n.type(user) == kVertex))
        return user;
    }
    return kNone;
  }

  // An attribute on a sub-shape; when healing replaced that sub-shape by several
  // (an edge split in two), each of them carries it.
  void onSubshape(long topology, const std::pair<size_t, TopoDS_Shape>& where, AttribSpec spec) {
    TopAbs_ShapeEnum expected = TopAbs_SHAPE;
    switch (m_n.type(topology)) {
      case kFace: expected = TopAbs_FACE; break;
      case kEdge: expected = TopAbs_EDGE; break;
      case kVertex: expected = TopAbs_VERTEX; break;
      case kLoop: expected = TopAbs_WIRE; break;
      case kShell: expected = TopAbs_SHELL; break;
      case kRegion: expected = TopAbs_SOLID; break;
      default: break;
    }
    auto& list = m_plan.bodies[where.first].subshapeAttribs;
    if (expected == TopAbs_SHAPE || where.second.ShapeType() == expected) {
      list.emplace_back(where.second, std::move(spec));
      return;
    }
    for (TopExp_Explorer piece(where.second, expected); piece.More(); piece.Next()) list.emplace_back(piece.Current(), spec);
  }

  void readAttributes() {
    const auto& nodes = m_n.graph().nodes();
    for (size_t i = 0; i < nodes.size(); ++i) {
      if (nodes[i].type != kAttribute) continue;
      long node = static_cast<long>(i);
      long owner = m_n.ptr(node, "owner");
      if (owner == kNone) continue;
      if (auto part = m_parts.find(owner); part != m_parts.end()) {
        AttribSpec spec = attrib(node);
        auto& list = part->second.kind == PartRef::Body ? m_plan.bodies[part->second.index].attribs
                                                        : m_plan.assemblies[part->second.index].attribs;
        list.push_back(std::move(spec));
      } else if (auto inst = m_instances.find(owner); inst != m_instances.end()) {
        AttribSpec spec = attrib(node);
        m_plan.assemblies[inst->second.first].instances[inst->second.second].attribs.push_back(std::move(spec));
      } else if (auto sub = m_subshapes.find(owner); sub != m_subshapes.end()) {
        onSubshape(owner, sub->second, attrib(node));
      } else if (auto user = m_subshapes.find(geometryUser(owner)); user != m_subshapes.end()) {
        AttribSpec spec = attrib(node);
        spec.onGeometry = true;
        onSubshape(geometryUser(owner), user->second, std::move(spec));
      } else {
        ++m_plan.attributesDropped;
      }
    }
  }

  GeometryCache m_cache;
  const NodeAccess& m_n;
  PartPlan m_plan;
  std::unordered_map<long, PartRef> m_parts;
  std::unordered_set<long> m_building;
  std::unordered_map<long, std::pair<size_t, size_t>> m_instances;  // node -> assembly, position
  std::unordered_map<long, std::pair<size_t, TopoDS_Shape>> m_subshapes;
  std::unordered_map<long, size_t> m_attdefs;
};

}  // namespace

PartPlan readParts(const xt::Graph& graph) {
  try {
    return PartReader(graph).read();
  } catch (const Standard_Failure& e) {
    throw ModelError(PK_ERROR_bad_geometry, std::string("OCCT failed while building the part: ") + e.GetMessageString());
  }
}

}  // namespace meld::model
