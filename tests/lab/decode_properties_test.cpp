// Goal: a property block from the bench is explained entry by entry, and a broken one says where and why. Method:
// blocks as literal words, with one word changed for each fault.
#include "lab/decode/decode_properties.h"

#include "lab/input/console.h"
#include "lab/input/input_file.h"
#include "tests/support/scenario_text.h"

namespace {

using Words = std::vector<std::uint32_t>;

// vendorid v, vendorid t, deviceid v, an entry of type x, "net" D with prtcid v and a d; text, spare word, directory.
Words Block() {
  return {0x55584401, 20,                                  // root
          0x76656E64, 0x6F726964, 0x76000001, 0x1F3A,      // 2
          0x76656E64, 0x6F726964, 0x74000002, 22,          // 6
          0x64657669, 0x63656964, 0x76000001, 2,           // 10
          0x6F646400, 0x00000000, 0x78000009, 0xFFFFFFFF,  // 14
          0x6E657400, 0x00000000, 0x4400000C, 25,          // 18
          0x416C1B6C, 0x00000000, 0,                       // 22
          1,          2,          3,          4,           // 25
          0x70727463, 0x69640000, 0x76000001, 7,           // 29
          0x64617461, 0x00000000, 0x64000001, 24};         // 33
}

std::string Whole(const lab::DecodedFields& decoded) {
  std::string text = decoded.title + "\n";
  for (const auto& [name, value] : decoded.fields) text += name + ": " + value + "\n";
  for (const std::string& fault : decoded.faults) text += "wrong: " + fault + "\n";
  return text;
}

std::string BlockFaults(const Words& block) {
  std::string text;
  for (const std::string& fault : lab::DecodePropertyBlock(block).faults) text += (text.empty() ? "" : "; ") + fault;
  return text;
}

TEST(DecodeProperties, EveryEntryByItsPath) {
  EXPECT_EQ(Whole(lab::DecodePropertyBlock(Block())),
            "property block, 37 words\n"
            "/: 5 entries\n"
            "/vendorid: immediate 0x1f3a (7994)\n"
            "/vendorid: text \"Al\\x1bl\"\n"
            "/deviceid: immediate 0x2 (2)\n"
            "/odd: unknown type 0x78, ignored\n"
            "/net: directory, 2 entries, UUID 00000001-00000002-00000003-00000004\n"
            "/net/prtcid: immediate 0x7 (7)\n"
            "/net/data: data, 1 words: 00000000\n"
            "the driver: takes vendor 0x1f3a \"Al\\x1bl\", device 0x0002 \"\", hop IDs up to 15\n"
            "networking: none with this host: both names are needed\n");
}

TEST(DecodeProperties, ABrokenBlockSaysWhereAndWhy) {
  const struct {
    std::size_t word;
    std::uint32_t value;
    const char* faults;
  } kCases[] = {
      {0, 0x55584400, "word 0: 0x55584400 where a block begins with 0x55584401"},
      {1, 38, "word 1: 38 words of entries in the root, the block has 37"},
      {1, 36, "word 1: the root's entries end at word 38, the block has 37"},
      {1, 8, "no immediate deviceid in the root: the driver refuses a host without one"},
      {4, 0x76000002, "word 2: /vendorid: immediate of 2 words, it has 1"},
      {8, 0x74000010, "word 6: /vendorid: text of 16 words at word 22, the block has 37"},
      {9, 0xFFFFFFFF, "word 6: /vendorid: text of 2 words at word 4294967295, the block has 37"},
      {20, 0x44000003, "word 18: /net: directory of 3 words, its header has 4"},
      {35, 0x64000026, "word 33: /net/data: data of 38 words at word 24, the block has 37"},
  };
  for (const auto& test : kCases) {
    Words block = Block();
    block[test.word] = test.value;
    EXPECT_EQ(BlockFaults(block), test.faults) << "word " << test.word;
  }
  Words looped = Block();  // the directory's entry is a directory: itself
  looped[31] = 0x44000008;
  looped[32] = 25;
  EXPECT_NE(BlockFaults(looped).find("nested more than 8 directories deep"), std::string::npos);
  Words wide(2 + 4 * 501, 0);
  wide[0] = 0x55584401;
  wide[1] = 4 * 501;
  EXPECT_EQ(BlockFaults(wide), "word 2002: more than 500 entries in all; 2006 words: the driver takes at most 500");
  Words awkward = Block();
  awkward.resize(46);
  EXPECT_EQ(BlockFaults(awkward), "46 words: the last piece has 1, and the driver takes no response with less than 3");
  EXPECT_EQ(BlockFaults({0x55584401}),
            "1 words: the header of the root has 2; 1 words: the last piece has 1, and the driver "
            "takes no response with less than 3");
}

TEST(DecodeProperties, TheExitCodeSaysWhetherTheBlockIsGood) {
  const lab::Console console(lab::ColorMode::Never);
  testing::internal::CaptureStdout();
  EXPECT_EQ(lab::DecodeProperties(tests::WriteFile("bad.hex", "55584401 00000000\n"), console), lab::ExitCode::Failed);
  EXPECT_EQ(lab::DecodeProperties(tests::WriteFile("good.hex",
                                                   "55584401 00000008\n76656e64 6f726964 76000001 00001f3a\n"
                                                   "64657669 63656964 76000001 00000002 00000000 00000000\n"),
                                  console),
            lab::ExitCode::Held);
  testing::internal::GetCapturedStdout();
  EXPECT_THROW(static_cast<void>(lab::DecodeProperties(tests::WriteFile("odd.hex", "555844\n"), console)),
               lab::InputError);
}

}  // namespace
