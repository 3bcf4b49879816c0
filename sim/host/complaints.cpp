// What the driver did that no hardware asks for.
#include "sim/host/complaints.h"

#include <algorithm>
#include <cstdio>

#include "sim/rules/pattern.h"

namespace sim {
namespace {

struct ComplaintRule {
  const char* name;
  const char* message;
};

constexpr ComplaintRule kRules[] = {
#define X(enumerator, name, message) {name, message},
    SIM_COMPLAINTS(X)
#undef X
};

std::string Offset(std::uint32_t offset) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%05x", offset);
  return text;
}

// Empty for an argument that was not given.
std::string TextOf(const ComplaintArguments& arguments, std::string_view name) {
  const auto text = [](const auto& number, auto format) { return number ? format(*number) : std::string(); };
  const auto decimal = [](std::uint32_t number) { return std::to_string(number); };
  if (name == "value") return text(arguments.value, Hex32);
  if (name == "bits") return text(arguments.bits, Hex32);
  if (name == "expected") return text(arguments.expected, Hex32);
  if (name == "offset") return text(arguments.offset, Offset);
  if (name == "route") return text(arguments.route, Route);
  if (name == "space") return text(arguments.space, [](Space space) { return std::string(SpaceName(space)); });
  if (name == "dword") return text(arguments.dword, decimal);
  if (name == "hop") return text(arguments.hop, decimal);
  if (name == "index") return text(arguments.index, decimal);
  if (name == "count") return text(arguments.count, decimal);
  if (name == "limit") return text(arguments.limit, decimal);
  return name == "other" ? arguments.other : std::string();
}

ComplaintArguments WithoutValue(ComplaintArguments arguments) {
  arguments.value.reset();
  return arguments;
}

}  // namespace

const char* ComplaintName(Complaint rule) {
  return kRules[static_cast<unsigned>(rule)].name;
}

std::string Fault::Text() const {
  return FillPattern(kRules[static_cast<unsigned>(rule)].message,
                     [this](std::string_view name) { return TextOf(arguments, name); });
}

std::string ProtocolError::Text() const {
  return object + ": " + Fault{rule, arguments}.Text() + " [" + ComplaintName(rule) + "]";
}

void ProtocolErrors::Report(platform::Time when, Complaint rule, std::string object, ComplaintArguments arguments) {
  const auto found = std::find_if(list_.begin(), list_.end(), [&](const ProtocolError& error) {
    return error.rule == rule && error.object == object && WithoutValue(error.arguments) == WithoutValue(arguments);
  });
  if (found != list_.end()) {
    ++found->count;
    return;
  }
  list_.push_back({when, rule, std::move(object), std::move(arguments), 1});
}

}  // namespace sim
