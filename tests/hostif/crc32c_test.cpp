// Goal: the checksum of every control packet and DROM. Method: published check values, values worked out bit by bit at
// every length class of the eight-byte steps, and every single flipped bit of a packet.
#include "hostif/crc32c.h"

#include <gtest/gtest.h>

#include <array>
#include <numeric>

namespace {

TEST(Crc32c, KnowsTheValuesOfEveryLengthClass) {
  std::array<std::uint8_t, 252> counting;
  std::iota(counting.begin(), counting.end(), std::uint8_t{0});
  const struct {
    std::size_t bytes;
    std::uint32_t crc;
  } cases[] = {{0, 0x00000000},  {4, 0xd9331aa3},  {7, 0xa359ed4c},  {8, 0x8a2cbc3b},  {11, 0xfb159dfa},
               {12, 0x5383aaba}, {13, 0xc69a45da}, {32, 0x46dd794e}, {252, 0x98a6d1f8}};
  for (const auto& test : cases) EXPECT_EQ(Crc32c(counting.data(), test.bytes), test.crc) << test.bytes << " bytes";
  EXPECT_EQ(Crc32c("123456789", 9), 0xe3069283u);
  EXPECT_EQ(Crc32c(std::array<std::uint8_t, 32>{}.data(), 32), 0x8a9136aau);
}

TEST(Crc32c, OneFlippedBitAnywhereShows) {
  std::array<std::uint8_t, 12> packet = {0, 0, 0, 0, 0, 0, 0, 0, 0x04, 0x00, 0xa0, 0x00};
  EXPECT_EQ(Crc32c(packet.data(), packet.size()), 0xd40a9d55u);
  for (std::size_t bit = 0; bit < 8 * packet.size(); ++bit) {
    packet[bit / 8] ^= static_cast<std::uint8_t>(1u << bit % 8);
    EXPECT_NE(Crc32c(packet.data(), packet.size()), 0xd40a9d55u) << "bit " << bit;
    packet[bit / 8] ^= static_cast<std::uint8_t>(1u << bit % 8);
  }
}

}  // namespace
