// Every control packet of one host as text and as bytes.
#include "sim/host/wire_log.h"

#include <cstdio>

namespace sim {

std::string WireEntry::Line() const {
  char prefix[48];
  std::snprintf(prefix, sizeof prefix, "%13.4f %s ", static_cast<double>(when) / platform::kMillisecond,
                up ? "<-" : "->");
  return prefix + text;
}

void WireLog::Add(WireEntry entry) {
  for (const Listener& listener : listeners_) listener(entry);
  if (keep_) entries_.push_back(std::move(entry));
}

std::string WireLog::TakeText() {
  std::string text;
  for (; taken_ < entries_.size(); ++taken_) {
    text += (entries_[taken_].up ? "<- " : "-> ") + entries_[taken_].text + "\n";
  }
  return text;
}

}  // namespace sim
