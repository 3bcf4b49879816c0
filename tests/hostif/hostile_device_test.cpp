// Goal: a device that lies, repeats, invents and interrupts at will costs the driver at most the access in progress:
// nothing is read or written out of bounds, no buffer is lost, no request completed twice. Method: packets, descriptors
// and interrupts of the device's own making on a started host, under the sanitizers and the verifier; a plain access
// afterwards shows that the channel lives.
#include <gtest/gtest.h>

#include "hostif/config_access.h"
#include "tests/support/step_log.h"

namespace {

using platform::kMicrosecond;
using platform::kMillisecond;
using sim::ControlPacket;
using sim::ControlWire;
using sim::RawPacket;
using tests::Count;
using tests::ReadFirstWord;
using tests::StepLog;
using tests::World;

// A read of the host router that runs beside what the test does.
class Reader {
 public:
  Reader(World& world, std::uint32_t offset, std::uint32_t length) : world_(world) {
    USB4_CTL* channel = world.InDriver([](USB4_DOMAIN& domain) { return domain.ControlChannel; });
    world.simulation().Spawn(&world.kernel(), "reader", [this, channel, offset, length] {
      result = Usb4CfgReadRaw(channel, words.data(), {0, 0, {USB4_CFG_SPACE_ROUTER, offset, length}}, 200);
      ended = true;
    });
  }
  void Wait() {
    world_.simulation().RunUntil([this] { return ended; }, world_.simulation().Now() + 2 * platform::kSecond);
    EXPECT_TRUE(ended);
  }

  USB4_CFG_RESULT result{};
  std::vector<std::uint32_t> words = std::vector<std::uint32_t>(64, 0x55AA55AA);
  bool ended = false;

 private:
  World& world_;
};

WORLD_TEST(HostileDevice, EverySizeThatADescriptorCanName) {
  World world;
  world.Start();
  world.Quiet();
  const std::uint32_t step = tests::CurrentSeed() ? 61 : 1;
  for (std::uint32_t size = 0; size <= 4095; size += step) {
    RawPacket packet = ControlWire::Raw({sim::Pdf::Read, {0x80000000, 0, 0x04002000, 1}});
    packet.forgery.size = size;
    packet.forgery.statusBits = size & 0xFF;
    world.wire().Inject(packet);
    world.Pass(200 * kMicrosecond);
  }
  EXPECT_EQ(ReadFirstWord(world), 0);
  EXPECT_EQ(world.hardware().LostFrames(), 0u) << "a buffer was posted for each packet";
}

// The right answer cut off after each byte, while the request waits for it; 20 bytes and a CRC would be whole.
WORLD_TEST(HostileDevice, EveryTruncationOfAnAnswer) {
  for (std::size_t bytes = 0; bytes <= 20; ++bytes) {
    World world;
    world.Start();
    world.Quiet();
    world.wire().ReplaceAnswer(1, [bytes](const ControlPacket& answer) {
      RawPacket packet = ControlWire::Raw(answer);
      packet.bytes.resize(bytes, 0xEE);
      return std::optional(packet);
    });
    Reader reader(world, 0, 2);
    reader.Wait();
    EXPECT_EQ(reader.result.Err, 0) << bytes << " bytes: asked again and answered";
    EXPECT_EQ(reader.words[2], 0x55AA55AAu);
    EXPECT_EQ(Count(world.Wire(), "-> READ route=0 adapter=0 space=router offset=0x000 length=2 seq=1"), 1u) << bytes;
  }
}

// One flipped bit, CRC included: the packet is dropped, whichever bit it is.
WORLD_TEST(HostileDevice, EveryFlippedBitOfAnAnswerIsNoticed) {
  for (std::size_t byte = 0; byte < 20; ++byte) {
    World world;
    world.Start();
    world.Quiet();
    for (unsigned bit = 0; bit < 8; ++bit) {
      world.Wire();
      world.wire().ReplaceAnswer(1, [byte, bit](const ControlPacket& answer) {
        RawPacket packet = ControlWire::Raw(answer);
        packet.bytes.at(byte) ^= static_cast<std::uint8_t>(1u << bit);
        return std::optional(packet);
      });
      EXPECT_EQ(ReadFirstWord(world), 0) << byte << " " << bit;
      EXPECT_EQ(Count(world.Wire(), "-> READ"), 2u) << byte << " " << bit << ": the second attempt was answered";
    }
  }
}

WORLD_TEST(HostileDevice, AStatusThatIsAlwaysClearLosesNoPacket) {
  World world;
  world.Start();
  world.Quiet();
  // Someone else reads the status, which clears it, between every two packets.
  for (int i = 0; i < 50; ++i) {
    world.At(i * 20 * kMicrosecond, [&world] { static_cast<void>(world.hardware().ReadRegister(0x37800)); });
  }
  for (int i = 0; i < 5; ++i) EXPECT_EQ(ReadFirstWord(world), 0) << i;
}

// Control transmit completions that are reported by the messages of the network rings, of which there are none.
WORLD_TEST(HostileDevice, AMessageOfTheNetworkTouchesNothing) {
  for (const std::uint32_t message : {2u, 3u}) {
    World world;
    world.Start();
    world.Quiet();
    world.hardware().WriteRegister(0x38C40, message);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(ReadFirstWord(world), 0) << message << " " << i;
    world.hardware().WriteRegister(0x38C40, 0);
    for (int i = 0; i < 20; ++i) EXPECT_EQ(ReadFirstWord(world), 0) << message << " " << i << ", by its own again";
  }
}

}  // namespace
