// PK_BODY_boolean_2: unite, subtract or intersect a target with tools on
// OCCT's non-destructive booleans. Nothing in the entity table changes until
// the result has been built and accepted, so a failure leaves every body as
// it was.
#include "BooleanChecks.h"
#include "Bodies.h"
#include "LastError.h"
#include "SharedFuse.h"
#include "Tracking.h"
#include "session/KernelError.h"
#include "session/Memory.h"
#include "session/Parallelism.h"

#include <BRepAlgoAPI_Common.hxx>
#include <BRepAlgoAPI_Cut.hxx>
#include <BRepAlgoAPI_Fuse.hxx>
#include <BRepBndLib.hxx>
#include <BRepBuilderAPI_Copy.hxx>
#include <BRepTools_History.hxx>
#include <BRep_Builder.hxx>
#include <Bnd_Box.hxx>
#include <ShapeBuild_ReShape.hxx>
#include <ShapeFix_Shape.hxx>
#include <TopExp_Explorer.hxx>
#include <TopTools_ListOfShape.hxx>
#include <TopoDS_Compound.hxx>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <set>

using namespace meld::kernel;

namespace {

struct Request {
  PK_boolean_function_t function = PK_boolean_unite_c;
  PK_BODY_t target = PK_ENTITY_null;
  std::vector<PK_BODY_t> tools;
  double fuzzy = 0;
  bool allowDisjoint = false;  // a result in several solids stays one body
  bool tracking = false;       // tracking records asked for
};

struct Outcome {
  PK_boolean_result_t code = PK_boolean_result_failed_c;
  std::string why;  // of a failure
  // Whether a reworked form of the solids may mend the failure: any fault
  // but loose sub-shapes in the result, which none mended on the corpus.
  bool formFault = true;
  std::vector<TopoDS_Shape> solids;  // the result's solids, the target's first
  std::unique_ptr<ShapeHistory> history;
  // The faces the single solid took from the target and gave it, when the
  // operation knows and its edges each lie on two faces (see BodyChange).
  std::optional<FaceDelta> faceDelta;
};

// The fuzzy value is the tolerance asked for: default_tol, capped by max_tol
// when one is given. A default_tol of 0 asks for no fuzziness at all (the
// driver's default when no tolerance is given on its command line).
double fuzzyValue(const PK_BODY_boolean_o_t& o) {
  require(std::isfinite(o.default_tol) && o.default_tol >= 0 && o.default_tol < 1, PK_ERROR_bad_option_data);
  require(std::isfinite(o.max_tol) && o.max_tol >= 0 && o.max_tol < 1, PK_ERROR_bad_option_data);
  return o.max_tol > 0 ? std::min(o.default_tol, o.max_tol) : o.default_tol;
}

Request readRequest(PK_BODY_t target, int n_tools, const PK_BODY_t* tools, const PK_BODY_boolean_o_t* options) {
  PK_BODY_boolean_o_t o;
  PK_BODY_boolean_o_m(o);
  if (options) o = *options;
  require(o.o_t_version >= 1, PK_ERROR_bad_option_data);
  require(o.function == PK_boolean_unite_c || o.function == PK_boolean_subtract_c ||
              o.function == PK_boolean_intersect_c,
          PK_ERROR_bad_option_data);
  require(n_tools >= 1, PK_ERROR_bad_value);
  requireArg(tools);
  Request request{o.function, target, std::vector<PK_BODY_t>(tools, tools + n_tools), fuzzyValue(o),
                  o.allow_disjoint == PK_LOGICAL_true, o.tracking == PK_LOGICAL_true};
  bodyData(target);
  for (PK_BODY_t tool : request.tools) bodyData(tool);
  std::set<PK_BODY_t> distinct(request.tools.begin(), request.tools.end());
  require(distinct.size() == request.tools.size(), PK_ERROR_duplicate_entity);
  // A tool stops existing: one that an instance still uses cannot.
  for (PK_BODY_t tool : request.tools)
    for (PK_ENTITY_t ref : session().table.referringTo(tool))
      require(session().table.get(ref).cls != PK_CLASS_instance, PK_ERROR_part_is_instanced);
  return request;
}

// The body's box (kept with its topology), grown by the fuzzy value.
Bnd_Box grownBox(PK_BODY_t body, double by) {
  Bnd_Box box = bodyTopology(body).box;
  box.Enlarge(by);
  return box;
}

// Whether the boxes of the target and of any (every) tool meet.
bool anyBoxClash(const Request& r) {
  Bnd_Box target = grownBox(r.target, r.fuzzy);
  return std::any_of(r.tools.begin(), r.tools.end(),
                     [&](PK_BODY_t tool) { return !target.IsOut(grownBox(tool, r.fuzzy)); });
}

bool allBoxesClash(const Request& r) {
  Bnd_Box target = grownBox(r.target, r.fuzzy);
  return std::all_of(r.tools.begin(), r.tools.end(),
                     [&](PK_BODY_t tool) { return !target.IsOut(grownBox(tool, r.fuzzy)); });
}

// A box that holds the result without measuring it: a union lies within its
// inputs' boxes, a subtraction or an intersection within its target's.
Bnd_Box resultBox(const Request& r) {
  Bnd_Box box = bodyTopology(r.target).box;
  if (r.function == PK_boolean_unite_c)
    for (PK_BODY_t tool : r.tools) box.Add(bodyTopology(tool).box);
  return box;
}

std::unique_ptr<BRepAlgoAPI_BooleanOperation> makeOperation(PK_boolean_function_t function) {
  switch (function) {
    case PK_boolean_unite_c: return std::make_unique<BRepAlgoAPI_Fuse>();
    case PK_boolean_subtract_c: return std::make_unique<BRepAlgoAPI_Cut>();
    default: return std::make_unique<BRepAlgoAPI_Common>();
  }
}

std::vector<TopoDS_Shape> inputShapes(const Request& r) {
  std::vector<TopoDS_Shape> shapes{bodyData(r.target).shape};
  for (PK_BODY_t tool : r.tools) shapes.push_back(bodyData(tool).shape);
  return shapes;
}

// What OCCT's boolean is given: the inputs themselves, in the order asked
// for, unless a rescue (below) reorders them or gives it reworked copies.
struct Operands {
  std::vector<TopoDS_Shape> shapes;  // the target's first
  bool swapped = false;              // the first tool is OCCT's argument, the target a tool
  // From the inputs to the copies in `shapes`; null when they are the inputs.
  Handle(BRepTools_History) reworked;
};

Operands asGiven(const Request& r) { return Operands{inputShapes(r), false, {}}; }

// A unite that OCCT's boolean got wrong both exactly and with the fuzzy value
// is tried again in forms that change nothing of the solids' shape, because
// its faults on real parts come from the form of the arguments, not their
// geometry: which solid is the argument (biox-Assembly: a result not closed
// one way round, right the other) and edges with small or faulty tolerances
// (nxcmp-Brake_Piston: an empty result until ShapeFix has worked on them).
// Closed faces split in two were a third form until received faces went back
// on their periodic surfaces with the seam at u = 0; after that it mended no
// pair of the corpus. The reworked forms are copies: the inputs
// and so a roll-back are never touched, and the copies' history is kept so
// that tags and attributes still follow from the inputs' sub-shapes.
enum class Rescue { swapped, shapeFixed };

// Copies of the inputs reworked by `rework` (copy -> reworked shape, whose
// changes its context records).
template <class Rework>
Operands reworkedCopies(const Request& r, Rework rework) {
  Operands out{{}, false, new BRepTools_History};
  for (const TopoDS_Shape& input : inputShapes(r)) {
    BRepBuilderAPI_Copy copy(input);
    TopTools_ListOfShape argument;
    argument.Append(input);
    out.reworked->Merge(BRepTools_History(argument, copy));
    Handle(ShapeBuild_ReShape) context;
    out.shapes.push_back(rework(copy.Shape(), context));
    out.reworked->Merge(context->History());
  }
  return out;
}

Operands rescued(const Request& r, Rescue rescue) {
  if (rescue == Rescue::swapped) return Operands{inputShapes(r), true, {}};
  return reworkedCopies(r, [](const TopoDS_Shape& copy, Handle(ShapeBuild_ReShape)& context) {
    ShapeFix_Shape fix(copy);
    fix.Perform();
    context = fix.Context();
    return fix.Shape();
  });
}

std::vector<const BodyTopology*> inputTopologies(const Request& r) {
  std::vector<const BodyTopology*> topologies{&bodyTopology(r.target)};
  for (PK_BODY_t tool : r.tools) topologies.push_back(&bodyTopology(tool));
  return topologies;
}

// Whether the result is made of exactly the faces of these inputs: the
// operation touched nothing.
bool sameFacesAs(const TopoDS_Shape& result, const std::vector<const BodyTopology*>& inputs) {
  std::size_t inputFaces = 0;
  for (const BodyTopology* input : inputs) inputFaces += input->faces.size();
  std::size_t faces = 0;
  for (TopExp_Explorer ex(result, TopAbs_FACE); ex.More(); ex.Next(), ++faces) {
    bool held = std::any_of(inputs.begin(), inputs.end(),
                            [&](const BodyTopology* input) { return input->tagOf(ex.Current()) != PK_ENTITY_null; });
    if (!held) return false;
  }
  return faces == inputFaces;
}

// Only solids may come out: a loose face, edge or vertex is a failure.
bool onlySolids(const TopoDS_Shape& result) {
  for (TopAbs_ShapeEnum type : {TopAbs_SHELL, TopAbs_FACE, TopAbs_EDGE, TopAbs_VERTEX}) {
    TopExp_Explorer loose(result, type, type == TopAbs_SHELL ? TopAbs_SOLID : TopAbs_SHELL);
    if (type == TopAbs_EDGE) loose.Init(result, type, TopAbs_FACE);
    if (type == TopAbs_VERTEX) loose.Init(result, type, TopAbs_EDGE);
    if (loose.More()) return false;
  }
  return true;
}

// The target's piece first: the solid holding most of the target's faces
// (of the faces they came from, when the boolean worked on copies).
std::vector<TopoDS_Shape> solidsTargetFirst(const TopoDS_Shape& result, const BodyTopology& target,
                                            const ShapeHistory* copies) {
  auto fromTarget = [&](const TopoDS_Shape& face) {
    return copies ? target.tagOf(SubKey{copies->origin(face)}) != 0 : target.tagOf(face) != 0;
  };
  std::vector<TopoDS_Shape> solids;
  std::size_t best = 0, bestCount = 0;
  for (TopExp_Explorer ex(result, TopAbs_SOLID); ex.More(); ex.Next()) {
    std::size_t count = 0;
    for (TopExp_Explorer f(ex.Current(), TopAbs_FACE); f.More(); f.Next()) count += fromTarget(f.Current());
    if (count > bestCount) best = solids.size(), bestCount = count;
    solids.push_back(ex.Current());
  }
  if (best != 0) std::swap(solids[0], solids[best]);
  return solids;
}

// Several solids as the shape of one (disjoint) body.
TopoDS_Shape disjointBody(const std::vector<TopoDS_Shape>& solids) {
  TopoDS_Compound compound;
  BRep_Builder builder;
  builder.MakeCompound(compound);
  for (const TopoDS_Shape& solid : solids) builder.Add(compound, solid);
  return compound;
}

constexpr const char* kLooseSubShapes = "the result holds more than solids";

// Why the result is not accepted; empty when it is.
std::string refusal(const Request& r, const TopoDS_Shape& result, const std::vector<const BodyTopology*>& inputs) {
  if (!onlySolids(result)) return kLooseSubShapes;
  if (!solidsClosed(result)) return "a solid of the result is not closed";
  if (!madeFacesValid(result, inputs)) return "a face the boolean made is not valid";
  std::vector<Measures> tools;
  for (PK_BODY_t tool : r.tools) tools.push_back(measure(bodyData(tool).shape));
  Measures target = measure(bodyData(r.target).shape), made = measure(result);
  if (volumesAgree(r.function, target, tools, made, r.fuzzy)) return {};
  char text[160];
  std::snprintf(text, sizeof text, "result volume %.12g breaks the invariant (target %.12g, first tool %.12g)",
                made.volume, target.volume, tools.front().volume);
  return text;
}

// Runs OCCT's boolean with this fuzzy value and judges its result (always
// with the tolerance asked for); changes nothing in the table.
Outcome compute(const Request& r, double fuzzy, const Operands& operands) {
  Outcome out;
  const std::vector<TopoDS_Shape>& shapes = operands.shapes;
  auto op = makeOperation(r.function);
  TopTools_ListOfShape arguments, tools;
  std::size_t argument = operands.swapped ? 1 : 0;
  arguments.Append(shapes[argument]);
  for (std::size_t i = 0; i < shapes.size(); ++i)
    if (i != argument) tools.Append(shapes[i]);
  op->SetArguments(arguments);
  op->SetTools(tools);
  op->SetFuzzyValue(fuzzy);
  op->SetNonDestructive(true);
  op->SetRunParallel(sessionThreads() > 1);
  // Oriented boxes filter candidate pairs more tightly but cost more to build
  // than they save on our unions (bench_unite, grid 8: kernel/raw 1.23 without
  // against 1.36 with, three runs each).
  op->SetUseOBB(false);
  op->Build();
  if (!op->IsDone() || op->HasErrors()) {
    out.why = "OCCT's boolean reported errors";
    return out;
  }
  const TopoDS_Shape& result = op->Shape();
  std::vector<const BodyTopology*> inputs = inputTopologies(r);
  bool empty = !TopExp_Explorer(result, TopAbs_FACE).More();
  if (empty) {
    // Nothing in common is no clash; a target swallowed whole by its tools
    // would leave no body, which this kernel does not do.
    out.code = r.function == PK_boolean_intersect_c ? PK_boolean_result_no_clash_c
               : r.function == PK_boolean_subtract_c ? PK_boolean_result_no_effect_c
                                                     : PK_boolean_result_failed_c;
    out.why = "the result is empty";
    return out;
  }
  std::vector<const BodyTopology*> untouched =
      r.function == PK_boolean_unite_c ? inputs : std::vector<const BodyTopology*>{inputs.front()};
  if (r.function != PK_boolean_intersect_c && sameFacesAs(result, untouched)) {
    out.code = PK_boolean_result_no_clash_c;
    return out;
  }
  out.why = refusal(r, result, inputs);
  out.formFault = out.why != kLooseSubShapes;
  if (!out.why.empty()) return out;
  // Tags follow the inputs' sub-shapes: through the copies' history first
  // when the boolean worked on copies.
  Handle(BRepTools_History) history = op->History();
  if (!operands.reworked.IsNull()) {
    Handle(BRepTools_History) chained = new BRepTools_History(*operands.reworked);
    chained->Merge(history);
    history = chained;
  }
  out.history = std::make_unique<ShapeHistory>(history, inputShapes(r));
  out.solids = solidsTargetFirst(result, *inputs.front(), operands.reworked.IsNull() ? nullptr : out.history.get());
  if (r.allowDisjoint && out.solids.size() > 1) out.solids = {disjointBody(out.solids)};
  out.code = PK_boolean_result_success_c;
  return out;
}

void removeTool(PK_BODY_t tool) {
  EntityTable& table = session().table;
  std::vector<PK_ENTITY_t> owned(table.ownedBy(tool).begin(), table.ownedBy(tool).end());
  for (PK_ENTITY_t child : owned) table.remove(child);
  table.remove(tool);
}

// The tracking records of an accepted result, told before the table changes
// (the pieces' topologies already hold the tags the result bodies will have).
void track(const Request& r, const Outcome& out, const std::vector<BodyData>& pieces, PK_TOPOL_track_r_t* tracking) {
  std::vector<BodyTopologyPtr> inputs{bodyData(r.target).topology}, results;
  for (PK_BODY_t tool : r.tools) inputs.push_back(bodyData(tool).topology);
  for (const BodyData& piece : pieces) results.push_back(piece.topology);
  TopologyTracker(std::move(inputs)).report(out.history ? *out.history : ShapeHistory(), results, tracking);
}

// The accepted result goes into the table: the target takes the first solid,
// further solids become new bodies, the tools go.
std::vector<PK_BODY_t> apply(const Request& r, const Outcome& out, PK_TOPOL_track_r_t* tracking) {
  std::unordered_set<PK_ENTITY_t> used;
  Bnd_Box box = resultBox(r);
  BodyChange change{out.history.get(), r.tools, &used, &box};
  if (out.faceDelta && out.solids.size() == 1) change.faceDelta = &*out.faceDelta;
  std::vector<BodyData> pieces;
  for (const TopoDS_Shape& solid : out.solids) pieces.push_back(derivedBodyData(r.target, solid, change));
  if (r.tracking && tracking) track(r, out, pieces, tracking);
  replaceBodyData(r.target, std::move(pieces[0]));
  std::vector<PK_BODY_t> bodies{r.target};
  for (std::size_t i = 1; i < pieces.size(); ++i) bodies.push_back(createBody(std::move(pieces[i])));
  for (PK_BODY_t tool : r.tools) removeTool(tool);
  return bodies;
}

bool allSolid(const Request& r) {
  if (bodyData(r.target).type != PK_BODY_type_solid_c) return false;
  return std::all_of(r.tools.begin(), r.tools.end(),
                     [](PK_BODY_t tool) { return bodyData(tool).type == PK_BODY_type_solid_c; });
}

// A union of two solids answered from the session's fuse context, when it
// serves both; anything it does not answer takes the pairwise path.
SharedUnion sharedUnion(const Request& r) {
  if (r.function != PK_boolean_unite_c || r.tools.size() != 1) return {};
  try {
    OCC_CATCH_SIGNALS
    return uniteShared(r.target, r.tools.front(), r.fuzzy);
  } catch (const Standard_Failure&) {
    return {};
  }
}

// One boolean on the operands `prepare` gives; OCCT's exceptions (also while
// preparing) are failures.
template <class Prepare>
Outcome attempted(const Request& r, double fuzzy, Prepare prepare) {
  try {
    OCC_CATCH_SIGNALS
    return compute(r, fuzzy, prepare());
  } catch (const Standard_Failure& failure) {
    Outcome failed;
    failed.why = std::string("OCCT failed: ") + failure.GetMessageString();
    return failed;
  }
}

PK_boolean_result_t run(const Request& r, std::vector<PK_BODY_t>& bodies, PK_TOPOL_track_r_t* tracking) {
  if (std::find(r.tools.begin(), r.tools.end(), r.target) != r.tools.end()) return PK_boolean_result_is_tool_c;
  if (!allSolid(r)) return PK_boolean_result_not_solid_c;
  bool clash = r.function == PK_boolean_intersect_c ? allBoxesClash(r) : anyBoxClash(r);
  if (!clash) return PK_boolean_result_no_clash_c;
  SharedUnion shared = sharedUnion(r);
  if (shared.kind == SharedUnion::Kind::noClash) return PK_boolean_result_no_clash_c;
  if (shared.kind == SharedUnion::Kind::joined) {
    Outcome joined;
    joined.solids = {shared.solid};
    joined.history = std::move(shared.history);
    joined.faceDelta = std::move(shared.faceDelta);
    bodies = apply(r, joined, tracking);
    return PK_boolean_result_success_c;
  }
  // Exact intersection first: a fuzzy value makes OCCT's boolean markedly
  // slower, and most unions do not need it. A result that fails (or would be
  // refused) is computed again with the fuzzy value asked for, and so is "no
  // clash" (faces may meet only within the tolerance); when that fuzzy run
  // fails, the exact "no clash" stands. A unite whose exact result holds
  // loose sub-shapes is not: on the corpus the fuzzy run mended none, and on
  // nxcmp-Brake_Piston those runs were 8 of its 30 s pass by pass.
  Outcome out;
  std::vector<double> tries{0.0};
  if (r.fuzzy > 0) tries.push_back(r.fuzzy);
  for (double fuzzy : tries) {
    if (fuzzy > 0 && r.function == PK_boolean_unite_c && out.code == PK_boolean_result_failed_c && !out.formFault)
      break;
    Outcome attempt = attempted(r, fuzzy, [&] { return asGiven(r); });
    bool keepNoClash = out.code == PK_boolean_result_no_clash_c && attempt.code == PK_boolean_result_failed_c;
    if (!keepNoClash) out = std::move(attempt);
    if (out.code != PK_boolean_result_failed_c && out.code != PK_boolean_result_no_clash_c) break;
  }
  // Rescues, exact only (as the inputs' own tolerances allow): they cost a
  // failed union up to two more booleans, and none was found to need the
  // fuzzy value. When none succeeds, the plain attempts' reason is reported.
  // Only for faults of form: on nxcmp-Brake_Piston the three unions that
  // come back with loose sub-shapes took 64.6 s instead of 21 s with
  // rescues that mended none of them.
  if (out.code == PK_boolean_result_failed_c && r.function == PK_boolean_unite_c && out.formFault)
    for (Rescue rescue : {Rescue::swapped, Rescue::shapeFixed}) {
      Outcome attempt = attempted(r, 0.0, [&] { return rescued(r, rescue); });
      if (attempt.code != PK_boolean_result_success_c) continue;
      out = std::move(attempt);
      break;
    }
  if (out.code == PK_boolean_result_failed_c) setLastMessage("boolean failed: " + out.why);
  if (out.code == PK_boolean_result_success_c) bodies = apply(r, out, tracking);
  return out.code;
}

}  // namespace

