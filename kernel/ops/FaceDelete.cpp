// PK_FACE_delete: whole cavity shells go directly; other face sets are healed
// by OCCT's defeaturing, whose result must check valid.
#include "BooleanChecks.h"
#include "Bodies.h"
#include "session/KernelError.h"
#include "session/Parallelism.h"

#include <BRepAlgoAPI_Defeaturing.hxx>
#include <BRepClass3d.hxx>
#include <BRep_Builder.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Compound.hxx>
#include <TopoDS_Iterator.hxx>
#include <TopoDS_Solid.hxx>

#include <set>
#include <unordered_set>

using namespace meld::kernel;

namespace {

struct Request {
  PK_BODY_t body = PK_ENTITY_null;
  std::vector<TopoDS_Shape> faces;
  std::unordered_set<const TopoDS_TShape*> doomed;
};

Request readRequest(int n_faces, const PK_FACE_t* faces) {
  require(n_faces >= 1, PK_ERROR_bad_value);
  requireArg(faces);
  Request request;
  std::set<PK_FACE_t> distinct;
  for (int i = 0; i < n_faces; ++i) {
    PK_BODY_t body = PK_ENTITY_null;
    const SubEntity& face = subEntity(faces[i], PK_CLASS_face, &body);
    require(request.body == PK_ENTITY_null || request.body == body, PK_ERROR_not_in_same_body);
    require(distinct.insert(faces[i]).second, PK_ERROR_duplicate_entity);
    request.body = body;
    request.faces.push_back(face.shape);
    request.doomed.insert(face.shape.TShape().get());
  }
  return request;
}

// How many of the shell's faces are doomed: none, some or all.
enum class Share { none, some, all };

Share shareOf(const TopoDS_Shape& shell, const Request& r) {
  std::size_t total = 0, doomed = 0;
  for (TopExp_Explorer ex(shell, TopAbs_FACE); ex.More(); ex.Next(), ++total)
    doomed += r.doomed.count(ex.Current().TShape().get());
  if (doomed == 0) return Share::none;
  return doomed == total ? Share::all : Share::some;
}

// The body without the doomed shells when they are all cavities; a null
// shape when the set is not made of whole cavity shells.
TopoDS_Shape withoutCavities(const TopoDS_Shape& body, const Request& r) {
  TopoDS_Compound kept;
  BRep_Builder builder;
  builder.MakeCompound(kept);
  std::size_t removedFaces = 0, solids = 0;
  TopoDS_Shape lastSolid;
  for (TopExp_Explorer ex(body, TopAbs_SOLID); ex.More(); ex.Next()) {
    TopoDS_Solid solid;
    builder.MakeSolid(solid);
    TopoDS_Shape outer = BRepClass3d::OuterShell(TopoDS::Solid(ex.Current()));
    for (TopoDS_Iterator it(ex.Current()); it.More(); it.Next()) {
      Share share = shareOf(it.Value(), r);
      if (share == Share::some) return TopoDS_Shape();
      if (share == Share::all) {
        require(!it.Value().IsSame(outer), PK_ERROR_cant_heal);
        for (TopExp_Explorer f(it.Value(), TopAbs_FACE); f.More(); f.Next()) ++removedFaces;
        continue;
      }
      builder.Add(solid, it.Value());
    }
    solid.Orientation(ex.Current().Orientation());
    builder.Add(kept, solid);
    lastSolid = solid;
    ++solids;
  }
  if (removedFaces != r.doomed.size()) return TopoDS_Shape();
  return solids == 1 ? lastSolid : TopoDS_Shape(kept);
}

TopoDS_Shape healed(const TopoDS_Shape& body, const Request& r, std::unique_ptr<ShapeHistory>& history) {
  BRepAlgoAPI_Defeaturing defeaturing;
  defeaturing.SetShape(body);
  for (const TopoDS_Shape& face : r.faces) defeaturing.AddFaceToRemove(face);
  defeaturing.SetRunParallel(sessionThreads() > 1);
  defeaturing.SetToFillHistory(true);
  defeaturing.Build();
  require(defeaturing.IsDone() && !defeaturing.HasErrors(), PK_ERROR_cant_heal);
  const TopoDS_Shape& result = defeaturing.Shape();
  require(solidsClosed(result) && madeFacesValid(result, {&bodyTopology(r.body)}), PK_ERROR_cant_heal);
  history = std::make_unique<ShapeHistory>(defeaturing.History(), std::vector<TopoDS_Shape>{body});
  return result;
}

// Solids come back from OCCT in a compound; one solid is stored as itself.
TopoDS_Shape tidy(const TopoDS_Shape& shape) {
  TopExp_Explorer ex(shape, TopAbs_SOLID);
  if (!ex.More()) return shape;
  TopoDS_Shape first = ex.Current();
  ex.Next();
  return ex.More() ? shape : first;
}

}  // namespace

extern "C" PK_ERROR_code_t PK_FACE_delete(int n_faces, const PK_FACE_t* faces, PK_FACE_heal_t heal_action) {
  return guarded([&] {
    require(heal_action == PK_FACE_heal_yes_c || heal_action == PK_FACE_heal_no_c, PK_ERROR_bad_option_data);
    Request request = readRequest(n_faces, faces);
    const TopoDS_Shape& shape = bodyData(request.body).shape;
    TopoDS_Shape result = withoutCavities(shape, request);
    if (!result.IsNull()) {
      replaceBodyShape(request.body, result);
      return;
    }
    require(heal_action == PK_FACE_heal_yes_c, PK_ERROR_cant_heal);
    std::unique_ptr<ShapeHistory> history;
    TopoDS_Shape fixed = tidy(healed(shape, request, history));
    BodyChange change{history.get(), {}, nullptr};
    replaceBodyShape(request.body, fixed, change);
  });
}
