#include "MarkBook.h"

#include <limits>

namespace meld::kernel {

void MarkBook::add(PK_ENTITY_t tag, MarkKind kind, std::uint64_t position) {
  marks_[tag] = MarkInfo{kind, position};
  byPosition_.emplace(position, tag);
}

const MarkInfo* MarkBook::find(PK_ENTITY_t tag) const {
  auto it = marks_.find(tag);
  return it == marks_.end() ? nullptr : &it->second;
}

void MarkBook::remove(PK_ENTITY_t tag) {
  auto it = marks_.find(tag);
  if (it == marks_.end()) return;
  auto [first, last] = byPosition_.equal_range(it->second.position);
  for (auto p = first; p != last; ++p) {
    if (p->second == tag) {
      byPosition_.erase(p);
      break;
    }
  }
  marks_.erase(it);
}

std::vector<PK_ENTITY_t> MarkBook::removeAfter(std::uint64_t position) {
  std::vector<PK_ENTITY_t> removed;
  for (auto it = byPosition_.upper_bound(position); it != byPosition_.end(); ++it)
    removed.push_back(it->second);
  for (PK_ENTITY_t tag : removed) remove(tag);
  return removed;
}

bool MarkBook::anyOfKind(MarkKind kind) const {
  for (const auto& [tag, info] : marks_)
    if (info.kind == kind) return true;
  return false;
}

std::uint64_t MarkBook::oldestPosition() const {
  return byPosition_.empty() ? std::numeric_limits<std::uint64_t>::max()
                             : byPosition_.begin()->first;
}

std::uint64_t MarkBook::newestPosition() const {
  return byPosition_.empty() ? std::numeric_limits<std::uint64_t>::max()
                             : byPosition_.rbegin()->first;
}

std::vector<PK_ENTITY_t> MarkBook::all() const {
  std::vector<PK_ENTITY_t> tags;
  for (const auto& [position, tag] : byPosition_) tags.push_back(tag);
  return tags;
}

}  // namespace meld::kernel
