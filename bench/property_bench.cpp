// Property blocks: formatting a tree and reading a block, of this host's 60 words and of the 500 that are the most.
#include <benchmark/benchmark.h>

#include <functional>
#include <vector>

#include "include/property.h"
#include "lab/machine/machine.h"
#include "xdomain/property_block.h"
#include "xdomain/property_tree.h"

namespace {

// Adds entries until the block has `words` words: a text of 20 characters and an immediate in turn, in directories of
// ten.
USB4_PROPERTY_DIR* TreeOf(std::uint32_t words) {
  constexpr std::uint8_t kUuid[kPropertyUuidBytes] = {1};
  USB4_PROPERTY_DIR* root = KivUsb4PropertyCreateDir(nullptr);
  USB4_PROPERTY_DIR* into = root;
  const auto size = [root] { return static_cast<std::uint32_t>(KivUsb4PropertyFormat(root, nullptr, 0)); };
  for (unsigned entry = 0; size() + 4 <= words; ++entry) {
    bool added = false;
    if (entry % 10 == 9 && size() + 9 <= words) {
      into = KivUsb4PropertyCreateDir(kUuid);
      added = KivUsb4PropertyAddDir(root, "more", into) == kKivOk;
    } else if (entry % 2 == 0 && size() + 10 <= words) {
      added = KivUsb4PropertyAddText(into, "vendorid", "Kiverra Systems Inc.") == kKivOk;
    } else {
      added = KivUsb4PropertyAddImmediate(into, "deviceid", entry) == kKivOk;
    }
    if (!added) break;
  }
  return root;
}

// With a kernel whose pool the trees take.
void InKernel(const std::function<void()>& body) {
  lab::Machine machine{lab::MachineConfig{}};
  machine.Start();
  machine.InDriver({}, [&body](DEVICE_EXTENSION& context) {
    static_cast<void>(context);
    body();
  });
}

void FormatBlock(benchmark::State& state) {
  InKernel([&state] {
    USB4_PROPERTY_DIR* tree = TreeOf(static_cast<std::uint32_t>(state.range(0)));
    std::vector<std::uint32_t> block(static_cast<std::size_t>(KivUsb4PropertyFormat(tree, nullptr, 0)));
    for (auto _ : state) {
      benchmark::DoNotOptimize(KivUsb4PropertyFormat(tree, block.data(), static_cast<std::uint32_t>(block.size())));
      benchmark::ClobberMemory();
    }
    KivUsb4PropertyFreeDir(tree);
  });
}
BENCHMARK(FormatBlock)->Arg(60)->Arg(500);

// With the tree's memory, which the pool gives and takes.
void ParseBlock(benchmark::State& state) {
  InKernel([&state] {
    USB4_PROPERTY_DIR* tree = TreeOf(static_cast<std::uint32_t>(state.range(0)));
    std::vector<std::uint32_t> block(static_cast<std::size_t>(KivUsb4PropertyFormat(tree, nullptr, 0)));
    if (KivUsb4PropertyFormat(tree, block.data(), static_cast<std::uint32_t>(block.size())) != kKivOk) {
      state.SkipWithError("not formatted");
    }
    KivUsb4PropertyFreeDir(tree);
    for (auto _ : state) {
      KivUsb4PropertyFreeDir(KivUsb4PropertyParseDir(block.data(), static_cast<std::uint32_t>(block.size())));
    }
  });
}
BENCHMARK(ParseBlock)->Arg(60)->Arg(500);

}  // namespace