extern "C" PK_ERROR_code_t PK_BODY_boolean_2(PK_BODY_t target, int n_tools, const PK_BODY_t* tools,
                                             const PK_BODY_boolean_o_t* options, PK_TOPOL_track_r_t* tracking,
                                             PK_boolean_r_t* results) {
  return guarded([&] {
    requireArg(results);
    *results = PK_boolean_r_t{PK_boolean_result_failed_c, 0, nullptr};
    if (tracking) *tracking = PK_TOPOL_track_r_t{0, nullptr, nullptr, nullptr, nullptr};
    clearLastMessage();
    Request request = readRequest(target, n_tools, tools, options);
    std::vector<PK_BODY_t> bodies;
    results->result = run(request, bodies, tracking);
    handOut(bodies, &results->n_bodies, &results->bodies);
  });
}

extern "C" PK_ERROR_code_t PK_boolean_r_f(PK_boolean_r_t* results) {
  return guarded([&] {
    requireArg(results);
    kernelFree(results->bodies);
    *results = PK_boolean_r_t{results->result, 0, nullptr};
  });
}

extern "C" PK_ERROR_code_t PK_TOPOL_track_r_f(PK_TOPOL_track_r_t* tracking) {
  return guarded([&] {
    requireArg(tracking);
    kernelFree(tracking->track_records);
    kernelFree(tracking->internal_origs);
    kernelFree(tracking->internal_classes);
    kernelFree(tracking->internal_prods);
    *tracking = PK_TOPOL_track_r_t{0, nullptr, nullptr, nullptr, nullptr};
  });
}
