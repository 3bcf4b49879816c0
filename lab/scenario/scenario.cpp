// From a scenario file to its records: names resolved, ranges checked, nothing left unread.
#include "lab/scenario/scenario.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>

#include "lab/input/suggest.h"
#include "lab/input/toml_reader.h"
#include "lab/scenario/generate.h"
#include "lab/scenario/peer_input.h"
#include "lab/scenario/protocol_input.h"
#include "lab/scenario/topology_input.h"
#include "sim/dataplane/usb3_function.h"

namespace lab {
namespace {

constexpr std::uint32_t kLargestHopCount = 1023;  // what the ten bits of the capabilities register can say
constexpr std::size_t kMostResources = 32;
// A router of the model takes a quarter of a megabyte.
constexpr std::size_t kMostHosts = 8, kMostControllers = 8, kMostRoutersOfAFile = 256;
constexpr std::uint64_t kDefaultBarStart = 0x90000000;
constexpr std::uint32_t kBarLength = 0x40000;
constexpr platform::Time kDropTime = 300 * platform::kMillisecond;

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// "8086:9A1B", vendor first as the identity is printed everywhere, to the dword of configuration space.
std::optional<std::uint32_t> ParsePciIdentity(const std::string& text) {
  if (text.size() != 9 || text[4] != ':') return std::nullopt;
  std::uint32_t halves[2] = {0, 0};
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (i == 4) continue;
    const auto c = static_cast<unsigned char>(text[i]);
    if (!std::isxdigit(c)) return std::nullopt;
    const auto digit = static_cast<std::uint32_t>(std::isdigit(c) ? c - '0' : std::tolower(c) - 'a' + 10);
    halves[i / 5] = halves[i / 5] << 4 | digit;
  }
  return halves[1] << 16 | halves[0];
}

std::vector<platform::Resource> ParseResources(TableReader& table) {
  std::vector<platform::Resource> resources;
  std::uint32_t message = 0;
  std::uint64_t start = kDefaultBarStart;
  for (const std::string& text : table.TextList("resources")) {
    platform::Resource resource;
    if (text == "interrupt") {
      resource.kind = platform::Resource::Kind::Interrupt;
      resource.message = message++;
    } else if (text == "memory") {
      resource.kind = platform::Resource::Kind::Memory;
      resource.start = start;
      resource.length = kBarLength;
      start += kBarLength;
    } else if (text == "other") {
      resource.kind = platform::Resource::Kind::Other;
    } else if (text == "missing") {
      resource.kind = platform::Resource::Kind::Missing;
    } else {
      table.Fail("resources", fmt::format("unknown resource \"{}\"{}", text,
                                          Suggestion(text, {"interrupt", "memory", "missing", "other"})));
    }
    resources.push_back(resource);
  }
  if (resources.size() > kMostResources) table.Fail("resources", fmt::format("at most {} resources", kMostResources));
  return resources;
}

ControllerConfig ReadController(TableReader table) {
  ControllerConfig controller;
  controller.model = table.Choice("model", HostModelNames(), controller.model);
  // A model that does not exist names it all the same, so that cables find it.
  controller.model = table.Text("model", controller.model);
  controller.name = table.Text("name", controller.model);
  controller.uid = ReadUid(table);
  controller.hardwareId = table.Text("hardwareId", controller.hardwareId);
  const auto identity = table.Has("pciIdentity") ? table.RequiredText("pciIdentity") : std::nullopt;
  if (identity) controller.pciIdentity = ParsePciIdentity(*identity);
  if (identity && !controller.pciIdentity) {
    table.Fail("pciIdentity", "pciIdentity must be vendor:device in hex, such as \"8086:9A1B\"");
  }
  if (table.Has("hopCount")) {
    controller.hopCount = static_cast<std::uint32_t>(table.Number("hopCount", 0, 0, kLargestHopCount));
  }
  if (table.Has("resources")) controller.resources = ParseResources(table);
  controller.acpiStatus =
      static_cast<platform::Status>(static_cast<std::uint32_t>(table.Number("acpiStatus", 0, 0, 0xFFFFFFFF)));
  controller.acpiDelay = table.Duration("acpiDelay", 0);
  const std::string handOver = table.Choice("handOver", {"right", "wrong", "none"}, "none");
  if (handOver == "right") controller.handOver = sim::FirmwareAnswer::Right;
  if (handOver == "wrong") controller.handOver = sim::FirmwareAnswer::Wrong;
  TableReader registry = table.Table("registry");
  for (auto& [key, value] : registry.NumbersByKey()) controller.parameters[key] = value;
  table.Finish();
  return controller;
}

HostConfig ReadHost(TableReader table, std::size_t position) {
  HostConfig host;
  host.name = table.Text("name", position == 0 ? "host" : fmt::format("host{}", position + 1));
  host.computerName = table.Text("computerName", host.computerName);
  std::vector<TableReader> controllers = table.Tables("controller", kMostControllers);
  if (!controllers.empty()) host.controllers.clear();
  for (TableReader& reader : controllers) {
    ControllerConfig controller = ReadController(reader);
    for (const ControllerConfig& other : host.controllers) {
      if (other.name == controller.name) {
        reader.Fail("name", fmt::format("a second controller \"{}\"", controller.name));
      }
    }
    host.controllers.push_back(std::move(controller));
  }
  table.Finish();
  return host;
}

// The controller that the keys `host` and `controller` name; the first one where they are left out.
Place ReadPlace(TableReader& table, const MachineConfig& machine) {
  Place place;
  std::vector<std::string> hosts, controllers;
  for (const HostConfig& host : machine.hosts) hosts.push_back(host.name);
  const auto host = table.Index("host", hosts);
  place.host = host.value_or(0);
  for (const ControllerConfig& controller : machine.hosts[place.host].controllers) {
    controllers.push_back(controller.name);
  }
  // Of a host that does not exist, any controller may be meant.
  if (table.Has("controller") && (host || !table.Has("host"))) {
    place.controller = table.Index("controller", controllers).value_or(0);
  }
  return place;
}

// Between two packets nobody can wait until a device has stopped or started.
bool HappensAtAPacket(Verb verb) {
  return verb != Verb::Disable && verb != Verb::Enable;
}

void ReadMoment(TableReader& table, ScenarioEvent& event) {
  const bool atPacket = table.Has("packet");
  if (!atPacket && !table.Has("at")) table.Missing("at");
  if (atPacket && table.Has("at")) table.Fail("at", "either at or packet, not both");
  event.at = table.Duration("at", platform::kNever);
  if (!atPacket) return;
  event.packet = static_cast<std::uint64_t>(table.Number("packet", 1, 1, 1'000'000'000));
  if (!HappensAtAPacket(event.verb)) table.Fail("packet", "disable and enable happen at a time, not at a packet");
}

constexpr const char* kKeysOfVerbs[] = {"from", "to",   "lanes",   "gbpsPerLane", "bonded",
                                        "what", "for",  "adapter", "readyAfter",  "mbpsPerLane",
                                        "up",   "down", "gbps",    "answers"};

ScenarioEvent ReadEvent(TableReader& table, const MachineConfig& machine, TopologyInput& topology) {
  ScenarioEvent event;
  const auto verb = table.Index("do", VerbNames());
  if (!table.Has("do")) table.Missing("do");
  event.verb = static_cast<Verb>(verb.value_or(0));
  ReadMoment(table, event);
  event.place = ReadPlace(table, machine);
  if (event.verb == Verb::Plug) event.cable = topology.ReadCable(table);
  if (event.verb == Verb::Unplug || event.verb == Verb::DropLink) event.what = topology.ReadPlace(table);
  if (event.verb == Verb::PlugDisplay) event.display = ReadDisplay(table, topology);
  if (event.verb == Verb::UnplugDisplay) event.display.adapter = ReadDisplayPlace(table, topology);
  if (event.verb == Verb::UseUsb3) event.usb3 = ReadUsb3(table, topology);
  if (event.verb == Verb::DropLink) event.backAfter = table.Duration("for", kDropTime);
  event.line = table.source().line;
  event.column = table.source().column;
  // Which other keys it has, only the verb can say.
  if (!verb) {
    for (const char* key : kKeysOfVerbs) table.Has(key);
  }
  table.Finish();
  return event;
}

// Plays the cable events on the plan of the topology in time order. What happens at a packet may come before or after
// any other event, so then only names and ports can be judged in advance.
void CheckCables(const std::vector<std::pair<ScenarioEvent, TableReader>>& events, TopologyInput& topology) {
  for (const auto& [event, table] : events) {
    if (event.packet != 0) return;
  }
  for (const auto& [event, table] : events) {
    if (event.verb == Verb::Plug) topology.Plug(table, event.cable);
    if (event.verb == Verb::Unplug) topology.Unplug(table, event.what);
    if (event.verb == Verb::DropLink) topology.RequireCable(table, event.what);
  }
}

void ReadFurniture(TableReader& table, MachineConfig& machine, TopologyInput& topology) {
  for (TableReader& item : table.Tables("display")) {
    machine.displays.push_back(ReadDisplay(item, topology));
    item.Finish();
  }
  for (TableReader& item : table.Tables("usb3")) {
    machine.usb3.push_back(ReadUsb3(item, topology));
    item.Finish();
  }
  for (TableReader& item : table.Tables("firmware")) {
    machine.firmware.push_back(ReadFirmwareTunnel(item, topology));
    item.Finish();
  }
}

void ReadPeers(TableReader& table, Scenario& scenario, TopologyInput& topology) {
  std::vector<std::string> hosts;
  for (std::size_t host = 0; host < scenario.machine.hosts.size(); ++host) {
    for (std::size_t i = 0; i < scenario.machine.hosts[host].controllers.size(); ++i) {
      hosts.push_back(HostRouterName(scenario.machine, {host, i}));
    }
  }
  for (TableReader& item : table.Tables("peer")) {
    scenario.machine.peers.push_back(ReadPeer(item, hosts, scenario.file));
    topology.AddPeer(item, scenario.machine.peers.back());
  }
}

void ReadTopology(TableReader& table, Scenario& scenario, const InputProblems& problems) {
  TopologyInput topology(scenario.machine);
  ReadPeers(table, scenario, topology);
  for (TableReader& router : table.Tables("router", kMostRoutersOfAFile)) {
    scenario.machine.routers.push_back(topology.ReadRouter(router));
    router.Finish();
  }
  for (TableReader& link : table.Tables("link")) {
    scenario.machine.cables.push_back(topology.ReadCable(link));
    link.Finish();
    topology.Plug(link, scenario.machine.cables.back());
  }
  ReadFurniture(table, scenario.machine, topology);
  std::vector<std::pair<ScenarioEvent, TableReader>> events;
  for (TableReader& event : table.Tables("event")) {
    events.emplace_back(ReadEvent(event, scenario.machine, topology), event);
  }
  std::stable_sort(events.begin(), events.end(), [](const auto& a, const auto& b) { return a.first.at < b.first.at; });
  // After a mistake, what is plugged where is not known well enough.
  if (problems.Count() == 0) CheckCables(events, topology);
  for (auto& [event, reader] : events) scenario.events.push_back(std::move(event));
}

std::uint64_t ReadRoute(TableReader& table, const char* key) {
  const std::string text = table.Text(key, "0");
  std::uint64_t route = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), route, 16);
  if (error != std::errc() || end != text.data() + text.size() || route >> 63 != 0) {
    table.Fail(key, fmt::format("{} must be hex digits without 0x, one byte a level, such as \"301\"", key));
  }
  return route;
}

void ReadRouterExpectation(TableReader& table, Expectation& expectation) {
  expectation.aboutRouter = table.Has("route");
  if (expectation.aboutRouter) expectation.route = ReadRoute(table, "route");
  expectation.present = table.Flag("present", true);
  if (table.Has("name")) expectation.routerName = table.Text("name", "");
  if (table.Has("model")) expectation.model = table.Choice("model", sim::ModelNames(), "");
  if (table.Has("link")) expectation.link = table.Text("link", "");
  if (table.Has("tmu")) expectation.tmu = table.Text("tmu", "");
  if (table.Has("generation")) expectation.generation = table.Number("generation", 0, 1, 4);
  for (const char* key : {"model", "tmu", "generation"}) {
    if (table.Has(key) && !expectation.aboutRouter) table.Fail(key, fmt::format("{} needs the router's route", key));
  }
  for (const char* key : {"name", "link"}) {
    if (table.Has(key) && !expectation.aboutRouter && !expectation.peer) {
      table.Fail(key, fmt::format("{} needs the route of a router or of a peer", key));
    }
  }
  if (table.Has("present") && !expectation.aboutRouter && !expectation.peer && !table.Has("tunnel") &&
      !table.Has("probe")) {
    table.Fail("present", "present needs the router's route, the peer, the tunnel or the probe");
  }
}

void ReadPeerExpectation(TableReader& table, Expectation& expectation) {
  if (table.Has("peers")) expectation.peers = table.Number("peers", 0, 0, 1000);
  if (table.Has("peer")) expectation.peer = ReadRoute(table, "peer");
  if (table.Has("peerState")) expectation.peerState = table.Choice("peerState", PeerStateNames(), "");
  if (table.Has("hopLimits")) expectation.hopLimits = table.Text("hopLimits", "");
  for (const char* key : {"peerState", "hopLimits"}) {
    if (table.Has(key) && !expectation.peer) table.Fail(key, fmt::format("{} needs the peer", key));
  }
  if (table.Has("peer") && table.Has("route")) table.Fail("peer", "either route or peer, not both");
}

// "PCIe 0:3 -> 1:9", letter by letter as the tree says it.
void RequireTunnel(const TableReader& table, const char* key, const std::string& text) {
  TunnelView tunnel;
  AdapterPlace &from = tunnel.source.place, to;
  if (std::sscanf(text.c_str(), "%*s %lx:%u -> %lx:%u", &from.route, &from.adapter, &to.route, &to.adapter) == 4) {
    tunnel.destination = TunnelEnd{to, ""};
    for (const TunnelKind kind : TunnelKinds()) {
      tunnel.kind = kind;
      if (TunnelText(tunnel) == text) return;
    }
  }
  table.Fail(key, fmt::format("\"{}\" is no tunnel: write kind, source and destination as \"PCIe 0:3 -> 1:9\"", text));
}

void ReadTunnelExpectation(TableReader& table, Expectation& expectation) {
  if (table.Has("tunnels")) {
    expectation.tunnels = table.TextList("tunnels");
    for (const std::string& text : *expectation.tunnels) RequireTunnel(table, "tunnels", text);
  }
  for (const auto& [key, number] : {std::pair{"tunnelCount", &expectation.tunnelCount},
                                    {"pcieTunnels", &expectation.pcieTunnels},
                                    {"usb3Tunnels", &expectation.usb3Tunnels},
                                    {"dpTunnels", &expectation.dpTunnels}}) {
    if (table.Has(key)) *number = table.Number(key, 0, 0, 1000);
  }
  if (table.Has("tunnel")) expectation.tunnel = table.RequiredText("tunnel");
  if (expectation.tunnel) RequireTunnel(table, "tunnel", *expectation.tunnel);
  if (table.Has("probe")) expectation.probe = table.RequiredText("probe");
  if (expectation.probe && expectation.probe->find(" -> ") == std::string::npos) {
    table.Fail("probe", "probe must be two adapters, such as \"H1:3 -> D1:9\"");
  }
  if (table.Has("allocated")) expectation.allocated = table.Text("allocated", "");
  if (table.Has("consumed")) expectation.consumed = table.Text("consumed", "");
  for (const char* key : {"allocated", "consumed"}) {
    if (table.Has(key) && !table.Has("tunnel")) table.Fail(key, fmt::format("{} needs the tunnel", key));
  }
}

bool AsksSomething(const Expectation& e) {
  return e.power || e.state || e.startStatus || e.interface || e.routers || e.adapters || e.aboutRouter || e.peer ||
         e.peers || e.tunnels || e.tunnelCount || e.pcieTunnels || e.usb3Tunnels || e.dpTunnels || e.tunnel || e.probe;
}

Expectation ReadExpectation(TableReader table, const MachineConfig& machine) {
  const std::size_t before = table.Mistakes();
  Expectation expectation;
  expectation.at = table.Duration("at", platform::kNever);
  expectation.place = ReadPlace(table, machine);
  expectation.line = table.source().line;
  expectation.column = table.source().column;
  if (table.Has("power")) expectation.power = table.Choice("power", {"D0", "D3", "off"}, "");
  if (table.Has("state")) {
    expectation.state = table.Choice("state", {"started", "failed", "surprise-removed", "removed"}, "");
  }
  if (table.Has("startStatus")) {
    expectation.startStatus =
        static_cast<platform::Status>(static_cast<std::uint32_t>(table.Number("startStatus", 0, 0, 0xFFFFFFFF)));
  }
  if (table.Has("interface")) expectation.interface = Lower(table.Text("interface", ""));
  if (table.Has("routers")) expectation.routers = table.Number("routers", 0, 0, 1000);
  if (table.Has("adapters")) expectation.adapters = table.Number("adapters", 0, 0, 63);
  ReadPeerExpectation(table, expectation);
  ReadRouterExpectation(table, expectation);
  ReadTunnelExpectation(table, expectation);
  table.Finish();
  if (table.Mistakes() == before && !AsksSomething(expectation)) table.Fail("", "nothing is expected here");
  return expectation;
}

}  // namespace

