// Goal: a chain with every kind of tunnel survives whatever happens at whatever packet of its start: it ends as if
// nothing had happened, or with nothing left. Method: the same machine started again and again, each time with the hub
// pulled, the power taken or the device gone just before the n-th control packet. Every 13th packet; the long campaign
// (EVERY_PACKET=1 in the environment) takes each of the first 500.
#include <cstdlib>

#include "tests/support/world.h"

namespace {

using platform::kSecond;
using tests::World;

constexpr std::uint64_t kPackets = 500;

std::uint64_t Stride() {
  return std::getenv("EVERY_PACKET") != nullptr ? 1 : 13;
}

tests::WorldOptions WithTunnels() {
  tests::WorldOptions options;
  options.registry = {{"USB3Tunnel\\USB3TunnelSupported", 1}, {"PCIETunnel\\PCIETunnelSupported", 1}};
  return options;
}

// Host, hub with a display, dock behind the hub.
class Chain : public World {
 public:
  Chain() : World("H1:1 - D1:1, D1:3 - T3:1", WithTunnels()) { fabric().PlugDisplay("D1:13"); }
};

const char* const kWholeTunnels =
    "USB3 0:4 -> 1:16\n"
    "PCIe 0:3 -> 1:9\n"
    "PCIe 1:10 -> 301:8\n"
    "DP 0:5 -> 1:13\n";

// In any order: a tunnel that was rebuilt stands behind those that were not.
std::string Sorted(const std::string& lines) {
  std::vector<std::string> sorted;
  for (std::size_t begin = 0, end; (end = lines.find('\n', begin)) != std::string::npos; begin = end + 1) {
    sorted.push_back(lines.substr(begin, end - begin));
  }
  std::sort(sorted.begin(), sorted.end());
  std::string text;
  for (const std::string& line : sorted) text += line + "\n";
  return text;
}

void ExpectWhole(World& world, const char* what, std::uint64_t n) {
  world.Quiet(60 * kSecond);
  EXPECT_EQ(Sorted(world.Tunnels()), Sorted(kWholeTunnels)) << what << " at packet " << n;
}

TEST(EveryPacket, TheHubIsPulledAndPluggedASecondLater) {
  for (std::uint64_t n = 1; n <= kPackets; n += Stride()) {
    Chain world;
    world.AtPacket(n, [&world] {
      world.fabric().Unplug("D1");
      world.At(kSecond, [&world] { world.fabric().Plug("H1:1", "D1:1"); });
    });
    world.Start();
    world.Pass(2 * kSecond);
    ExpectWhole(world, "hub pulled", n);
    if (testing::Test::HasFailure()) return;
  }
}

TEST(EveryPacket, ThePowerGoesDown) {
  for (std::uint64_t n = 1; n <= kPackets; n += Stride()) {
    Chain world;
    world.AtPacket(n, [&world] { world.kernel().SystemSleepAsync(platform::SystemPowerAction::Sleep); });
    world.Start();
    world.Pass(2 * kSecond);
    world.Quiet(60 * kSecond);
    world.Resume();
    ExpectWhole(world, "power-down", n);
    if (testing::Test::HasFailure()) return;
  }
}

TEST(EveryPacket, TheDeviceIsGone) {
  for (std::uint64_t n = 1; n <= kPackets; n += Stride()) {
    Chain world;
    world.AtPacket(n, [&world] { world.kernel().SurpriseRemoveAsync(world.machine().device()); });
    world.Start();
    world.Pass(5 * kSecond);
    EXPECT_NE(world.kernel().State(world.machine().device()), platform::PnpState::Started) << "gone at packet " << n;
    world.Finish();
    if (testing::Test::HasFailure()) {
      ADD_FAILURE() << "gone at packet " << n;
      return;
    }
  }
}

}  // namespace
