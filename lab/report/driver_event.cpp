// Packed and little-endian: operation, what, line, count, then key, kind and value of each field.
#include "lab/report/driver_event.h"

#include <cstdint>
#include <cstring>

namespace lab {
namespace {

enum class FieldKind : std::uint8_t { Unsigned = 1, Signed = 2, Text = 3 };

class PayloadReader {
 public:
  explicit PayloadReader(std::span<const std::byte> payload) : rest_(payload) {}

  template <class Number>
  std::optional<Number> Take() {
    Number number{};
    if (rest_.size() < sizeof(number)) return std::nullopt;
    std::memcpy(&number, rest_.data(), sizeof(number));
    rest_ = rest_.subspan(sizeof(number));
    return number;
  }

  std::optional<std::string> TakeText() {
    const auto* start = reinterpret_cast<const char*>(rest_.data());
    const void* end = rest_.empty() ? nullptr : std::memchr(start, 0, rest_.size());
    if (end == nullptr) return std::nullopt;
    std::string text(start, static_cast<const char*>(end));
    rest_ = rest_.subspan(text.size() + 1);
    return text;
  }

  std::optional<std::string> TakeValue() {
    const auto kind = Take<std::uint8_t>();
    if (!kind) return std::nullopt;
    if (*kind == static_cast<std::uint8_t>(FieldKind::Text)) return TakeText();
    if (*kind == static_cast<std::uint8_t>(FieldKind::Unsigned)) {
      const auto number = Take<std::uint64_t>();
      return number ? std::optional(std::to_string(*number)) : std::nullopt;
    }
    if (*kind == static_cast<std::uint8_t>(FieldKind::Signed)) {
      const auto number = Take<std::int64_t>();
      return number ? std::optional(std::to_string(*number)) : std::nullopt;
    }
    return std::nullopt;
  }

 private:
  std::span<const std::byte> rest_;
};

}  // namespace

std::optional<DriverEvent> UnpackDriverEvent(std::span<const std::byte> payload) {
  PayloadReader reader(payload);
  DriverEvent event;
  const auto operation = reader.TakeText();
  const auto what = reader.TakeText();
  const auto line = reader.Take<std::uint32_t>();
  const auto count = reader.Take<std::uint8_t>();
  if (!operation || !what || !line || !count) return std::nullopt;
  event.operation = *operation;
  event.what = *what;
  event.line = *line;
  for (unsigned i = 0; i < *count; ++i) {
    const auto key = reader.TakeText();
    const auto value = reader.TakeValue();
    if (!key || !value) return std::nullopt;
    event.fields.emplace_back(*key, *value);
  }
  return event;
}

std::optional<std::string> FieldText(const DriverEvent& event, std::string_view key) {
  for (const auto& [name, text] : event.fields)
    if (name == key) return text;
  return std::nullopt;
}

std::string FormatDriverEvent(const DriverEvent& event) {
  std::string text = event.what;
  for (const auto& [key, value] : event.fields) text += " " + key + "=" + value;
  return text;
}

}  // namespace lab
