// Goal: what the fuzzer has been taught, or has once found, stays mended. Method: every committed input, first as it
// is, then cut short.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/receive_path.h"

namespace {

std::vector<std::filesystem::path> CommittedInputs() {
  std::vector<std::filesystem::path> names;
  for (const auto& entry : std::filesystem::directory_iterator(PROJECT_ROOT "/fuzz/corpus/receive"))
    names.push_back(entry.path());
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::uint8_t> Read(const std::filesystem::path& name) {
  std::ifstream file(name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

TEST(ReceivePathFuzz, EveryCommittedInputPassesInThreeInterleavings) {
  const auto names = CommittedInputs();
  ASSERT_GE(names.size(), 10u);
  for (const auto& name : names) {
    std::vector<std::uint8_t> input = Read(name);
    ASSERT_FALSE(input.empty()) << name;
    for (std::uint8_t seed = 0; seed < 3; ++seed) {
      input[0] = seed;
      EXPECT_EQ(fuzz::RunReceivePath(input), "") << name << " seed " << int{seed};
    }
  }
}

TEST(ReceivePathFuzz, InputsCutShortAreInputsToo) {
  for (const auto& name : CommittedInputs()) {
    const std::vector<std::uint8_t> input = Read(name);
    for (std::size_t length = 0; length < input.size(); length += 1 + input.size() / 8)
      EXPECT_EQ(fuzz::RunReceivePath({input.data(), length}), "") << name << " up to " << length;
  }
}

}  // namespace
