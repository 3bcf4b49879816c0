// Goal: each rule that gives or denies a tunnel is named, with the figures that it went by; and the picture of a domain
// does not depend on the order in which things happened. Method: machines that meet one rule each.
#include "lab/report/svg.h"
#include "lab/run/run.h"
#include "tests/support/scenario_text.h"

namespace {

lab::RunReport Explain(const std::string& text, std::optional<std::uint64_t> seed = {}) {
  lab::RunOptions options;
  options.explain = true;
  options.seed = seed;
  return tests::Play(text, options);
}

std::string Host(const char* model, bool pcie, bool usb3) {
  return std::string("host = [{ controller = [{ model = \"") + model +
         "\", registry = { 'PCIETunnel\\PCIETunnelSupported' = " + (pcie ? "1" : "0") +
         ", 'USB3Tunnel\\USB3TunnelSupported' = " + (usb3 ? "1" : "0") + " } }] }]\n";
}

const std::string kHub = "router = [{ model = \"D1\" }]\nlink = [{ from = \"H1:1\", to = \"D1:1\" }]\n";
const std::string kPoorHub =
    "router = [{ model = \"D1\" }]\nlink = [{ from = \"H1:1\", to = \"D1:1\", lanes = 1, gbpsPerLane = 10 }]\n";

const std::string kSlowHub =
    "router = [{ model = \"D1\" }]\nlink = [{ from = \"H1:1\", to = \"D1:1\", gbpsPerLane = 10 }]\n";

TEST(Explain, EachRuleIsNamedWithItsFigures) {
  const struct {
    const char* what;
    std::string scenario;
    const char* line;
  } kCases[] = {
      {"the registry", Host("H1", false, true) + kHub,
       "PCIe of router 1 (1:9)\n      has no tunnel: the registry does not allow tunnels of this kind\n"},
      {"too little for USB3", Host("H1", true, true) + kPoorHub,
       "USB3 of router 1 (1:16)\n      has no tunnel: it wants 18000 Mb/s (90 % of 20000) each way, its link leaves "
       "9000/9000 up/down after displays\n"},
      {"a display with room", Host("H1", true, false) + kHub + "display = [{ adapter = \"D1:13\" }]\n",
       "display at 1:13 of D1, up to 8100 x 4 (25920 Mb/s)\n      has DP 0:5 -> 1:13, active, consumed 0/25920 Mb/s "
       "up/down; runs at 8100 x 4 (25920 Mb/s), all that it can do\n"},
      {"a display with less", Host("H1", true, false) + kSlowHub + "display = [{ adapter = \"D1:13\" }]\n",
       "reduced to 5400 x 4 (17280 Mb/s) because 18000/18000 Mb/s up/down were to be had\n"},
      {"a second display",
       Host("H1", true, false) + kHub + "display = [{ adapter = \"D1:13\" }, { adapter = \"D1:14\" }]\n",
       "reduced to 2700 x 4 (8640 Mb/s) because 36000/10080 Mb/s up/down were to be had\n"},
      {"who holds what", Host("H1", true, true) + kHub,
       "  link 0:1 - 1:1: 40G = 2 x 20G, 40000 Mb/s each way, 36000 usable\n"
       "      USB3 0:4 -> 1:16         24000/24000\n"
       "      PCIe 0:3 -> 1:9          not charged\n"
       "      available                12000/12000\n"},
      {"a device that is gone", Host("H1", true, true) + "event = [{ at = \"1 s\", do = \"sleep\" }]\n",
       "the device is not running"},
  };
  for (const auto& test : kCases) {
    const lab::RunReport report = Explain(test.scenario);
    ASSERT_EQ(report.explanations.size(), 1u) << test.what;
    EXPECT_NE(report.explanations[0].find(test.line), std::string::npos) << test.what << "\n" << report.explanations[0];
  }
}

// What a peer and its cable do to the lanes.
TEST(Explain, WhyAPeerHasItsLanes) {
  const std::string low = "host = [{ controller = [{ model = \"H1\", uid = \"1\" }] }]\n",
                    high = "host = [{ controller = [{ model = \"H1\", uid = \"3\" }] }]\n";
  const auto peer = [](const char* keys, const char* cable = "") {
    return std::string("peer = [{ name = \"friend\", uid = \"2\", ") + keys +
           " }]\nevent = [{ at = \"1 s\", do = \"plug\", from = \"H1:1\", to = \"friend:1\"" + cable + " }]\n";
  };
  const struct {
    std::string scenario;
    const char* line;
  } kCases[] = {
      {low + peer("behaviour = \"good\""),
       "  peer 1 at 0:1: Example PEER, ENUMERATED\n"
       "      has two lanes: this host has the lower UUID and asked for them\n"},
      {high + peer("behaviour = \"good\""), "has two lanes: the peer has the lower UUID and asked for them\n"},
      {high + peer("behaviour = \"reluctant\""),
       "has one lane: the peer has the lower UUID, and never asked for two lanes\n"},
      {low + peer("behaviour = \"one-lane\""), "has one lane: the peer supports one lane only\n"},
      {low + peer("behaviour = \"good\"", ", lanes = 1"), "has one lane: the cable has no second lane\n"},
      {low + peer("sameUuidAs = \"H1\""), "has one lane: the cable leads back to a host with this host's UUID\n"},
      {low + peer("behaviour = \"silent\""), "ERROR\n      has one lane: the peer has not said who it is\n"},
      {low + peer("behaviour = \"good\", asks = false, lanes = 1"), "has one lane: the peer supports one lane only\n"},
  };
  for (const auto& test : kCases) {
    const lab::RunReport report = Explain(test.scenario);
    ASSERT_EQ(report.explanations.size(), 1u);
    EXPECT_NE(report.explanations[0].find(test.line), std::string::npos) << test.line << report.explanations[0];
  }
}

TEST(Explain, ThreeDisplaysOnTwoSources) {
  const lab::RunReport report =
      Explain(Host("H1", true, false) +
              "router = [{ model = \"D1\" }, { model = \"D2\" }]\n"
              "link = [{ from = \"H1:1\", to = \"D1:1\" }, { from = \"D1:3\", to = \"D2:1\" }]\n"
              "display = [{ adapter = \"D1:13\" }, { adapter = \"D1:14\" }, { adapter = \"D2:11\" }]\n");
  ASSERT_EQ(report.explanations.size(), 1u);
  std::size_t waiting = 0;
  for (std::size_t at = 0;
       (at = report.explanations[0].find("every DP IN is in use: DP 0:5 -> ", at)) != std::string::npos; ++at) {
    ++waiting;
  }
  EXPECT_EQ(waiting, 1u) << report.explanations[0];
}

TEST(Picture, TheSameWhateverTheOrderOfThings) {
  const std::string scenario = Host("H1", true, true) + kHub + "display = [{ adapter = \"D1:13\" }]\n";
  const std::string first = lab::FormatSvg(Explain(scenario).domains);
  EXPECT_NE(first.find("data-tunnel=\"DP 0:5 -&gt; 1:13\" data-link=\"0:1 - 1:1\""), std::string::npos) << first;
  for (std::uint64_t seed = 1; seed <= 4; ++seed) {
    EXPECT_EQ(lab::FormatSvg(Explain(scenario, seed).domains), first) << "seed " << seed;
  }
}

}  // namespace
