// Goal: what the fuzzers have been taught, or have once found, stays mended. Method: every committed input, first as it
// is, then cut short; and a short look of the DROM fuzzer in every run, because its inputs cost little.
#include <gtest/gtest.h>

#include "fuzz/drom.h"
#include "fuzz/mutator.h"
#include "fuzz/peer.h"
#include "fuzz/receive_path.h"

namespace {

using fuzz::Bytes;

// Each input whole in several ways of byte 0, and cut short.
void ExpectCorpusPasses(const char* folder, std::initializer_list<std::uint8_t> ways,
                        std::string (*run)(const Bytes& input)) {
  const auto corpus = fuzz::ReadCorpus(std::string(PROJECT_ROOT "/fuzz/corpus/") + folder);
  ASSERT_GE(corpus.size(), 10u);
  for (const auto& [name, input] : corpus) {
    ASSERT_FALSE(input.empty()) << name;
    for (const std::uint8_t way : ways) {
      Bytes changed = input;
      changed[0] = way;
      EXPECT_EQ(run(changed), "") << name << " with byte 0 " << int{way};
    }
    for (std::size_t length = 0; length < input.size(); length += 1 + input.size() / 8) {
      EXPECT_EQ(run(Bytes(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(length))), "")
          << name << " up to " << length;
    }
    EXPECT_EQ(run(input), "") << name;
  }
}

TEST(ReceivePathFuzz, EveryCommittedInputPassesWholeAndCutShort) {
  ExpectCorpusPasses("receive_path", {0, 1, 2}, [](const Bytes& input) { return fuzz::RunReceivePath(input); });
}

// Parsed, read and enumerated: as they are, and with length and checks put right.
TEST(DromFuzz, EveryCommittedInputPassesWholeAndCutShort) {
  ExpectCorpusPasses("drom", {0x00, 0x05, 0x38, 0x3D, 0x3F}, [](const Bytes& input) { return fuzz::RunDrom(input); });
}

// As a block, and as what a peer says under three interleavings.
TEST(PeerFuzz, EveryCommittedInputPassesWholeAndCutShort) {
  ExpectCorpusPasses("peer", {0, 1, 3, 5}, [](const Bytes& input) { return fuzz::RunPeer(input); });
}

TEST(PeerFuzz, MutationsOfBlocksAreReadTheSameTwice) {
  std::vector<Bytes> inputs;
  for (auto& [name, input] : fuzz::ReadCorpus(PROJECT_ROOT "/fuzz/corpus/peer")) {
    if ((input[0] & 1) == 0) inputs.push_back(std::move(input));
  }
  ASSERT_GE(inputs.size(), 5u);
  fuzz::Mutator mutator(std::move(inputs), 1);
  for (unsigned i = 0; i < 3000; ++i) {
    Bytes input = mutator.Next();
    if (!input.empty()) input[0] &= 0xFE;
    ASSERT_EQ(fuzz::RunPeer(input), "") << "mutation " << i << ": " << testing::PrintToString(input);
  }
}

TEST(DromFuzz, MutationsOfTheCorpusAreTakenAsTheImagesSay) {
  std::vector<Bytes> inputs;
  for (auto& [name, input] : fuzz::ReadCorpus(PROJECT_ROOT "/fuzz/corpus/drom")) inputs.push_back(std::move(input));
  ASSERT_GE(inputs.size(), 10u);
  fuzz::Mutator mutator(std::move(inputs), 1);
  for (unsigned i = 0; i < 3000; ++i) {
    Bytes input = mutator.Next();
    if (!input.empty() && (input[0] & 7) == 7) {
      input[0] ^= 2;  // parsed or read: an enumeration takes a hundred times as long
    }
    ASSERT_EQ(fuzz::RunDrom(input), "") << "mutation " << i << ": " << testing::PrintToString(input);
  }
}

}  // namespace
