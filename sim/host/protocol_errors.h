// What the driver did that no hardware asks for: reserved bits, unknown registers, wrong lengths. The tool prints the
// list and fails on it. Each kind of error is kept once per place, with a count, so that a loop does not bury the first
// mistake.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "platform/host/time.h"

namespace sim {

struct ProtocolError {
  platform::Time when = 0;  // of the first occurrence
  std::string text;         // one line; equal texts are one entry
  std::uint64_t count = 1;
};

// A register value as such texts show it: "0x0000001f".
std::string Hex32(std::uint32_t value);

class ProtocolErrors {
 public:
  void Report(platform::Time when, std::string text);
  const std::vector<ProtocolError>& list() const { return list_; }
  bool empty() const { return list_.empty(); }
  void Clear() { list_.clear(); }

 private:
  std::vector<ProtocolError> list_;
};

}  // namespace sim
