// Goal: the two hosts of a link mean the same by a block, and a hostile block does no harm. Method: trees of every
// shape, read back by a second reader that shares no code with the driver; blocks that lie.
#include "xdomain/property_block.h"

#include <fmt/format.h>

#include <random>

#include "tests/support/world.h"
#include "xdomain/host_properties.h"
#include "xdomain/property_tree.h"

namespace tests {
namespace {

using Words = std::vector<std::uint32_t>;

// --- trees of every shape

struct Node {
  std::string key;
  char type;
  std::uint32_t value = 0;          // immediate
  std::vector<std::uint8_t> bytes;  // text without its NUL, data
  std::array<std::uint8_t, 16> uuid{};
  std::vector<Node> below;
};

std::string BytesText(const std::uint8_t* bytes, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += fmt::format("{:02x}", bytes[i]);
  return text;
}

std::string Line(const std::string& path, char type, const std::string& value) {
  return fmt::format("{} {} {}\n", path, type, value);
}

std::string TextOf(const std::vector<Node>& nodes, const std::string& path) {
  std::string text;
  for (const Node& node : nodes) {
    const std::string name = path + "/" + node.key;
    if (node.type == 'D') {
      text += Line(name, 'D', BytesText(node.uuid.data(), 16)) + TextOf(node.below, name);
    } else if (node.type == 'v') {
      text += Line(name, 'v', fmt::format("{:x}", node.value));
    } else {
      std::vector<std::uint8_t> padded = node.bytes;
      if (node.type == 't') padded.push_back(0);
      while (padded.size() % 4 != 0) padded.push_back(0);
      text += Line(name, node.type, BytesText(padded.data(), padded.size()));
    }
  }
  return text;
}

std::vector<std::uint8_t> BytesAt(const Words& block, std::size_t offset, std::size_t words) {
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = offset; i < offset + words; ++i) {
    for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(static_cast<std::uint8_t>(block.at(i) >> shift));
  }
  return bytes;
}

// The second reader.
std::string ReadEntries(const Words& block, std::size_t first, std::size_t count, const std::string& path) {
  std::string text;
  for (std::size_t at = first; at < first + 4 * count; at += 4) {
    const auto key = BytesAt(block, at, 2);
    const std::string name = path + "/" + std::string(key.begin(), key.end()).c_str();
    const char type = static_cast<char>(block.at(at + 2) >> 24);
    const std::uint32_t length = block.at(at + 2) & 0xFFFF, value = block.at(at + 3);
    if (type == 'v') {
      EXPECT_EQ(length, 1u);
      text += Line(name, 'v', fmt::format("{:x}", value));
    } else if (type == 'D') {
      std::uint8_t uuid[16];
      for (unsigned i = 0; i < 16; ++i) uuid[i] = static_cast<std::uint8_t>(block.at(value + i / 4) >> 8 * (i % 4));
      text += Line(name, 'D', BytesText(uuid, 16)) + ReadEntries(block, value + 4, (length - 4) / 4, name);
    } else {
      const auto bytes = BytesAt(block, value, length);
      text += Line(name, type, BytesText(bytes.data(), bytes.size()));
    }
  }
  return text;
}

std::string ReadBlock(const Words& block) {
  EXPECT_EQ(block.at(0), 0x55584401u);
  return ReadEntries(block, 2, block.at(1) / 4, "");
}

USB4_PROPERTY* BytesEntry(const Node& node, std::size_t words) {
  USB4_PROPERTY* entry = KivUsb4PropertyAlloc(node.key.c_str(), static_cast<USB4_PROPERTY_TYPE>(node.type));
  entry->LengthWords = words;
  entry->Value.Bytes = PoolNewArray<std::uint8_t>(4 * words, USB4_PROPERTY::kValueTag);
  std::copy(node.bytes.begin(), node.bytes.end(), entry->Value.Bytes);
  return entry;
}

void Build(USB4_PROPERTY_DIR* directory, const std::vector<Node>& nodes) {
  for (const Node& node : nodes) {
    if (node.type == 'D') {
      USB4_PROPERTY_DIR* below = KivUsb4PropertyCreateDir(node.uuid.data());
      Build(below, node.below);
      EXPECT_EQ(KivUsb4PropertyAddDir(directory, node.key.c_str(), below), 0);
    } else if (node.type == 'v') {
      EXPECT_EQ(KivUsb4PropertyAddImmediate(directory, node.key.c_str(), node.value), 0);
    } else if (node.type == 't') {
      const std::string text(node.bytes.begin(), node.bytes.end());
      EXPECT_EQ(KivUsb4PropertyAddText(directory, node.key.c_str(), text.c_str()), 0);
    } else {
      directory->Entries().Append(*BytesEntry(node, node.bytes.size() / 4));
    }
  }
}

std::string TextOf(USB4_PROPERTY_DIR* directory, const std::string& path) {
  std::string text;
  for (const USB4_PROPERTY& entry : directory->Entries()) {
    const std::string name = path + "/" + entry.Key;
    const char type = static_cast<char>(entry.Type);
    if (type == 'D') {
      text += Line(name, 'D', BytesText(entry.Value.Directory->Uuid, 16)) + TextOf(entry.Value.Directory, name);
    } else if (type == 'v') {
      text += Line(name, 'v', fmt::format("{:x}", entry.Value.Immediate));
    } else if (type != 0) {
      text += Line(name, type, BytesText(entry.Value.Bytes, 4 * entry.LengthWords));
    } else {
      text += name + " unknown\n";
    }
  }
  return text;
}

// What the nodes take in a block, without the header of their directory.
std::size_t WordsOf(const std::vector<Node>& nodes) {
  std::size_t words = 0;
  for (const Node& node : nodes) {
    words += 4;
    if (node.type == 'D') words += 1 + 4 + WordsOf(node.below);
    if (node.type == 't') words += node.bytes.size() / 4 + 1;
    if (node.type == 'd') words += node.bytes.size() / 4;
  }
  return words;
}

class Shapes {
 public:
  explicit Shapes(std::uint32_t seed) : random_(seed) {}

