// Events of the driver's tracing facility, unpacked for people. The payload carries texts and numbers, no formatting.
#pragma once
#include <charconv>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace lab {

struct EventField {
  std::string key;
  std::string text;                     // as a person reads it: routes in hexadecimal, statuses with their names
  std::optional<std::uint64_t> number;  // of every kind but texts and words; signed ones as two's complement
  std::string router;                   // of an adapter: its router's name; the number is the adapter's
};

struct DriverEvent {
  std::string operation;  // the public operation that speaks
  std::string what;
  std::uint32_t line = 0;
  std::vector<EventField> fields;
};

// Nothing when the payload is cut short or holds a kind that does not exist.
std::optional<DriverEvent> UnpackDriverEvent(std::span<const std::byte> payload);

// Null when there is no such field.
const EventField* FindField(const DriverEvent& event, std::string_view key);
// None when there is no such field.
std::optional<std::string> FieldText(const DriverEvent& event, std::string_view key);
// The whole text as a number; none when it is no number of that type.
template <class Number>
std::optional<Number> NumberOf(std::string_view text, int base = 10) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}
// None also when the field is no number, or none of that type.
template <class Number>
std::optional<Number> FieldNumber(const DriverEvent& event, std::string_view key) {
  const EventField* field = FindField(event, key);
  if (field == nullptr || !field->number) return std::nullopt;
  if constexpr (std::is_signed_v<Number>) {
    const auto number = static_cast<std::int64_t>(*field->number);
    return std::in_range<Number>(number) ? std::optional(static_cast<Number>(number)) : std::nullopt;
  } else {
    return std::in_range<Number>(*field->number) ? std::optional(static_cast<Number>(*field->number)) : std::nullopt;
  }
}

// "what key=value key=value".
std::string FormatDriverEvent(const DriverEvent& event);

}  // namespace lab
