#include "platform/kernel/lock_order.h"

namespace platform {

LockId LockOrder::NewLock(const char* kind, const std::string& task) {
  const LockId id = static_cast<LockId>(names_.size() + 1);
  names_.push_back(std::string(kind) + " " + std::to_string(id) + ", initialised by task '" + task + "'");
  return id;
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
        "takes " + names_[taken - 1] + " while it holds " + names_[held - 1] + "; the other way round was seen before:";
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
