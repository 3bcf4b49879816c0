// Goal: a topology that cannot exist is refused where it is written, with what could have been meant. Method: scenarios
// with one mistake each, below a head that is right.
#include "tests/support/scenario_text.h"

namespace {

using tests::Complaint;

// Lines 1 to 3: an H1 as the host, hubs D1 and D2, a dock T3.
const std::string kRouters =
    "router = [{ model = \"D1\" },\n{ model = \"D2\" },\n{ name = \"dock\", model = \"T3\" }]\n";

std::string Link(const char* from, const char* to) {
  return std::string("[[link]]\nfrom = \"") + from + "\"\nto = \"" + to + "\"\n";
}

TEST(TopologyInput, RoutersThatCannotBe) {
  const struct {
    const char* text;
    const char* complaint;
  } kCases[] = {
      {"[[router]]\nname = \"a\"\n", "1:1: model is missing"},
      {"[[router]]\nmodel = \"DOKC\"\n", "2:9: unknown model \"DOKC\" (did you mean \"DOCK\"?)"},
      {"[[router]]\nmodel = \"H2\"\n",
       "2:9: \"H2\" is a model of a host router, which stands in [[host.controller]] (did you mean \"D2\"?)"},
      {"[[router]]\nmodel = \"D1\"\n[[router]]\nmodel = \"D1\"\n", "3:1: a second router \"D1\""},
      {"[[router]]\nmodel = \"D1\"\nname = \"H1\"\n", "3:8: a second router \"H1\""},
      {"[[router]]\nmodel = \"D1\"\nname = \"a:1\"\n",
       "3:8: \"a:1\" is no name for a router: it may not be empty or contain : or /"},
      {"[[router]]\nmodel = \"D1\"\nport = 1\n", "3:1: unknown key \"port\""},
  };
  for (const auto& test : kCases) EXPECT_EQ(Complaint(test.text), test.complaint) << test.text;
}

TEST(TopologyInput, WhatCannotStandBelowTheRouters) {
  const struct {
    std::string text;
    const char* complaint;
  } kCases[] = {
      {Link("H1", "D1:1"), "5:8: from must be a router and its port, such as \"D1:3\""},
      {Link("H1:1", "D1:x"), "6:6: to must be a router and its port, such as \"D1:3\""},
      {Link("H1:1", "D3:1"), "6:6: unknown router \"D3\" (did you mean \"D1\"?)"},
      {Link("H1:1", "D1:20"), "6:6: D1 has no adapter 20 (ports of D1: 1, 3, 5, 7)"},
      {Link("H1:1", "D1:0"), "6:6: D1 has no adapter 0 (ports of D1: 1, 3, 5, 7)"},
      {Link("H1:1", "D1:9"),
       "6:6: D1:9 is of type \"PCIe upstream\", a cable needs a lane adapter (ports of D1: 1, 3, 5, 7)"},
      {Link("H1:1", "dock:3"), "6:6: dock:3 is switched off, a cable needs a lane adapter (ports of dock: 1)"},
      {Link("H1:2", "D1:1"), "5:8: H1:2 is the second lane of its port (did you mean \"H1:1\"?)"},
      {Link("D1:1", "D1:3"), "6:6: a cable from D1:1 to its own router"},
      {"[[display]]\nadapter = \"D1:12\"\n", "5:11: D1:12 is no DP OUT adapter (D1 has: 13, 14)"},
      {"[[display]]\nadapter = \"D1:13\"\nlanes = 3\n", "6:9: lanes must be one of 1, 2, 4"},
      {"[[display]]\nadapter = \"D1:13\"\nmbpsPerLane = 8000\n",
       "6:15: mbpsPerLane must be one of 1620, 2700, 5400, 8100"},
      {"[[display]]\nadapter = \"D3:13\"\n", "5:11: unknown router \"D3\" (did you mean \"D1\"?)"},
      {"[[usb3]]\nadapter = \"H1:3\"\n", "5:11: H1:3 is no USB3 downstream adapter (H1 has: 4)"},
      {"[[usb3]]\nadapter = \"H1:4\"\ngbps = 15\n", "6:8: gbps must be one of 10, 20"},
      {"[[firmware]]\nkind = \"pci\"\n",
       "5:8: unknown kind \"pci\" (did you mean \"pcie\"?)\n4:1: from is missing\n4:1: to is missing"},
      {"[[firmware]]\nkind = \"dp\"\nfrom = \"H1:4\"\nto = \"D1:13\"\n",
       "6:8: H1:4 is no DP IN adapter (H1 has: 5, 6)"},
      {"[[firmware]]\nkind = \"dp\"\nfrom = \"H1:5\"\nto = \"D1:13\"\nstate = \"brokn\"\n",
       "8:9: unknown state \"brokn\" (did you mean \"broken\"?)"},
      {"[[event]]\nat = \"1 s\"\ndo = \"plug-display\"\nadapter = \"D1:9\"\n",
       "7:11: D1:9 is no DP OUT adapter (D1 has: 13, 14)"},
      {"[[link]]\nfrom = \"H1:1\"\nto = \"D1:1\"\nlanes = 1\nbonded = true\n",
       "8:10: a cable of one lane cannot be bonded"},
      {Link("H1:1", "D1:1") + Link("D2:1", "D1:1"),
       "9:6: D1:1 has a cable already, to H1:1 (free ports of D1: 3, 5, 7)"},
      {Link("H1:1", "D1:1") + Link("D1:3", "D2:1") + Link("D2:3", "D1:5"),
       "12:6: this cable closes a loop: D2 and D1 are connected already (leave it out)"},
      {Link("D1:3", "D2:1") + "lanes = 3\n", "7:9: lanes must be in 1 to 2"},
      {Link("D1:3", "D2:1") + "gbpsPerLane = 15\n", "7:15: gbpsPerLane must be 10 or 20"},
  };
  for (const auto& test : kCases) EXPECT_EQ(Complaint(kRouters + test.text), test.complaint) << test.text;
}

std::string Peer(const char* name, const std::string& more = "") {
  return std::string("[[peer]]\nname = \"") + name + "\"\n" + more;
}

TEST(TopologyInput, CablesBetweenHosts) {
  const std::string twoHosts =
      "host = [{ name = \"a\" }, { name = \"b\", controller = [{ model = \"H3\" }] }]\n" + kRouters;
  const struct {
    std::string text;
    const char* complaint;
  } kCases[] = {
      {kRouters + Peer("friend") + Link("H1:1", "friend:1"), ""},
      {kRouters + Peer("friend") + Link("H1:1", "D1:1") + Link("D1:3", "friend:1"), ""},
      {kRouters + Peer("friend") + Link("H1:1", "D1:1") + Link("friend:1", "D2:1") + Link("D1:3", "D2:3"), ""},
      {twoHosts + Link("a/H1:1", "b/H3:3"), ""},
      {twoHosts + Peer("friend") + Link("a/H1:1", "b/H3:3") + Link("b/H3:1", "friend:1"), ""},
      {twoHosts + Link("b/H3:1", "b/H3:3"), ""},
      {twoHosts + Link("b/H3:1", "b/H3:1"), "7:6: a cable from b/H3:1 to its own router"},
      {twoHosts + Link("b/H3:1", "D1:1") + Link("D1:3", "b/H3:3"),
       "10:6: this cable closes a loop: D1 and b/H3 are connected already (leave it out)"},
      {kRouters + "[[peer]]\n", "4:1: name is missing"},
      {kRouters + Peer("D1"), "1:11: a second router \"D1\""},
      {kRouters + Peer("a:1"), "5:8: \"a:1\" is no name for a peer: it may not be empty or contain : or /"},
      {kRouters + Peer("x", "behaviour = \"slwo\"\n"), "6:13: unknown behaviour \"slwo\" (did you mean \"slow\"?)"},
      {kRouters + Peer("x", "sameUuidAs = \"H3\"\n"), "6:14: unknown sameUuidAs \"H3\" (did you mean \"H1\"?)"},
      {kRouters + Peer("x", "uid = \"0x1\"\n"),
       "6:7: uid must be at most 16 hex digits without 0x, such as \"0123456789abcd01\""},
      {kRouters + Peer("x", "pieceWords = 46\n"), "6:14: pieceWords must be in 0 to 45"},
  };
  for (const auto& test : kCases) EXPECT_EQ(Complaint(test.text), test.complaint) << test.text;
}

// A chain of `count` routers below `host`, each by its port 3 and the next one's port 1.
std::string Chain(const std::string& host, const std::string& model, unsigned count) {
  std::string text = "[[host]]\n[[host.controller]]\nmodel = \"" + host + "\"\n";
  for (unsigned i = 1; i <= count; ++i) {
    text += "[[router]]\nname = \"L" + std::to_string(i) + "\"\nmodel = \"" + model + "\"\n";
  }
  for (unsigned i = 1; i <= count; ++i) {
    text += Link(i == 1 ? (host + ":1").c_str() : ("L" + std::to_string(i - 1) + ":3").c_str(),
                 ("L" + std::to_string(i) + ":1").c_str());
  }
  return text;
}

TEST(TopologyInput, DepthEndsAtTheLimit) {
  const struct {
    const char* host;
    const char* model;
    unsigned fits;
  } kCases[] = {{"H1", "D1", 5}, {"H1", "G2", 5}, {"HT", "D1", 5}, {"HT", "G2", 6}};
  for (const auto& test : kCases) {
    EXPECT_EQ(Complaint(Chain(test.host, test.model, test.fits)), "") << test.host << " " << test.model;
    const std::string level = std::to_string(test.fits + 1), limit = std::to_string(test.fits);
    EXPECT_NE(Complaint(Chain(test.host, test.model, test.fits + 1))
                  .find("L" + level + " would be " + level + " levels below " + test.host + ", " + limit +
                        " is the limit (plug it in nearer to the host)"),
              std::string::npos)
        << test.host << " " << test.model;
  }
}

TEST(TopologyInput, EventsArePlayedOnThePlanInTimeOrder) {
  const std::string links = kRouters + Link("H1:1", "D1:1");
  const std::string plug = "[[event]]\ndo = \"plug\"\nfrom = \"D1:3\"\nto = \"D2:1\"\n";
  const std::string unplug = "[[event]]\ndo = \"unplug\"\n";
  const struct {
    std::string events;
    const char* complaint;
  } kCases[] = {
      {plug + "at = \"2 s\"\n" + unplug + "what = \"D2\"\nat = \"3 s\"\n", ""},
      {plug + "at = \"2 s\"\n" + unplug + "what = \"D2\"\nat = \"1 s\"\n", "14:8: no cable at D2"},
      {unplug + "what = \"H1:1\"\nat = \"1 s\"\n", ""},
      {unplug + "what = \"D1:5\"\nat = \"1 s\"\n", "9:8: no cable at D1:5"},
      {unplug + "what = \"D9\"\nat = \"1 s\"\n", "9:8: unknown router \"D9\" (did you mean \"D1\"?)"},
      {"[[event]]\ndo = \"drop-link\"\nwhat = \"D2\"\nat = \"1 s\"\n", "9:8: no cable at D2"},
      // What happens at a packet may come at any time, so whether the port is free then is the run's business.
      {plug + "packet = 7\n" + plug + "at = \"1 s\"\n", ""},
      {plug + "packet = 7\nat = \"1 s\"\n", "12:6: either at or packet, not both"},
      {"[[event]]\ndo = \"disable\"\npacket = 7\n", "9:10: disable and enable happen at a time, not at a packet"},
      {plug + "packet = 0\n", "11:10: packet must be in 1 to 1000000000"},
      {"[[expect]]\nroute = \"0x1\"\n", "8:9: route must be hex digits without 0x, one byte a level, such as \"301\""},
      {"[[expect]]\ntmu = \"off\"\n", "8:7: tmu needs the router's route"},
  };
  for (const auto& test : kCases) EXPECT_EQ(Complaint(links + test.events), test.complaint) << test.events;
}

}  // namespace
