// Bytes come, go and change.
#include "fuzz/mutator.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace fuzz {
namespace {

constexpr std::size_t kMostBytes = 4096;

// Behind the first byte of the other, which says how the rest is meant.
void Join(Bytes& input, const Bytes& other) {
  if (other.size() > 1) input.insert(input.end(), other.begin() + 1, other.end());
}

}  // namespace

std::vector<std::pair<std::string, Bytes>> ReadCorpus(const std::string& folder) {
  std::vector<std::pair<std::string, Bytes>> corpus;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    std::ifstream file(entry.path(), std::ios::binary);
    corpus.emplace_back(entry.path().filename(), Bytes(std::istreambuf_iterator<char>(file), {}));
  }
  std::sort(corpus.begin(), corpus.end());
  return corpus;
}

Bytes Mutator::Next() {
  Bytes input = Any();
  if (Below(3) == 0) Join(input, Any());
  for (std::size_t count = 1 + Below(8); count > 0; --count) Change(input);
  if (input.size() > kMostBytes) input.resize(kMostBytes);
  return input;
}

void Mutator::Change(Bytes& input) {
  const auto at = static_cast<std::ptrdiff_t>(Below(input.size() + 1));
  const auto byte = static_cast<std::uint8_t>(random_());
  switch (Below(4)) {
    case 0:
      input.insert(input.begin() + at, byte);
      break;
    case 1:
      if (at < std::ssize(input)) input.erase(input.begin() + at);
      break;
    case 2:
      if (at < std::ssize(input)) input[static_cast<std::size_t>(at)] = byte;
      break;
    default:
      if (at < std::ssize(input)) input[static_cast<std::size_t>(at)] ^= static_cast<std::uint8_t>(1u << Below(8));
      break;
  }
}

}  // namespace fuzz
