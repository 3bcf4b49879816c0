// Names, ports, loops and depth. The rules are the hardware's: the model would refuse the same, but without a line.
#include "lab/scenario/topology_input.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <set>

#include "lab/input/suggest.h"

namespace lab {
namespace {

bool IsLane(const sim::AdapterModel& adapter) {
  return adapter.presence == sim::AdapterPresence::Implemented && adapter.type == sim::kTypeLane;
}

std::string PortList(const std::vector<unsigned>& numbers) {
  return numbers.empty() ? "none" : fmt::format("{}", fmt::join(numbers, ", "));
}

std::vector<unsigned> PortsOf(const sim::RouterModel& model) {
  std::vector<unsigned> numbers;
  for (const sim::AdapterModel& adapter : model.adapters) {
    if (adapter.number != 0 && IsLane(adapter) && adapter.lane == 0) numbers.push_back(adapter.number);
  }
  return numbers;
}

std::string WhatIs(const sim::AdapterModel& adapter) {
  if (adapter.presence != sim::AdapterPresence::Implemented) return "switched off";
  return std::string("of type \"") + AdapterTypeName(adapter.type) + "\"";
}

}  // namespace

TopologyInput::TopologyInput(const MachineConfig& machine) {
  for (std::size_t host = 0; host < machine.hosts.size(); ++host) {
    for (std::size_t i = 0; i < machine.hosts[host].controllers.size(); ++i) {
      routers_[HostRouterName(machine, {host, i})] = sim::FindModel(machine.hosts[host].controllers[i].model);
    }
  }
}

std::vector<std::string> TopologyInput::RouterNames() const {
  std::vector<std::string> names;
  for (const auto& [name, model] : routers_) names.push_back(name);
  return names;
}

void TopologyInput::AddPeer(const TableReader& table, const PeerHostConfig& peer) {
  if (peer.peer.name.empty()) return;
  if (!routers_.emplace(peer.peer.name, sim::FindModel(peer.model)).second) {
    table.Fail("name", fmt::format("a second router \"{}\"", peer.peer.name));
  }
}

RouterConfig TopologyInput::ReadRouter(TableReader& table) {
  RouterConfig router;
  const auto named = table.RequiredText("model");
  router.model = named.value_or("");
  const sim::RouterModel* model = sim::FindModel(router.model);
  if (IsHost(model)) {
    table.Fail("model", fmt::format("\"{}\" is a model of a host router, which stands in [[host.controller]]{}",
                                    router.model, Suggestion(router.model, DeviceModelNames())));
    model = nullptr;
  } else if (named) {
    table.Choice("model", DeviceModelNames(), "");
  }
  router.name = table.Text("name", router.model);
  if (table.Has("notificationMs")) {
    router.notificationMs = static_cast<unsigned>(table.Number("notificationMs", 10, 1, 255));
  }
  if ((named || table.Has("name")) && (router.name.empty() || router.name.find_first_of(":/") != std::string::npos)) {
    table.Fail("name",
               fmt::format("\"{}\" is no name for a router: it may not be empty or contain : or /", router.name));
  } else if (!routers_.emplace(router.name, model).second) {
    table.Fail("name", fmt::format("a second router \"{}\"", router.name));
  }
  return router;
}

std::optional<TopologyInput::Port> TopologyInput::ParsePort(const TableReader& table, const char* key,
                                                            const std::string& text) const {
  const std::size_t colon = text.rfind(':');
  const std::string digits = colon == std::string::npos ? "" : text.substr(colon + 1);
  const bool number = !digits.empty() && digits.size() <= 3 && digits.find_first_not_of("0123456789") == digits.npos;
  if (!number) {
    table.Fail(key, fmt::format("{} must be a router and its port, such as \"D1:3\"", key));
    return std::nullopt;
  }
  Port port{text.substr(0, colon), static_cast<unsigned>(std::stoul(digits))};
  if (!routers_.contains(port.router)) {
    table.Fail(key, fmt::format("unknown router \"{}\"{}", port.router, Suggestion(port.router, RouterNames())));
    return std::nullopt;
  }
  return Model(port.router) == nullptr ? std::nullopt : std::optional(port);
}

bool TopologyInput::RequirePort(const TableReader& table, const char* key, const Port& port) const {
  const sim::RouterModel& model = *Model(port.router);
  const std::string ports = fmt::format("ports of {}: {}", port.router, PortList(PortsOf(model)));
  const sim::AdapterModel* adapter = port.adapter <= std::min(model.maxAdapter, kMostAdapters) && port.adapter != 0
                                         ? &model.adapters[port.adapter]
                                         : nullptr;
  if (adapter == nullptr) {
    table.Fail(key, fmt::format("{} has no adapter {} ({})", port.router, port.adapter, ports));
  } else if (!IsLane(*adapter)) {
    table.Fail(key, fmt::format("{} is {}, a cable needs a lane adapter ({})", port.Text(), WhatIs(*adapter), ports));
  } else if (adapter->lane != 0) {
    table.Fail(key, fmt::format("{} is the second lane of its port (did you mean \"{}:{}\"?)", port.Text(), port.router,
                                adapter->pair));
  } else {
    return true;
  }
  return false;
}

std::string TopologyInput::ReadPort(TableReader& table, const char* key) const {
  const auto text = table.RequiredText(key);
  const auto port = text ? ParsePort(table, key, *text) : std::nullopt;
  return port && RequirePort(table, key, *port) ? *text : "";
}

CableConfig TopologyInput::ReadCable(TableReader& table) {
  CableConfig cable;
  cable.first = ReadPort(table, "from");
  cable.second = ReadPort(table, "to");
  cable.options.lanes = static_cast<unsigned>(table.Number("lanes", 2, 1, 2));
  const std::int64_t speed = table.Number("gbpsPerLane", 0, 0, 20);
  if (speed != 0 && speed != 10 && speed != 20) table.Fail("gbpsPerLane", "gbpsPerLane must be 10 or 20");
  cable.options.gbpsPerLane = static_cast<unsigned>(speed);
  cable.bondedByFirmware = table.Flag("bonded", false);
  if (cable.bondedByFirmware && cable.options.lanes != 2) table.Fail("bonded", "a cable of one lane cannot be bonded");
  return cable;
}

std::string TopologyInput::ReadAdapter(TableReader& table, const char* key, const std::vector<std::uint32_t>& types) {
  const auto text = table.RequiredText(key);
  const auto port = text ? ParsePort(table, key, *text) : std::nullopt;
  if (!port) return "";
  std::vector<unsigned> fitting;
  for (const sim::AdapterModel& adapter : Model(port->router)->adapters) {
    if (adapter.number != 0 && adapter.presence == sim::AdapterPresence::Implemented &&
        std::find(types.begin(), types.end(), adapter.type) != types.end()) {
      fitting.push_back(adapter.number);
    }
  }
  if (std::find(fitting.begin(), fitting.end(), port->adapter) == fitting.end()) {
    table.Fail(key, fmt::format("{} is no {} adapter ({} has: {})", *text, AdapterTypeName(types.front()), port->router,
                                PortList(fitting)));
  }
  return *text;
}

std::string TopologyInput::ReadPlace(TableReader& table) {
  const std::string what = table.RequiredText("what").value_or("");
  if (what.empty() || routers_.contains(what)) return what;
  if (what.find(':') != std::string::npos) return ReadPort(table, "what");
  table.Fail("what", fmt::format("unknown router \"{}\"{}", what, Suggestion(what, RouterNames())));
  return "";
}

const TopologyInput::Cable* TopologyInput::CableAt(const Port& port) const {
  for (const Cable& cable : cables_) {
    if (cable.ends[0] == port || cable.ends[1] == port) return &cable;
  }
  return nullptr;
}

std::string TopologyInput::FreePorts(const std::string& router) const {
  std::vector<unsigned> free;
  for (unsigned number : PortsOf(*Model(router))) {
    if (CableAt({router, number}) == nullptr) free.push_back(number);
  }
  return fmt::format("free ports of {}: {}", router, PortList(free));
}

bool TopologyInput::RequireFree(const TableReader& table, const char* key, const Port& port) const {
  const Cable* cable = CableAt(port);
  if (cable == nullptr) return true;
  const Port& other = cable->ends[cable->ends[0] == port ? 1 : 0];
  table.Fail(key, fmt::format("{} has a cable already, to {} ({})", port.Text(), other.Text(), FreePorts(port.router)));
  return false;
}

TopologyInput::Domains TopologyInput::DomainsNow() const {
  Domains domains;
  for (const auto& [name, model] : routers_) {
    if (IsHost(model)) domains[name] = name;
  }
  for (bool found = true; found;) {
    found = false;
    for (const Cable& cable : cables_) {
      for (unsigned end = 0; end < 2; ++end) {
        const auto near = domains.find(cable.ends[end].router);
        if (near == domains.end()) continue;
        found = domains.emplace(cable.ends[1 - end].router, near->second).second || found;
      }
    }
  }
  return domains;
}

bool TopologyInput::WithinDomain(const Cable& cable, const Domains& domains) const {
  const auto first = domains.find(cable.ends[0].router), second = domains.find(cable.ends[1].router);
  if (first == domains.end() || second == domains.end()) return first == second;
  return first->second == second->second && first != second;
}

bool TopologyInput::Connected(const std::string& first, const std::string& second) const {
  const Domains domains = DomainsNow();
  std::set<std::string> met{first};
  for (std::deque<std::string> open{first}; !open.empty(); open.pop_front()) {
    for (const Cable& cable : cables_) {
      for (unsigned end = 0; end < 2 && WithinDomain(cable, domains); ++end) {
        if (cable.ends[end].router == open.front() && met.insert(cable.ends[1 - end].router).second) {
          open.push_back(cable.ends[1 - end].router);
        }
      }
    }
  }
  return met.contains(second);
}

TopologyInput::Depths TopologyInput::DepthsBelow(const std::string& host) const {
  const Domains domains = DomainsNow();
  Depths depths{{host, 0}};
  for (std::deque<std::string> open{host}; !open.empty(); open.pop_front()) {
    for (const Cable& cable : cables_) {
      for (unsigned end = 0; end < 2 && WithinDomain(cable, domains); ++end) {
        const std::string& far = cable.ends[1 - end].router;
        if (cable.ends[end].router != open.front() || IsHost(Model(far))) continue;
        if (depths.emplace(far, depths.at(open.front()) + 1).second) open.push_back(far);
      }
    }
  }
  return depths;
}

bool TopologyInput::RequireDepth(const TableReader& table) const {
  for (const auto& [host, hostModel] : routers_) {
    if (!IsHost(hostModel)) continue;
    for (const auto& [name, depth] : DepthsBelow(host)) {
      const unsigned limit = hostModel->usb4() || Model(name)->usb4() ? kUsb4Depth : kThunderboltDepth;
      if (depth <= limit) continue;
      table.Fail("to", fmt::format("{} would be {} levels below {}, {} is the limit (plug it in nearer to the host)",
                                   name, depth, host, limit));
      return false;
    }
  }
  return true;
}

void TopologyInput::Plug(const TableReader& table, const CableConfig& config) {
  if (config.first.empty() || config.second.empty()) return;
  const Port first = *ParsePort(table, "from", config.first);
  const Port second = *ParsePort(table, "to", config.second);
  const bool firstFree = RequireFree(table, "from", first), secondFree = RequireFree(table, "to", second);
  if (!firstFree || !secondFree) return;
  const bool loopBack = first.router == second.router && IsHost(Model(first.router)) && !(first == second);
  if (!loopBack && Connected(first.router, second.router)) {
    return table.Fail("to",
                      first.router == second.router
                          ? fmt::format("a cable from {} to its own router", first.Text())
                          : fmt::format("this cable closes a loop: {} and {} are connected already (leave it out)",
                                        first.router, second.router));
  }
  cables_.push_back({{first, second}});
  if (!RequireDepth(table)) cables_.pop_back();
}

const TopologyInput::Cable* TopologyInput::CableTowardsHost(const std::string& router) const {
  const Cable* only = nullptr;
  for (const auto& [host, model] : routers_) {
    if (!IsHost(model)) continue;
    const Depths depths = DepthsBelow(host);
    for (const Cable& cable : cables_) {
      for (unsigned end = 0; end < 2; ++end) {
        if (cable.ends[end].router != router) continue;
        only = &cable;
        const auto here = depths.find(router), far = depths.find(cable.ends[1 - end].router);
        if (here != depths.end() && far != depths.end() && far->second < here->second) return &cable;
      }
    }
  }
  return only;  // not below a host: any cable that it has
}

std::optional<std::size_t> TopologyInput::FindCable(const TableReader& table, const std::string& what) const {
  if (what.empty() || (routers_.contains(what) && Model(what) == nullptr)) return std::nullopt;
  const Cable* cable = routers_.contains(what) ? CableTowardsHost(what) : CableAt(*ParsePort(table, "what", what));
  if (cable != nullptr) return static_cast<std::size_t>(cable - cables_.data());
  table.Fail("what", fmt::format("no cable at {}", what));
  return std::nullopt;
}

void TopologyInput::Unplug(const TableReader& table, const std::string& what) {
  const auto cable = FindCable(table, what);
  if (cable) cables_.erase(cables_.begin() + static_cast<std::ptrdiff_t>(*cable));
}

}  // namespace lab
