// Goal: the models that are built in are the machines they are modelled on, and a broken model file says where it is
// broken. Method: register words as read off those machines; model texts with one mistake each.
#include <gtest/gtest.h>

#include "tests/sim/rig.h"

namespace sim::test {
namespace {

TEST(Models, AdaptersAsTheMachinesReportThem) {
  struct Case {
    const char* port;
    std::uint32_t word1, word2, word4, word5;
  };
  const Case cases[] = {
      {"H1:1", 0x0008040A, 0x000001, 0x8B300000, 0x8000B016},  {"H1:2", 0x0000000A, 0x000001, 0x0B300000, 0x8000B016},
      {"H1:3", 0x00080239, 0x100101, 0x4B300000, 0x00004008},  {"H1:5", 0x00080239, 0x0E0101, 0x0B30000D, 0x00004809},
      {"H1:7", 0x00080400, 0x000002, 0x41C00000, 0x0000580B},  {"H2:11", 0x00000000, 0x210101, 0x00000000, 0x0000B817},
      {"H2:6", 0x00000000, 0x000000, 0x00000000, 0x00000000},  {"H3:3", 0x0008040A, 0x000001, 0x8A000000, 0x8000F81F},
      {"H3:13", 0x00080239, 0x0E0101, 0x0100000D, 0x00004809}, {"H3:19", 0x00080239, 0x0E0102, 0x00800000, 0x00004809},
      {"H3:21", 0x0008010A, 0x200101, 0x00800000, 0x00004008}, {"D1:8", 0x0000000A, 0x000001, 0x03C00000, 0x80009813},
      {"D1:16", 0x0008010A, 0x200102, 0x00800000, 0x00004008}, {"T1:1", 0x00081036, 0x000001, 0x03C00000, 0x0000780F},
      {"T1:3", 0x00081036, 0x000001, 0x00000000, 0x0000780F},  {"T3:8", 0x00080239, 0x100102, 0x00800000, 0x00004008},
  };
  platform::Simulation simulation;
  Fabric fabric(simulation);
  for (const char* name : {"H1", "H2", "H3", "D1", "T1", "T3"}) fabric.AddRouter(name, name);
  for (const Case& c : cases) {
    const ConfigSpace& space = std::as_const(*fabric.FindAdapter(c.port)).space();
    EXPECT_EQ(space.Get(1), c.word1) << c.port;
    EXPECT_EQ(space.Get(2), c.word2) << c.port;
    EXPECT_EQ(space.Get(4), c.word4) << c.port;
    EXPECT_EQ(space.Get(5), c.word5) << c.port;
  }
}

TEST(Models, CapabilityChainsAndPathEntriesAsTheMachinesReportThem) {
  struct Case {
    const char* port;
    Space space;
    unsigned offset;
    std::uint32_t value;
  };
  const Case cases[] = {
      {"H1:1", Space::Adapter, 0x0A, 0x0000039C}, {"H1:1", Space::Adapter, 0x0B, 0x00240000},
      {"H1:1", Space::Adapter, 0x0C, 0x002E0000}, {"H1:1", Space::Adapter, 0x9C, 0x00000636},
      {"H1:1", Space::Adapter, 0x36, 0x003C013E}, {"H1:1", Space::Adapter, 0x3E, 0x00000200},
      {"H3:1", Space::Adapter, 0x0A, 0x000003C0}, {"H3:1", Space::Adapter, 0xC0, 0x00000636},
      {"H1:3", Space::Adapter, 0x39, 0x2186043A}, {"H1:4", Space::Adapter, 0x0A, 0x00000410},
      {"H1:4", Space::Adapter, 0x0E, 0x00001500}, {"H1:5", Space::Adapter, 0x39, 0x0009048F},
      {"H1:5", Space::Adapter, 0x3A, 0x00004008}, {"H1:5", Space::Adapter, 0x3C, 0x01010005},
      {"H1:5", Space::Adapter, 0x3D, 0x15C0A334}, {"H1:1", Space::Path, 0, 0x80040001},
      {"H1:1", Space::Path, 1, 0x21000001},       {"H1:7", Space::Path, 0, 0x80040007},
      {"H1:7", Space::Path, 2, 0x00200000},       {"H1:7", Space::Path, 3, 0x05000000},
      {"H1:3", Space::Path, 16, 0x000E0000},      {"H1:3", Space::Path, 17, 0x01000000},
      {"H1:5", Space::Path, 16, 0x00060000},      {"H1:5", Space::Path, 18, 0x001A0000},
  };
  platform::Simulation simulation;
  Fabric fabric(simulation);
  for (const char* name : {"H1", "H3"}) fabric.AddRouter(name, name);
  for (const Case& c : cases) {
    Adapter& adapter = *fabric.FindAdapter(c.port);
    EXPECT_EQ((c.space == Space::Path ? adapter.paths() : adapter.space()).Get(c.offset), c.value)
        << c.port << " " << c.offset;
  }
}

TEST(Models, RouterCapabilitiesShortAndLong) {
  platform::Simulation simulation;
  Fabric fabric(simulation);
  const ConfigSpace& hub = std::as_const(fabric.AddRouter("D2", "D2")).space();
  EXPECT_EQ(hub.Get(1) & 0xFF, 0x28u);
  EXPECT_EQ(hub.Get(0x28), 0x40000348u) << "time management, uni-directional capable";
  EXPECT_EQ(hub.Get(0x48), 0x040B0560u) << "vendor-specific, short: length 4, next 0x60";
  EXPECT_EQ(hub.Get(0x60), 0x000D0500u) << "long: length and next in the second dword";
  EXPECT_EQ(hub.Get(0x61), 0x00080000u);
  const ConfigSpace& dock = std::as_const(fabric.AddRouter("T3", "T3")).space();
  EXPECT_EQ(dock.Get(1), 0x06034005u);
  EXPECT_EQ(dock.Get(5), 0x0D010520u) << "plug events, then the link controller";
  EXPECT_EQ(dock.Get(0x20), 0x00060500u);
  EXPECT_EQ(dock.Get(0x23), 0x00000001u) << "UUID";
}

TEST(ModelFile, HostileListsStayAsWritten) {
  const RouterModel model = ParseModel(R"(
name = "evil"
device = 1
usb4-version = 0x20
max-adapter = 1
[[capability]]
id = 3
offset = 0x28
next = 0x28
[chains]
lane = [{ id = 9, offset = 0x0A, length = 3, words = [0x11, 0x22] }, { id = 1, offset = 0x36, next = 0xFF }]
[[adapter]]
numbers = [1]
type = "lane"
)",
                                       "evil.toml");
  platform::Simulation simulation;
  Fabric fabric(simulation);
  Router& router = fabric.AddRouter(model, "evil");
  EXPECT_EQ(router.space().Get(0x28), 0x40000328u) << "a loop of one";
  EXPECT_EQ(router.adapter(1)->space().Get(0x0A), 0x00000936u) << "unknown, with words of its own";
  EXPECT_EQ(router.adapter(1)->space().Get(0x0B), 0x11u);
  EXPECT_EQ(router.adapter(1)->space().Get(0x36), 0x003C01FFu) << "out of range";
}

TEST(ModelFile, TunnelLimitsStandAsWritten) {
  const RouterModel model = ParseModel(R"(
max-adapter = 3
[[adapter]]
numbers = [1]
type = "usb3-up"
usb3-scale = 5
usb3-rate = 10000
[[adapter]]
numbers = [2]
type = "dp-in"
[[adapter]]
numbers = [3]
type = "dp-in"
dp-link = [5400, 2]
)",
                                       "m.toml");
  EXPECT_EQ(model.adapters[1].usb3Scale, 5u);
  EXPECT_EQ(model.adapters[1].usb3RateMbps, 10000u);
  EXPECT_EQ(model.adapters[2].dpLink, (DpRate{8100, 4}));
  EXPECT_EQ(model.adapters[3].dpLink, (DpRate{5400, 2}));
}

