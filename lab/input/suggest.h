// "Did you mean": the known name nearest to a mistyped one.
#pragma once
#include <string>
#include <string_view>
#include <vector>

namespace lab {

// The candidate that differs from `text` in at most a third of its letters (and at least two), or empty text.
std::string Nearest(std::string_view text, const std::vector<std::string>& candidates);

// ` (did you mean "NAME"?)`, or empty text when nothing is near.
std::string Suggestion(std::string_view text, const std::vector<std::string>& candidates);

}  // namespace lab
