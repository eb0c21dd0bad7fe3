// Small solid parts built from scratch as XT node graphs: axis-aligned blocks with
// full topology and geometry, one body per block. The repository's sample files are
// written from these graphs, so that every shipped sample comes from our own code.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "NodeGraph.h"

namespace meld::xt {

using Vec3 = std::array<double, 3>;

// An axis-aligned solid block: its lowest corner and its edge lengths, in metres.
struct Block {
  Vec3 corner{};
  Vec3 size{};
};

// One solid body per block. A single block is rooted at its BODY; several blocks are
// several parts of one file, rooted at a PART_XMT_BLOCK listing the bodies, as real
// writers transmit a multi-body part. Throws std::invalid_argument on an empty list
// or a block whose size is not positive.
Graph buildBlockPart(const std::vector<Block>& blocks);

// One file of the shipped sample set.
struct SampleFile {
  std::string name;  // file name, e.g. "block.x_t"
  std::vector<Block> blocks;
  Format format = Format::Text;
};

// The sample set that `xt-make-samples` writes and the tests compare against samples/.
const std::vector<SampleFile>& sampleSet();

// The bytes of one sample file, header included, exactly as shipped.
std::string encodeSample(const SampleFile& sample);

}  // namespace meld::xt
