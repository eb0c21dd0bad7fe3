// xt-inspect's two outputs: lines for people, JSON for scripts.
#include <cstdio>
#include <string>

#include "InspectFacts.h"

namespace inspect {
namespace {

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.10g", value);
  return text;
}

std::string jsonString(const std::string& text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += char(c);
    } else if (c < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", c);
      out += escape;
    } else {
      out += char(c);
    }
  }
  return out + "\"";
}

std::string jsonNumbers(const double* values, std::size_t n) {
  std::string out = "[";
  for (std::size_t k = 0; k < n; ++k) out += (k ? ", " : "") + number(values[k]);
  return out + "]";
}

std::string jsonBody(const BodyFacts& b) {
  std::string out = "{\"part\": " + std::to_string(b.part) + ", \"tag\": " + std::to_string(b.tag) +
                    ", \"type\": " + jsonString(b.type) + ", \"regions\": " + std::to_string(b.regions) +
                    ", \"shells\": " + std::to_string(b.shells) + ", \"faces\": " +
                    std::to_string(b.faces) + ", \"edges\": " + std::to_string(b.edges) +
                    ", \"vertices\": " + std::to_string(b.vertices);
  out += ", \"volume\": " + (b.massKnown ? number(b.volume) : "null");
  out += ", \"area\": " + (b.massKnown ? number(b.area) : "null");
  out += ", \"box\": " + (b.boxKnown ? jsonNumbers(b.box, 6) : "null");
  out += ", \"valid\": " + std::string(b.valid ? "true" : "false");
  out += ", \"faults\": " + std::to_string(b.faults);
  if (!b.firstFault.empty()) out += ", \"first_fault\": " + jsonString(b.firstFault);
  out += ", \"name\": " + (b.name.empty() ? "null" : jsonString(b.name));
  out += ", \"colour\": " + (b.colour.empty() ? "null" : jsonNumbers(b.colour.data(), b.colour.size()));
  out += ", \"problems\": [";
  for (std::size_t k = 0; k < b.problems.size(); ++k) out += (k ? ", " : "") + jsonString(b.problems[k]);
  return out + "]}";
}

std::string textBody(const BodyFacts& b) {
  std::string out = "  body " + std::to_string(b.tag) + " (part " + std::to_string(b.part) + ")";
  if (!b.name.empty()) out += " \"" + b.name + "\"";
  out += ": " + b.type + ", " + (b.valid ? "valid" : "INVALID") + "\n";
  out += "    regions " + std::to_string(b.regions) + ", shells " + std::to_string(b.shells) +
         ", faces " + std::to_string(b.faces) + ", edges " + std::to_string(b.edges) +
         ", vertices " + std::to_string(b.vertices) + "\n";
  if (b.massKnown)
    out += "    volume " + number(b.volume * 1e9) + " mm3, area " + number(b.area * 1e6) + " mm2\n";
  if (b.boxKnown) {
    out += "    box (mm)";
    for (double c : b.box) out += " " + number(c * 1e3);
    out += "\n";
  }
  if (!b.colour.empty()) out += "    colour " + jsonNumbers(b.colour.data(), b.colour.size()) + "\n";
  if (b.faults) out += "    faults " + std::to_string(b.faults) + ", first: " + b.firstFault + "\n";
  for (const std::string& p : b.problems) out += "    ! " + p + "\n";
  return out;
}

}  // namespace

std::string formatJson(const FileFacts& f) {
  std::string out = "{\"file\": " + jsonString(f.path) + ", \"loaded\": " + (f.loaded ? "true" : "false");
  if (!f.loaded) {
    return out + ", \"kernel_code\": " + std::to_string(f.kernelCode) + ", \"message\": " +
           jsonString(f.message) + "}\n";
  }
  out += ", \"units\": \"m\", \"parts\": [";
  for (std::size_t k = 0; k < f.parts.size(); ++k) {
    const PartFacts& p = f.parts[k];
    out += std::string(k ? ", " : "") + "{\"tag\": " + std::to_string(p.tag) + ", \"class\": " +
           jsonString(p.klass) + ", \"name\": " + (p.name.empty() ? "null" : jsonString(p.name)) + "}";
  }
  out += "], \"bodies\": [";
  for (std::size_t k = 0; k < f.bodies.size(); ++k) out += (k ? ", " : "") + jsonBody(f.bodies[k]);
  return out + "]}\n";
}

std::string formatText(const FileFacts& f) {
  if (!f.loaded)
    return f.path + ": cannot load (kernel code " + std::to_string(f.kernelCode) + "): " + f.message + "\n";
  double volume = 0;
  for (const BodyFacts& b : f.bodies) volume += b.volume;
  std::string out = f.path + ": " + std::to_string(f.parts.size()) + " part(s), " +
                    std::to_string(f.bodies.size()) + " body(ies), total volume " +
                    number(volume * 1e9) + " mm3\n";
  for (std::size_t k = 0; k < f.parts.size(); ++k) {
    out += "  part " + std::to_string(k) + ": " + f.parts[k].klass + " " + std::to_string(f.parts[k].tag);
    if (!f.parts[k].name.empty()) out += " \"" + f.parts[k].name + "\"";
    out += "\n";
  }
  for (const BodyFacts& b : f.bodies) out += textBody(b);
  return out;
}

}  // namespace inspect
