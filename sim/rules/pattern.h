// Messages of rules: a pattern names its arguments in braces, "write of {value} to dword {dword}".
#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace sim {

std::string Hex32(std::uint32_t value);  // "0x0000002a"
std::string Route(std::uint64_t route);  // "301"

// Puts the argument's text in the place of each name. A name that `argument` knows no text for ends the program:
// whoever has reported has left it out.
std::string FillPattern(std::string_view pattern, const std::function<std::string(std::string_view name)>& argument);

}  // namespace sim
