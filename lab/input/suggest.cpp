// Edit distance over short names; runs only when an input was wrong.
#include "lab/input/suggest.h"

#include <algorithm>
#include <cctype>
#include <numeric>

namespace lab {
namespace {

char Lower(char c) {
  return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

std::size_t Distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t changed = diagonal + (Lower(a[i - 1]) == Lower(b[j - 1]) ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, changed});
    }
  }
  return row[b.size()];
}

}  // namespace

std::string Nearest(std::string_view text, const std::vector<std::string>& candidates) {
  std::string best;
  std::size_t bestDistance = std::max<std::size_t>(2, text.size() / 3) + 1;
  for (const std::string& candidate : candidates) {
    const std::size_t distance = Distance(text, candidate);
    if (distance < bestDistance && distance < candidate.size()) {
      best = candidate;
      bestDistance = distance;
    }
  }
  return best;
}

std::string Suggestion(std::string_view text, const std::vector<std::string>& candidates) {
  const std::string nearest = Nearest(text, candidates);
  return nearest.empty() ? "" : " (did you mean \"" + nearest + "\"?)";
}

}  // namespace lab
