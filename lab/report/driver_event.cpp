// Packed and little-endian: operation, what, line, count, then key, kind and value of each field.
#include "lab/report/driver_event.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "lab/report/value_names.h"

namespace lab {
namespace {

enum class FieldKind : std::uint8_t {
  Unsigned = 1,
  Signed = 2,
  Text = 3,
  Route = 4,
  Adapter = 5,
  Hex = 6,
  Status = 7,
  Result = 8,
  Word = 9,
  Duration = 10
};

std::string NumberText(FieldKind kind, std::uint64_t number) {
  switch (kind) {
    case FieldKind::Route:
      return fmt::format("{:x}", number);
    case FieldKind::Hex:
      return fmt::format("0x{:x}", number);
    case FieldKind::Status:
      return StatusText(static_cast<std::uint32_t>(number));
    case FieldKind::Result:
      return ResultText(static_cast<std::int64_t>(number));
    case FieldKind::Duration:
      return fmt::format("{} ms", number);
    case FieldKind::Signed:
      return fmt::format("{}", static_cast<std::int64_t>(number));
    default:
      return fmt::format("{}", number);
  }
}

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

  std::optional<EventField> TakeField() {
    EventField field;
    const auto key = TakeText();
    const auto kind = key ? Take<FieldKind>() : std::nullopt;
    if (!kind || *kind < FieldKind::Unsigned || *kind > FieldKind::Duration) return std::nullopt;
    field.key = *key;
    if (*kind == FieldKind::Text || *kind == FieldKind::Word) {
      const auto text = TakeText();
      if (text) field.text = *text;
      return text ? std::optional(field) : std::nullopt;
    }
    if (*kind == FieldKind::Adapter) {
      const auto router = TakeText();
      const auto adapter = router ? Take<std::uint8_t>() : std::nullopt;
      if (!adapter) return std::nullopt;
      field.router = *router;
      field.number = *adapter;
      field.text = fmt::format("{}:{}", *router, *adapter);
      return field;
    }
    field.number = Take<std::uint64_t>();
    if (!field.number) return std::nullopt;
    field.text = NumberText(*kind, *field.number);
    return field;
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
    auto field = reader.TakeField();
    if (!field) return std::nullopt;
    event.fields.push_back(std::move(*field));
  }
  return event;
}

const EventField* FindField(const DriverEvent& event, std::string_view key) {
  const auto found =
      std::find_if(event.fields.begin(), event.fields.end(), [&](const EventField& field) { return field.key == key; });
  return found == event.fields.end() ? nullptr : &*found;
}

std::optional<std::string> FieldText(const DriverEvent& event, std::string_view key) {
  const EventField* field = FindField(event, key);
  return field == nullptr ? std::nullopt : std::optional(field->text);
}

std::string FormatDriverEvent(const DriverEvent& event) {
  std::string text = event.what;
  for (const EventField& field : event.fields) text += " " + field.key + "=" + field.text;
  return text;
}

}  // namespace lab
