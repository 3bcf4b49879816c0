// Virtual times as a person writes and reads them: "250 ms", "1.5 s", "20 us".
#pragma once
#include <optional>
#include <string>
#include <string_view>

#include "platform/host/time.h"

namespace lab {

// A number with the unit s, ms or us; nothing when it is not one, is negative or does not fit.
std::optional<platform::Time> ParseDuration(std::string_view text);

// Milliseconds with four digits behind the point (the clock's 100 ns), as "12.3456".
std::string FormatMs(platform::Time time);

}  // namespace lab
