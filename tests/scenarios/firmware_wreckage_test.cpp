// Goal: whatever firmware has left of a PCIe tunnel, the domain comes up with a tunnel that carries packets; what
// cannot be told from a stranger's entries stays, and only that. Method: scenarios with one firmware tunnel in each
// state.
#include <fstream>

#include "lab/run.h"
#include "tests/support/seeds.h"

namespace {

lab::RunReport Play(const std::string& firmware) {
  const std::string path = testing::TempDir() + "wreckage.toml";
  std::ofstream(path) << R"(
host = [{ controller = [{ registry = { 'USB3Tunnel\USB3TunnelSupported' = 1, 'PCIETunnel\PCIETunnelSupported' = 1 } }] }]
router = [{ model = "D1" }]
display = [{ adapter = "D1:13" }]
link = [{ from = "H1:1", to = "D1:1", bonded = true }]
[[firmware]]
)" << firmware;
  return lab::RunScenario(lab::ReadScenario(path), {});
}

std::string Tunnels(const lab::RunReport& report) {
  std::string text;
  if (report.domains.empty()) return "no domain";
  for (const lab::TunnelView& tunnel : report.domains[0].tunnels)
    text += lab::TunnelText(tunnel) + (tunnel.paths.front().discovered ? " found\n" : " built\n");
  return text;
}

std::string Findings(const lab::RunReport& report) {
  std::string text = report.hang;
  for (const std::string& failure : report.failures) text += failure + "\n";
  for (const sim::ProtocolError& error : report.protocolErrors) text += error.text + "\n";
  return text;
}

constexpr const char* kPcie = "kind = \"pcie\"\nfrom = \"H1:3\"\nto = \"D1:9\"\n";
constexpr const char* kDp = "kind = \"dp\"\nfrom = \"H1:5\"\nto = \"D1:13\"\n";

TEST(FirmwareWreckage, WhatStaysOfEachState) {
  const std::string rest = "USB3 0:4 -> 1:16 built\n";
  const std::string display = "DP 0:5 -> 1:13 built\n";
  const struct {
    const char* kind;
    const char* state;
    std::string tunnels;
  } kCases[] = {
      {kPcie, "whole", "PCIe 0:3 -> 1:9 found\n" + rest + display},
      {kPcie, "off", rest + "PCIe 0:3 -> 1:9 built\n" + display},
      {kPcie, "bare", rest + "PCIe 0:3 -> 1:9 built\n" + display},
      {kPcie, "half", rest + "PCIe 0:3 -> 1:9 built\n" + display},
      {kPcie, "broken", rest + "PCIe 0:3 -> 1:9 built\n" + display},
      {kPcie, "far-off", rest + "PCIe 0:3 -> 1:9 built\n" + display},
      // 36000 Mb/s less 25920 for the display leave too little for USB3.
      {kDp, "whole", "DP 0:5 -> 1:13 found\nPCIe 0:3 -> 1:9 built\n"},
      {kDp, "broken", rest + "PCIe 0:3 -> 1:9 built\n"},
  };
  for (const auto& test : kCases) {
    const lab::RunReport report = Play(std::string(test.kind) + "state = \"" + test.state + "\"\n");
    EXPECT_EQ(Tunnels(report), test.tunnels) << test.kind << test.state;
    EXPECT_EQ(Findings(report), "") << test.kind << test.state;
  }
}

}  // namespace
