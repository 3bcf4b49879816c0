// Goal: what a scenario does to cables happens at the moment that it names, and what it expects of a router is really
// compared. Method: scenarios as text, run whole.
#include "lab/oracle/expectations.h"
#include "lab/report/tree.h"
#include "lab/run/run.h"
#include "tests/support/scenario_text.h"
#include "tests/support/world.h"

namespace {

using tests::Play;

std::string Failures(const lab::RunReport& report) {
  std::string text;
  for (const std::string& failure : report.failures) text += failure.substr(failure.find("text.toml") + 9) + "\n";
  return text;
}

std::string Tree(const lab::RunReport& report, unsigned verbosity = 0) {
  return report.domains.empty() ? "none" : lab::FormatTree(report.domains.front(), verbosity);
}

// Lines 1 to 3.
const std::string kHubAndLooseDock =
    "router = [{ model = \"D1\" }, { model = \"T3\" }]\n[[link]]\nfrom = \"H1:1\"\nto = \"D1:1\"\n";

TEST(CableEvents, AtAPacketAndAtATime) {
  const struct {
    const char* what;
    std::string events;
    const char* route;  // of what the tree ends with besides the host
    bool there;
  } kCases[] = {
      {"unplugged during its enumeration", "[[event]]\ndo = \"unplug\"\nwhat = \"D1\"\npacket = 300\n", "1 ", false},
      {"dropped during its enumeration", "[[event]]\ndo = \"drop-link\"\nwhat = \"D1\"\npacket = 300\n", "1 ", true},
      {"plugged while the host starts", "[[event]]\ndo = \"plug\"\nfrom = \"D1:3\"\nto = \"T3:1\"\npacket = 20\n",
       "301 ", true},
      {"plugged later", "[[event]]\ndo = \"plug\"\nfrom = \"D1:3\"\nto = \"T3:1\"\nat = \"2 s\"\n", "301 ", true},
      {"one lane, later",
       "[[event]]\ndo = \"plug\"\nfrom = \"D1:3\"\nto = \"T3:1\"\nat = \"2 s\"\nlanes = 1\ngbpsPerLane = 10\n",
       "301 (no name), 10G = 1 x 10G", true},
  };
  for (const auto& test : kCases) {
    const lab::RunReport report = Play(kHubAndLooseDock + test.events);
    EXPECT_EQ(report.code, lab::ExitCode::Held) << test.what << "\n" << Failures(report);
    EXPECT_EQ(Tree(report).find("|__ " + std::string(test.route)) != std::string::npos, test.there) << test.what << "\n"
                                                                                                    << Tree(report);
  }
}

TEST(DeviceEvents, AtAPacketOfTheScan) {
  const std::string resume = "[[event]]\nat = \"5 s\"\ndo = \"resume\"\n[[expect]]\nat = \"4 s\"\npower = \"D3\"\n";
  const struct {
    const char* verb;
    std::string then;
    const char* expected;  // at the end
  } kCases[] = {
      {"surprise-remove", "", "state = \"surprise-removed\"\npower = \"off\"\n"},
      {"remove", "", "state = \"removed\"\npower = \"off\"\n"},
      {"sleep", resume, "power = \"D0\"\nrouters = 2\n"},
      {"hibernate", "[[event]]\nat = \"5 s\"\ndo = \"resume\"\n", "power = \"D0\"\nrouters = 2\n"},
  };
  for (const auto& test : kCases) {
    const lab::RunReport report = Play(kHubAndLooseDock + "[[event]]\ndo = \"" + test.verb + "\"\npacket = 300\n" +
                                       test.then + "[[expect]]\n" + test.expected);
    EXPECT_EQ(report.code, lab::ExitCode::Held) << test.verb << "\n" << Failures(report);
  }
}

// What a sleeping system is asked to do with a device happens once it is awake, in the order of the asking.
TEST(DeviceEvents, WhileTheSystemSleeps) {
  const std::string sleep = "[[event]]\nat = \"1 s\"\ndo = \"sleep\"\n";
  const std::string disable = "[[event]]\nat = \"20 s\"\ndo = \"disable\"\n";
  const std::string enable = "[[event]]\nat = \"25 s\"\ndo = \"enable\"\n";
  const std::string resume = "[[event]]\nat = \"30 s\"\ndo = \"resume\"\n";
  const auto expect = [](const char* state) { return "[[expect]]\nstate = \"" + std::string(state) + "\"\n"; };
  for (const std::string& events : {sleep + disable + resume + expect("removed"),
                                    sleep + "[[event]]\nat = \"1 s\"\ndo = \"disable\"\n" + resume + expect("removed"),
                                    sleep + disable + enable + resume + expect("started"),
                                    // Nobody resumes it; the end of the run does.
                                    sleep + expect("started")}) {
    const lab::RunReport report = Play(kHubAndLooseDock + events);
    EXPECT_EQ(report.code, lab::ExitCode::Held) << events << Failures(report) << report.hang;
  }
}

TEST(CableEvents, WhatCannotHappenFailsTheRun) {
  EXPECT_EQ(Failures(Play(kHubAndLooseDock + "[[event]]\ndo = \"unplug\"\nwhat = \"D1:5\"\npacket = 20\n")),
            ":5:1: no cable at \"D1:5\"\n");
  const lab::RunReport never = Play(kHubAndLooseDock + "[[event]]\ndo = \"unplug\"\nwhat = \"D1\"\npacket = 100000\n");
  EXPECT_EQ(never.code, lab::ExitCode::Failed);
  ASSERT_EQ(never.failures.size(), 1u);
  EXPECT_EQ(never.failures[0], "1 events wait for a packet that never came");
}

// Lines 1 to 7.
const std::string kTunnelledChain =
    "host = [{ controller = [{ registry = { 'PCIETunnel\\PCIETunnelSupported' = 1 } }] }]\n"
    "router = [{ model = \"D1\" }, { model = \"T3\" }]\n"
    "[[link]]\nfrom = \"H1:1\"\nto = \"D1:1\"\n[[link]]\nfrom = \"D1:3\"\nto = \"T3:1\"\n";

TEST(TunnelExpectations, EachKeyIsCompared) {
  const struct {
    const char* keys;
    const char* failure;
  } kCases[] = {
      {"tunnels = [\"PCIe 1:10 -> 301:8\", \"PCIe 0:3 -> 1:9\"]\n", ""},
      {"tunnels = []\n", "tunnels is PCIe 0:3 -> 1:9, PCIe 1:10 -> 301:8, expected none"},
      {"tunnelCount = 2\npcieTunnels = 2\nusb3Tunnels = 0\ndpTunnels = 0\n", ""},
      {"tunnelCount = 1\n", "tunnel count is 2, expected 1"},
      {"pcieTunnels = 1\n", "PCIe tunnel count is 2, expected 1"},
      {"usb3Tunnels = 1\n", "USB3 tunnel count is 0, expected 1"},
      {"dpTunnels = 1\n", "DP tunnel count is 0, expected 1"},
      {"tunnel = \"PCIe 0:3 -> 1:9\"\npresent = false\n", "tunnel PCIe 0:3 -> 1:9 is present, expected absent"},
      {"tunnel = \"PCIe 0:3 -> 301:8\"\n", "tunnel PCIe 0:3 -> 301:8 is absent, expected present"},
      {"tunnel = \"PCIe 0:3 -> 1:9\"\nallocated = \"1000/1000\"\n",
       "tunnel PCIe 0:3 -> 1:9 allocated is not managed, expected 1000/1000"},
      {"route = \"1\"\ntunnel = \"PCIe 0:3 -> 301:8\"\nallocated = \"1000/1000\"\n",
       "tunnel PCIe 0:3 -> 301:8 is absent, expected present"},
  };
  for (const auto& test : kCases) {
    const lab::RunReport report = Play(kTunnelledChain + "[[expect]]\n" + test.keys);
    const std::string failure = test.failure;
    EXPECT_EQ(Failures(report), failure.empty() ? "" : ":9:1: host/H1: " + failure + "\n") << test.keys;
  }
}

TEST(RouterExpectations, EachKeyIsCompared) {
  const struct {
    const char* keys;
    const char* failure;
  } kCases[] = {
      {"route = \"301\"\n", "router 301 is absent, expected present"},
      {"route = \"1\"\npresent = false\n", "router 1 is present, expected absent"},
      {"route = \"1\"\nname = \"Hub D1\"\n", "router 1 name is Example Hub D1, expected Hub D1"},
      {"route = \"1\"\nmodel = \"D2\"\n", "router 1 model is D1, expected D2"},
      {"route = \"1\"\nlink = \"20G = 1 x 20G\"\n", "router 1 link is 40G = 2 x 20G, expected 20G = 1 x 20G"},
      {"route = \"0\"\nlink = \"40G = 2 x 20G\"\n", "router 0 link is none, expected 40G = 2 x 20G"},
      {"route = \"1\"\ntmu = \"off\"\n", "router 1 tmu is bi-directional, HiFi, expected off"},
      {"route = \"1\"\ngeneration = 3\n", "router 1 generation is 4, expected 3"},
      {"route = \"1\"\nadapters = 18\n", "router 1 adapters is 19, expected 18"},
      {"adapters = 8\n", "router 0 adapters is 7, expected 8"},
      {"routers = 3\n", "routers is 2, expected 3"},
  };
  for (const auto& test : kCases) {
    const lab::RunReport report = Play(kHubAndLooseDock + "[[expect]]\n" + test.keys);
    EXPECT_EQ(report.code, lab::ExitCode::Failed);
    EXPECT_EQ(Failures(report), std::string(":5:1: host/H1: ") + test.failure + "\n") << test.keys;
  }
}

// The driver's own figure is the one that it read too early; what became of the link is what an expectation is about.
TEST(RouterExpectations, ALinkThatBondsLateIsTheBondedOne) {
  tests::World world("H1:1 - D1:1");
  world.faults().FailFrom("link.slow-bonding", 1);
  ASSERT_EQ(world.Start(), 0);
  world.Quiet();
  EXPECT_NE(world.Tree().find("|__ 1 Example Hub D1, 20G = 1 x 20G"), std::string::npos) << world.Tree();
  lab::Expectation expectation;
  expectation.aboutRouter = true;
  expectation.route = 1;
  expectation.link = "40G = 2 x 20G";
  EXPECT_EQ(lab::Mismatches(expectation, world.machine(), false), std::vector<std::string>{});
  expectation.link = "20G = 1 x 20G";
  EXPECT_EQ(lab::Mismatches(expectation, world.machine(), false).size(), 1u);
}

TEST(Tree, RegistersAreTheHardwaresByNameAndField) {
  lab::RunOptions options;
  options.registers = true;
  const lab::RunReport report = Play(kHubAndLooseDock, options);
  EXPECT_EQ(report.code, lab::ExitCode::Held) << Failures(report);
  const std::string tree = Tree(report, 2);
  for (const char* line : {
           "|__ 1 Example Hub D1, 40G = 2 x 20G, available 36000/36000 Mb/s up/down, USB4, 19 adapters, TMU "
           "bi-directional, HiFi, ready\n",
           "0x000  ROUTER_CS_0            0x0b268086  VendorId=8086  DeviceId=b26\n",
           "0x001  ROUTER_CS_1            0x0314c128  FirstCapability=28  UpstreamAdapter=1  MaximumAdapter=13  "
           "Depth=1  "
           "Revision=3\n",
           " 1  000001  lane 0 of 1-2, bonded, to 0:1  (upstream)  [lane at 0x36, TMU at 0x0a, USB4 port at 0x9c]\n",
           "0x0ae  PORT_CS_18             0x00000510  BondingEnabled=1  Tbt3Compatible=0  WakeStatus=0\n",
           "15  000000  inactive\n",
       }) {
    EXPECT_NE(tree.find(line), std::string::npos) << line << tree;
  }
  // Asking costs packets, and nothing else: the same domain without.
  EXPECT_EQ(Tree(report), Tree(Play(kHubAndLooseDock)));
}

}  // namespace
