// The calling stack as text, for reports only: names where symbols are to be had, never addresses.
#pragma once
#include <string>
#include <vector>

namespace platform {

std::vector<std::string> Backtrace();  // innermost first

}  // namespace platform
