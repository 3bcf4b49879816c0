#include "sim/rules/pattern.h"

#include <cstdio>
#include <cstdlib>

namespace sim {

std::string Hex32(std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", value);
  return text;
}

std::string Route(std::uint64_t route) {
  char text[24];
  std::snprintf(text, sizeof text, "%llx", static_cast<unsigned long long>(route));
  return text;
}

std::string FillPattern(std::string_view pattern, const std::function<std::string(std::string_view name)>& argument) {
  std::string text;
  while (!pattern.empty()) {
    const std::size_t open = pattern.find('{'), close = pattern.find('}');
    text += pattern.substr(0, open);
    if (open == std::string_view::npos) break;
    const std::string_view name = pattern.substr(open + 1, close - open - 1);
    const std::string filled = argument(name);
    if (filled.empty()) {
      std::fprintf(stderr, "nothing stands for {%.*s} in a message\n", static_cast<int>(name.size()), name.data());
      std::abort();
    }
    text += filled;
    pattern.remove_prefix(close + 1);
  }
  return text;
}

}  // namespace sim
