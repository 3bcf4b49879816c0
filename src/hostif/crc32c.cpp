// CRC-32C by eight tables: eight bytes a step. The tables are constants, so nothing is built when the channel starts.
#include "hostif/crc32c.h"

#include <array>
#include <cstring>

namespace {

constexpr std::uint32_t kPolynomial = 0x82F63B78u;
using Tables = std::array<std::array<std::uint32_t, 256>, 8>;

// tables[k][b]: what byte b does to the remainder after k more bytes of zero.
constexpr Tables MakeTables() {
  Tables tables{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t remainder = byte;
    for (int bit = 0; bit < 8; ++bit) remainder = remainder >> 1 ^ ((remainder & 1) != 0 ? kPolynomial : 0);
    tables[0][byte] = remainder;
  }
  for (std::size_t k = 1; k < 8; ++k) {
    for (std::size_t byte = 0; byte < 256; ++byte) {
      const std::uint32_t before = tables[k - 1][byte];
      tables[k][byte] = before >> 8 ^ tables[0][before & 0xFF];
    }
  }
  return tables;
}

constexpr Tables kTables = MakeTables();

std::uint32_t LoadLittleEndian(const std::uint8_t* bytes) {
  std::uint32_t word;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

// The four bytes of `word`, lowest first, followed by `after` zero bytes.
std::uint32_t Advance(std::uint32_t word, std::size_t after) {
  return kTables[after + 3][word & 0xFF] ^ kTables[after + 2][word >> 8 & 0xFF] ^
         kTables[after + 1][word >> 16 & 0xFF] ^ kTables[after][word >> 24];
}

}  // namespace

std::uint32_t Crc32c(const void* data, std::size_t bytes) {
  const auto* next = static_cast<const std::uint8_t*>(data);
  std::uint32_t remainder = 0xFFFFFFFFu;
  for (; bytes >= 8; bytes -= 8, next += 8) {
    remainder = Advance(LoadLittleEndian(next) ^ remainder, 4) ^ Advance(LoadLittleEndian(next + 4), 0);
  }
  if (bytes >= 4) {
    remainder = Advance(LoadLittleEndian(next) ^ remainder, 0);
    bytes -= 4;
    next += 4;
  }
  for (; bytes != 0; --bytes, ++next) remainder = remainder >> 8 ^ kTables[0][(remainder ^ *next) & 0xFF];
  return ~remainder;
}
