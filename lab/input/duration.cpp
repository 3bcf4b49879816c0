// Text to virtual time and back, without floating point: every time of the clock has exactly one text.
#include "lab/input/duration.h"

#include <fmt/format.h>

#include <cctype>
#include <cstdint>

namespace lab {
namespace {

constexpr std::int64_t kLargestWhole = 1'000'000'000;

}  // namespace

std::optional<platform::Time> ParseDuration(std::string_view text) {
  std::size_t at = 0;
  std::int64_t whole = 0;
  std::int64_t scale = 1;  // ten to the number of digits behind the point
  bool digits = false, point = false;
  for (; at < text.size() && (std::isdigit(static_cast<unsigned char>(text[at])) || (text[at] == '.' && !point));
       ++at) {
    if (text[at] == '.') {
      point = true;
      continue;
    }
    digits = true;
    whole = whole * 10 + (text[at] - '0');
    if (point) scale *= 10;
    if (whole > kLargestWhole * scale || scale > 10'000'000) return std::nullopt;
  }
  while (at < text.size() && text[at] == ' ') ++at;
  const std::string_view unit = text.substr(at);
  platform::Time unitTime = 0;
  if (unit == "s") unitTime = platform::kSecond;
  if (unit == "ms") unitTime = platform::kMillisecond;
  if (unit == "us") unitTime = platform::kMicrosecond;
  if (!digits || unitTime == 0) return std::nullopt;
  return whole / scale * unitTime + whole % scale * unitTime / scale;
}

std::string FormatMs(platform::Time time) {
  return fmt::format("{}.{:04}", time / platform::kMillisecond, time % platform::kMillisecond);
}

}  // namespace lab
