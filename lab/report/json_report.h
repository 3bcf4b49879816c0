// A run as one JSON document for programs: keys in fixed order, routes and 64-bit numbers as text.
#pragma once
#include <string>

#include "lab/machine/run_report.h"

namespace lab {

std::string FormatJson(const RunReport& report);

}  // namespace lab
