// Goal: what a run says is complete and in the promised form, for people and for programs.
#include <cstring>
#include <set>

#include "lab/machine/fault_profiles.h"
#include "lab/machine/waivers.h"
#include "lab/report/driver_event.h"
#include "lab/report/json_report.h"
#include "lab/report/tree.h"
#include "lab/run/run.h"

namespace {

lab::Scenario Read(const char* name) {
  return lab::ReadScenario(std::string(PROJECT_ROOT "/scenarios/") + name);
}

lab::TunnelView Usb3Tunnel() {
  lab::TunnelView tunnel;
  tunnel.kind = lab::TunnelKind::Usb3;
  tunnel.source = {{0, 4}, "0-0"};
  tunnel.destination = lab::TunnelEnd{{1, 16}, "0-1"};
  tunnel.active = true;
  tunnel.allocated = lab::BandwidthView{9000, 500};
  tunnel.consumed = lab::BandwidthView{12000, 666};
  tunnel.paths = {{"USB3 Down", true, false, 0, {{0, 4, 8, 1, 9}, {1, 1, 9, 16, 8}}},
                  {"USB3 Up", false, false, 0, {{1, 16, 8, 1, 9}, {0, 1, 9, 4, 8}}}};
  return tunnel;
}

lab::DomainView SmallDomain() {
  lab::DomainView domain;
  domain.name = "host/H1";
  domain.present = true;
  lab::RouterView host;
  host.name = "0-0";
  host.generation = 4;
  host.upstreamAdapter = 2;
  host.adapters = {{1, 0x000001}, {2, 0x000002}};
  lab::RouterView hub;
  hub.name = "0-1";
  hub.route = 1;
  hub.depth = 1;
  hub.generation = 4;
  hub.vendorName = "Vendor";
  hub.deviceName = "Hub";
  hub.uid = "00000000000000a1";
  hub.link = lab::LinkView{20, 2, true, lab::BandwidthView{24000, -500}};
  lab::RouterView dock;
  dock.route = 0x301;
  dock.depth = 2;
  dock.generation = 3;
  dock.link = lab::LinkView{10, 2, true, {}};
  domain.routers = {host, hub, dock};
  return domain;
}

TEST(Tree, RoutersHangBelowTheirParents) {
  EXPECT_EQ(lab::FormatTree(SmallDomain(), false),
            "/:  Domain host/H1\n"
            "    |__ 0 (no name), host, USB4, 2 adapters\n"
            "        |__ 1 Vendor Hub, 40G = 2 x 20G, available 24000/-500 Mb/s up/down, USB4, 0 adapters\n"
            "            |__ 301 (no name), 20G = 2 x 10G, Thunderbolt 3, 0 adapters\n");
}

// Reached by adapter 3 of the hub; it has said who it is and nothing more.
lab::PeerView SmallPeer() {
  lab::PeerView peer;
  peer.route = 0x301;
  peer.facing = {1, 3};
  peer.name = "0-301";
  peer.state = "PROPERTIES";
  peer.ownUuid = "01000000000000000000000000000000";
  peer.uuid = "02000000000000000000000000000000";
  peer.inputHopLimit = 22;
  peer.outputHopLimit = 15;
  return peer;
}

TEST(Tree, PeersBelowTheRouterThatLeadsToThem) {
  lab::DomainView domain = SmallDomain();
  domain.routers.resize(2);
  domain.routers[1].link->available = std::nullopt;
  domain.peers = {SmallPeer(), SmallPeer()};
  domain.peers[1].vendorName = "Vendor";
  domain.peers[1].deviceName = "LAPTOP";
  domain.peers[1].link = {20, 2, true, {}};
  domain.peers[1].replaced = true;
  EXPECT_EQ(lab::FormatTree(domain, false),
            "/:  Domain host/H1\n"
            "    |__ 0 (no name), host, USB4, 2 adapters\n"
            "        |__ 1 Vendor Hub, 40G = 2 x 20G, USB4, 0 adapters\n"
            "            <-> 301 (no name), link not read, peer host, PROPERTIES, hops 22/15\n"
            "            <-> 301 Vendor LAPTOP, 40G = 2 x 20G, peer host, PROPERTIES, hops 22/15, replaced by another "
            "host\n");
  domain.peers.resize(1);
  EXPECT_NE(lab::FormatTree(domain, true).find("      at 1:3, UUID 02000000000000000000000000000000, vendor 0x0000"),
            std::string::npos);
}

TEST(Tree, AdaptersWhereAskedFor) {
  lab::DomainView domain = SmallDomain();
  domain.routers.resize(1);
  EXPECT_EQ(lab::FormatTree(domain, true),
            "/:  Domain host/H1\n"
            "    |__ 0 (no name), host, USB4, 2 adapters\n"
            "           1  000001  lane\n"
            "           2  000002  host interface  (upstream)\n");
}

TEST(Tree, TunnelsBelowTheRouterWhereTheyStart) {
  lab::DomainView domain = SmallDomain();
  domain.routers.resize(2);
  lab::TunnelView orphan;
  orphan.source = {{1, 10}, "0-1"};
  orphan.listed = false;
  domain.tunnels = {Usb3Tunnel(), orphan};
  EXPECT_EQ(lab::FormatTree(domain, 0),
            "/:  Domain host/H1\n"
            "    |__ 0 (no name), host, USB4, 2 adapters\n"
            "        === USB3 0:4 -> 1:16, active, allocated 9000/500, consumed 12000/666 Mb/s up/down\n"
            "        |__ 1 Vendor Hub, 40G = 2 x 20G, available 24000/-500 Mb/s up/down, USB4, 0 adapters\n"
            "            === PCIe 1:10 -> ?, inactive, not listed\n");
  const std::string hops = lab::FormatTree(domain, 1);
  EXPECT_NE(hops.find("              USB3 Down  0:4 8 -> 0:1 9 | 1:1 9 -> 1:16 8\n"
                      "              USB3 Up    1:16 8 -> 1:1 9 | 0:1 9 -> 0:4 8, inactive\n"),
            std::string::npos)
      << hops;
}

// Without line ends and the indentation behind them.
std::string Unbroken(const std::string& text) {
  std::string unbroken;
  for (std::size_t at = 0; (at = text.find_first_not_of(" \n", at)) < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    unbroken += text.substr(at, end - at);
    at = end;
  }
  return unbroken;
}

// The second tunnel is not listed, so the document has one.
TEST(Json, OneDocumentWithEveryKeyInOrder) {
  lab::RunReport report;
  report.seeded = true;
  report.seed = 18446744073709551615u;
  report.virtualTime = 123'456;
  report.domains = {SmallDomain()};
  report.domains[0].routers.resize(2);
  report.domains[0].tunnels = {Usb3Tunnel(), Usb3Tunnel()};
  report.domains[0].tunnels[1].listed = false;
  report.domains[0].peers = {SmallPeer(), SmallPeer()};
  report.domains[0].peers[1].link = {10, 1, false, {}};
  report.events.push_back({5'000, "host", "sleep", "asked"});
  report.failures = {"routers is 1, expected 2"};
  report.waivers = {{platform::Rule::StallTooLong, "KeStall", 3100, "power-on", 2}};
  report.waivedErrors = {{1, sim::Complaint::NoPathYet, "H1:3 (route 0)", {}, 3}};
  report.leftovers = {{"host", 1, 2, 3, 4, 5}};
  report.step = 99;
  report.failedStep = 98;
  report.faultsFired = 7;
  report.traceHash = 0xAB;
  EXPECT_EQ(Unbroken(lab::FormatJson(report)), Unbroken(R"({
    "format_version": "1.4","verdict": "pass","seed": "18446744073709551615","virtualTimeMs": 12.3456,
    "routers": [{
      "route": "0","name": "0-0","generation": 4,"vendorName": null,"deviceName": null,"uid": null,
      "depth": 0,"upstreamAdapter": 2,"adapters": [[1,"lane",1],[2,"host interface",2]],"link": null,"tmu": null
    },{
      "route": "1","name": "0-1","generation": 4,"vendorName": "Vendor","deviceName": "Hub","uid": "00000000000000a1",
      "depth": 1,"upstreamAdapter": 0,"adapters": [],
      "link": {"speedGbps": 20,"lanes": 2,"bonded": true,"availableMbps": {"up": 24000,"down": -500}},"tmu": null
    }],
    "tunnels": [{
      "type": "USB3","source": {"adapter": "0:4","router": "0-0"},"destination": {"adapter": "1:16","router": "0-1"},
      "active": true,"allocatedMbps": {"up": 9000,"down": 500},"consumedMbps": {"up": 12000,"down": 666},
      "paths": [{"name": "USB3 Down","active": true,"hops": [
        {"in": "0:4","inHop": 8,"out": "0:1","outHop": 9},{"in": "1:1","inHop": 9,"out": "1:16","outHop": 8}
      ]},{"name": "USB3 Up","active": false,"hops": [
        {"in": "1:16","inHop": 8,"out": "1:1","outHop": 9},{"in": "0:1","inHop": 9,"out": "0:4","outHop": 8}
      ]}]
    }],
    "peers": [{
      "route": "301","adapter": "1:3","name": "0-301","state": "PROPERTIES","uuid": "02000000000000000000000000000000",
      "ownUuid": "01000000000000000000000000000000","vendorName": null,"deviceName": null,"vendorId": 0,"deviceId": 0,
      "link": null,"inputHopLimit": 22,"outputHopLimit": 15
    },{
      "route": "301","adapter": "1:3","name": "0-301","state": "PROPERTIES","uuid": "02000000000000000000000000000000",
      "ownUuid": "01000000000000000000000000000000","vendorName": null,"deviceName": null,"vendorId": 0,"deviceId": 0,
      "link": {"speedGbps": 10,"lanes": 1,"bonded": false},"inputHopLimit": 22,"outputHopLimit": 15
    }],"violations": [],"protocolErrors": [],
    "failures": ["routers is 1, expected 2"],"hang": null,"waived": [{"rule": "stall-too-long",
      "where": "KeStall","count": 2,"reason": "power-on"}],
    "excused": [{"timeMs": 0.0001,"rule": "no-path-yet",
      "text": "H1:3 (route 0): switched on before a path begins here [no-path-yet]","count": 3}],
    "leftovers": [{"host": "host","poolBytes": 1,"handles": 2,"mappings": 3,"buffers": 4,"references": 5}],
    "choices": 99,"failedAtChoice": 98,"faults": 7,"traceHash": "00000000000000ab",
    "events": [{"timeMs": 0.5,"where": "host","event": "sleep","effect": "asked"}]
  })"));
}

TEST(DriverEvents, UnpackedFieldByField) {
  const char payload[] =
      "Start\0went wrong\0"
      "\x2a\0\0\0"
      "\x0b"
      "count\0\x01\x05\0\0\0\0\0\0\0"
      "by\0\x02\xfb\xff\xff\xff\xff\xff\xff\xff"
      "name\0\x03H1\0"
      "route\0\x04\x01\x03\0\0\0\0\0\0"
      "adapter\0\x05"
      "0-301\0\x0a"
      "mask\0\x06\0\0\0\x80\0\0\0\0"
      "status\0\x07\x9a\0\0\xc0\xff\xff\xff\xff"
      "code\0\x07\x01\0\0\xe0\xff\xff\xff\xff"
      "result\0\x08\xf4\xff\xff\xff\xff\xff\xff\xff"
      "space\0\x09router\0"
      "timeout\0\x0a\xc8\0\0\0\0\0\0\0";
  const auto bytes = std::as_bytes(std::span(payload, sizeof(payload) - 1));
  const auto event = lab::UnpackDriverEvent(bytes);
  ASSERT_TRUE(event);
  EXPECT_EQ(event->operation, "Start");
  EXPECT_EQ(event->line, 42u);
  EXPECT_EQ(lab::FormatDriverEvent(*event),
            "went wrong count=5 by=-5 name=H1 route=301 adapter=0-301:10 mask=0x80000000 "
            "status=0xC000009A (STATUS_INSUFFICIENT_RESOURCES) code=0xE0000001 result=-12 (no memory) space=router "
            "timeout=200 ms");
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_FALSE(lab::UnpackDriverEvent(bytes.first(size))) << size;
  }
}

TEST(FaultProfiles, EachArmsItsSitesAndTheDrawnOnesVaryBySeed) {
  unsigned alike = 0;
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    platform::FaultPlan one(seed), other(seed + 1);
    EXPECT_TRUE(lab::ArmFaults("heavy", seed, one));
    EXPECT_TRUE(lab::ArmFaults("heavy", seed + 1, other));
    alike += one.Sites() == other.Sites();
  }
  EXPECT_LT(alike, 5u) << "seeds draw different faults";
  std::set<std::string> light;
  for (std::uint64_t seed = 1; seed <= 40; ++seed) {
    platform::FaultPlan plan(seed);
    EXPECT_TRUE(lab::ArmFaults("light", seed, plan));
    for (const std::string& site : plan.Sites()) light.insert(site);
  }
  EXPECT_EQ(light,
            (std::set<std::string>{"wire.corrupt", "wire.delay", "wire.lose", "wire.truncate", "wire.wrong-sequence"}));
  platform::FaultPlan lose(7);
  EXPECT_TRUE(lab::ArmFaults("lose", 7, lose));
  EXPECT_EQ(lose.Sites(), std::vector<std::string>{"wire.lose"});
  platform::FaultPlan hardware(7);
  EXPECT_TRUE(lab::ArmFaults("hardware", 7, hardware));
  EXPECT_EQ(hardware.Sites(), (std::vector<std::string>{"dp.no-capabilities", "dp.no-handshake", "path.never-drains",
                                                        "router.operation-refused", "router.operation-slow",
                                                        "router.operation-stuck", "usb3.no-acknowledge"}));
  platform::FaultPlan none(7);
  EXPECT_TRUE(lab::ArmFaults("none", 7, none));
  EXPECT_TRUE(none.Sites().empty());
  EXPECT_FALSE(lab::ArmFaults("looose", 7, none));
}

TEST(Waivers, EachIsUsedAndNeverBeyondItsBound) {
  // The power-on sequence runs in this scenario, once, and polls with its long stalls.
  const lab::RunReport report = lab::RunScenario(Read("two-controllers.toml"), {});
  EXPECT_EQ(report.code, lab::ExitCode::Held);
  EXPECT_EQ(report.waivers.size(), lab::KnownWaivers().size());
  for (const platform::Waiver& waiver : report.waivers) EXPECT_GT(waiver.hits, 0u) << waiver.reason;
}

}  // namespace
