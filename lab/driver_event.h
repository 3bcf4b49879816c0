// Events of the driver's tracing facility, unpacked for people. The payload carries texts and numbers, no formatting.
#pragma once
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace lab {

struct DriverEvent {
  std::string operation;  // the function that speaks
  std::string what;
  std::uint32_t line = 0;
  std::vector<std::pair<std::string, std::string>> fields;  // key, value as text
};

// Nothing when the payload is cut short or holds a kind that does not exist.
std::optional<DriverEvent> UnpackDriverEvent(std::span<const std::byte> payload);

// "what key=value key=value".
std::string FormatDriverEvent(const DriverEvent& event);

}  // namespace lab
