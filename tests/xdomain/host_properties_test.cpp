// Goal: what this host tells a peer about itself is what peers expect, and what it takes from one is what the peer
// said. Method: the words of a whole block as they stand in the format's description; blocks of peers word by word.
#include "xdomain/host_properties.h"

#include <fmt/format.h>

#include "platform/kernel/registry.h"
#include "tests/support/world.h"
#include "xdomain/computer_name.h"
#include "xdomain/peer_properties.h"
#include "xdomain/property_block.h"
#include "xdomain/property_tree.h"
#include "xdomain/upcalls.h"

namespace tests {
namespace {

using Words = std::vector<std::uint32_t>;

std::string Hex(const Words& words) {
  std::string text;
  for (std::size_t i = 0; i < words.size(); ++i) text += fmt::format("{}{:08x}", i % 8 == 0 ? "\n" : " ", words[i]);
  return text;
}

// A peer record that the driver knows nothing of, for what works on the record alone.
struct Peer {
  explicit Peer(USB4_DOMAIN& domain) {
    record.Domain = &domain;
    record.Lock.Initialise();
  }
  ~Peer() {
    PoolDeleteArray(record.Block.Peek(), USB4_XDOMAIN::kBlockTag);
    PoolDeleteArray(record.PeerDeviceName, USB4_XDOMAIN::kNameTag);
    PoolDeleteArray(record.PeerVendorName, USB4_XDOMAIN::kNameTag);
  }
  Words Block() const { return {record.Block.Peek(), record.Block.Peek() + record.BlockWords.Peek()}; }
  USB4_XDOMAIN record = {};
};

// --- the host's own block

const Words kWholeBlock = {
    0x55584401, 0x0000001c,                                                  // root, 28 words of entries
    0x76656e64, 0x6f726964, 0x76000001, 0x00001f3a,                          // vendorid v
    0x76656e64, 0x6f726964, 0x74000006, 0x0000001e,                          // vendorid t, 6 words at 30
    0x64657669, 0x63656964, 0x76000001, 0x00000002,                          // deviceid v
    0x64657669, 0x63657276, 0x76000001, 0x80000100,                          // devicerv v
    0x6e657477, 0x6f726b00, 0x44000014, 0x00000028,                          // network D, 20 words at 40
    0x64657669, 0x63656964, 0x74000003, 0x00000024,                          // deviceid t, 3 words at 36
    0x6d617868, 0x6f706964, 0x76000001, 0x00000016,                          // maxhopid v, 22
    0x4b697665, 0x72726120, 0x53797374, 0x656d7320, 0x496e632e, 0x00000000,  // Kiverra Systems Inc.
    0x4445534b, 0x544f5031, 0x00000000,                                      // DESKTOP1
    0x00000000,                                                              // spare
    0xca8961c6, 0x9541ce1c, 0x5949b8bd, 0x4f5a5f2e,                          // UUID of network
    0x70727463, 0x69640000, 0x76000001, 0x00000001,                          // prtcid
    0x70727463, 0x76657273, 0x76000001, 0x00000001,                          // prtcvers
    0x70727463, 0x72657673, 0x76000001, 0x00000001,                          // prtcrevs
    0x70727463, 0x73746e73, 0x76000001, 0x00000006,                          // prtcstns
};

WORLD_TEST(PropertyBlock, OfThisHostIsTheSixtyWordsThatPeersExpect) {
  World world("H1");
  world.Start();
  world.InDriver([](USB4_DOMAIN& domain) {
    EXPECT_EQ(KivUsb4NetDriverInit(&domain), 0);
    EXPECT_EQ(KivUsb4NetDriverInit(&domain), -17) << "registered twice";
    PoolDeleteArray(domain.ComputerName, USB4_DOMAIN::kComputerNameTag);
    domain.ComputerName = PoolNewArray<char>(9, USB4_DOMAIN::kComputerNameTag);
    std::copy_n("DESKTOP1", 8, domain.ComputerName);
    Peer peer(domain);
    peer.record.InputHopLimit = 22;
    UpdatePropertyBlock(&peer.record);
    EXPECT_EQ(Hex(peer.Block()), Hex(kWholeBlock));
  });
}

WORLD_TEST(PropertyBlock, IsRenewedWhenTheTreeHasChangedAndOnlyThen) {
  World world("H1");
  world.Start();
  world.InDriver([](USB4_DOMAIN& domain) {
    Peer peer(domain);
    UpdatePropertyBlock(&peer.record);
    const std::uint32_t* first = peer.record.Block.Peek();
    const std::uint32_t generation = peer.record.BlockGeneration.Peek();
    const std::uint32_t words = peer.record.BlockWords.Peek();
    UpdatePropertyBlock(&peer.record);
    EXPECT_EQ(peer.record.Block.Peek(), first);
    EXPECT_EQ(KivUsb4NetDriverInit(&domain), 0);
    UpdatePropertyBlock(&peer.record);
    EXPECT_EQ(peer.record.BlockGeneration.Peek(), generation + 1);
    EXPECT_EQ(peer.record.BlockWords.Peek(), words + 4 + 1 + 20) << "an entry, a spare word, the directory";
    EXPECT_EQ(KIvUsb4NetDriverExit(&domain), 0);
    UpdatePropertyBlock(&peer.record);
    EXPECT_EQ(peer.record.BlockGeneration.Peek(), generation + 2);
    EXPECT_EQ(peer.record.BlockWords.Peek(), words);
    EXPECT_EQ(KIvUsb4NetDriverExit(&domain), 0) << "there is none: nothing changes";
    UpdatePropertyBlock(&peer.record);
    EXPECT_EQ(peer.record.BlockGeneration.Peek(), generation + 2);
  });
}

WORLD_TEST(PropertyBlock, StaysAsItWasWhenAnyAllocationFails) {
  World world("H1");
  world.Start();
  world.InDriver([&world](USB4_DOMAIN& domain) {
    Peer peer(domain);
    UpdatePropertyBlock(&peer.record);
    const Words before = peer.Block();
    EXPECT_EQ(KivUsb4NetDriverInit(&domain), 0);
    unsigned failures = 0;
    while (peer.record.BlockWords.Peek() == before.size()) {
      EXPECT_EQ(Hex(peer.Block()), Hex(before));
      world.faults().FailNth("pool.allocate", ++failures);
      UpdatePropertyBlock(&peer.record);
    }
    world.faults().HealAll();
    // Root, its entries and their values, the directory likewise, two entries more, the block.
    EXPECT_EQ(failures, 1u + 1 + 2 + 1 + 1 + 1 + 2 + 4 + 2 + 1 + 1 + 1);
  });
}

WORLD_TEST(PropertyBlock, NamesTheHostAsTheRegistryDoesOrByDefault) {
  World world("H1");
  world.Start();
  const auto nameIn = [](const Words& block) {
    std::string name;
    for (std::uint32_t word : {block[32], block[33], block[34]}) {
      for (int shift = 24; shift >= 0; shift -= 8) name += static_cast<char>(word >> shift);
    }
    return std::string(name.c_str());
  };
  const struct {
    const char* failing;
    const char* registry;
    const char* name;
  } kCases[] = {{"", "LAB-HOST", "LAB-HOST"},
                {"", "NOTEBOOK", "NOTEBOOK"},
                {"", "\xe9tage", "\xe9tage"},
                {"ZwOpenKey", "NOTEBOOK", "DESKTOP1"},
                {"ZwQueryValueKey", "NOTEBOOK", "DESKTOP1"},
                {"pool.allocate", "NOTEBOOK", "DESKTOP1"}};
  for (const auto& test : kCases) {
    SCOPED_TRACE(std::string(test.registry) + " " + test.failing);
    world.kernel()
        .registry()
        .Create("\\Registry\\Machine\\System\\CurrentControlSet\\Control\\ComputerName\\ActiveComputerName")
        .SetText("ComputerName", test.registry);
    world.InDriver([&](USB4_DOMAIN& domain) {
      EXPECT_NE(domain.ComputerName, nullptr) << "read when the hardware was prepared";
      PoolDeleteArray(std::exchange(domain.ComputerName, nullptr), USB4_DOMAIN::kComputerNameTag);
      Peer peer(domain);
      if (test.failing == std::string("pool.allocate")) {
        world.faults().FailNth("pool.allocate", 1 + 1 + 2 + 1 + 1 + 1);  // behind the copy of the tree
      } else if (*test.failing != 0) {
        world.faults().FailNth(test.failing, 1);
      }
      UpdatePropertyBlock(&peer.record);
      EXPECT_EQ(nameIn(peer.Block()), test.name);
      world.faults().HealAll();
      EXPECT_EQ(KivUsb4ReadActiveComputerNameFromRegistry(&domain), 0);
      EXPECT_STREQ(domain.ComputerName, test.registry);
    });
  }
}

WORLD_TEST(PeerProperties, LeaveNothingBehindWhenMemoryEndsWhileItIsRead) {
  World world("H1");
  world.Start();
  world.InDriver([&world](USB4_DOMAIN&) {
    for (unsigned n = 1;; ++n) {
      world.faults().FailNth("pool.allocate", n);
      USB4_PROPERTY_DIR* tree = KivUsb4PropertyParseDir(kWholeBlock.data(), 60);
      if (tree == nullptr) continue;  // the pool is counted at the end
      KivUsb4PropertyFreeDir(tree);
      EXPECT_EQ(n, 1u + 7 + 2 + 2 + 4 + 1) << "the first that had nothing to fail";
      break;
    }
    world.faults().HealAll();
  });
}

// --- what is taken from a peer's tree

WORLD_TEST(PeerProperties, AreTakenFromTheRootByTheTable) {
  const std::uint32_t kVendor[] = {0x76656e64, 0x6f726964}, kDevice[] = {0x64657669, 0x63656964},
                      kMaxHop[] = {0x6d617868, 0x6f706964};
  struct Entry {
    const std::uint32_t* key;
    std::uint32_t kind, value;
  };
  const struct {
    const char* what;
    std::vector<Entry> entries;
    KIV_RESULT result;
    const char* taken;
  } kCases[] = {
      {"both IDs are cut to 16 bits",
       {{kVendor, 0x76000001, 0x12341F3A}, {kDevice, 0x76000001, 0xABCD0002}},
       0,
       "1f3a 2 hop 15 vendor - device -"},
      {"all that the table names",
       {{kVendor, 0x76000001, 1},
        {kVendor, 0x74000001, 50},
        {kDevice, 0x76000001, 2},
        {kDevice, 0x74000001, 51},
        {kMaxHop, 0x76000001, 9}},
       0,
       "1 2 hop 9 vendor ab device cd"},
      {"without a vendor ID, though with a name", {{kVendor, 0x74000001, 50}, {kDevice, 0x76000001, 2}}, -22, nullptr},
      {"without a device ID", {{kVendor, 0x76000001, 1}, {kDevice, 0x74000001, 51}}, -22, nullptr},
      {"an ID that is data", {{kVendor, 0x64000001, 50}, {kDevice, 0x76000001, 2}}, -22, nullptr},
      {"the first of two counts",
       {{kVendor, 0x76000001, 3}, {kVendor, 0x76000001, 4}, {kDevice, 0x76000001, 2}},
       0,
       "3 2 hop 15 vendor - device -"},
      {"a name of no word is none",
       {{kVendor, 0x76000001, 1}, {kVendor, 0x74000000, 0}, {kDevice, 0x76000001, 2}},
       0,
       "1 2 hop 15 vendor - device -"},
  };
  World world("H1");
  world.Start();
  world.InDriver([&](USB4_DOMAIN& domain) {
    for (const auto& test : kCases) {
      SCOPED_TRACE(test.what);
      Words block = {0x55584401, static_cast<std::uint32_t>(4 * test.entries.size())};
      for (const Entry& entry : test.entries) {
        block.insert(block.end(), {entry.key[0], entry.key[1], entry.kind, entry.value});
      }
      block.resize(50);
      block.insert(block.end(), {0x61620000, 0x63640000});  // "ab", "cd"
      USB4_PROPERTY_DIR* tree = KivUsb4PropertyParseDir(block.data(), static_cast<std::uint32_t>(block.size()));
      ASSERT_NE(tree, nullptr);
      Peer peer(domain);
      peer.record.PeerVendorName = PoolNewArray<char>(4, USB4_XDOMAIN::kNameTag);  // of an earlier block
      const MutexGuard guard(peer.record.Lock);
      EXPECT_EQ(KivUsb4XdomainParseProperties(&peer.record, tree), test.result);
      const auto name = [](const char* text) { return text == nullptr ? "-" : text; };
      if (test.taken != nullptr) {
        EXPECT_EQ(
            fmt::format("{:x} {:x} hop {} vendor {} device {}", peer.record.PeerVendorId, peer.record.PeerDeviceId,
                        peer.record.OutputHopLimit, name(peer.record.PeerVendorName), name(peer.record.PeerDeviceName)),
            test.taken);
      }
      KivUsb4PropertyFreeDir(tree);
    }
  });
}

}  // namespace
}  // namespace tests
