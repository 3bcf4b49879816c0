// Routes decide the shape: a router hangs below the one whose route is its own without the last byte.
#include "lab/report/tree.h"

#include <fmt/format.h>

namespace lab {
namespace {

std::uint64_t ParentRoute(const RouterView& router) {
  return router.depth == 0 ? 0 : router.route & ~(std::uint64_t{0xFF} << (8 * (router.depth - 1)));
}

std::string RouterLine(const RouterView& router) {
  std::string name = "(no name)";
  if (router.vendorName || router.deviceName) {
    name = router.vendorName.value_or("") + (router.vendorName ? " " : "") + router.deviceName.value_or("");
  }
  const std::string generation = router.generation == 4 ? "USB4" : fmt::format("Thunderbolt {}", router.generation);
  std::string link = router.link ? LinkText(*router.link) : "host";
  if (router.link && router.link->available) {
    link += fmt::format(", available {} Mb/s up/down", BandwidthText(*router.link->available));
  }
  std::string line =
      fmt::format("{:x} {}, {}, {}, {} adapters", router.route, name, link, generation, router.adapters.size());
  if (router.tmu) line += fmt::format(", TMU {}", *router.tmu);
  if (!router.state.empty()) line += ", " + router.state;
  return line;
}

std::string CapabilityText(const std::vector<std::pair<std::string, unsigned>>& capabilities) {
  std::string text;
  for (const auto& [name, offset] : capabilities) {
    text += fmt::format("{}{} at 0x{:02x}", text.empty() ? "" : ", ", name, offset);
  }
  return text;
}

std::string AdapterLine(const RouterView& router, const AdapterView& adapter) {
  std::string line = fmt::format("{:>2}  {:06x}  {}", adapter.number, adapter.type, AdapterTypeName(adapter.type));
  if (adapter.disabled) line += ", disabled";
  if (adapter.partner) {
    line += fmt::format(" {} of {}-{}", adapter.secondLane ? 1 : 0, std::min(adapter.number, *adapter.partner),
                        std::max(adapter.number, *adapter.partner));
  }
  if (adapter.bonded) line += ", bonded";
  if (adapter.remote) line += fmt::format(", to {:x}:{}", adapter.remote->route, adapter.remote->adapter);
  if (adapter.number == router.upstreamAdapter) line += "  (upstream)";
  if (!adapter.capabilities.empty()) line += "  [" + CapabilityText(adapter.capabilities) + "]";
  return line;
}

void AppendRegisters(std::string& text, const std::vector<RegisterView>& registers, const std::string& indent) {
  for (const RegisterView& each : registers) {
    const std::string word = each.word ? fmt::format("0x{:08x}", *each.word) : "no answer";
    text += fmt::format("{}0x{:03x}  {:<22} {}", indent, each.offset, each.name, word);
    for (const auto& [field, value] : each.fields) text += fmt::format("  {}={:x}", field, value);
    text += '\n';
  }
}

class Writer {
 public:
  Writer(const DomainView& domain, unsigned verbosity) : domain_(domain), verbosity_(verbosity) {}

  void Append(const RouterView& router, const std::string& indent) {
    text += fmt::format("{}|__ {}\n", indent, RouterLine(router));
    const std::string below = indent + "    ";
    if (verbosity_ > 0) AppendDetails(router, below + "  ");
    for (const TunnelView& tunnel : domain_.tunnels) {
      if (tunnel.source.place.route == router.route) AppendTunnel(tunnel, below);
    }
    for (const PeerView& peer : domain_.peers) {
      if (peer.facing.route == router.route) AppendPeer(peer, below);
    }
    for (const RouterView& child : domain_.routers) {
      if (child.depth == router.depth + 1 && ParentRoute(child) == router.route) Append(child, below);
    }
  }

  std::string text;

 private:
  void AppendPeer(const PeerView& peer, const std::string& indent) {
    text += fmt::format("{}<-> {}\n", indent, PeerLine(peer));
    if (verbosity_ == 0) return;
    text += fmt::format("{}      at {:x}:{}, UUID {}, vendor 0x{:04x}, device 0x{:04x}\n", indent, peer.facing.route,
                        peer.facing.adapter, peer.uuid.value_or("unknown"), peer.vendorId, peer.deviceId);
  }

  void AppendTunnel(const TunnelView& tunnel, const std::string& indent) {
    text += fmt::format("{}=== {}\n", indent, TunnelLine(tunnel));
    if (verbosity_ == 0) return;
    for (const PathView& path : tunnel.paths) {
      text += fmt::format("{}      {:<10} {}{}\n", indent, path.name, PathText(path), path.active ? "" : ", inactive");
    }
  }

  void AppendDetails(const RouterView& router, const std::string& indent) {
    if (!router.capabilities.empty()) text += fmt::format("{}[{}]\n", indent, CapabilityText(router.capabilities));
    AppendRegisters(text, router.registers, indent + "    ");
    for (const AdapterView& adapter : router.adapters) {
      text += indent + AdapterLine(router, adapter) + '\n';
      AppendRegisters(text, adapter.registers, indent + "      ");
    }
  }

  const DomainView& domain_;
  unsigned verbosity_;
};

}  // namespace

std::string LinkText(const LinkView& link) {
  return fmt::format("{}G = {} x {}G", link.lanes * link.speedGbps, link.lanes, link.speedGbps);
}

std::string TunnelLine(const TunnelView& tunnel) {
  std::string line = TunnelText(tunnel) + (tunnel.active ? ", active" : ", inactive");
  if (tunnel.allocated) line += fmt::format(", allocated {}", BandwidthText(*tunnel.allocated));
  if (tunnel.consumed) line += fmt::format(", consumed {}", BandwidthText(*tunnel.consumed));
  if (tunnel.allocated || tunnel.consumed) line += " Mb/s up/down";
  if (!tunnel.listed) line += ", not listed";
  return line;
}

std::string PeerLine(const PeerView& peer) {
  std::string line = fmt::format("{:x} {}, ", peer.route, PeerNameText(peer));
  line += peer.link.lanes == 0 ? "link not read" : LinkText(peer.link);
  line += fmt::format(", peer host, {}, hops {}/{}", peer.state, peer.inputHopLimit, peer.outputHopLimit);
  return line + (peer.replaced ? ", replaced by another host" : "");
}

std::string FormatTree(const DomainView& domain, unsigned verbosity) {
  Writer writer(domain, verbosity);
  writer.text = "/:  Domain " + domain.name + (domain.present ? "\n" : ": none (the device is not started)\n");
  if (domain.present && domain.routers.empty()) writer.text += "    (no router)\n";
  for (const RouterView& router : domain.routers) {
    if (router.depth == 0) writer.Append(router, "    ");
  }
  return writer.text;
}

}  // namespace lab
