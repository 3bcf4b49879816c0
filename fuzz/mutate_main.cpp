// A plain mutation loop for where libFuzzer is not to be had: receive_path_fuzz CORPUS SECONDS [SEED].
//
// Mutates and joins the files of the corpus for so many seconds. An input about to run stands in crash-input until it
// has passed. The last line is 'N passed, N failed'.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr std::size_t kMostBytes = 4096;
constexpr const char* kCrashFile = "crash-input";

std::vector<Bytes> ReadCorpus(const std::string& folder) {
  std::vector<std::filesystem::path> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) names.push_back(entry.path());
  std::sort(names.begin(), names.end());
  std::vector<Bytes> corpus;
  for (const auto& name : names) {
    std::ifstream file(name, std::ios::binary);
    corpus.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return corpus;
}

class Mutator {
 public:
  Mutator(std::vector<Bytes> corpus, std::uint64_t seed) : corpus_(std::move(corpus)), random_(seed) {}

  Bytes Next() {
    Bytes input = Any();
    if (Below(3) == 0) Join(input, Any());
    for (std::size_t count = 1 + Below(8); count > 0; --count) Change(input);
    if (input.size() > kMostBytes) input.resize(kMostBytes);
    return input;
  }

 private:
  std::size_t Below(std::size_t bound) { return bound == 0 ? 0 : random_() % bound; }
  const Bytes& Any() { return corpus_[Below(corpus_.size())]; }
  // Behind the first byte of the other, which is its seed.
  static void Join(Bytes& input, const Bytes& other) {
    if (other.size() > 1) input.insert(input.end(), other.begin() + 1, other.end());
  }
  void Change(Bytes& input) {
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

  std::vector<Bytes> corpus_;
  std::mt19937_64 random_;
};

void Save(const Bytes& input) {
  std::ofstream(kCrashFile, std::ios::binary)
      .write(reinterpret_cast<const char*>(input.data()), static_cast<std::streamsize>(input.size()));
}

}  // namespace

int main(int argumentCount, char** arguments) {
  if (argumentCount < 3) {
    std::fprintf(stderr, "usage: %s CORPUS SECONDS [SEED]\n", arguments[0]);
    return 2;
  }
  std::vector<Bytes> corpus = ReadCorpus(arguments[1]);
  if (corpus.empty()) {
    std::fprintf(stderr, "%s holds no inputs\n", arguments[1]);
    return 2;
  }
  Mutator mutator(std::move(corpus), argumentCount > 3 ? std::strtoull(arguments[3], nullptr, 0) : 1);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(std::atoi(arguments[2]));
  unsigned long passed = 0;
  for (; std::chrono::steady_clock::now() < end; ++passed) {
    const Bytes input = mutator.Next();
    Save(input);
    LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  std::filesystem::remove(kCrashFile);
  std::printf("%lu passed, 0 failed\n", passed);
  return 0;
}