const std::vector<std::string>& VerbNames() {
  static const std::vector<std::string> kNames = {
      "sleep",  "hibernate", "resume", "wake",      "disable",      "enable",         "surprise-remove",
      "remove", "plug",      "unplug", "drop-link", "plug-display", "unplug-display", "use-usb3"};
  return kNames;
}

namespace {

Scenario FromTable(const toml::table& parsed, const std::string& file) {
  InputProblems problems(InputName(file));
  TableReader table(problems, parsed);
  Scenario scenario;
  scenario.file = file;
  scenario.name = table.Text("name", file);
  std::vector<TableReader> hosts = table.Tables("host", kMostHosts);
  if (!hosts.empty()) scenario.machine.hosts.clear();
  for (std::size_t i = 0; i < hosts.size(); ++i) {
    HostConfig host = ReadHost(hosts[i], i);
    for (const HostConfig& other : scenario.machine.hosts) {
      if (other.name == host.name) hosts[i].Fail("name", fmt::format("a second host \"{}\"", host.name));
    }
    scenario.machine.hosts.push_back(std::move(host));
  }
  ReadTopology(table, scenario, problems);
  for (TableReader& item : table.Tables("expect")) {
    scenario.expectations.push_back(ReadExpectation(item, scenario.machine));
  }
  table.Finish();
  problems.Throw();
  std::stable_sort(scenario.expectations.begin(), scenario.expectations.end(),
                   [](const Expectation& a, const Expectation& b) { return a.at < b.at; });
  return scenario;
}

}  // namespace

Scenario ReadScenario(const std::string& file) {
  return FromTable(ReadTomlFile(file), file);
}

Scenario ReadScenarioText(const std::string& text, const std::string& name) {
  return FromTable(ReadTomlText(text, name), name);
}

Scenario FindScenario(const std::string& file, std::uint64_t seed) {
  if (file == kGenerated) return ReadScenarioText(GenerateScenario(seed), file);
  return ReadScenario(file);
}

}  // namespace lab
