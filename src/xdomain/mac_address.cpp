// Hashing a UUID into a network address.
#include "xdomain/mac_address.h"

#include <cstring>

#include "include/trace.h"

namespace {

constexpr std::uint32_t kUuidWords = kUuidBytes / 4;
constexpr std::uint32_t kLocallyAdministered = 2;
constexpr std::uint64_t kAdapterMask = 0x3F;  // of the route: the host router's adapter

struct HashState {
  std::uint32_t A, B, C;

  void Mix() {
    A = (A - B - C) ^ C >> 13;
    B = (B - C - A) ^ A << 8;
    C = (C - A - B) ^ B >> 13;
    A = (A - B - C) ^ C >> 12;
    B = (B - C - A) ^ A << 16;
    C = (C - A - B) ^ B >> 5;
    A = (A - B - C) ^ C >> 3;
    B = (B - C - A) ^ A << 10;
    C = (C - A - B) ^ B >> 15;
  }
};

// Of the four words of a UUID: one round of three, and one of the word that is left.
std::uint32_t HashWords(const std::uint32_t (&words)[kUuidWords], std::uint32_t initial) {
  constexpr std::uint32_t kGoldenRatio = 0x9E3779B9;
  HashState state = {kGoldenRatio + words[0], kGoldenRatio + words[1], initial + words[2]};
  state.Mix();
  state.C += 4 * kUuidWords;
  state.A += words[3];
  state.Mix();
  return state.C;
}

}  // namespace

void KivUsb4XdomainMacAddress(USB4_XDOMAIN* xdomain) {
  std::uint32_t words[kUuidWords];
  std::memcpy(words, xdomain->OwnUuid, sizeof words);
  const std::uint32_t first = HashWords(words, 0);
  const std::uint32_t second = HashWords(words, first);
  const std::uint32_t port = (static_cast<std::uint32_t>(xdomain->Route & kAdapterMask) - 1) / 2;
  std::uint8_t* mac = xdomain->MacAddress;
  mac[0] = static_cast<std::uint8_t>(port * 16 + kLocallyAdministered);
  std::memcpy(mac + 1, &first, sizeof first);
  mac[5] = static_cast<std::uint8_t>(second);
  TraceInfo("network address", "name", xdomain->Info.Name, "first byte", mac[0], "hash", first, "last byte", mac[5]);
}
