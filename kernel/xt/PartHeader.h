// The text header in front of every part file: two preamble lines, PART1/2/3
// keyword sections and the `**END_OF_HEADER` trailer.
#pragma once

#include <string>
#include <string_view>

#include "NodeGraph.h"

namespace meld::xt {

// When bytes start with a header, fills `header` and returns the offset of the first
// byte after it; otherwise returns 0 and leaves `header.present` false.
size_t parsePartHeader(std::string_view bytes, PartHeader& header);

// Writes a header with the given sections, each keyword escaped and the lines
// kept to 80 characters.
std::string writePartHeader(const PartHeader& header);

}  // namespace meld::xt
