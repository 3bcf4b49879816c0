// The world of tests about tunnels.
#include "tests/support/tunnel_bench.h"

#include <fmt/format.h>

#include <cstdio>
#include <sstream>

#include "hostif/abort.h"
#include "hostif/power.h"
#include "sim/fabric/fabric_books.h"
#include "topology/device_list.h"
#include "topology/router_queries.h"
#include "tunnel/tunnel_list.h"

namespace tests {
namespace {

std::map<std::string, std::uint32_t> Registry(const TunnelPolicy& policy) {
  return {{"USB3Tunnel\\USB3TunnelSupported", policy.usb3},
          {"PCIETunnel\\PCIETunnelSupported", policy.pcie},
          {"PreOSWorkAround\\PreOsCmWorkAroundEnable", policy.cleanUp}};
}

std::string Reserved(const char* what, const std::uint8_t (&map)[44]) {
  std::string text;
  for (unsigned hop = 0; hop < 44; ++hop) {
    if (map[hop] != 0) text += " " + std::to_string(hop);
  }
  return text.empty() ? text : std::string(" ") + what + text;
}

// What is programmed at one adapter.
std::string ProgrammedAt(const sim::Adapter& adapter) {
  std::string text;
  const sim::ConfigSpace& paths = adapter.paths();
  // Hop 0 carries control packets and was there before the driver.
  for (unsigned hop = 1; 2 * hop + 1 < paths.size(); ++hop) {
    if (paths.Get(2 * hop) >> 31 != 0) {
      text += fmt::format(" {}={:08x}/{:08x}", hop, paths.Get(2 * hop), paths.Get(2 * hop + 1));
    }
  }
  const unsigned protocol = adapter.isLane() ? 0 : adapter.protocolCapability;
  const std::uint32_t enables = protocol == 0 ? 0 : adapter.space().Get(protocol) >> 30;
  if (enables > 1 || (enables == 1 && !adapter.isUsb3())) text += fmt::format(" on={}", enables);
  const std::uint32_t buffers = adapter.space().Get(4);
  if ((buffers & 0x3FF) != (adapter.model().bufferWord & 0x3FF)) text += fmt::format(" aside={}", buffers & 0x3FF);
  return text.empty() ? text : adapter.Name() + text + "\n";
}

}  // namespace

TunnelBench::TunnelBench(const std::string& topology, TunnelPolicy policy, sim::CableOptions cable)
    : Bench(topology, cable, Registry(policy)) {}

void TunnelBench::Wire(const std::string& first, const std::string& second, sim::CableOptions cable) {
  const std::string name = second.substr(0, second.find(':'));
  if (fabric().Find(name) == nullptr) fabric().AddRouter(name, name);
  fabric().Connect(first, second, cable);
}

void TunnelBench::InRun(const std::function<void(USB4_DOMAIN& domain)>& look) {
  InDriver([&](USB4_DOMAIN& domain) {
    TakePowerReference(&domain, {.WaitForD0 = true, .OnlyIfGranted = false});
    const RunGuard run(domain);
    const PathGuard paths(domain);
    look(domain);
  });
}

USB4_PORT* TunnelBench::Port(USB4_DOMAIN& domain, const std::string& port) {
  const sim::Adapter& known = adapter(port);
  const RouterReference listed = KivUsb4DomainGetSwitch(&domain, known.router().place().route);
  if (listed != nullptr) return &listed->Adapters[known.number()];
  ADD_FAILURE() << "no record of " << port;
  return nullptr;
}

USB4_ENDS TunnelBench::Ends(USB4_DOMAIN& domain, const std::string& source, const std::string& destination) {
  return {Port(domain, source), Port(domain, destination)};
}

std::string TunnelBench::NameOf(const USB4_PORT* adapter) {
  if (adapter == nullptr) return "none";
  const sim::Router* named = fabric().AtRoute(*fabric().routers().front(), KivUsb4SwitchRoute(adapter->Router));
  return (named == nullptr ? "?" : named->name()) + ":" + std::to_string(adapter->Number);
}

std::string TunnelBench::TextOf(const USB4_PATH* path) {
  if (path == nullptr) return "none";
  std::string text;
  for (unsigned i = 0; i < path->HopCount; ++i) {
    const USB4_HOP& hop = path->Hops[i];
    text += fmt::format("{}{} {} -> {} {}", i == 0 ? "" : " | ", NameOf(hop.InputAdapter), hop.InputHopId,
                        NameOf(hop.OutputAdapter), hop.OutputHopId);
  }
  return text;
}

std::string TunnelBench::HopIds() {
  return InDriver([this](USB4_DOMAIN& domain) {
    std::string text;
    DeviceWalk walk(&domain);
    while (USB4_DEV_ENTRY* entry = walk.Next()) {
      if (entry->Router == nullptr) continue;
      for (const USB4_PORT& adapter : AdaptersOf(entry->Router)) {
        const std::string held =
            Reserved("in", adapter.InputHops.Peek().InUse) + Reserved("out", adapter.OutputHops.Peek().InUse);
        if (!held.empty()) text += NameOf(&adapter) + held + "\n";
      }
    }
    return text;
  });
}

std::string TunnelBench::Counts() {
  return InDriver([](USB4_DOMAIN& domain) {
    return fmt::format("total {}, USB3 {}, PCIe {}, DP {}", domain.TunnelCount.Load(), domain.Usb3TunnelCount.Load(),
                       domain.PcieTunnelCount.Load(), domain.DpTunnelCount.Load());
  });
}

std::string TunnelBench::Programmed() {
  std::string text;
  for (const auto& router : fabric().routers()) {
    for (unsigned n = 1; n <= router->maxAdapter(); ++n) {
      if (router->adapter(n)->implemented()) text += ProgrammedAt(*router->adapter(n));
    }
  }
  return text;
}

std::string TunnelBench::Books() {
  std::string text;
  for (const sim::BookFinding& finding : sim::CheckBooks(fabric())) text += finding.Text() + "\n";
  return text;
}

std::string TunnelBench::Entry(const std::string& port, unsigned hop) {
  const sim::ConfigSpace& paths = adapter(port).paths();
  if (paths.Get(2 * hop) >> 31 == 0) return "invalid";
  return fmt::format("{:08x} {:08x}", paths.Get(2 * hop), paths.Get(2 * hop + 1));
}

void TunnelBench::TearDownAll() {
  InRun([](USB4_DOMAIN& domain) {
    while (USB4_TUNNEL* tunnel = TunnelsOf(&domain).First()) {
      KivUsb4DeactivateAndFreeTunnel(tunnel, {.Unlink = true, .KeepHardware = false});
    }
  });
}

std::string TunnelBench::TunnelWrites() {
  std::string text;
  std::istringstream lines(Requests());
  for (std::string line; std::getline(lines, line);) {
    unsigned long long route = 0;
    unsigned number = 0, offset = 0;
    char space[16] = "";
    if (std::sscanf(line.c_str(), "WRITE route=%llx adapter=%u space=%15s offset=%x", &route, &number, space,
                    &offset) != 4) {
      continue;
    }
    const sim::Router* router = fabric().AtRoute(*fabric().routers().front(), route);
    if (router == nullptr || number == 0) continue;
    const bool path = std::string_view(space) == "path";
    if (router->adapter(number)->isLane() && std::string_view(space) == "adapter") continue;
    text += fmt::format("{}:{}{} 0x{:02x}\n", router->name(), number, path ? " path" : "", offset);
  }
  return text;
}

void TunnelBench::FailAnswer(std::uint64_t n) {
  wire().ReplaceAnswer(n, [](const sim::ControlPacket& packet) {
    return sim::ControlWire::Raw(sim::ErrorPacket(packet.Route(), 0, sim::ErrorCode::NoSuchAddress));
  });
}

}  // namespace tests
