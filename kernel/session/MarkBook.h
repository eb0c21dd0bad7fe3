// Every live mark of the three roll-back mechanisms with its journal position.
// The oldest position decides how much of the journal must be kept.
#pragma once

#include "pk.h"

#include <cstdint>
#include <map>
#include <unordered_map>
#include <vector>

namespace meld::kernel {

enum class MarkKind { plain, pmark, ki };

struct MarkInfo {
  MarkKind kind;
  std::uint64_t position;
};

class MarkBook {
 public:
  void add(PK_ENTITY_t tag, MarkKind kind, std::uint64_t position);
  const MarkInfo* find(PK_ENTITY_t tag) const;
  void remove(PK_ENTITY_t tag);
  // Removes and returns the marks made after the position (going back past
  // them makes them unreachable).
  std::vector<PK_ENTITY_t> removeAfter(std::uint64_t position);
  bool empty() const { return marks_.empty(); }
  bool anyOfKind(MarkKind kind) const;
  std::uint64_t oldestPosition() const;
  // Position of the newest mark; the largest value when there is none.
  std::uint64_t newestPosition() const;
  std::vector<PK_ENTITY_t> all() const;

 private:
  std::unordered_map<PK_ENTITY_t, MarkInfo> marks_;
  std::multimap<std::uint64_t, PK_ENTITY_t> byPosition_;
};

}  // namespace meld::kernel
