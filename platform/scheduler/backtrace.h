// The calling stack as text, for reports only: names where symbols are to be had, never addresses.
#pragma once
#include <string>
#include <vector>

namespace platform {

std::vector<std::string> Backtrace();  // innermost first

// The function that the code address lies in; empty where no symbols are to be had.
std::string SymbolAt(const void* code);

}  // namespace platform
