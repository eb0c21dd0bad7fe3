// Helpers for the part-file tests: putting files where the test frustrum finds
// them, receiving and transmitting, and what a body looks like from outside
// (counts, volume, name, colour) so that two readings can be compared.
#pragma once

#include "TestKernel.h"

#include <filesystem>
#include <string>
#include <vector>

namespace kerneltest {

// Registers bytes as the transmit file `key`.
void putPartFile(const std::string& key, const std::string& bytes);
std::string partFile(const std::string& key);
bool hasPartFile(const std::string& key);

// Receives `key`; the code, and the parts in *parts.
PK_ERROR_code_t receive(const std::string& key, std::vector<PK_PART_t>* parts,
                        PK_transmit_format_t format = PK_transmit_format_text_c);
PK_ERROR_code_t transmit(const std::vector<PK_PART_t>& parts, const std::string& key,
                         PK_transmit_format_t format = PK_transmit_format_text_c);
std::string lastMessage();

// The bodies of the parts, assemblies opened up (each body once, in order).
std::vector<PK_BODY_t> bodiesOf(const std::vector<PK_PART_t>& parts);

struct BodySummary {
  PK_BODY_type_t type = 0;
  int faces = 0, edges = 0, vertices = 0;
  double volume = 0;
  bool valid = false;
  std::string name;            // SDL/TYSA_NAME, or the Unicode name as UTF-8-ish ASCII
  std::vector<double> colour;  // SDL/TYSA_COLOUR
  int attributes = 0;          // on the body and on its faces, edges, ... and their geometry
};
BodySummary summarise(PK_BODY_t body);

// The census rows of the real files (file name -> column -> value).
struct CensusRow {
  std::string file;
  bool procedural = false;  // any INTERSECTION, BLENDED_EDGE, BLEND_BOUND or PE geometry
  int bodies = 0;
};
std::vector<CensusRow> readCensus(const std::filesystem::path& corpus);

}  // namespace kerneltest
