// Types of adapters and ranges; that a tunnel's ends are connected is the model's to judge.
#include "lab/scenario/protocol_input.h"

namespace lab {
namespace {

constexpr std::int64_t kMostUsb3Mbps = 20000;

unsigned OneOf(TableReader& table, const char* key, std::int64_t fallback, const std::vector<std::int64_t>& allowed) {
  const std::int64_t value = table.Number(key, fallback, allowed.front(), allowed.back());
  if (std::find(allowed.begin(), allowed.end(), value) == allowed.end()) {
    std::string list;
    for (std::int64_t each : allowed) list += (list.empty() ? "" : ", ") + std::to_string(each);
    table.Fail(key, std::string(key) + " must be one of " + list);
  }
  return static_cast<unsigned>(value);
}

unsigned Mbps(TableReader& table, const char* key) {
  return static_cast<unsigned>(table.Number(key, 0, 0, kMostUsb3Mbps));
}

}  // namespace

std::string ReadDisplayPlace(TableReader& table, TopologyInput& topology) {
  return topology.ReadAdapter(table, "adapter", {sim::kTypeDpOut});
}

DisplayConfig ReadDisplay(TableReader& table, TopologyInput& topology) {
  DisplayConfig config;
  config.adapter = ReadDisplayPlace(table, topology);
  config.display.most = {OneOf(table, "mbpsPerLane", 8100, {1620, 2700, 5400, 8100}),
                         OneOf(table, "lanes", 4, {1, 2, 4})};
  if (table.Has("readyAfter")) config.display.readyAfter = table.Duration("readyAfter", 0);
  config.display.answers = table.Flag("answers", true);
  return config;
}

Usb3Config ReadUsb3(TableReader& table, TopologyInput& topology) {
  Usb3Config config;
  config.adapter = topology.ReadAdapter(table, "adapter", {sim::kTypeUsb3Down, sim::kTypeUsb3Up});
  config.facts.consumed = {Mbps(table, "up"), Mbps(table, "down")};
  if (table.Has("gbps")) config.facts.maxRateMbps = OneOf(table, "gbps", 10, {10, 20}) * 1000;
  config.facts.refusesRequests = !table.Flag("answers", true);
  return config;
}

sim::FirmwareTunnel ReadFirmwareTunnel(TableReader& table, TopologyInput& topology) {
  static const std::vector<std::string> kStates = {"whole",   "off",   "bare",    "half", "broken",
                                                   "far-off", "wrong", "looping", "long"};
  sim::FirmwareTunnel tunnel;
  if (!table.Has("kind")) table.Missing("kind");
  const std::string kind = table.Choice("kind", {"pcie", "usb3", "dp"}, "");
  tunnel.state = *sim::ParseFirmwareState(table.Choice("state", kStates, "whole"));
  tunnel.upMbps = Mbps(table, "up");
  tunnel.downMbps = Mbps(table, "down");
  tunnel.reserved = table.Flag("reserved", true);
  tunnel.lane = static_cast<unsigned>(table.Number("lane", 0, 0, 1));
  // Which adapters it may end at, only its kind can say.
  if (kind.empty()) {
    for (const char* end : {"from", "to"}) {
      if (!table.Has(end)) table.Missing(end);
    }
    return tunnel;
  }
  tunnel.kind = *sim::ParseFirmwareKind(kind);
  const bool pcie = tunnel.kind == sim::FirmwareKind::Pcie, usb3 = tunnel.kind == sim::FirmwareKind::Usb3;
  tunnel.from = topology.ReadAdapter(table, "from",
                                     {pcie   ? sim::kTypePcieDown
                                      : usb3 ? sim::kTypeUsb3Down
                                             : sim::kTypeDpIn});
  tunnel.to = topology.ReadAdapter(table, "to", {pcie ? sim::kTypePcieUp : usb3 ? sim::kTypeUsb3Up : sim::kTypeDpOut});
  return tunnel;
}

}  // namespace lab