TEST(ModelFile, MistakesAreNamedWithLineAndColumn) {
  struct Case {
    const char* text;
    const char* error;
  };
  const Case cases[] = {
      {"name = \"x\"\ncolour = 3\n", "m.toml:2:10: unknown key \"colour\""},
      {"device = \"x\"\n", "m.toml:1:10: device must be a number of at most 65535"},
      {"device = 0x10000\n", "m.toml:1:10: device must be a number of at most 65535"},
      {"max-adapter = -1\n", "m.toml:1:15: max-adapter must be a number of at most 63"},
      {"max-adapter = 2\n[[adapter]]\nnumbers = [1]\ntype = \"lan\"\n", "m.toml:4:8: unknown adapter type \"lan\""},
      {"max-adapter = 2\n[[adapter]]\nnumbers = [3]\n", "m.toml:2:1: adapter 3 is above the highest adapter"},
      {"max-adapter = 2\n[[adapter]]\nnumbers = [1]\nhop = 9\nhops = 9\n", "m.toml:5:8: unknown key \"hops\""},
      {"[[adapter]]\nnumbers = []\nusb3-rate = 5000\n", "m.toml:1:1: usb3-rate must be 10000 or 20000"},
      {"[[adapter]]\nnumbers = []\ndp-link = [5400]\n",
       "m.toml:1:1: dp-link must be [1620, 2700, 5400 or 8100, 1, 2 or 4]"},
      {"[[adapter]]\nnumbers = []\ndp-link = [5401, 2]\n",
       "m.toml:1:1: dp-link must be [1620, 2700, 5400 or 8100, 1, 2 or 4]"},
      {"[[adapter]]\nnumbers = []\ndp-link = [5400, 3]\n",
       "m.toml:1:1: dp-link must be [1620, 2700, 5400 or 8100, 1, 2 or 4]"},
      {"[drom]\nvendor = 1\n", "m.toml:2:10: unknown key \"vendor\""},
      {"[chains]\nlane = 3\n", "m.toml:2:8: lane must be an array of tables"},
      {"[[adapter]]\nnumbers = 1\n", "m.toml:2:11: numbers must be an array of numbers"},
      {"[[adapter]]\nnumbers = []\nbuffer-word = [1, 2, 3]\n",
       "m.toml:3:15: buffer-word needs one number for each lane"},
      {"[drom]\nentries = [\"08 8x\"]\n", "m.toml:1:1: \"8x\" is no byte"},
      {"[[adapter]]\nnumbers = []\ndisabled = 1\n", "m.toml:3:12: disabled must be true or false"},
  };
  for (const Case& c : cases) {
    try {
      ParseModel(c.text, "m.toml");
      ADD_FAILURE() << c.text;
    } catch (const ModelError& error) {
      EXPECT_STREQ(error.what(), c.error);
    }
  }
  EXPECT_THROW(ParseModel("name = ", "m.toml"), ModelError);
}

}  // namespace
}  // namespace sim::test
