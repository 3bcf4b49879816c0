#include "platform/kernel/lock_order.h"

#include <algorithm>
#include <map>

namespace platform {

LockId LockOrder::NewLock(const void* lock, const char* kind, const std::string& task) {
  const LockId id = static_cast<LockId>(locks_.size() + 1);
  locks_.push_back({lock, std::string(kind) + " " + std::to_string(id) + ", initialised by task '" + task + "'"});
  return id;
}

bool LockOrder::SetPlace(const void* lock, std::uint16_t place, bool leaf, const char* name) {
  const auto found = std::find_if(locks_.rbegin(), locks_.rend(), [&](const Lock& one) { return one.address == lock; });
  if (found == locks_.rend()) return false;
  found->place = place;
  found->leaf = leaf;
  found->placeName = name;
  found->name = std::string(name) + " (" + found->name + ")";
  return true;
}

std::string LockOrder::NamesOf(unsigned places) const {
  std::map<unsigned, const char*> names;
  for (const Lock& lock : locks_) {
    if (lock.place != 0 && (places >> (lock.place - 1) & 1) != 0) names[lock.place] = lock.placeName;
  }
  std::string text;
  for (const auto& [place, name] : names) text += (text.empty() ? "the " : " or the ") + std::string(name);
  return text;
}

std::string LockOrder::NoteEdge(LockId held, LockId taken) {
  std::vector<LockId>& after = after_[held];
  for (LockId known : after) {
    if (known == taken) return {};
  }
  std::vector<LockId> path;
  std::unordered_set<LockId> seen;
  if (PathFrom(taken, held, path, seen)) {
    std::string text =
        "takes " + NameOf(taken) + " while it holds " + NameOf(held) + "; the other way round was seen before:";
    for (LockId id : path) text += " " + std::to_string(id);
    return text;
  }
  after.push_back(taken);
  return {};
}

bool LockOrder::PathFrom(LockId from, LockId to, std::vector<LockId>& path, std::unordered_set<LockId>& seen) const {
  if (!seen.insert(from).second) return false;
  path.push_back(from);
  if (from == to) return true;
  if (const auto it = after_.find(from); it != after_.end()) {
    for (LockId next : it->second) {
      if (PathFrom(next, to, path, seen)) return true;
    }
  }
  path.pop_back();
  return false;
}

}  // namespace platform
