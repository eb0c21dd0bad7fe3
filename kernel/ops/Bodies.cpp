#include "Bodies.h"

#include "session/KernelError.h"

namespace meld::kernel {

namespace {

TagSources tagSources(const std::vector<PK_BODY_t>& from, const BodyChange& change) {
  TagSources sources;
  for (PK_BODY_t body : from) sources.previous.push_back(bodyData(body).topology.get());
  if (change.history)
    sources.origin = [history = change.history](const TopoDS_Shape& s) { return history->origin(s); };
  sources.used = change.used;
  sources.knownBox = change.knownBox;
  sources.fresh = [] { return session().table.reserveTag(); };
  return sources;
}

// Sub-shape attributes follow their sub-shape onto whatever of it is in the
// new body: itself, or the pieces it was split into; removed, they go.
void carryAttribs(const std::vector<PK_BODY_t>& from, const BodyChange& change, BodyData& data) {
  ShapeHistory identity;
  const ShapeHistory& history = change.history ? *change.history : identity;
  for (PK_BODY_t body : from) {
    for (const SubshapeAttrib& attrib : bodyData(body).subshapeAttribs) {
      for (const TopoDS_Shape& piece : history.successors(attrib.shape)) {
        PK_ENTITY_t tag = data.topology->tagOf(piece);
        if (tag == PK_ENTITY_null) continue;
        data.subshapeAttribs.push_back(SubshapeAttrib{data.topology->find(tag)->shape, attrib.attdef, attrib.fields, attrib.onGeometry});
      }
    }
  }
}

BodyData derivedData(const std::vector<PK_BODY_t>& from, const TopoDS_Shape& shape, const BodyChange& change) {
  BodyData data{shape, bodyData(from.front()).type, {}, nullptr};
  TagSources sources = tagSources(from, change);
  if (change.faceDelta)
    data.topology = editTopology(shape, sources, bodyData(from.front()).topology, *change.faceDelta);
  if (!data.topology) data.topology = deriveTopology(shape, sources);
  carryAttribs(from, change, data);
  return data;
}

std::vector<PK_BODY_t> sourcesOf(PK_BODY_t body, const BodyChange& change) {
  std::vector<PK_BODY_t> from{body};
  from.insert(from.end(), change.absorbed.begin(), change.absorbed.end());
  return from;
}

}  // namespace

PK_BODY_t createBody(const TopoDS_Shape& shape, PK_BODY_type_t type) {
  return createBody(BodyData{shape, type, {}, nullptr});
}

PK_BODY_t createBody(BodyData data) {
  if (!data.topology) {
    TagSources sources;
    sources.fresh = [] { return session().table.reserveTag(); };
    data.topology = deriveTopology(data.shape, sources);
  }
  return session().table.create(
      Record{PK_CLASS_body, PK_ENTITY_null, PK_ENTITY_null, makePayload(std::move(data))});
}

const BodyData& bodyData(PK_BODY_t body) {
  const EntityTable& table = session().table;
  require(table.exists(body) || table.bodyOfSubEntity(body) == PK_ENTITY_null, PK_ERROR_wrong_entity);
  const Record& record = table.get(body, PK_CLASS_body);
  return std::get<BodyData>(*record.payload);
}

void replaceBodyShape(PK_BODY_t body, const TopoDS_Shape& shape) {
  replaceBodyShape(body, shape, BodyChange{});
}

void replaceBodyShape(PK_BODY_t body, const TopoDS_Shape& shape, const BodyChange& change) {
  replaceBodyData(body, derivedBodyData(body, shape, change));
}

BodyData derivedBodyData(PK_BODY_t from, const TopoDS_Shape& shape, const BodyChange& change) {
  return derivedData(sourcesOf(from, change), shape, change);
}

void replaceBodyData(PK_BODY_t body, BodyData data) {
  session().table.replacePayload(body, makePayload(std::move(data)));
}

const BodyTopology& bodyTopology(PK_BODY_t body) { return *bodyData(body).topology; }

const SubEntity& subEntity(PK_ENTITY_t tag, PK_CLASS_t cls, PK_BODY_t* body) {
  const EntityTable& table = session().table;
  PK_BODY_t owner = table.bodyOfSubEntity(tag);
  if (owner == PK_ENTITY_null) {
    require(!table.exists(tag), PK_ERROR_wrong_entity);
    fail(PK_ERROR_not_an_entity);
  }
  const SubEntity* entity = bodyTopology(owner).find(tag);
  require(entity != nullptr, PK_ERROR_not_an_entity);
  require(entity->cls == cls, PK_ERROR_wrong_entity);
  if (body) *body = owner;
  return *entity;
}

}  // namespace meld::kernel
