// What the driver did that no hardware asks for.
#include "sim/host/protocol_errors.h"

#include <algorithm>
#include <cstdio>

namespace sim {

std::string Hex32(std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", value);
  return text;
}

void ProtocolErrors::Report(platform::Time when, std::string text) {
  auto found = std::find_if(list_.begin(), list_.end(), [&](const ProtocolError& error) { return error.text == text; });
  if (found != list_.end()) {
    ++found->count;
    return;
  }
  list_.push_back({when, std::move(text), 1});
}

}  // namespace sim
