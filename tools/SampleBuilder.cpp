#include "SampleBuilder.h"

#include <string>

namespace samples {
namespace {

constexpr double kMetresPerMm = 0.001;

// Kernel calls in a row: the first refusal makes the whole sample fail.
struct Steps {
  bool ok = true;
  void operator()(PK_ERROR_code_t rc) { ok = ok && rc == 0; }
};

PK_AXIS2_sf_t frameAt(double x, double y, double z) {
  PK_AXIS2_sf_t frame{};
  frame.location.coord[0] = x * kMetresPerMm;
  frame.location.coord[1] = y * kMetresPerMm;
  frame.location.coord[2] = z * kMetresPerMm;
  frame.axis.coord[2] = 1.0;
  frame.ref_direction.coord[0] = 1.0;
  return frame;
}

// A box from the corner (x, y, z) with the given edge lengths.
PK_BODY_t box(Steps& step, double sx, double sy, double sz, double x, double y, double z) {
  const PK_AXIS2_sf_t frame = frameAt(x + sx / 2, y + sy / 2, z);
  PK_BODY_t body = PK_ENTITY_null;
  step(PK_BODY_create_solid_block(sx * kMetresPerMm, sy * kMetresPerMm, sz * kMetresPerMm, &frame,
                                  &body));
  return body;
}

PK_BODY_t cylinder(Steps& step, double r, double h, double x, double y, double z) {
  const PK_AXIS2_sf_t frame = frameAt(x, y, z);
  PK_BODY_t body = PK_ENTITY_null;
  step(PK_BODY_create_solid_cyl(r * kMetresPerMm, h * kMetresPerMm, &frame, &body));
  return body;
}

// A sphere made at the origin and moved into place, as a user would place a
// standard part.
PK_BODY_t sphere(Steps& step, double r, double x, double y, double z) {
  PK_BODY_t body = PK_ENTITY_null;
  step(PK_BODY_create_solid_sphere(r * kMetresPerMm, nullptr, &body));
  PK_TRANSF_sf_t move{};
  for (int k = 0; k < 4; ++k) move.matrix[k][k] = 1.0;
  move.matrix[0][3] = x * kMetresPerMm;
  move.matrix[1][3] = y * kMetresPerMm;
  move.matrix[2][3] = z * kMetresPerMm;
  PK_TRANSF_t transf = PK_ENTITY_null;
  step(PK_TRANSF_create(&move, &transf));
  PK_BODY_transform_o_t options;
  PK_BODY_transform_o_m(options);
  step(PK_BODY_transform_2(body, transf, 1e-8, &options));
  step(PK_ENTITY_delete(1, &transf));
  return body;
}

PK_ATTRIB_t attribute(Steps& step, PK_ENTITY_t entity, const char* definition) {
  PK_ATTDEF_t attdef = PK_ENTITY_null;
  step(PK_ATTDEF_find(definition, &attdef));
  PK_ATTRIB_t attrib = PK_ENTITY_null;
  step(PK_ATTRIB_create_empty(entity, attdef, &attrib));
  return attrib;
}

void name(Steps& step, PK_ENTITY_t entity, const char* text) {
  step(PK_ATTRIB_set_string(attribute(step, entity, "SDL/TYSA_NAME"), 0, text));
}

void unicodeName(Steps& step, PK_ENTITY_t entity, const std::u16string& text) {
  step(PK_ATTRIB_set_ustring(attribute(step, entity, "SDL/TYSA_UNAME"), 0,
                             reinterpret_cast<const PK_UCHAR_t*>(text.c_str())));
}

PK_ASSEMBLY_t assemblyOf(Steps& step, std::initializer_list<PK_PART_t> parts,
                         PK_TRANSF_t transf = PK_ENTITY_null) {
  PK_ASSEMBLY_t assembly = PK_ENTITY_null;
  step(PK_ASSEMBLY_create_empty(&assembly));
  for (PK_PART_t part : parts) {
    PK_INSTANCE_sf_t sf{assembly, part, transf};
    PK_INSTANCE_t instance = PK_ENTITY_null;
    step(PK_INSTANCE_create(&sf, &instance));
  }
  return assembly;
}

PK_PART_t result(const Steps& step, PK_PART_t part) { return step.ok ? part : PK_ENTITY_null; }

}  // namespace

PK_PART_t overlappingSolids() {
  Steps step;
  const PK_BODY_t a = box(step, 10, 10, 10, 0, 0, 0);
  const PK_BODY_t b = box(step, 10, 10, 10, 5, 5, 5);
  const PK_BODY_t c = box(step, 10, 10, 10, 9, 9, 9);
  name(step, a, "Block A");
  name(step, b, "Block B");
  unicodeName(step, c, u"W\u00FCrfel C");
  return result(step, assemblyOf(step, {a, b, c}));
}

PK_PART_t disjointSolids() {
  Steps step;
  const PK_BODY_t cube = box(step, 10, 10, 10, 0, 0, 0);
  const PK_BODY_t pin = cylinder(step, 4, 10, 30, 5, 0);
  const PK_BODY_t ball = sphere(step, 5, 60, 5, 5);
  name(step, cube, "Cube");
  name(step, pin, "Pin");
  name(step, ball, "Ball");
  return result(step, assemblyOf(step, {cube, pin, ball}));
}

PK_PART_t cavityBlock() {
  Steps step;
  const PK_BODY_t block = box(step, 20, 20, 20, -10, -10, 0);
  const PK_BODY_t hole = sphere(step, 5, 0, 0, 10);
  PK_BODY_boolean_o_t options;
  PK_BODY_boolean_o_m(options);
  options.function = PK_boolean_subtract_c;
  PK_TOPOL_track_r_t tracking{};
  PK_boolean_r_t results{};
  step(PK_BODY_boolean_2(block, 1, &hole, &options, &tracking, &results));
  step.ok = step.ok && results.result == PK_boolean_result_success_c && results.n_bodies == 1;
  PK_TOPOL_track_r_f(&tracking);
  PK_boolean_r_f(&results);
  name(step, block, "Hollow block");
  return result(step, assemblyOf(step, {block}));
}

PK_PART_t smallAssembly() {
  Steps step;
  const PK_BODY_t left = box(step, 10, 10, 10, 0, 0, 0);
  const PK_BODY_t right = box(step, 10, 10, 10, 6, 2, 3);
  const PK_BODY_t ball = sphere(step, 4, 40, 0, 5);
  name(step, left, "Left jaw");
  name(step, right, "Right jaw");
  name(step, ball, "Knob");
  PK_TRANSF_sf_t lift{};
  for (int k = 0; k < 4; ++k) lift.matrix[k][k] = 1.0;
  lift.matrix[2][3] = 0.05;
  PK_TRANSF_t transf = PK_ENTITY_null;
  step(PK_TRANSF_create(&lift, &transf));
  const PK_ASSEMBLY_t vice = assemblyOf(step, {left, right});
  name(step, vice, "Vice");
  PK_ASSEMBLY_t top = PK_ENTITY_null;
  step(PK_ASSEMBLY_create_empty(&top));
  PK_INSTANCE_sf_t placed{top, vice, transf};
  PK_INSTANCE_sf_t loose{top, ball, PK_ENTITY_null};
  PK_INSTANCE_t instance = PK_ENTITY_null;
  step(PK_INSTANCE_create(&placed, &instance));
  step(PK_INSTANCE_create(&loose, &instance));
  return result(step, top);
}

PK_PART_t targetBlock() {
  Steps step;
  const PK_BODY_t plate = box(step, 20, 20, 10, -10, -10, 0);
  name(step, plate, "Plate");
  return result(step, plate);
}

PK_PART_t toolCylinder() {
  Steps step;
  const PK_BODY_t drill = cylinder(step, 5, 30, 0, 0, -10);
  name(step, drill, "Drill");
  return result(step, drill);
}

}  // namespace samples
