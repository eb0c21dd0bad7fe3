// xt-inspect: what a part file holds, as the kernel sees it after receiving
// it, gathered through pk.h only.
#pragma once

#include <string>
#include <vector>

#include "pk.h"

namespace inspect {

struct BodyFacts {
  int part = 0;  // index of the received part it belongs to
  PK_BODY_t tag = PK_ENTITY_null;
  std::string type;  // "solid", "sheet", ...
  int regions = 0, shells = 0, faces = 0, edges = 0, vertices = 0;
  bool massKnown = false;
  double volume = 0, area = 0;  // m³ and m² (solids; sheets: area only)
  bool boxKnown = false;
  double box[6] = {0, 0, 0, 0, 0, 0};  // metres: xmin ymin zmin xmax ymax zmax
  bool valid = false;
  int faults = 0;
  std::string firstFault;
  std::string name;
  std::vector<double> colour;  // red, green, blue in 0..1 when the body has one
  std::vector<std::string> problems;  // enquiries that failed
};

struct PartFacts {
  PK_PART_t tag = PK_ENTITY_null;
  std::string klass;  // "body" or "assembly"
  std::string name;
};

struct FileFacts {
  std::string path;
  bool loaded = false;
  int kernelCode = 0;
  std::string message;  // why it did not load
  std::vector<PartFacts> parts;
  std::vector<BodyFacts> bodies;
};

// Receives the file in the running session and describes every part and
// body it holds.
FileFacts inspectFile(const std::string& path);

// The entity's colour attribute (red, green, blue), empty when it has none.
std::vector<double> colourOf(PK_ENTITY_t entity);
// What the kernel said about its last failure to read a file.
std::string lastKernelMessage(int kernelCode);

std::string formatText(const FileFacts& facts);
std::string formatJson(const FileFacts& facts);

}  // namespace inspect
