// Mutations of a folder of inputs, for where libFuzzer is not to be had and for a short look in the ordinary tests.
#pragma once
#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace fuzz {

using Bytes = std::vector<std::uint8_t>;

// Names and contents of the files of a folder, in name order.
std::vector<std::pair<std::string, Bytes>> ReadCorpus(const std::string& folder);

class Mutator {
 public:
  // `corpus` holds at least one input.
  Mutator(std::vector<Bytes> corpus, std::uint64_t seed) : corpus_(std::move(corpus)), random_(seed) {}
  // One of them, perhaps joined with another, changed in one to eight places.
  Bytes Next();

 private:
  std::size_t Below(std::size_t bound) { return bound == 0 ? 0 : random_() % bound; }
  const Bytes& Any() { return corpus_[Below(corpus_.size())]; }
  void Change(Bytes& input);

  std::vector<Bytes> corpus_;
  std::mt19937_64 random_;
};

}  // namespace fuzz