  std::vector<Node> Draw(std::size_t words, unsigned nesting) {
    std::vector<Node> nodes;
    for (unsigned wanted = Below(nesting == 0 ? 60 : 9); wanted != 0; --wanted) {
      nodes.push_back(DrawNode(words, nesting));
      if (WordsOf(nodes) <= words) continue;
      nodes.pop_back();
      break;
    }
    return nodes;
  }

 private:
  unsigned Below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
  Node DrawNode(std::size_t words, unsigned nesting) {
    Node node{.key = std::string("keyofany").substr(0, Below(9)),
              .type = "Ddtv"[nesting == 8 ? 1 + Below(3) : Below(4)]};
    if (node.type == 'v') node.value = static_cast<std::uint32_t>(random_());
    if (node.type == 'D') {
      for (std::uint8_t& byte : node.uuid) byte = static_cast<std::uint8_t>(Below(256));
      node.below = Draw(words / 2, nesting + 1);
    }
    if (node.type == 't' || node.type == 'd') node.bytes.resize(node.type == 't' ? Below(20) : 4 * Below(30));
    for (std::uint8_t& byte : node.bytes) byte = static_cast<std::uint8_t>(1 + Below(255));
    return node;
  }
  std::mt19937 random_;
};

WORLD_TEST(PropertyBlock, CarriesTreesOfEveryShape) {
  World world("H1");
  world.Start();
  world.InDriver([](USB4_DOMAIN&) {
    std::size_t longest = 0;
    const auto first = static_cast<std::uint32_t>(25 * CurrentSeed().value_or(0));
    for (std::uint32_t seed = first; seed < first + 25; ++seed) {
      SCOPED_TRACE(seed);
      const std::vector<Node> nodes = Shapes(seed).Draw(498, 0);
      const std::size_t words = 2 + WordsOf(nodes);
      longest = std::max(longest, words);
      USB4_PROPERTY_DIR* tree = KivUsb4PropertyCreateDir(nullptr);
      Build(tree, nodes);
      EXPECT_EQ(KivUsb4PropertyFormat(tree, nullptr, 0), static_cast<KIV_RESULT>(words));
      Words block(words);
      EXPECT_EQ(KivUsb4PropertyFormat(tree, block.data(), static_cast<std::uint32_t>(words)), 0);
      EXPECT_EQ(ReadBlock(block), TextOf(nodes, ""));
      Words tooShort(words - 1);
      EXPECT_EQ(KivUsb4PropertyFormat(tree, tooShort.data(), static_cast<std::uint32_t>(words - 1)), -22);
      USB4_PROPERTY_DIR* copy = KivUsb4PropertyCopyDir(tree);
      KivUsb4PropertyFreeDir(tree);
      EXPECT_EQ(TextOf(copy, ""), TextOf(nodes, ""));
      KivUsb4PropertyFreeDir(copy);
      USB4_PROPERTY_DIR* parsed = KivUsb4PropertyParseDir(block.data(), static_cast<std::uint32_t>(words));
      ASSERT_NE(parsed, nullptr);
      EXPECT_EQ(TextOf(parsed, ""), TextOf(nodes, ""));
      KivUsb4PropertyFreeDir(parsed);
      if (::testing::Test::HasFailure()) break;
    }
    EXPECT_GT(longest, 400u);
  });
}

// --- blocks that lie

constexpr std::uint32_t kMark = 0x55584401;
constexpr std::uint32_t kKey1 = 0x61000000;  // "a"

// A root of these entries, and words behind them.
Words Root(std::vector<std::array<std::uint32_t, 2>> kindAndValue, Words tail = {}) {
  Words block = {kMark, static_cast<std::uint32_t>(4 * kindAndValue.size())};
  for (const auto& [kind, value] : kindAndValue) block.insert(block.end(), {kKey1, 0, kind, value});
  block.insert(block.end(), tail.begin(), tail.end());
  return block;
}

// `levels` directories, each in the one before.
Words Nested(unsigned levels) {
  Words block = {kMark, 4};
  for (unsigned level = 0; level < levels; ++level) {
    const std::uint32_t next = static_cast<std::uint32_t>(block.size()) + 4;
    block.insert(block.end(), {kKey1, 0, 0x44000000u + (level + 1 < levels ? 8 : 4), next, 0, 0, 0, 0});
  }
  return block;
}

WORLD_TEST(PropertyBlock, OfAPeerIsRefusedAsAWholeWhenAnyPartLies) {
  const struct {
    const char* what;
    Words block;
    const char* tree;  // null: refused
  } kCases[] = {
      {"no word at all", {}, nullptr},
      {"a mark and nothing else", {kMark}, nullptr},
      {"another mark", {0x55584402, 0}, nullptr},
      {"an empty root", {kMark, 0}, ""},
      {"a root longer than the block", {kMark, 3}, nullptr},
      {"a root that is no whole entry", {kMark, 3, 0, 0, 0}, ""},
      {"a root whose last entry ends one word behind the block", {kMark, 4, kKey1, 0, 0x76000001}, nullptr},
      {"a root that counts the header in", {kMark, 6, kKey1, 0, 0x76000001, 5}, "/a v 5\n"},
      {"an immediate", Root({{0x76000001, 5}}), "/a v 5\n"},
      {"an immediate of two words", Root({{0x76000002, 5}}), nullptr},
      {"an immediate of no word", Root({{0x76000000, 5}}), nullptr},
      {"reserved bits in an entry", Root({{0x76FF0001, 5}}), "/a v 5\n"},
      {"an unknown type, whatever it says", Root({{0x7800FFFF, 0xFFFFFFFF}}), "/a unknown\n"},
      {"a text without NUL is ended", Root({{0x74000001, 6}}, {0x61626364}), "/a t 61626300\n"},
      {"a text of no word", Root({{0x74000000, 6}}), "/a t \n"},
      {"data up to the last word", Root({{0x64000002, 6}}, {0x01020304, 0x05060708}), "/a d 0102030405060708\n"},
      {"data one word too long", Root({{0x64000003, 6}}, {0x01020304, 0x05060708}), nullptr},
      {"data longer than the block", Root({{0x6400FFFF, 0}}), nullptr},
      {"data of no word at the end", Root({{0x64000000, 6}}), "/a d \n"},
      {"data of no word behind the end", Root({{0x64000000, 7}}), nullptr},
      {"an offset that wraps round", Root({{0x64000002, 0xFFFFFFFF}}), nullptr},
      {"data over its own entry", Root({{0x64000001, 2}}), "/a d 61000000\n"},
      {"a directory without a whole UUID", Root({{0x44000003, 6}}, {0, 0, 0, 0}), nullptr},
      {"an empty directory", Root({{0x44000004, 6}}, {0x04030201, 0, 0, 0}), "/a D 01020304000000000000000000000000\n"},
      {"a directory one word behind the end", Root({{0x44000004, 7}}, {0, 0, 0, 0}), nullptr},
      {"a directory that is its own part", Root({{0x44000008, 6}}, {0, 0, 0, 0, kKey1, 0, 0x44000008, 6}), nullptr},
      {"a directory around its own entry", {kMark, 8, kKey1, 0, 0x76000001, 0, kKey1, 0, 0x44000008, 2}, nullptr},
      {"one bad entry below spoils all", Root({{0x44000008, 6}}, {0, 0, 0, 0, kKey1, 0, 0x76000003, 0}), nullptr},
      {"eight directories deep", Nested(8),
       "/a D 00000000000000000000000000000000\n/a/a D 00000000000000000000000000000000\n"
       "/a/a/a D 00000000000000000000000000000000\n/a/a/a/a D 00000000000000000000000000000000\n"
       "/a/a/a/a/a D 00000000000000000000000000000000\n/a/a/a/a/a/a D 00000000000000000000000000000000\n"
       "/a/a/a/a/a/a/a D 00000000000000000000000000000000\n/a/a/a/a/a/a/a/a D 00000000000000000000000000000000\n"},
      {"nine directories deep", Nested(9), nullptr},
      {"many directories that share one large one",
       [] {
         Words block = Root(std::vector<std::array<std::uint32_t, 2>>(60, {0x44000000 + 4 + 240, 0xFFFF}));
         const auto shared = static_cast<std::uint32_t>(block.size());
         for (std::uint32_t entry = 0; entry < 60; ++entry) block[2 + 4 * entry + 3] = shared;
         block.insert(block.end(), 4, 0);
         for (int entry = 0; entry < 60; ++entry) block.insert(block.end(), {kKey1, 0, 0x76000001, 0});
         return block;
       }(),
       nullptr},
  };
  World world("H1");
  world.Start();
  world.InDriver([&](USB4_DOMAIN&) {
    for (const auto& test : kCases) {
      SCOPED_TRACE(test.what);
      USB4_PROPERTY_DIR* tree =
          KivUsb4PropertyParseDir(test.block.data(), static_cast<std::uint32_t>(test.block.size()));
      ASSERT_EQ(tree != nullptr, test.tree != nullptr);
      if (tree != nullptr) {
        EXPECT_EQ(TextOf(tree, ""), test.tree);
      }
      KivUsb4PropertyFreeDir(tree);
    }
  });
}

WORLD_TEST(PropertyTree, RefusesKeysAndTextsThatItCannotHold) {
  World world("H1");
  world.Start();
  world.InDriver([](USB4_DOMAIN& domain) {
    USB4_PROPERTY_DIR* tree = KivUsb4PropertyCreateDir(nullptr);
    USB4_PROPERTY_DIR* below = KivUsb4PropertyCreateDir(domain.NetworkDirectoryUuid);
    EXPECT_EQ(KivUsb4PropertyAddImmediate(tree, "ninechars", 1), -22);
    EXPECT_EQ(KivUsb4PropertyAddImmediate(tree, nullptr, 1), -22);
    EXPECT_EQ(KivUsb4PropertyAddText(tree, "text", nullptr), -22);
    EXPECT_EQ(KivUsb4PropertyAddText(tree, "ninechars", "text"), -22);
    EXPECT_EQ(KivUsb4PropertyAddDir(tree, "ninechars", below), -22);
    EXPECT_EQ(KivUsb4PropertyFormat(tree, nullptr, 0), 2) << "nothing was added";
    EXPECT_EQ(KivUsb4PropertyAddText(tree, "3", "abc"), 0);
    EXPECT_EQ(KivUsb4PropertyFormat(tree, nullptr, 0), 2 + 4 + 1);
    EXPECT_EQ(KivUsb4PropertyAddText(tree, "4", "abcd"), 0);
    EXPECT_EQ(KivUsb4PropertyFormat(tree, nullptr, 0), 2 + 8 + 1 + 2) << "the NUL takes a second word";
    KivUsb4PropertyFreeDir(tree);
    EXPECT_EQ(KivUsb4PropertyRegisterDir(domain.HostInterface, nullptr, below), -22);
    EXPECT_EQ(KivUsb4PropertyRegisterDir(domain.HostInterface, "ninechars", below), -22);
    KivUsb4PropertyFreeDir([&domain] {
      const SpinLockGuard guard(domain.HostInterface->PropertyLock);
      return std::exchange(domain.HostInterface->RootDirectory.Change(), nullptr);
    }());
    EXPECT_EQ(KivUsb4PropertyRegisterDir(domain.HostInterface, "network", below), -11) << "no tree";
    KivUsb4PropertyFreeDir(below);
  });
}

}  // namespace
}  // namespace tests
