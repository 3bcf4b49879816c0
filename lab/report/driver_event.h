// Events of the driver's tracing facility, unpacked for people. The payload carries texts and numbers, no formatting.
#pragma once
#include <charconv>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
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

// None when there is no such field.
std::optional<std::string> FieldText(const DriverEvent& event, std::string_view key);
// The whole text as a number; none when it is no number of that type.
template <class Number>
std::optional<Number> NumberOf(std::string_view text, int base = 10) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}
template <class Number>
std::optional<Number> FieldNumber(const DriverEvent& event, std::string_view key) {
  const auto text = FieldText(event, key);
  return text ? NumberOf<Number>(*text) : std::nullopt;
}

// "what key=value key=value".
std::string FormatDriverEvent(const DriverEvent& event);

}  // namespace lab
