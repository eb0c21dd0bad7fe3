#include <cstdio>

#include "InspectFacts.h"
#include "PSCAutoCaller.h"
#include "PSCFileHelpers.h"
#include "PSCGetAllBodyInPart.h"
#include "PSCGetEntityName.h"
#include "erutil.h"

namespace inspect {
namespace {

using KernelArray = PSCAutoCaller<int*, PSCPKFreeCallee>;

const char* bodyTypeName(PK_BODY_type_t type) {
  switch (type) {
    case PK_BODY_type_solid_c: return "solid";
    case PK_BODY_type_sheet_c: return "sheet";
    case PK_BODY_type_wire_c: return "wire";
    case PK_BODY_type_acorn_c: return "acorn";
    case PK_BODY_type_general_c: return "general";
    case PK_BODY_type_empty_c: return "empty";
    default: return "unknown";
  }
}

void noteProblem(BodyFacts& body, const char* call, int rc) {
  body.problems.push_back(std::string(call) + " failed with " + std::to_string(rc));
}

// Counts what an enquiry of the form f(body, &n, &array) lists.
template <class Enquiry>
int countOf(BodyFacts& body, Enquiry enquiry, const char* name) {
  int n = 0;
  int* items = nullptr;
  if (int rc = enquiry(body.tag, &n, &items)) {
    noteProblem(body, name, rc);
    return 0;
  }
  KernelArray guard(items);
  return n;
}

void askMass(BodyFacts& body) {
  PK_TOPOL_eval_mass_props_o_t options;
  PK_TOPOL_eval_mass_props_o_m(options);
  options.mass = PK_mass_no_c;
  double amount = 0, periphery = 0;
  const PK_TOPOL_t topols[1] = {body.tag};
  if (int rc = PK_TOPOL_eval_mass_props(1, topols, 0.999999999, &options, &amount, nullptr,
                                        nullptr, nullptr, &periphery)) {
    noteProblem(body, "PK_TOPOL_eval_mass_props", rc);
    return;
  }
  body.massKnown = true;
  if (body.type == "solid") {
    body.volume = amount;
    body.area = periphery;
  } else if (body.type == "sheet") {
    body.area = amount;  // for a wire body the amount is a length, not an area
  }
}

void askBox(BodyFacts& body) {
  PK_BOX_t box{};
  if (int rc = PK_TOPOL_find_box(body.tag, &box)) {
    noteProblem(body, "PK_TOPOL_find_box", rc);
    return;
  }
  body.boxKnown = true;
  for (int k = 0; k < 6; ++k) body.box[k] = box.coord[k];
}

const char* faultName(PK_check_state_t state) {
  switch (state) {
    case PK_BODY_state_invalid_c: return "body";
    case PK_REGION_state_bad_c: return "region";
    case PK_SHELL_state_bad_c: return "shell";
    case PK_FACE_state_bad_c: return "face";
    case PK_LOOP_state_bad_c: return "loop";
    case PK_EDGE_state_bad_c: return "edge";
    case PK_VERTEX_state_bad_c: return "vertex";
    default: return "unknown";
  }
}

void askValidity(BodyFacts& body) {
  PK_BODY_check_o_t options;
  PK_BODY_check_o_m(options);
  int n = 0;
  PK_check_fault_t* faults = nullptr;
  if (int rc = PK_BODY_check(body.tag, &options, &n, &faults)) {
    noteProblem(body, "PK_BODY_check", rc);
    return;
  }
  PSCAutoCaller<PK_check_fault_t*, PSCPKFreeCallee> guard(faults);
  body.valid = n == 0;
  body.faults = n;
  if (n > 0) body.firstFault = std::string(faultName(faults[0].state)) + " " +
                               std::to_string(faults[0].entity_1);
}

std::string nameOf(PK_ENTITY_t entity) {
  std::string name;
  if (PSCGetEntityName(entity, name, true) != 0) {
    erClear();
    name.clear();
  }
  return name;
}

BodyFacts describeBody(int partIndex, PK_BODY_t tag) {
  BodyFacts body;
  body.part = partIndex;
  body.tag = tag;
  PK_BODY_type_t type = 0;
  if (int rc = PK_BODY_ask_type(tag, &type)) noteProblem(body, "PK_BODY_ask_type", rc);
  body.type = bodyTypeName(type);
  body.regions = countOf(body, PK_BODY_ask_regions, "PK_BODY_ask_regions");
  body.shells = countOf(body, PK_BODY_ask_shells, "PK_BODY_ask_shells");
  body.faces = countOf(body, PK_BODY_ask_faces, "PK_BODY_ask_faces");
  body.edges = countOf(body, PK_BODY_ask_edges, "PK_BODY_ask_edges");
  body.vertices = countOf(body, PK_BODY_ask_vertices, "PK_BODY_ask_vertices");
  askMass(body);
  askBox(body);
  askValidity(body);
  body.name = nameOf(tag);
  body.colour = colourOf(tag);
  return body;
}

void describePart(FileFacts& facts, int index, PK_PART_t tag) {
  PartFacts part;
  part.tag = tag;
  PK_CLASS_t klass = 0;
  PK_ENTITY_ask_class(tag, &klass);
  part.klass = klass == PK_CLASS_assembly ? "assembly" : klass == PK_CLASS_body ? "body" : "other";
  part.name = nameOf(tag);
  facts.parts.push_back(part);
  int n = 0;
  PK_BODY_t* bodies = nullptr;
  if (PSCGetAllBodyInPart(tag, &n, &bodies) != 0) {
    erClear();
    return;
  }
  KernelArray guard(n > 0 ? bodies : nullptr);
  for (int k = 0; k < n; ++k) facts.bodies.push_back(describeBody(index, bodies[k]));
}

}  // namespace

FileFacts inspectFile(const std::string& path) {
  FileFacts facts;
  facts.path = path;
  const char* extension = PSCFindPartFileExtension(path.c_str());
  const std::string key = extension ? path.substr(0, std::size_t(extension - path.c_str())) : path;
  int n = 0;
  PK_PART_t* parts = nullptr;
  if (int rc = PSCReceivePartFile(key.c_str(), extension, &n, &parts)) {
    facts.kernelCode = rc;
    facts.message = lastKernelMessage(rc);
    return facts;
  }
  KernelArray guard(parts);
  facts.loaded = true;
  for (int k = 0; k < n; ++k) describePart(facts, k, parts[k]);
  return facts;
}

}  // namespace inspect
