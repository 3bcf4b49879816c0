// A wired world.
#include "tests/support/bench.h"

#include <fmt/format.h>

#include <sstream>

#include "hostif/abort.h"
#include "tests/support/topology_text.h"
#include "topology/device_list.h"

namespace tests {
namespace {

WorldOptions Options(std::map<std::string, std::uint32_t> registry) {
  WorldOptions options;
  options.registry = std::move(registry);
  options.configure = [](lab::ControllerConfig& controller) { controller.pciIdentity = 0x3A0E1F3A; };
  return options;
}

// The host is mentioned first.
std::string HostOf(const std::string& topology) {
  const TopologyText::RouterMention host = ParseTopology(topology).routers.at(0);
  return host.name + "=" + host.model;
}

}  // namespace

Bench::Bench(const std::string& topology, sim::CableOptions cable, std::map<std::string, std::uint32_t> registry)
    : World(HostOf(topology), Options(std::move(registry))) {
  const TopologyText parsed = ParseTopology(topology);
  for (const TopologyText::RouterMention& mentioned : parsed.routers) {
    if (fabric().Find(mentioned.name) == nullptr) fabric().AddRouter(mentioned.model, mentioned.name);
  }
  for (const auto& [first, second] : parsed.cables) fabric().Connect(first, second, cable);
}

void Bench::StartQuietly() {
  ASSERT_EQ(Start(), 0);
  Quiet(60 * platform::kSecond);
}

void Bench::ForgiveProtocolErrors(const std::string& text) {
  ExpectIncomplete();
  std::istringstream errors(TakeProtocolErrors());
  for (std::string error; std::getline(errors, error);) EXPECT_NE(error.find(text), std::string::npos) << error;
}

void Bench::WithRouter(std::uint64_t route, const std::function<void(USB4_SWITCH& router)>& look) {
  bool found = false;
  InDriver([&](USB4_DOMAIN& domain) {
    const RunGuard guard(domain);
    const RouterReference known = KivUsb4DomainGetSwitch(&domain, route);
    found = known != nullptr;
    if (found) look(*known);
  });
  EXPECT_TRUE(found) << "no router at route " << std::hex << route;
}

std::string Bench::Routers() {
  std::string text;
  InDriver([&](USB4_DOMAIN& domain) {
    DeviceWalk walk(&domain);
    while (USB4_DEV_ENTRY* entry = walk.Next()) {
      const USB4_SWITCH* listed = entry->Router;
      if (listed == nullptr) continue;  // a peer
      text += fmt::format("{:x} gen{}", entry->Route, listed->Generation);
      if (entry->Route != 0) {
        text += fmt::format(" {}G {}", listed->LinkSpeed,
                            listed->Adapters[listed->UpstreamAdapter()].Bonded ? "bonded" : "single");
      }
      text += '\n';
    }
  });
  return text;
}

std::vector<const sim::WireEntry*> Bench::TakeRequests() {
  std::vector<const sim::WireEntry*> requests;
  const auto& entries = wire().log().entries();
  for (; taken_ < entries.size(); ++taken_) {
    const sim::WireEntry& entry = entries[taken_];
    if (!entry.up && entry.pdf <= 2) requests.push_back(&entry);
  }
  return requests;
}

std::string Bench::Requests(std::optional<std::uint64_t> route) {
  std::string text;
  const std::string wanted = route ? fmt::format(" route={:x} ", *route) : "";
  for (const sim::WireEntry* entry : TakeRequests()) {
    std::string line = entry->text;
    const auto at = line.find(wanted);
    if (at == std::string::npos) continue;
    if (route) line.replace(at, wanted.size(), " ");
    text += line + '\n';
  }
  return text;
}

std::map<std::uint64_t, unsigned> Bench::RequestCounts() {
  std::map<std::uint64_t, unsigned> counts;
  for (const sim::WireEntry* entry : TakeRequests()) {
    const auto decoded = sim::DecodePacket(static_cast<sim::Pdf>(entry->pdf), entry->bytes);
    if (decoded) ++counts[decoded->packet.Route()];
  }
  return counts;
}

unsigned CountLines(const std::string& text, const std::string& line) {
  unsigned count = 0;
  std::istringstream lines(text);
  for (std::string candidate; std::getline(lines, candidate);) count += candidate.compare(0, line.size(), line) == 0;
  return count;
}

}  // namespace tests
