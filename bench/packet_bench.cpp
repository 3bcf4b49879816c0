// The packet codec alone: CRC, building for transmission, checking and unpacking what was received. No task, no kernel.
#include <benchmark/benchmark.h>

#include <array>

#include "hostif/control_packet.h"
#include "hostif/crc32c.h"

namespace {

constexpr std::uint32_t kReadAnswerAddress = 0x0400A000;  // router space, five dwords from 0

void Crc(benchmark::State& state) {
  std::array<std::uint8_t, 256> bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 7);
  const auto size = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(Crc32c(bytes.data(), size));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(Crc)->Arg(12)->Arg(64)->Arg(252);

// A packet and the memory that its DMA buffer would be.
struct Packet {
  std::array<std::uint32_t, 64> buffer{};
  USB4_CTL_PKG package{};
  Packet() { package.Buffer = buffer.data(); }
};

void Build(benchmark::State& state) {
  Packet packet;
  std::array<std::uint32_t, 63> words{};
  for (auto _ : state) {
    BuildPacket(&packet.package, words.data(), static_cast<std::uint32_t>(state.range(0)), USB4_PDF_READ);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(Build)->Arg(12)->Arg(64)->Arg(252);

// Unpacking is in place, so each round builds the packet first; subtract Build for the check alone.
void BuildAndUnpack(benchmark::State& state) {
  Packet packet;
  std::array<std::uint32_t, 63> words{kReceivedRouteMark << 22, 0, kReadAnswerAddress};
  const auto bytes = static_cast<std::uint32_t>(state.range(0));
  for (auto _ : state) {
    BuildPacket(&packet.package, words.data(), bytes, USB4_PDF_READ);
    if (!UnpackReceived(&packet.package)) state.SkipWithError("the CRC is wrong");
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BuildAndUnpack)->Arg(12)->Arg(64)->Arg(252);

}  // namespace
