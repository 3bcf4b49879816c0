// Goal: what links are charged, and the picture of who crosses which link, follow from the tunnels' hops. Method: a
// domain written down by hand: a host, a hub on a bonded link, a dock on one lane of 10 Gb/s behind it.
#include "lab/machine/bandwidth.h"

#include <algorithm>

#include "lab/report/svg.h"

namespace {

lab::AdapterView Lane(unsigned number, std::optional<lab::AdapterPlace> remote) {
  lab::AdapterView adapter;
  adapter.number = number;
  adapter.type = 1;
  adapter.remote = remote;
  return adapter;
}

lab::TunnelView Tunnel(lab::TunnelKind kind, lab::AdapterPlace from, lab::AdapterPlace to,
                       std::vector<lab::HopView> hops) {
  lab::TunnelView tunnel;
  tunnel.kind = kind;
  tunnel.source = {from, ""};
  tunnel.destination = lab::TunnelEnd{to, ""};
  tunnel.active = true;
  tunnel.paths = {{"", true, false, 0, std::move(hops)}};
  return tunnel;
}

lab::DomainView Chain() {
  lab::DomainView domain;
  domain.name = "host/<H1>";
  domain.present = domain.started = true;
  lab::RouterView host, hub, dock;
  host.upstreamAdapter = 1;
  host.adapters = {Lane(1, lab::AdapterPlace{1, 1})};
  hub.route = 1;
  hub.depth = 1;
  hub.upstreamAdapter = 1;
  hub.deviceName = "Hub & more";
  hub.link = lab::LinkView{20, 2, true, {}};
  hub.adapters = {Lane(1, lab::AdapterPlace{0, 1}), Lane(2, {}), Lane(3, lab::AdapterPlace{0x301, 1})};
  dock.route = 0x301;
  dock.depth = 2;
  dock.upstreamAdapter = 1;
  dock.link = lab::LinkView{10, 1, false, {}};
  dock.adapters = {Lane(1, lab::AdapterPlace{1, 3})};
  domain.routers = {host, hub, dock};
  domain.tunnels = {
      Tunnel(lab::TunnelKind::Usb3, {0, 4}, {1, 16}, {{0, 4, 8, 1, 8}, {1, 1, 8, 16, 8}}),
      Tunnel(lab::TunnelKind::Dp, {0, 5}, {0x301, 10}, {{0, 5, 9, 1, 9}, {1, 1, 9, 3, 8}, {0x301, 1, 8, 10, 9}}),
      Tunnel(lab::TunnelKind::Pcie, {1, 10}, {0x301, 8}, {{1, 10, 8, 3, 9}, {0x301, 1, 9, 8, 8}}),
      Tunnel(lab::TunnelKind::Pcie, {0, 3}, {1, 9}, {{0, 3, 8, 1, 10}, {1, 1, 10, 9, 8}}),
  };
  domain.tunnels[0].consumed = lab::BandwidthView{12000, 1338};
  domain.tunnels[1].consumed = lab::BandwidthView{0, 17280};
  domain.tunnels[3].active = false;
  return domain;
}

std::string Text(const lab::LinkBudget& budget) {
  std::string text = std::to_string(budget.capacity) + " usable " + std::to_string(budget.usable) + " left " +
                     lab::BandwidthText(budget.available) + ":";
  for (const lab::TunnelView* tunnel : budget.crossing) text += " [" + lab::TunnelText(*tunnel) + "]";
  return text;
}

TEST(Bandwidth, EachLinkIsChargedForWhatCrossesIt) {
  const lab::DomainView domain = Chain();
  const std::vector<lab::LinkBudget> budgets = lab::LinkBudgets(domain);
  ASSERT_EQ(budgets.size(), 2u);
  EXPECT_EQ(Text(budgets[0]), "40000 usable 36000 left 24000/17382: [USB3 0:4 -> 1:16] [DP 0:5 -> 301:10]");
  EXPECT_EQ(Text(budgets[1]), "10000 usable 9000 left 9000/-8280: [DP 0:5 -> 301:10] [PCIe 1:10 -> 301:8]");
}

// Every element of `svg` that has `attribute`, as the value of that and of data-link.
std::vector<std::string> Pieces(const std::string& svg) {
  std::vector<std::string> pieces;
  for (std::size_t at = 0; (at = svg.find("data-tunnel=\"", at)) != std::string::npos;) {
    const std::size_t end = svg.find("/>", at);
    pieces.push_back(svg.substr(at, end - at));
    at = end;
  }
  return pieces;
}

TEST(Svg, EachTunnelIsDrawnOverTheLinksThatItCrosses) {
  EXPECT_EQ(Pieces(lab::FormatSvg({Chain()})), (std::vector<std::string>{
                                                   "data-tunnel=\"USB3 0:4 -&gt; 1:16\" data-link=\"0:1 - 1:1\"",
                                                   "data-tunnel=\"DP 0:5 -&gt; 301:10\" data-link=\"0:1 - 1:1\"",
                                                   "data-tunnel=\"DP 0:5 -&gt; 301:10\" data-link=\"1:3 - 301:1\"",
                                                   "data-tunnel=\"DP 0:5 -&gt; 301:10\" stroke-dasharray=\"4 3\"",
                                                   "data-tunnel=\"PCIe 1:10 -&gt; 301:8\" data-link=\"1:3 - 301:1\"",
                                               }));
}

// Two domains that are each other's peers, and a peer that is on no sheet.
TEST(Svg, PeersAreJoinedWhereBothDomainsAreDrawn) {
  lab::DomainView left = Chain(), right = Chain();
  lab::PeerView peer;
  peer.route = 0x301;
  peer.facing = {1, 3};
  peer.state = "ENUMERATED";
  peer.ownUuid = "01";
  peer.uuid = "02";
  peer.link = {20, 2, true, {}};
  left.peers = {peer, peer};
  left.peers[1].route = 0x501;
  left.peers[1].uuid = "03";
  std::swap(*peer.uuid, peer.ownUuid);
  right.peers = {peer};
  const auto count = [](const std::string& svg, const std::string& text) {
    std::size_t found = 0;
    for (std::size_t at = 0; (at = svg.find(text, at)) != std::string::npos; ++at) ++found;
    return found;
  };
  const std::string both = lab::FormatSvg({left, right}), alone = lab::FormatSvg({left});
  EXPECT_EQ(count(both, "class=\"peer\""), 3u);
  EXPECT_EQ(count(both, "class=\"joint\""), 3u) << "out, along, in";
  EXPECT_EQ(count(alone, "class=\"joint\""), 0u);
  EXPECT_EQ(count(alone, "data-link=\"1:3 - peer 501\""), 1u);
  EXPECT_EQ(count(alone, ">ENUMERATED, hops 0/0</text>"), 2u);
}

// What is wrong with the nesting of tags, or a bare & or <; empty for a text that a parser takes.
std::string NotWellFormed(const std::string& xml) {
  std::vector<std::string> open;
  for (std::size_t at = 0; at < xml.size(); ++at) {
    if (xml[at] == '&' && xml.find(';', at) > at + 6) return "bare & at " + std::to_string(at);
    if (xml[at] != '<') continue;
    const std::size_t end = xml.find('>', at);
    if (end == std::string::npos || xml.find('<', at + 1) < end) return "bare < at " + std::to_string(at);
    const std::string tag = xml.substr(at + 1, end - at - 1);
    if (std::count(tag.begin(), tag.end(), '"') % 2 != 0) return "open quote in " + tag;
    const std::string name = tag.substr(0, tag.find(' '));
    if (name[0] == '/') {
      if (open.empty() || open.back() != name.substr(1)) return "unexpected " + tag;
      open.pop_back();
    } else if (name[0] != '?' && tag.back() != '/') {
      open.push_back(name);
    }
  }
  return open.empty() ? "" : "never closed: " + open.back();
}

TEST(Svg, WellFormedWhateverNamesSay) {
  const std::string svg = lab::FormatSvg({Chain(), Chain()});
  EXPECT_EQ(NotWellFormed(svg), "");
  EXPECT_NE(svg.find("Hub &amp; more"), std::string::npos);
  EXPECT_NE(svg.find("host/&lt;H1&gt;"), std::string::npos);
  EXPECT_NE(svg.find("40G = 2 x 20G"), std::string::npos);
  EXPECT_NE(svg.find("available 9000/-8280 Mb/s"), std::string::npos);
  EXPECT_EQ(NotWellFormed("<a><b></a></b>"), "unexpected /a") << "the check itself can fail";
  EXPECT_EQ(NotWellFormed("<a>1 & 2 and more</a>"), "bare & at 5");
}

}  // namespace
