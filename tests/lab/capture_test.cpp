// Goal: a capture is a pcapng file that Wireshark's own tools accept, and the dissector reads it right.
// Method: literal packets in, capinfos and tshark as judges, over the whole machine as well.
#include <array>
#include <cstdio>

#include "lab/run/run.h"
#include "lab/timeline/pcapng.h"
#include "tests/support/scenario_text.h"

namespace {

using tests::Bytes;

// Standard output of a command, or an empty text when it fails.
std::string Output(const std::string& command) {
  std::FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r");
  if (pipe == nullptr) return "";
  std::string text;
  std::array<char, 4096> buffer;
  while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), pipe)) text.append(buffer.data(), count);
  return pclose(pipe) == 0 ? text : "";
}

std::string Tshark(const std::string& file, const std::string& options) {
  return Output("tshark -X lua_script:" PROJECT_ROOT "/lab/decode/wireshark/usb4_control.lua -r " + file + " " +
                options);
}

class Captured : public testing::Test {
 protected:
  void Write(platform::Time when, lab::Direction direction, std::uint8_t pdf, const std::string& hex) {
    const std::vector<std::uint8_t> bytes = Bytes(hex);
    writer_.Write(interface_, {when, direction, pdf, pdf, bytes, {}});
  }
  std::string file_ = testing::TempDir() + "capture_test.pcapng";
  lab::PcapngWriter writer_{file_};
  std::uint32_t interface_ = writer_.AddInterface("host/H1 ring 0", 0);
};

TEST_F(Captured, RequestAndAnswerAreMatchedAndDissected) {
  Write(10'000, lab::Direction::ToDevice, 1, "00000000000000000400a000d40a9d55");
  writer_.Comment(interface_, 11'000, "host: sleep asked");
  Write(12'000, lab::Direction::FromDevice, 5, "800000000000000080000005857fa8e6");
  Write(13'000, lab::Direction::FromDevice, 1, "80000000000000000400a00011223344556677889b983bef");
  Write(14'000, lab::Direction::FromDevice, 3, "800000000000000300000a0500000000");
  ASSERT_TRUE(writer_.Close());
  EXPECT_NE(Output("capinfos " + file_).find("Number of packets:   5"), std::string::npos);
  EXPECT_EQ(Tshark(file_,
                   "-T fields -e frame.time_epoch -e usb4ctl.pdf -e usb4ctl.route -e usb4ctl.length -e usb4ctl.space "
                   "-e usb4ctl.unplug -e usb4ctl.code -e usb4ctl.crc.status -e usb4ctl.request_in -E separator=,"),
            "0.001000000,1,0x0000000000000000,5,2,,,1,\n"
            "0.001100000,,,,,,,,\n"
            "0.001200000,5,0x0000000000000000,,,1,,1,\n"
            "0.001300000,1,0x0000000000000000,5,2,,,1,1\n"
            "0.001400000,3,0x0000000000000003,,,,5,0,\n");
  EXPECT_NE(Tshark(file_, "").find("-- host: sleep asked --"), std::string::npos);
  EXPECT_NE(Tshark(file_, "").find("Error route 3 adapter 10: code 5 [bad CRC]"), std::string::npos);
}

TEST_F(Captured, DiscoveryPacketsAreMatchedByRouteAndSequenceNumberInBothDirections) {
  const std::string head = "0ed738b6bb40ff42e290c29707ffb2c0";
  const std::string uuid = "0000000500000001ffffffffffffffff", host = "89abcd0101234567ffffffffffffffff";
  using enum lab::Direction;
  Write(1000, ToDevice, 6, "000000000000000110000005" + head + "0000000c74f57db9");
  Write(2000, FromDevice, 6, "800000000000000110000009" + head + "00000005" + uuid + "f2ac8037");
  Write(3000, FromDevice, 7, "80000000000000011000000b" + head + "00000002" + uuid + "0000000000000003f8c3270f");
  Write(4000, ToDevice, 7, "000000000000000110000005" + head + "000000061f175581");
  Write(5000, FromDevice, 7,
        "800000000000000108000011" + head + "00000004" + uuid + host + "003c002d0000000700000011000000226f507725");
  Write(6000, ToDevice, 6, "000000000000000100000006" + head + "0000001100000c03d01bab72");
  Write(7000, FromDevice, 7, "800000000000000100000006" + head + "00000007000000045a1f1daf");
  ASSERT_TRUE(writer_.Close());
  EXPECT_EQ(Tshark(file_,
                   "-T fields -e usb4ctl.xd.type -e usb4ctl.xd.sequence -e usb4ctl.xd.uuid -e usb4ctl.xd.total "
                   "-e usb4ctl.xd.offset -e usb4ctl.xd.block -e usb4ctl.xd.new_width -e usb4ctl.xd.error "
                   "-e usb4ctl.crc.status -e usb4ctl.request_in -E separator=, -E aggregator=+"),
            "12,2,,,,,,,1,\n"
            "5,2,,,,,,,1,\n"
            "2,2,0500000001000000ffffffffffffffff,,,,,,1,1\n"
            "6,2,,,,,,,1,2\n"
            "4,1,,60,45,0x00000011+0x00000022,,,1,\n"
            "17,0,,,,,3,,1,\n"
            "7,0,,,,,,4,1,6\n");
  EXPECT_NE(Tshark(file_, "").find("Error response route 1 seq 0: not ready"), std::string::npos);
}

TEST(Capture, AFileThatCannotBeWrittenEndsTheRunBeforeItBegins) {
  for (std::string lab::RunOptions::*file : {&lab::RunOptions::captureFile, &lab::RunOptions::traceFile}) {
    lab::RunOptions options;
    options.*file = "/no/such/folder/x";
    const lab::RunReport report = lab::RunScenario(lab::ReadScenario(PROJECT_ROOT "/scenarios/host.toml"), options);
    EXPECT_EQ(report.code, lab::ExitCode::InputOutput);
    EXPECT_EQ(report.virtualTime, 0);
  }
}

TEST(Capture, OfARunHoldsEveryControlPacketWithAGoodCrc) {
  lab::RunOptions options;
  options.captureFile = testing::TempDir() + "host_run.pcapng";
  const lab::RunReport report = lab::RunScenario(lab::ReadScenario(PROJECT_ROOT "/scenarios/host.toml"), options);
  EXPECT_EQ(report.code, lab::ExitCode::Held);
  // The host router's header, then every adapter's, each answered.
  EXPECT_NE(Tshark(options.captureFile, "").find("Read request route 0 adapter 0 router 0x0 +5 seq 0"),
            std::string::npos);
  EXPECT_EQ(Tshark(options.captureFile, "-Y 'usb4ctl.crc.status == 0'"), "");
  const std::string requests =
      Tshark(options.captureFile,
             "-2 -Y 'frame.packet_flags_direction == 2 && usb4ctl.pdf == 1' -T fields -e usb4ctl.answer_in");
  EXPECT_NE(requests, "");
  EXPECT_EQ(requests.find("\n\n"), std::string::npos) << "a request without an answer: " << requests;
}

}  // namespace
