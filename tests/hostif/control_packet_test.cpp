// Goal: what stands on the wire for each packet, and which received packets are believed.
// Method: literal bytes and words in, literal bytes and results out; the checks run on a task of a started host,
// because they trace.
#include "hostif/control_packet.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/world.h"

namespace {

using tests::World;

// A packet as the receive path sees it: host order, its size without CRC, its types in the frame word.
struct Received {
  alignas(16) std::uint32_t words[64] = {};
  USB4_CTL_PKG packet{};

  Received(std::initializer_list<std::uint32_t> dwords, std::uint32_t frameWord) {
    std::copy(dwords.begin(), dwords.end(), words);
    packet.Buffer = words;
    packet.Frame.Word = frameWord;
  }
};

constexpr std::uint32_t kRead16 = 0x01000010;    // PDF 1, 16 bytes
constexpr std::uint32_t kNotify12 = 0x0300000C;  // PDF 3, 12 bytes

void OnTask(const std::function<void()>& body) {
  World world;
  world.Start();
  world.InDriver([&](USB4_DOMAIN&) { body(); });
}

TEST(ControlPacket, StandsOnTheWireInBigEndianWithItsCrcBehind) {
  const struct {
    const char* what;
    std::vector<std::uint32_t> words;
    std::uint32_t pdf;
    std::vector<std::uint8_t> wire;
    std::uint32_t frameWord;
  } cases[] = {
      {"read of five router words",
       {0, 0, 0x0400A000},
       1,
       {0, 0, 0, 0, 0, 0, 0, 0, 0x04, 0x00, 0xa0, 0x00, 0xd4, 0x0a, 0x9d, 0x55},
       0x11000010},
      {"write of one adapter word",
       {0, 0x301, 0x0A182004, 0xDEADBEEF},
       2,
       {0, 0, 0, 0, 0, 0, 0x03, 0x01, 0x0a, 0x18, 0x20, 0x04, 0xde, 0xad, 0xbe, 0xef, 0x30, 0x67, 0xdb, 0xa9},
       0x22000014},
      {"acknowledgement of an unplug",
       {0, 3, 0xC0000307},
       3,
       {0, 0, 0, 0, 0, 0, 0, 3, 0xc0, 0, 0x03, 0x07, 0x7a, 0x78, 0x5f, 0x03},
       0x33000010},
  };
  for (const auto& test : cases) {
    Received built({}, 0);
    BuildPacket(&built.packet, test.words.data(), static_cast<std::uint32_t>(4 * test.words.size()), test.pdf);
    EXPECT_EQ(std::memcmp(built.words, test.wire.data(), test.wire.size()), 0) << test.what;
    EXPECT_EQ(built.packet.Frame.Word, test.frameWord) << test.what;
  }
}

TEST(ControlPacket, UnpackingChecksTheWireBytesAndTurnsThemRound) {
  const std::uint8_t wire[] = {0x80, 0, 0, 0, 0, 0, 0, 0, 0x04, 0x00, 0xa0, 0x00, 0xd4, 0x0a, 0x9d, 0x55};
  const std::uint8_t sent[] = {0, 0, 0, 0, 0, 0, 0, 0, 0x04, 0x00, 0xa0, 0x00, 0xd4, 0x0a, 0x9d, 0x55};
  Received good({}, kRead16);
  std::memcpy(good.words, sent, sizeof sent);
  EXPECT_TRUE(UnpackReceived(&good.packet));
  EXPECT_EQ(good.words[2], 0x0400A000u);
  EXPECT_EQ(good.words[3], 0x559d0ad4u) << "the CRC stays as it came";
  EXPECT_EQ(good.packet.Frame.Word, 0x0100000Cu) << "the size no longer counts the CRC";
  Received flipped({}, kRead16);
  std::memcpy(flipped.words, wire, sizeof wire);
  EXPECT_FALSE(UnpackReceived(&flipped.packet));
  Received hostOrder({0, 0, 0x0400A000, 0xd40a9d55}, kRead16);
  EXPECT_FALSE(UnpackReceived(&hostOrder.packet)) << "a packet whose CRC was taken in host order";
}

TEST(ControlPacket, EveryRouteBitHasItsPlaceInTheHeader) {
  OnTask([] {
    for (unsigned bit = 0; bit < 64; ++bit) {
      const USB4_CFG_HEADER header = Usb4CfgMakeHeader(std::uint64_t{1} << bit);
      EXPECT_EQ(header.RouteLow, bit < 32 ? 1u << bit : 0u) << bit;
      EXPECT_EQ(header.RouteHigh, bit >= 32 && bit < 54 ? 1u << (bit - 32) : 0u) << bit;
      EXPECT_EQ(Usb4CfgParseRoute(header), bit < 54 ? std::uint64_t{1} << bit : 0u) << bit;
    }
    EXPECT_EQ(Usb4CfgParseRoute({0x80000000, 0x301}), 0x301u) << "the mark of a received packet is no route bit";
  });
}

TEST(ControlPacket, HeaderChecksRefuseWhatDiffers) {
  const struct {
    const char* what;
    std::uint32_t routeHigh;
    std::uint32_t frameWord;
    KIV_RESULT result;
  } cases[] = {
      {"as asked for", 0x80000000, 0x01000010, 0},
      {"mark missing", 0x00000000, 0x01000010, -5},
      {"mark with another bit", 0x80400000, 0x01000010, -5},
      {"other route", 0x80000001, 0x01000010, -5},
      {"shorter", 0x80000000, 0x0100000C, -5},
      {"longer", 0x80000000, 0x01000014, -5},
      {"other type", 0x80000000, 0x02000010, -5},
      {"start of frame set", 0x80000000, 0x11000010, -5},
  };
  OnTask([&] {
    for (const auto& test : cases) {
      Received received({test.routeHigh, 0x301, 0x04002000, 0}, test.frameWord);
      EXPECT_EQ(KivUsb4CheckHeader(&received.packet, {16, 1, 0x301}), test.result) << test.what;
      const USB4_CFG_RESULT parsed = KivUsb4ParseHeader(&received.packet, {16, 1, 0x301});
      EXPECT_EQ(parsed.Err, test.result) << test.what;
      EXPECT_EQ(parsed.Adapter, 0u) << test.what;
    }
  });
}

TEST(ControlPacket, ErrorWordsDecodeToCodeAndAdapter) {
  const struct {
    std::uint32_t word;
    std::uint32_t adapter;
    std::int32_t code;
  } cases[] = {
      {0x00000A05, 10, 5}, {0x00000A0C, 10, -4}, {0x00000008, 0, -8}, {0x0000000F, 0, -1},
      {0x00003F07, 63, 7}, {0x000000F2, 0, 2},   {0xFFFFC000, 0, 0},  {0x00000100, 1, 0},
  };
  OnTask([&] {
    for (const auto& test : cases) {
      Received received({0x80000000, 0x3, test.word}, kNotify12);
      const USB4_CFG_RESULT result = KivUsb4DecodeError(&received.packet);
      EXPECT_EQ(result.Err, 1) << std::hex << test.word;
      EXPECT_EQ(result.Adapter, test.adapter) << std::hex << test.word;
      EXPECT_EQ(result.Code, test.code) << std::hex << test.word;
      EXPECT_EQ(result.Route, 3u);
      EXPECT_FALSE(KivUsb4AsyncError(&received.packet)) << "every error packet goes to the requests";
    }
    Received shorter({0x80000000, 0x3, 0x5}, 0x03000008);
    EXPECT_EQ(KivUsb4DecodeError(&shorter.packet).Err, -5);
    Received unmarked({0, 0x3, 0x5}, kNotify12);
    EXPECT_EQ(KivUsb4DecodeError(&unmarked.packet).Err, -5);
  });
}

TEST(ControlPacket, AnAnswerMustEchoSpaceOffsetAndLength) {
  // Adapter space, offset 4, length 8; the word's length field is bits 18:13.
  OnTask([] {
    const auto check = [](std::uint32_t word) {
      return KivUsb4CheckConfigAddress(word, {USB4_CFG_SPACE_ADAPTER, 4, 8});
    };
    EXPECT_EQ(check(0x02010004), 0);
    EXPECT_EQ(check(0x1BF90004), 0) << "adapter 63 and sequence number 3 are not looked at";
    for (unsigned bit = 0; bit < 32; ++bit) {
      const bool ignored = bit >= 19 && bit != 25 && bit != 26 && bit < 29;
      EXPECT_EQ(check(0x02010004 ^ 1u << bit), ignored ? 0 : -1) << "bit " << bit;
    }
    EXPECT_EQ(KivUsb4CheckConfigAddress(0x04002000, {USB4_CFG_SPACE_ROUTER, 0xFFFFFFFF, 1}), -1);
    EXPECT_EQ(KivUsb4CheckConfigAddress(0x04002001, {USB4_CFG_SPACE_ROUTER, 0x100000001, 1}), -1)
        << "an offset beyond the field does not wrap to register 1";
  });
}

}  // namespace
