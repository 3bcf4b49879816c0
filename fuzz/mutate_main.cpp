// A plain mutation loop for where libFuzzer is not to be had: PROGRAM CORPUS SECONDS [SEED].
//
// An input about to run stands in crash-input until it has passed. The last line is 'N passed, N failed'.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "fuzz/mutator.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr const char* kCrashFile = "crash-input";

void Save(const fuzz::Bytes& input) {
  std::ofstream(kCrashFile, std::ios::binary)
      .write(reinterpret_cast<const char*>(input.data()), static_cast<std::streamsize>(input.size()));
}

}  // namespace

int main(int argumentCount, char** arguments) {
  if (argumentCount < 3) {
    std::fprintf(stderr, "usage: %s CORPUS SECONDS [SEED]\n", arguments[0]);
    return 2;
  }
  std::vector<fuzz::Bytes> corpus;
  for (auto& [name, input] : fuzz::ReadCorpus(arguments[1])) corpus.push_back(std::move(input));
  if (corpus.empty()) {
    std::fprintf(stderr, "%s holds no inputs\n", arguments[1]);
    return 2;
  }
  fuzz::Mutator mutator(std::move(corpus), argumentCount > 3 ? std::strtoull(arguments[3], nullptr, 0) : 1);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(std::atoi(arguments[2]));
  unsigned long passed = 0;
  for (; std::chrono::steady_clock::now() < end; ++passed) {
    const fuzz::Bytes input = mutator.Next();
    Save(input);
    LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  std::filesystem::remove(kCrashFile);
  std::printf("%lu passed, 0 failed\n", passed);
  return 0;
}
