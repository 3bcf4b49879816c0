// Goal: an image from the bench is explained right, and a broken one says where and why. Method: images as literal
// bytes, as a hex editor would show them, with one byte changed for each fault.
#include <fstream>

#include "lab/decode/decode_drom.h"
#include "tests/support/scenario_text.h"

namespace {

using tests::Bytes;

// A USB4 hub: product, lane pair 1-2, adapter 3 in use, 4 disabled, a type that nobody knows, two names.
constexpr const char* kUsb4 =
    "76 01 00 00 00 00 00 d1 00 21 ee e5 4b 03 2f 00"
    "08 09 00 00 f1 01 01 0d 08 81 80 02 80 00 00 00"
    "08 82 90 01 80 00 00 00 02 83 02 c4 04 0a aa bb"
    "05 01 41 42 00 07 02 48 75 62 1b 00";
// The older format, whose data CRC is wrong and always was.
constexpr const char* kThunderbolt = "67 01 00 00 00 00 00 d1 00 00 00 00 00 01 0d 00 00 22 11 44 33 00 04 01 58 00";

std::string Fields(const lab::DecodedFields& decoded) {
  std::string text = decoded.title + "\n";
  for (const auto& [name, value] : decoded.fields) text += name + ": " + value + "\n";
  return text;
}

std::string Faults(const std::vector<std::uint8_t>& image) {
  std::string text;
  for (const std::string& fault : lab::DecodeDromImage(image).faults) text += (text.empty() ? "" : "; ") + fault;
  return text;
}

TEST(DecodeDrom, EveryFieldOfAUsb4Image) {
  const lab::DecodedFields decoded = lab::DecodeDromImage(Bytes(kUsb4));
  EXPECT_EQ(Fields(decoded),
            "DROM image, 60 bytes, USB4 format\n"
            "UID: 00d1000000000001\n"
            "CRC-8: 0x76, computed 0x67: differs, not checked in this format\n"
            "version: 3 (USB4 format)\n"
            "data length: 47 bytes, the image ends at byte 60\n"
            "CRC-32C: 0x4be5ee21, computed 0x4be5ee21: good\n"
            "byte 16: product: vendor 0x01f1, model 0x0d01\n"
            "byte 24: adapter 1: lane 0 of a link with adapter 2\n"
            "byte 32: adapter 2: lane 1 of a link with adapter 1\n"
            "byte 40: adapter 3\n"
            "byte 42: adapter 4: disabled\n"
            "byte 44: type 10, ignored: aa bb\n"
            "byte 48: vendor name \"AB\"\n"
            "byte 53: device name \"Hub\\x1b\"\n"
            "the driver: takes vendor 0x01f1, model 0x0d01, name \"AB\" \"Hub\\x1b\", adapters disabled: 4\n");
  EXPECT_TRUE(decoded.faults.empty());
}

TEST(DecodeDrom, TheOlderFormatKeepsItsWrongDataCrc) {
  const lab::DecodedFields decoded = lab::DecodeDromImage(Bytes(kThunderbolt));
  EXPECT_TRUE(decoded.faults.empty());
  const std::string text = Fields(decoded);
  for (const char* line :
       {"CRC-8: 0x67, good\n", "version: 1 (Thunderbolt format)\n", "tolerated in this format\n", "vendor: 0x1122\n",
        "model: 0x3344\n", "byte 22: vendor name \"X\"\n",
        "the driver: takes vendor 0x1122, model 0x3344, name \"X\" \"\", adapters disabled: none\n"}) {
    EXPECT_NE(text.find(line), std::string::npos) << line << text;
  }
}

TEST(DecodeDrom, ABrokenImageSaysWhereAndWhy) {
  const struct {
    const char* base;
    std::size_t byte;
    std::uint8_t value;
    const char* faults;
  } kCases[] = {
      {kUsb4, 9, 0x20, "byte 9: CRC-32C of the data is 0x4be5ee20, computed 0x4be5ee21"},
      {kUsb4, 14, 0x30, "byte 14: the data end at byte 61, the dump has 60 bytes"},
      {kUsb4, 14, 0x09,
       "byte 14: the image ends at byte 22, the smallest at 23; byte 16: an entry of 8 bytes, 6 are left"},
      {kThunderbolt, 0, 0x68, "byte 0: CRC-8 of the UID is 0x68, computed 0x67"},
      {kThunderbolt, 22, 0x00, "byte 22: an entry of length 0"},
      {kThunderbolt, 22, 0x05, "byte 22: an entry of 5 bytes, 4 are left"},
      {kThunderbolt, 22, 0x03, "byte 25: a lone byte at the end"},
      {kThunderbolt, 15, 0x04,
       "byte 14: the data end at byte 1050, the dump has 26 bytes; byte 14: 1037 bytes of data, "
       "the driver reads 1023 at most"},
  };
  for (const auto& test : kCases) {
    std::vector<std::uint8_t> image = Bytes(test.base);
    image[test.byte] = test.value;
    EXPECT_EQ(Faults(image), test.faults) << "byte " << test.byte;
  }
  EXPECT_EQ(Faults(std::vector<std::uint8_t>(22)), "22 bytes: the smallest image has 23");
}

TEST(DecodeDrom, OfAThunderboltHostTheCheckByteIsAnother) {
  const std::string uid = "5f 00 ce 8c ba b4 7f 56 00";
  const std::vector<std::uint8_t> image = Bytes(uid + "00 00 00 00 01 0a 00 00 00 00 00 00 00 00");
  const lab::DecodedFields decoded = lab::DecodeDromImage(image);
  EXPECT_EQ(decoded.fields[1].second, "0x5f, good as the check byte of a Thunderbolt 3 host's UID");
}

TEST(DecodeDrom, AFileWithOrWithoutSpacesAndLines) {
  const struct {
    const char* text;
    lab::ExitCode code;
  } kCases[] = {
      {"670100000000\n0000d100 00000000010d000000\n221144330004015800\n", lab::ExitCode::Failed},
      {"670100000000 00d100\n# names\n00000000010d0000221144330004015800\n", lab::ExitCode::Held},
      {"", lab::ExitCode::Failed},
  };
  for (const auto& test : kCases) {
    const std::string path = testing::TempDir() + "image.hex";
    std::ofstream(path) << test.text;
    testing::internal::CaptureStdout();
    EXPECT_EQ(lab::DecodeDrom(path, lab::Console(lab::ColorMode::Never)), test.code) << test.text;
    EXPECT_NE(testing::internal::GetCapturedStdout().find("DROM image, "), std::string::npos);
  }
}

}  // namespace
