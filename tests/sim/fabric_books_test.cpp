// Goal: the books are silent about a domain in order and name each thing that is left over or missing.
// Method: whole tunnels of every kind, then one register spoiled per row.
#include "sim/fabric/fabric_books.h"

#include <gtest/gtest.h>

#include "sim/firmware/firmware_tunnels.h"
#include "tests/sim/rig.h"

namespace sim::test {
namespace {

using Lines = std::vector<std::string>;

Lines Found(const Fabric& fabric) {
  Lines lines;
  for (const BookFinding& finding : CheckBooks(fabric)) lines.push_back(finding.Text());
  return lines;
}

struct BookBench : Rig {
  BookBench() : Rig("H1") {
    Build("H1:1 D1:1");
    fabric.PlugDisplay("D1:13");
    SetUpFirmwareTunnel(fabric, {FirmwareKind::Pcie, "H1:3", "D1:9"});
    SetUpFirmwareTunnel(fabric, {FirmwareKind::Usb3, "H1:4", "D1:16"});
    FirmwareTunnel video{FirmwareKind::Dp, "H1:5", "D1:13"};
    video.lane = 1;
    SetUpFirmwareTunnel(fabric, video);
  }
  void Set(const char* port, unsigned offset, std::uint32_t value) { adapter(port).space().Set(offset, value); }
};

TEST(FabricBooks, NameWhatDoesNotAddUp) {
  struct Case {
    std::function<void(BookBench&)> spoil;
    Lines lines;
  };
  const Case cases[] = {
      {[](BookBench&) {}, {}},
      {[](BookBench& rig) { rig.Set("D1:10", 0x39, 0x80000000); },
       {"D1:10 is switched on without a path [on-without-path]"}},
      {[](BookBench& rig) { rig.fabric.Find("H1")->operations().dpReservations().clear(); },
       {"H1:5 carries video and is not reserved [video-unreserved]"}},
      {[](BookBench& rig) { rig.Set("H1:4", 0x0C, 0x80000000); },
       {"H1:4 has an open bandwidth request [open-request]"}},
      {[](BookBench& rig) { rig.adapter("D1:3").SetPathEntry(8, rig.adapter("D1:1").pathEntry(9)); },
       {"dangling entry at D1:3 hop 8 [dangling-entry]", "2 entries lead to D1:16 hop 8 [hop-shared]"}},
  };
  for (const Case& c : cases) {
    BookBench rig;
    c.spoil(rig);
    EXPECT_EQ(Found(rig.fabric), c.lines);
  }
}

TEST(FabricBooks, PendingEntriesAreNamedUntilTheyHaveDrained) {
  Rig rig("H1");
  rig.Manage();
  rig.Write(0, 3, Space::Path, 16, {0x800E0809, 0x03000301});
  rig.Write(0, 3, Space::Path, 16, {0x000E0809, 0x03000301});
  EXPECT_EQ(Found(rig.fabric), Lines{"packets pending at H1:3 hop 8 [packets-pending]"});
  rig.Run(100 * kMs);
  EXPECT_EQ(Found(rig.fabric), Lines{});
}

TEST(FabricBooks, BuffersAreCountedByAdapter) {
  BookBench rig;
  std::map<std::string, BufferBook> books;
  for (const BufferBook& book : BufferBooks(rig.fabric)) books[book.adapter] = book;
  struct Case {
    const char* adapter;
    unsigned total, setAside, reset, credits, open;
  };
  const Case cases[] = {
      {"H1:1", 179, 0, 0, 32, 0}, {"H1:2", 179, 0, 0, 1, 0}, {"H1:3", 179, 0, 0, 7, 0}, {"H1:5", 179, 13, 13, 1, 1},
      {"D1:1", 60, 0, 0, 32, 0},  {"D1:2", 60, 12, 0, 1, 1}, {"D1:13", 8, 0, 0, 1, 0},  {"D1:16", 8, 0, 0, 7, 0},
  };
  for (const Case& c : cases) {
    ASSERT_TRUE(books.contains(c.adapter)) << c.adapter;
    const BufferBook& book = books[c.adapter];
    EXPECT_EQ(book.total, c.total) << c.adapter;
    EXPECT_EQ(book.setAside, c.setAside) << c.adapter;
    EXPECT_EQ(book.setAsideReset, c.reset) << c.adapter;
    EXPECT_EQ(book.pathCredits, c.credits) << c.adapter;
    EXPECT_EQ(book.openEntries, c.open) << c.adapter;
  }
  EXPECT_FALSE(books.contains("D1:10"));
}

}  // namespace
}  // namespace sim::test
