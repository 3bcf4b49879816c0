// Goal: DMA happens in the order and at the moments that a driver may rely on, and no others.
// Method: hand-made descriptors on ring 0; the clock is stopped between the events.
#include <gtest/gtest.h>

#include "tests/sim/rig.h"

namespace sim::test {
namespace {

TEST(TransmitRing, FetchesAfterTheDoorbellSoThatALateChangeShows) {
  Rig rig;
  rig.StartControlRing();
  rig.Send(Pdf::Read, 0, 0x04002000);  // router space, dword 0
  const std::vector<std::uint8_t> other = EncodePacket({Pdf::Read, {0, 0, 0x04002001}});
  std::memcpy(rig.slot.At(Rig::kTransmitBuffers), other.data(), other.size());
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Wire().substr(0, 76), "-> READ route=0 adapter=0 space=router offset=0x001 length=1 seq=0\n<- READ r")
      << "offset 0 was in the buffer at the doorbell, offset 1 when the ring fetched it";
}

TEST(TransmitRing, CompletesWithDoneAndThenTheMessage) {
  Rig rig;
  rig.StartControlRing();
  rig.Send(Pdf::Read, 0, 0x04002000);
  EXPECT_EQ(rig.TransmitWord(0), 0x00C11010u);
  rig.Run(3 * kUs);
  EXPECT_EQ(rig.TransmitWord(0) & kDone, 0u);
  rig.Run(1 * kUs + 1);
  EXPECT_EQ(rig.TransmitWord(0), 0x00C11010u | kDone) << "fetched at 2 us, done at 4 us";
  EXPECT_TRUE(rig.slot.messages.empty());
  rig.Run(1 * kUs);
  ASSERT_EQ(rig.slot.messages.size(), 1u);
  EXPECT_EQ(rig.slot.messages[0].number, 0u);
  EXPECT_EQ(rig.host.ReadRegister(0x37800), 1u);
}

TEST(ReceiveRing, WritesPayloadThenDescriptorThenSendsTheMessage) {
  for (std::uint64_t seed : {0, 1, 2, 3}) {
    Rig rig("H1", seed);
    rig.StartControlRing();
    rig.Send(Pdf::Read, 0, 0x0400A000);
    rig.Run(1 * kMs);
    std::vector<FakeSlot::Write> writes;
    for (const FakeSlot::Write& write : rig.slot.writes) {
      if (write.bus >= Rig::kReceiveTable && write.bus < Rig::kTransmitBuffers) writes.push_back(write);
    }
    ASSERT_EQ(writes.size(), 1u);
    ASSERT_EQ(rig.slot.writes.back().bus, Rig::kReceiveTable + 8) << "the descriptor is the last thing written";
    const FakeSlot::Write& payload = rig.slot.writes[rig.slot.writes.size() - 2];
    EXPECT_EQ(payload.bus, Rig::kReceiveBuffers);
    EXPECT_EQ(payload.bytes, 36u);
    EXPECT_LT(payload.when, writes[0].when);
    EXPECT_EQ(rig.slot.messages.back().number, 1u);
    EXPECT_GT(rig.slot.messages.back().when, writes[0].when);
    EXPECT_EQ(rig.ReceiveWord(0), 0x00A01024u) << "36 bytes, PDF 1, start field 0, done, no overrun";
    EXPECT_EQ(rig.Errors(), "");
  }
}

TEST(ReceiveRing, HoldsWhatIsPostedAndLosesTheRest) {
  for (const unsigned posted : {2u, 9u}) {
    Rig rig;
    rig.StartControlRing(posted);
    for (int i = 0; i < 9; ++i) rig.Send(Pdf::Read, 0, 0x04002000);
    rig.Run(5 * kMs);
    EXPECT_EQ(rig.host.LostFrames(), 9 - posted);
    EXPECT_EQ(rig.Wire().find("no-buffer") != std::string::npos, posted == 2);
    for (unsigned i = 0; i < posted; ++i) EXPECT_EQ(rig.ReceiveWord(i) & kDone, kDone) << i;
  }
}

TEST(Rings, WritingZeroToTheControlRegisterStopsDmaAtOnce) {
  // The answer is under way at every moment of the first millisecond; from the stop on nothing may be written.
  for (platform::Time stop = 0; stop < 200 * kUs; stop += 1 * kUs) {
    Rig rig;
    rig.StartControlRing();
    rig.Send(Pdf::Read, 0, 0x04002000);
    rig.Run(stop);
    rig.host.WriteRegister(0x29800, 0);
    rig.host.WriteRegister(0x19800, 0);
    const std::size_t writes = rig.slot.writes.size();
    const std::size_t messages = rig.slot.messages.size();
    rig.Run(5 * kMs);
    ASSERT_EQ(rig.slot.writes.size(), writes) << stop;
    ASSERT_EQ(rig.slot.messages.size(), messages) << stop;
    ASSERT_TRUE(rig.host.Quiet());
  }
}

TEST(Rings, MisuseIsRecordedByRing) {
  struct Case {
    const char* what;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> writes;
    const char* text;
  };
  const Case cases[] = {
      {"doorbell of a stopped ring",
       {{0x00008, 0x10000}},
       "transmit ring 0: index register written with 0x00010000 while the ring does not run [ring-index-stopped]"},
      {"index beyond the ring",
       {{0x0, 0x1000}, {0xC, 10}, {0x19800, 0xC0000000}, {0x8, 10u << 16}},
       "transmit ring 0: index 10 of a ring of 10 descriptors written [ring-index-range]"},
      {"consumer half of a producer register",
       {{0x0, 0x1000}, {0xC, 10}, {0x19800, 0xC0000000}, {0x8, 1}},
       "transmit ring 0: write of 0x00000001 sets the reserved half of the index register [ring-index-reserved]"},
      {"no table",
       {{0x800C, 0x0100000A}, {0x29800, 0xC0000000}},
       "receive ring 0: started without a descriptor table [ring-table]"},
      {"no descriptors",
       {{0x8000, 0x1000}, {0x29800, 0xC0000000}},
       "receive ring 0: started with 0 descriptors [ring-short]"},
      {"size while running",
       {{0x8000, 0x1000}, {0x800C, 10}, {0x29800, 0x80000000}, {0x800C, 11}},
       "receive ring 0: set-up register written with 0x0000000b while the ring runs [ring-running]"},
      {"end-to-end hop on a transmit ring",
       {{0x19820, 0x00001000}},
       "transmit ring 1: write of 0x00001000 sets reserved bits of the control register [ring-control]"},
      {"size of a transmit ring",
       {{0x1C, 0x01000010}},
       "transmit ring 1: write of 0x01000010 sets reserved bits of the size register [ring-size]"},
      {"masks of a transmit ring",
       {{0x19824, 1}},
       "transmit ring 1: PDF masks 0x00000001 of a transmit ring written [ring-pdf-masks]"},
  };
  for (const Case& c : cases) {
    Rig rig;
    for (auto [offset, value] : c.writes) rig.host.WriteRegister(offset, value);
    EXPECT_EQ(rig.Errors(), std::string("H1 ") + c.text + "\n") << c.what;
  }
}

TEST(Rings, AControlFrameIsOnePacketOfOneType) {
  Rig rig;
  rig.StartControlRing();
  rig.Send(Pdf::Read, 0, 0x04002000);
  rig.slot.SetWord(Rig::kTransmitTable + 8, 0x00C21101);  // 257 bytes, from type 2 to type 1
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Errors(),
            "H1 transmit ring 0: frame of 257 bytes in raw mode [frame-length]\n"
            "H1 transmit ring 0: control packet with start-of-frame PDF 2 and end-of-frame PDF 1 [frame-pdfs]\n"
            "H1 transmit ring 0: control packet of 257 bytes, which is no whole number of dwords [packet-bytes]\n");
}

