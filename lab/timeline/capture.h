// The control rings of a machine as a capture file: every packet that crosses, every event as a comment.
#pragma once
#include <string>

#include "lab/machine/machine.h"
#include "lab/machine/run_report.h"
#include "lab/timeline/pcapng.h"

namespace lab {

class Capture {
 public:
  Capture(const std::string& file, Machine& machine);
  void Comment(const LiveEvent& event);
  bool Good() const { return writer_.Good(); }
  [[nodiscard]] bool Close() { return writer_.Close(); }

 private:
  PcapngWriter writer_;
  std::vector<std::string> names_;  // of the domains, by interface
};

}  // namespace lab
