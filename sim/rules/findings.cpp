// Each name that a message may hold, once.
#include "sim/rules/findings.h"

#include "sim/rules/pattern.h"

namespace sim {
namespace {

template <class Number>
std::string Decimal(const std::optional<Number>& number) {
  return number ? std::to_string(*number) : std::string();
}

std::string OrNone(const std::string& text) {
  return text.empty() ? "none" : text;
}

}  // namespace

std::string FillFinding(std::string_view message, const FindingArguments& arguments) {
  return FillPattern(message, [&](std::string_view name) {
    if (name == "router") return OrNone(arguments.router);
    if (name == "adapter") return OrNone(arguments.adapter);
    if (name == "path") return OrNone(arguments.path);
    if (name == "why") return OrNone(arguments.why);
    if (name == "tunnel") return OrNone(arguments.tunnel);
    if (name == "kind") return OrNone(arguments.kind);
    if (name == "held") return OrNone(arguments.held);
    if (name == "used") return OrNone(arguments.used);
    if (name == "route") return arguments.route ? Route(*arguments.route) : std::string();
    if (name == "hop") return Decimal(arguments.hop);
    if (name == "found") return Decimal(arguments.found);
    return name == "expected" ? Decimal(arguments.expected) : std::string();
  });
}

}  // namespace sim