TEST(Rings, DescriptorsArePostedWithTheirFlags) {
  Rig rig;
  rig.StartControlRing();
  rig.Send(Pdf::Read, 0, 0x04002000);
  rig.slot.SetWord(Rig::kTransmitTable + 8, 0x00811010);
  rig.slot.SetWord(Rig::kTransmitTable + 12, 5);
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Errors(),
            "H1 transmit ring 0: descriptor posted with flags 0x00800000 [descriptor-flags]\n"
            "H1 transmit ring 0: descriptor posted with last dword 0x00000005 [descriptor-end]\n");
  EXPECT_EQ(rig.TransmitWord(0) & kDone, 0u) << "no status was asked for";
}

TEST(HostileDevice, ForgesWithinTheMemoryThatWasPosted) {
  Rig rig;
  rig.StartControlRing();
  rig.fabric.wire("H1").Inject(RawPacket{1, std::vector<std::uint8_t>(4095, 0x5A), 0, {}});
  rig.Run(1 * kMs);
  EXPECT_EQ(*rig.slot.At(Rig::kReceiveBuffers + 255), 0x5A);
  EXPECT_EQ(*rig.slot.At(Rig::kReceiveBuffers + 256), 0xCC) << "never past the posted buffer";
  EXPECT_FALSE(rig.host.ForgeDescriptor(false, 1, 0, 0)) << "a ring that has no table";
  EXPECT_EQ(rig.slot.badAccesses, 0u);
}

}  // namespace
}  // namespace sim::test
