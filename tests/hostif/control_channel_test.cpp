// Goal: the control channel takes whatever comes in on ring 0 without losing a receive buffer, and hands each packet to
// whom it is for. Method: packets that no router sent are put on the wire of a started host; a read afterwards shows
// that the channel still works, more packets than the ring has buffers show that each one was posted again.
#include "hostif/control_channel.h"

#include <gtest/gtest.h>

#include "hostif/config_access.h"
#include "hostif/config_request.h"
#include "include/control_channel_record.h"
#include "tests/support/step_log.h"

namespace {

using platform::kMillisecond;
using sim::ControlWire;
using sim::RawPacket;
using tests::Count;
using tests::ReadFirstWord;
using tests::World;

RawPacket OfBytes(std::uint8_t pdf, std::size_t bytes) {
  RawPacket raw;
  raw.pdf = pdf;
  raw.bytes.assign(bytes, 0xEE);
  return raw;
}

RawPacket Forged(std::uint32_t size) {
  RawPacket raw = OfBytes(1, 16);
  raw.forgery.size = size;
  return raw;
}

WORLD_TEST(ControlChannel, ImpossibleAndUnknownPacketsCostNoBuffer) {
  std::vector<RawPacket> packets;
  for (std::size_t bytes : {0, 1, 2, 3, 4, 5, 8, 12, 13, 252, 256}) packets.push_back(OfBytes(1, bytes));
  for (std::uint8_t pdf = 0; pdf < 16; ++pdf) packets.push_back(OfBytes(pdf, 16));
  for (std::uint32_t size : {0u, 3u, 255u, 260u, 4092u, 4095u}) packets.push_back(Forged(size));
  World world;
  world.Start();
  world.Quiet();
  for (int round = 0; round < 2; ++round) {
    for (const RawPacket& packet : packets) {
      world.wire().Inject(packet);
      world.Pass(2 * kMillisecond);
    }
  }
  EXPECT_EQ(ReadFirstWord(world), 0);
  EXPECT_EQ(world.hardware().LostFrames(), 0u) << "a buffer was posted for each packet";
}

WORLD_TEST(ControlChannel, ABurstBeyondTheRingLosesOnlyWhatDidNotFit) {
  World world;
  world.Start();
  world.Quiet();
  for (int i = 0; i < 40; ++i) world.wire().Inject(OfBytes(1, 16));
  world.Pass(10 * kMillisecond);
  EXPECT_EQ(ReadFirstWord(world), 0);
}

WORLD_TEST(ControlChannel, HotPlugEventsAreTakenWhateverTheirCrc) {
  RawPacket plug = ControlWire::Raw(sim::HotPlugPacket(0, 5, false));
  RawPacket corrupt = plug;
  corrupt.bytes.back() ^= 0x80;
  RawPacket truncated = ControlWire::Raw({sim::Pdf::HotPlug, {0x80000000, 0}});
  RawPacket otherType = plug;
  otherType.pdf = 10;
  const struct {
    const char* what;
    RawPacket packet;
    std::size_t acknowledgements;
  } cases[] = {
      {"good", plug, 1},
      {"bad CRC", corrupt, 1},
      {"two dwords", truncated, 0},
      {"type 10 goes to the domain, which knows no such event", otherType, 0},
  };
  for (const auto& test : cases) {
    World world;
    world.Start();
    world.Quiet();
    world.Wire();
    world.wire().Inject(test.packet);
    world.Quiet();
    const std::string wire = world.Wire();
    EXPECT_EQ(Count(wire, "-> ACK route=0 adapter=5 plug"), test.acknowledgements) << test.what;
    EXPECT_EQ(Count(wire, "-> ACK"), test.acknowledgements) << test.what << ": nothing is made up from stale words";
  }
}

WORLD_TEST(ControlChannel, OnlyWholePacketsThatFitABufferAreSent) {
  World world;
  world.Start();
  world.Quiet();
  world.Wire();
  world.InDriver([](USB4_DOMAIN& domain) {
    const std::uint32_t words[65] = {0, 0, 0x04002000};
    EXPECT_EQ(KivUsb4CtlTx(domain.ControlChannel, words, 13, 1), -1);
    EXPECT_EQ(KivUsb4CtlTx(domain.ControlChannel, words, 256, 1), -1);
    EXPECT_EQ(KivUsb4CtlTx(domain.ControlChannel, words, 12, 1), 0);
  });
  world.Quiet();
  EXPECT_EQ(Count(world.Wire(), "-> READ"), 1u);
}

WORLD_TEST(ControlChannel, MoreTransmissionsThanDescriptorsWaitTheirTurn) {
  World world;
  world.Start();
  world.Quiet();
  world.Wire();
  world.InDriver([](USB4_DOMAIN& domain) {
    for (std::uint32_t i = 0; i < 25; ++i) {
      const std::uint32_t words[3] = {0, 0, 0x04002000 | (i & 3) << 27};
      EXPECT_EQ(KivUsb4CtlTx(domain.ControlChannel, words, 12, 1), 0);
    }
  });
  world.Quiet();
  EXPECT_EQ(Count(world.Wire(), "-> READ"), 25u);
}

WORLD_TEST(ControlChannel, StoppingTakesBackEveryBufferAndStartingPostsThemAgain) {
  World world;
  world.Start();
  world.Quiet();
  world.InDriver([](USB4_DOMAIN& domain) {
    const std::uint32_t words[3] = {0, 0, 0x04002000};
    for (int i = 0; i < 15; ++i) EXPECT_EQ(KivUsb4CtlTx(domain.ControlChannel, words, 12, 1), 0);
    KivUsb4CtlStop(domain.ControlChannel);
    EXPECT_EQ(KivUsb4CtlTx(domain.ControlChannel, words, 12, 1), -1) << "the ring has stopped";
    KivUsb4CtlStop(domain.ControlChannel);
  });
  world.Pass(50 * kMillisecond);  // the answers to what had been sent find no ring
  EXPECT_EQ(world.hardware().ReadRegister(0x29800), 0u);
  world.InDriver([](USB4_DOMAIN& domain) { KivUsb4CtlStart(domain.ControlChannel); });
  EXPECT_EQ(world.hardware().ReadRegister(0x29800), 0xC0000000u);
  EXPECT_EQ(world.hardware().ReadRegister(0x08008), 9u) << "nine of ten receive packets posted";
  EXPECT_EQ(ReadFirstWord(world), 0);
}

// A request that wants no answer stays on the list only while it is sent.
WORLD_TEST(ControlChannel, AFireAndForgetRequestIsGoneOnceSent) {
  World world;
  world.Start();
  world.Quiet();
  world.Wire();
  world.InDriver([](USB4_DOMAIN& domain) {
    USB4_CFG_REQUEST* request = AllocateRequest();
    ASSERT_NE(request, nullptr);
    request->RequestWords[2] = 0x04002000;
    request->RequestBytes = 12;
    request->RequestPdf = 1;
    request->Response = nullptr;
    request->Match = KivUsb4CfgMatch;
    EXPECT_EQ(KivUsb4CfgRequest(domain.ControlChannel, request), 0);
    const SpinLockGuard guard(domain.ControlChannel->RequestLock);
    EXPECT_TRUE(domain.ControlChannel->Requests().IsEmpty());
  });
  world.Pass(1 * kMillisecond);
  EXPECT_EQ(Count(world.Wire(), "-> READ route=0"), 1u);
}

}  // namespace
