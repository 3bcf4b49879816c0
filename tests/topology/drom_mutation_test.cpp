// Goal: no image makes the parser read past its end, leak a name or point at an adapter that does not exist. Method:
// good images, bent at random with their CRCs set right again, applied to a copy of a hub's record; the sanitizers
// watch.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <span>

#include "tests/topology/bench.h"
#include "topology/drom.h"

namespace tests {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kSmallest = 23;

class Mutator {
 public:
  // A bent copy of `image` whose checks pass, so that its entries are reached.
  Bytes Bend(Bytes image, std::uint8_t checkByte) {
    for (unsigned changes = 1 + Below(6); changes > 0; --changes) Change(image);
    image.resize(std::clamp<std::size_t>(image.size(), kSmallest, 1036));
    image[0] = checkByte;
    std::memcpy(image.data() + 1, "\0\0\0\0\0\0\x09\x01", 8);
    if (Below(8) != 0) {
      const std::size_t length = image.size() - 13;
      image[14] = static_cast<std::uint8_t>(length);
      image[15] = static_cast<std::uint8_t>(length >> 8);
    }
    const std::uint32_t crc = sim::Crc32c(std::span(image).subspan(13));
    for (unsigned i = 0; i < 4; ++i) image[9 + i] = static_cast<std::uint8_t>(crc >> (8 * i));
    return image;
  }

 private:
  unsigned Below(unsigned bound) { return static_cast<unsigned>(random_() % bound); }
  void Change(Bytes& image) {
    // Lengths and kinds near what they were are the interesting ones.
    static constexpr std::uint8_t kValues[] = {0, 1, 2, 3, 7, 8, 9, 0x40, 0x80, 0x81, 0x93, 0xBF, 0xC1, 0xFF};
    const std::size_t at = 13 + Below(static_cast<unsigned>(image.size() - 13));
    switch (Below(4)) {
      case 0:
        image[at] = kValues[Below(sizeof kValues)];
        break;
      case 1:
        image[at] ^= static_cast<std::uint8_t>(1u << Below(8));
        break;
      case 2:
        image.insert(image.begin() + static_cast<std::ptrdiff_t>(at), kValues[Below(sizeof kValues)]);
        break;
      default:
        image.resize(at);
        break;
    }
    image.resize(std::max(image.size(), kSmallest));
  }

  std::mt19937 random_{1};
};

// Applies the image to a copy of the hub's record and says what is wrong with what it leaves.
std::string Apply(const USB4_SWITCH& hub, const Bytes& image) {
  USB4_SWITCH copy = hub;
  copy.VendorName = copy.DeviceName = nullptr;
  std::vector<USB4_PORT> adapters(hub.Adapters, hub.Adapters + 20);
  for (USB4_PORT& adapter : adapters) adapter.Router = &copy, adapter.DualLinkPartner = nullptr;
  copy.Adapters = adapters.data();
  // On the heap, so that the sanitizer knows where the image ends.
  Bytes exact(image);
  exact.shrink_to_fit();
  copy.Drom = exact.data();
  copy.DromBytes = static_cast<std::uint32_t>(exact.size());
  const KIV_RESULT result = image[13] == 3 ? KIVUsb4DromParse(&copy) : KIVUsb4tbdromparse(&copy);
  std::string wrong = result == 0 || result == -1 ? "" : "result " + std::to_string(result) + " ";
  for (const USB4_PORT& adapter : adapters) {
    const USB4_PORT* partner = adapter.DualLinkPartner;
    if (partner != nullptr && (partner < adapters.data() || partner >= adapters.data() + adapters.size()))
      wrong += "adapter " + std::to_string(adapter.Number) + " has a partner nowhere ";
  }
  for (char* name : {copy.VendorName, copy.DeviceName})
    if (name != nullptr && std::strlen(name) > 253) wrong += "name without an end ";
  PoolDeleteArray(copy.VendorName, USB4_SWITCH::kVendorNameTag);
  PoolDeleteArray(copy.DeviceName, USB4_SWITCH::kDeviceNameTag);
  return wrong;
}

TEST(DromMutation, BentImagesAreAppliedOrRefusedAndNothingElse) {
  const Bytes entries = {8,    0x81, 0x80, 2,    0x80, 0, 0,    0, 8,   0x82, 0x90, 1,   0x80, 0,    0,    0,   2,
                         0x85, 11,   0x86, 0x20, 1,    0, 0x64, 0, 0,   0,    0,    0,   3,    0x87, 0x80, 8,   9,
                         0,    0,    1,    2,    3,    4, 6,    1, 'A', 'c',  'm',  'e', 5,    2,    'H',  'u', 'b'};
  Bytes usb4(16), thunderbolt(22);
  usb4[13] = 3;
  thunderbolt[13] = 1;
  usb4.insert(usb4.end(), entries.begin(), entries.end());
  thunderbolt.insert(thunderbolt.end(), entries.begin(), entries.end());
  Mutator mutator;
  Bench bench("H1:1 - D1:1");
  bench.StartQuietly();
  bench.Requests();
  bench.WithRouter(1, [&](USB4_SWITCH& hub) {
    for (unsigned i = 0; i < 3000 && !testing::Test::HasFailure(); ++i) {
      const Bytes image = mutator.Bend(i % 2 == 0 ? usb4 : thunderbolt, 0x61);
      EXPECT_EQ(Apply(hub, image), "") << "image " << i << ": " << testing::PrintToString(image);
    }
  });
  EXPECT_GT(bench.RequestCounts()[1], 2000u) << "port entries are reached";
}

}  // namespace
}  // namespace tests
