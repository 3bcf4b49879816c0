// Goal: a DROM is read whole, checked in its own order and applied entry by entry; a broken one costs the router its
// names and nothing else. Method: a hub that is given images, byte by byte, and is then enumerated.
#include "topology/drom_parse.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <span>

#include "tests/support/bench.h"

namespace tests {
namespace {

using Bytes = std::vector<std::uint8_t>;

void Put(Bytes& image, std::size_t at, std::uint64_t value, unsigned bytes) {
  for (unsigned i = 0; i < bytes; ++i) image[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

void Seal(Bytes& image) {
  Put(image, 14, image.size() - 13, 2);
  Put(image, 9, sim::Crc32c(std::span(image).subspan(13)), 4);
}

// Check byte 0x61 belongs to this UID.
constexpr std::uint64_t kUid = 0x0109000000000000;

Bytes Usb4(const Bytes& entries) {
  Bytes image(16);
  image[0] = 0x61;
  Put(image, 1, kUid, 8);
  image[13] = 3;
  image.insert(image.end(), entries.begin(), entries.end());
  Seal(image);
  return image;
}

Bytes Thunderbolt(const Bytes& entries) {
  Bytes image(22);
  image[0] = 0x61;
  Put(image, 1, kUid, 8);
  image[13] = 1;
  Put(image, 17, 0x1234, 2);
  Put(image, 19, 0x5678, 2);
  image.insert(image.end(), entries.begin(), entries.end());
  Seal(image);
  return image;
}

Bytes With(Bytes image, std::size_t at, std::uint8_t value) {
  image[at] = value;
  return image;
}

const Bytes kNames = {6, 1, 'A', 'c', 'm', 'e', 5, 2, 'H', 'u', 'b'};

Bytes Joined(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

std::string Summary(USB4_SWITCH& router) {
  return fmt::format("{}/{} {:04x}:{:04x} {}", router.VendorName ? router.VendorName : "-",
                     router.DeviceName ? router.DeviceName : "-", router.DromVendorId, router.DromModelId,
                     router.Drom ? "kept" : "dropped");
}

// Enumerates a hub with this image; empty when it was not added.
std::string Enumerate(const Bytes& image) {
  Bench bench("H1:1 - D1:1");
  bench.ExpectIncomplete();
  bench.router("D1").operations().SetDrom(image);
  bench.StartQuietly();
  if (bench.Routers() == "0 gen4\n") return "";
  std::string summary;
  bench.WithRouter(1, [&summary](USB4_SWITCH& router) { summary = Summary(router); });
  return summary;
}

TEST(Drom, CheckByteOfTheUid) {
  const std::uint8_t first[8] = {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x09, 0x01};
  const std::uint8_t second[8] = {0x00, 0xCE, 0x8C, 0xBA, 0xB4, 0x7F, 0x56, 0x00};
  EXPECT_EQ(Crc8(first, 8), 0x61);
  EXPECT_EQ(Crc8(second, 8), 0xBB);
}

WORLD_TEST(Drom, WhatAnImageLeavesBehind) {
  const Bytes type9 = {8, 9, 0, 0, 0x22, 0x11, 0x44, 0x33};
  const Bytes otherType9 = {8, 9, 0, 0, 0xAA, 0xAA, 0xBB, 0xBB};
  const struct {
    const char* what;
    Bytes image;
    const char* left;
  } kCases[] = {
      {"names", Usb4(kNames), "Acme/Hub 0000:0000 kept"},
      {"vendor and model", Usb4(Joined(type9, kNames)), "Acme/Hub 1122:3344 kept"},
      {"the first vendor and model stay", Usb4(Joined(type9, otherType9)), "-/- 1122:3344 kept"},
      {"a name replaces the one before", Usb4(Joined(kNames, {4, 1, 'B', 'o'})), "Bo/Hub 0000:0000 kept"},
      {"a name ends at its NUL", Usb4({8, 1, 'A', 'c', 0, 'x', 'x', 'x'}), "Ac/- 0000:0000 kept"},
      {"a name of no characters", Usb4({2, 1, 5, 2, 'H', 'u', 'b'}), "/Hub 0000:0000 kept"},
      {"entries of one byte take their kind from the next", Usb4({1, 2, 1, 4, 1, 'A', 'b'}), "Ab/ 0000:0000 kept"},
      {"smallest image that is read", Usb4({7, 1, 'A', 'c', 'm', 'e', '!'}), "Acme!/- 0000:0000 kept"},
      {"adapter 60 of 19 is nobody's", Usb4(Joined({2, 0x80 | 60}, kNames)), "Acme/Hub 0000:0000 kept"},
      {"data changed after the CRC", With(Usb4(kNames), 18, 'X'), "-/- 0000:0000 dropped"},
      {"check byte of the UID is not looked at", With(Usb4(kNames), 0, 0x62), "Acme/Hub 0000:0000 kept"},
      {"entry of length 0", Usb4(Joined(kNames, {0, 1, 0})), "Acme/Hub 0000:0000 dropped"},
      {"entry longer than the image", Usb4(Joined(kNames, {4, 1, 'x'})), "Acme/Hub 0000:0000 dropped"},
      {"lone byte at the end", Usb4(Joined(kNames, {2})), "Acme/Hub 0000:0000 dropped"},
      {"lane entry of 6 bytes", Usb4(Joined({6, 0x81, 0x80, 2, 0x80, 0}, kNames)), "-/- 0000:0000 dropped"},
      {"Thunderbolt format", Thunderbolt(kNames), "Acme/Hub 1234:5678 kept"},
      {"unknown versions are of that format", With(Thunderbolt(kNames), 13, 2), "Acme/Hub 1234:5678 kept"},
      {"its data CRC does not count", With(Thunderbolt(kNames), 24, 'X'), "Xcme/Hub 1234:5678 kept"},
      {"its check byte does", With(Thunderbolt(kNames), 0, 0x62), "-/- 0000:0000 dropped"},
      {"length field 9: refused unread", With(Usb4(kNames), 14, 9), ""},
      {"length field with bit 10: read short, refused", With(Usb4(kNames), 15, 4), ""},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.what);
    EXPECT_EQ(Enumerate(test.image), test.left);
  }
}

WORLD_TEST(Drom, TheLongestImageIsReadInFull) {
  Bytes entries;
  // 1020 bytes of entries, 1023 of data: 4 x 255, the last one the name.
  for (unsigned i = 0; i < 4; ++i) {
    Bytes entry(255, 'n');
    entry[0] = 255;
    entry[1] = i == 3 ? 1 : 40;
    entries = Joined(entries, entry);
  }
  Bench bench("H1:1 - D1:1");
  bench.router("D1").operations().SetDrom(Usb4(entries));
  bench.StartQuietly();
  bench.WithRouter(1, [](USB4_SWITCH& router) {
    EXPECT_EQ(router.DromBytes, 1036u);
    EXPECT_EQ(router.VendorName, std::string(253, 'n'));
  });
}

TEST(Drom, ABrokenImageIsParsedTwiceAHundredMillisecondsApartAndReadOnce) {
  Bench bench("H1:1 - D1:1");
  bench.router("D1").operations().SetDrom(With(Usb4(kNames), 18, 'X'));
  bench.StartQuietly();
  platform::Time dataRead = 0, uidRead = 0;
  unsigned operations = 0;
  for (const auto& entry : bench.wire().log().entries()) {
    if (entry.text.find("route=1 ") == std::string::npos) continue;
    if (entry.up && entry.text.find("READ") == 0 && entry.text.find("offset=0x009") != std::string::npos) {
      dataRead = entry.when;
    }
    if (!entry.up && entry.text.find("WRITE") == 0 && entry.text.find("offset=0x01a") != std::string::npos) {
      ++operations;
    }
    if (!entry.up && entry.text.find("offset=0x007 length=2") != std::string::npos) uidRead = entry.when;
  }
  EXPECT_EQ(operations, 2u) << "the length, and 27 bytes";
  EXPECT_GE(uidRead - dataRead, 100 * platform::kMillisecond);
  EXPECT_LT(uidRead - dataRead, 101 * platform::kMillisecond);
}

WORLD_TEST(Drom, PortEntriesDisableAdaptersAndPairLanesBeforeTheDefaultDoes) {
  const Bytes entries = {
      8,           0x83,
      0x80 | 0x10, 4,
      0x80,        0,
      0,           0,  // 3 is the second lane of 4
      8,           0x84,
      0x80,        3,
      0x80,        0,
      0,           0,  //
      8,           0x85,
      0x80,        63,
      0x80,        0,
      0,           0,                 // 5 names a partner that does not exist
      2,           0x80 | 0x40 | 13,  // 13 is disabled
  };
  Bench bench("H1:1 - D1:1");
  bench.router("D1").operations().SetDrom(Usb4(entries));
  bench.StartQuietly();
  bench.WithRouter(1, [](USB4_SWITCH& router) {
    const auto partner = [&router](unsigned number) {
      const USB4_PORT* other = router.Adapters[number].DualLinkPartner;
      return fmt::format("{}{}", other ? other->Number : 0, router.Adapters[number].Flags & 1 ? " second" : "");
    };
    EXPECT_EQ(partner(1), "2");
    EXPECT_EQ(partner(2), "1 second");
    EXPECT_EQ(partner(3), "4 second");
    EXPECT_EQ(partner(4), "3");
    EXPECT_EQ(partner(5), "6");
    EXPECT_EQ(partner(6), "5 second");
    EXPECT_EQ(router.Adapters[13].Disabled, 1);
    EXPECT_EQ(router.Adapters[13].Header[2], 0u);
    EXPECT_EQ(router.Adapters[14].Disabled, 0);
  });
  const std::string requests = bench.Requests(1);
  EXPECT_EQ(requests.find("adapter=13 space=adapter offset=0x000 length=8"), std::string::npos);
}

Bytes Lane(unsigned number, bool second, unsigned partner) {
  return {8,
          static_cast<std::uint8_t>(0x80 | number),
          static_cast<std::uint8_t>(second ? 0x90 : 0x80),
          static_cast<std::uint8_t>(partner),
          0x80,
          0,
          0,
          0};
}

// Says which lane it is, and nothing of a partner.
Bytes LaneAlone(unsigned number, bool second) {
  Bytes entry = Lane(number, second, 0);
  entry[2] &= 0x10;
  return entry;
}

// "1-2 3-4": the pairs, first lane in front; adapters without a partner are left out.
std::string Pairs(const USB4_SWITCH& router) {
  std::string text;
  for (unsigned number = 1; number <= 8; ++number) {
    const USB4_PORT& adapter = router.Adapters[number];
    if (adapter.DualLinkPartner == nullptr || adapter.IsSecondLane()) continue;
    EXPECT_EQ(adapter.DualLinkPartner->DualLinkPartner, &adapter);
    text += fmt::format("{}{}-{}", text.empty() ? "" : " ", number, adapter.DualLinkPartner->Number);
  }
  return text;
}

// Every walk over the topology trusts that a pair leads one way; with half a pair it would run in a circle.
TEST(Drom, OnlyWholePairsOfLanesHold) {
  const struct {
    const char* what;
    std::vector<Bytes> entries;
    const char* pairs;
  } kCases[] = {
      {"crossed over", {Lane(3, true, 4), Lane(4, false, 3)}, "1-2 4-3 5-6 7-8"},
      {"one entry speaks for both", {Lane(4, false, 3)}, "1-2 4-3 5-6 7-8"},
      {"one lane is its own partner", {Lane(3, true, 3)}, "1-2 3-4 5-6 7-8"},
      {"the control adapter", {Lane(1, false, 0)}, "1-2 3-4 5-6 7-8"},
      {"a PCIe adapter", {Lane(1, false, 9)}, "1-2 3-4 5-6 7-8"},
      {"the partner is disabled", {{2, 0xC0 | 2}, Lane(1, false, 2)}, "3-4 5-6 7-8"},
      {"both are second", {Lane(1, true, 2), Lane(2, true, 1)}, "1-2 3-4 5-6 7-8"},
      {"neither is second", {Lane(3, false, 4), Lane(4, false, 3)}, "1-2 3-4 5-6 7-8"},
      {"in a row", {Lane(1, false, 3), Lane(3, true, 5)}, "1-2 3-4 5-6 7-8"},
      {"in a row, told from its end", {Lane(5, false, 3), Lane(3, true, 1)}, "1-2 3-4 5-6 7-8"},
      {"all in a ring", {Lane(1, false, 3), Lane(3, false, 5), Lane(5, true, 1)}, "1-2 3-4 5-6 7-8"},
      {"two name the same partner", {Lane(5, false, 3), Lane(1, false, 3)}, "1-2 3-4 5-6 7-8"},
      {"a third names one of a pair", {Lane(1, false, 4), Lane(4, true, 1), Lane(6, true, 1)}, "1-2 3-4 5-6 7-8"},
      {"the partner knows its own lane", {LaneAlone(3, true), Lane(4, false, 3)}, "1-2 4-3 5-6 7-8"},
      {"the partner knows better", {LaneAlone(3, false), Lane(4, false, 3)}, "1-2 3-4 5-6 7-8"},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.what);
    Bytes entries;
    for (const Bytes& entry : test.entries) entries = Joined(entries, entry);
    Bench bench("H1:1 - D1:1, D1:5 - D2:1");
    bench.router("D1").operations().SetDrom(Usb4(Joined(entries, kNames)));
    bench.StartQuietly();
    bench.WithRouter(1, [&test](USB4_SWITCH& router) { EXPECT_EQ(Pairs(router), test.pairs); });
    bench.Unplug("D1");
    bench.Quiet();
    EXPECT_EQ(bench.Routers(), "0 gen4\n");
    bench.ForgiveProtocolErrors(" (route ");  // a second lane that stands alone is taken for a link
  }
}

WORLD_TEST(Drom, HostAndThunderbolt3DevicesKeepTheirNamesToThemselves) {
  Bench bench("H1:1 - D1:1, D1:3 - T3:1");
  bench.StartQuietly();
  bench.WithRouter(0, [](USB4_SWITCH& router) { EXPECT_EQ(Summary(router), "-/- 0000:0000 kept"); });
  bench.WithRouter(1, [](USB4_SWITCH& router) { EXPECT_EQ(Summary(router), "Example/Hub D1 01f1:0d01 kept"); });
  bench.WithRouter(0x301, [](USB4_SWITCH& router) { EXPECT_EQ(Summary(router), "-/- 0000:0000 dropped"); });
}

constexpr const char* kStartDromRead = "WRITE adapter=0 space=router offset=0x01a length=1 seq=0 data=80000024";

WORLD_TEST(Drom, AnOperationThatNeverSucceedsIsTriedFourTimes) {
  Bench bench("H1:1 - D1:1");
  bench.faults().FailFrom("router.operation-refused", 1);
  bench.StartQuietly();
  EXPECT_EQ(bench.Routers(), "0 gen4\n") << "the host router does without a DROM, a hub does not";
  EXPECT_EQ(CountLines(bench.Requests(1), kStartDromRead), 4u);
}

WORLD_TEST(Drom, AnOperationThatFailsOnceIsRepeated) {
  Bench bench("H1:1 - D1:1");
  bench.router("D1").operations().SetDrom(Usb4(kNames));
  // The host router's three operations come first, then the hub's length, then its 27 bytes.
  bench.faults().FailNth("router.operation-refused", 5);
  bench.StartQuietly();
  EXPECT_EQ(CountLines(bench.Requests(1), kStartDromRead), 3u);
  bench.WithRouter(1, [](USB4_SWITCH& router) { EXPECT_EQ(Summary(router), "Acme/Hub 0000:0000 kept"); });
}

}  // namespace
}  // namespace tests
