// Goal: each field of a request stands at its place on the wire, none spills into its neighbour. Method: a walking one
// through each field of the address word; the wire text and the bytes of the request, read by the model.
#include <gtest/gtest.h>

#include "hostif/config_access.h"
#include "tests/support/world.h"

namespace {

using tests::World;

// The third dword of the request that a read of `target` sends first.
std::uint32_t AddressWordOfRead(World& world, const USB4_CFG_TARGET& target) {
  const std::size_t before = world.wire().log().entries().size();
  world.InDriver([&](USB4_DOMAIN& domain) {
    std::uint32_t words[64] = {};
    IgnoreResult(Usb4CfgReadRaw(domain.ControlChannel, words, target, 200));
  });
  const sim::WireEntry& sent = world.wire().log().entries().at(before);
  const auto packet = sim::DecodePacket(static_cast<sim::Pdf>(sent.pdf), sent.bytes);
  EXPECT_TRUE(packet && packet->crcGood && !sent.up);
  EXPECT_EQ(sent.bytes.size(), 16u) << "a read asks in three dwords, whatever it asks for";
  return packet ? packet->packet.Word(2) : 0;
}

TEST(AddressWord, AWalkingOneThroughEachField) {
  World world;
  world.Start();
  world.Quiet();
  for (unsigned bit = 0; bit < 13; ++bit) {
    EXPECT_EQ(AddressWordOfRead(world, {0, 0, {USB4_CFG_SPACE_PATH, std::uint64_t{1} << bit, 1}}), 1u << bit | 1u << 13)
        << "offset bit " << bit;
  }
  for (unsigned bit = 0; bit < 6; ++bit) {
    EXPECT_EQ(AddressWordOfRead(world, {0, 0, {USB4_CFG_SPACE_PATH, 0, 1u << bit}}), 1u << (13 + bit))
        << "length bit " << bit;
  }
  for (unsigned bit = 0; bit < 6; ++bit) {
    EXPECT_EQ(AddressWordOfRead(world, {0, 1u << bit, {USB4_CFG_SPACE_PATH, 0, 1}}), 1u << (19 + bit) | 1u << 13)
        << "adapter bit " << bit;
  }
  for (std::uint32_t space = 0; space < 4; ++space) {
    EXPECT_EQ(AddressWordOfRead(world, {0, 0, {static_cast<USB4_CFG_SPACE>(space), 0, 1}}), space << 25 | 1u << 13);
  }
  EXPECT_EQ(AddressWordOfRead(world, {0, 64, {USB4_CFG_SPACE_PATH, 0x2000, 65}}), 1u << 13)
      << "what does not fit a field is cut off";
  world.TakeProtocolErrors();
}

TEST(AddressWord, TheRouteStandsInTheFirstTwoDwords) {
  World world;
  world.Start();
  world.Quiet();
  for (const std::uint64_t route : {std::uint64_t{0x0000000000000301}, std::uint64_t{0x003F3F3F3F3F3F3F}}) {
    const std::size_t before = world.wire().log().entries().size();
    world.InDriver([&](USB4_DOMAIN& domain) {
      std::uint32_t word = 0;
      IgnoreResult(Usb4CfgReadRaw(domain.ControlChannel, &word, {route, 0, {USB4_CFG_SPACE_ROUTER, 0, 1}}, 200));
    });
    std::vector<std::uint8_t> header;
    for (int shift = 56; shift >= 0; shift -= 8) header.push_back(static_cast<std::uint8_t>(route >> shift));
    const std::vector<std::uint8_t>& bytes = world.wire().log().entries().at(before).bytes;
    EXPECT_EQ(std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + 8), header) << std::hex << route;
  }
}

}  // namespace
