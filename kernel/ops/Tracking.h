// Tracking records: what an operation made of the faces, edges and vertices
// of the bodies it read, told from their tags before and after and from the
// operation's history.
#pragma once

#include "ShapeHistory.h"
#include "session/BodyTopology.h"

#include <vector>

namespace meld::kernel {

class TopologyTracker {
 public:
  // The inputs' topologies as they are before the operation. Topologies are
  // immutable, so holding them is holding the state before.
  explicit TopologyTracker(std::vector<BodyTopologyPtr> inputs) : inputs_(std::move(inputs)) {}

  // Fills `out` (its arrays from the kernel's memory, freed by
  // PK_TOPOL_track_r_f) from the history and the topologies of the bodies
  // the operation left. A face, edge or vertex that is still itself under
  // its own tag gives no record; one that went gives a delete; one that
  // became pieces a split; several that became one a merge; several that
  // became several, sharing pieces, a derive. A new one that comes from no
  // old one gives a create, whose originals are the old faces it lies on.
  void report(const ShapeHistory& history, const std::vector<BodyTopologyPtr>& results,
              PK_TOPOL_track_r_t* out) const;

 private:
  std::vector<BodyTopologyPtr> inputs_;
};

}  // namespace meld::kernel
