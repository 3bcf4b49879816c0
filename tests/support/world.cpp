// Verbs are thin: the machine does the work, this file says what a test expects of it.
#include "tests/support/world.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "hostif/config_access.h"
#include "lab/machine/waivers.h"
#include "lab/oracle/oracle.h"
#include "lab/report/tree.h"
#include "lab/run/run.h"
#include "sim/dataplane/path_probe.h"
#include "tests/support/topology_text.h"

namespace tests {
namespace {

struct WorkItemBody {
  const std::function<void()>* body;
  KEVENT done;
};

struct WORK_BODY_CONTEXT {
  WorkItemBody* body;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(WORK_BODY_CONTEXT, WorkBodyOf)

VOID RunBody(WDFWORKITEM item) {
  WorkItemBody& work = *WorkBodyOf(item)->body;
  (*work.body)();
  KeSetEvent(&work.done, 0, FALSE);
}

std::string ViolationText(const platform::Violation& violation) {
  std::string text = std::string(platform::RuleName(violation.rule)) + " in " + violation.call + " on task " +
                     violation.task + ": " + violation.detail;
  for (const std::string& frame : violation.stack) text += "\n    " + frame;
  return text;
}

bool IsPeer(const WorldOptions& options, const std::string& name) {
  return std::any_of(options.peers.begin(), options.peers.end(),
                     [&](const lab::PeerHostConfig& peer) { return peer.peer.name == name; });
}

// The host that is called so; a name without a slash is a controller of the first host.
lab::HostConfig& HostFor(lab::MachineConfig& config, const std::string& name) {
  if (config.hosts.empty() || !name.empty()) {
    for (lab::HostConfig& host : config.hosts) {
      if (host.name == name) return host;
    }
    config.hosts.push_back({name.empty() ? lab::HostConfig().name : name, lab::HostConfig().computerName, {}});
    if (!name.empty()) config.hosts.back().computerName = "LAB-" + name;
    return config.hosts.back();
  }
  return config.hosts.front();
}

lab::MachineConfig ConfigFor(const TopologyText& topology, const WorldOptions& options) {
  lab::MachineConfig config;
  lab::RunOptions run;
  run.seed = options.seed;
  config.simulation = lab::SimulationFor(run);
  if (options.policy) config.simulation.policy = *options.policy;
  config.hosts.clear();
  config.peers = options.peers;
  for (const TopologyText::RouterMention& router : topology.routers) {
    const sim::RouterModel* model = sim::FindModel(router.model);
    if (model == nullptr || !model->host || IsPeer(options, router.name)) continue;
    lab::ControllerConfig controller;
    controller.name = router.name.substr(router.host.empty() ? 0 : router.host.size() + 1);
    controller.model = router.model;
    controller.parameters = options.registry;
    if (options.configure) options.configure(controller);
    HostFor(config, router.host).controllers.push_back(controller);
  }
  if (config.hosts.empty()) HostFor(config, "");
  return config;
}

}  // namespace

World::World(const std::string& topology, WorldOptions options) {
  const TopologyText parsed = ParseTopology(topology);
  machine_ = std::make_unique<lab::Machine>(ConfigFor(parsed, options));
  for (const TopologyText::RouterMention& router : parsed.routers) {
    if (fabric().Find(router.name) == nullptr) fabric().AddRouter(router.model, router.name);
  }
  for (const auto& [first, second] : parsed.cables) fabric().Connect(first, second);
}

World::~World() {
  if (!finished_) Finish();
}

void World::Check(const char* verb) {
  if (!simulation().Stopped() || !verdictExpected_ || stopReported_) return;
  stopReported_ = true;
  std::string why = simulation().HangReport();
  for (const platform::Violation& violation : simulation().violations()) why += ViolationText(violation) + "\n";
  ADD_FAILURE() << "stopped during " << verb << ": " << why;
}

platform::Status World::Start() {
  machine_->Start();
  Check("Start");
  return machine_->StartStatus();
}

void World::Stop(std::size_t host) {
  kernel(host).Remove(machine_->device({host, 0}));
  Check("Stop");
}

void World::Sleep(std::size_t host) {
  kernel(host).SystemSleep(platform::SystemPowerAction::Sleep);
  Check("Sleep");
}

void World::Hibernate(std::size_t host) {
  kernel(host).SystemSleep(platform::SystemPowerAction::Hibernate);
  Check("Hibernate");
}

void World::Resume(std::size_t host) {
  kernel(host).SystemResume();
  Check("Resume");
}

void World::SurpriseRemove(std::size_t controller, std::size_t host) {
  kernel(host).SurpriseRemove(machine_->device({host, controller}));
  Check("SurpriseRemove");
}

void World::Plug(const std::string& cable) {
  const TopologyText parsed = ParseTopology(cable);
  for (const TopologyText::RouterMention& router : parsed.routers) {
    if (fabric().Find(router.name) == nullptr) fabric().AddRouter(router.model, router.name);
  }
  for (const auto& [first, second] : parsed.cables) fabric().Plug(first, second);
}

void World::Unplug(const std::string& portOrRouter) {
  fabric().Unplug(portOrRouter);
}

void World::Pass(platform::Time duration) {
  if (!simulation().Stopped()) simulation().RunFor(duration);
  Check("Pass");
}

void World::At(platform::Time after, std::function<void()> verb) {
  simulation().After(after, "test verb", std::move(verb));
}

void World::AtPacket(std::uint64_t n, std::function<void()> verb, lab::Place place) {
  wire(place).AtPacket(wire(place).log().count() + n, std::move(verb));
}

void World::Quiet(platform::Time within) {
  if (simulation().Stopped()) return;
  const platform::Outcome outcome = machine_->WaitQuiet(within);
  Check("Quiet");
  if (!simulation().Stopped() && !machine_->Quiet()) {
    ADD_FAILURE() << "not quiet within " << within / platform::kMillisecond << " ms (outcome "
                  << static_cast<int>(outcome) << ")";
  }
}

std::string World::TakeProtocolErrors() {
  std::string text;
  for (const sim::ProtocolError& error : fabric().errors().list()) {
    if (!faults().Fired() || !lab::Excused(error)) text += error.Text() + "\n";
  }
  fabric().errors().Clear();
  return text;
}

void World::CheckLeftovers(platform::HostKernel& kernel) {
  EXPECT_EQ(kernel.PoolBytes(), 0u) << kernel.options().name;
  EXPECT_EQ(kernel.LiveObjects(), 0u) << kernel.options().name;
  EXPECT_EQ(kernel.LiveMappings(), 0u) << kernel.options().name;
  EXPECT_EQ(kernel.LiveCommonBuffers(), 0u) << kernel.options().name;
}

void World::CheckOracle() {
  if (!verdictExpected_ || leftovers_ || !machine_->Quiet()) return;
  const bool struck = faults().Fired();
  for (const lab::Finding& finding :
       lab::OracleFindings(*machine_, {.complete = complete_ && !struck, .remains = struck})) {
    ADD_FAILURE() << "oracle: " << finding.Text();
  }
  Check("the oracle");
}

void World::Finish() {
  finished_ = true;
  if (!simulation().Stopped()) {
    CheckOracle();
    machine_->RemoveAndUnload();
    Check("Finish");
    for (std::size_t host = 0; host < machine_->config().hosts.size() && !simulation().Stopped(); ++host) {
      CheckLeftovers(kernel(host));
    }
  }
  if (verdictExpected_) {
    EXPECT_EQ(TakeProtocolErrors(), "");
  }
}

void World::InDevice(const std::function<void(DEVICE_EXTENSION&)>& look, lab::Place place) {
  const bool looked = machine_->InDriver(place, look);
  Check("InDriver");
  if (!looked && !simulation().Stopped()) ADD_FAILURE() << "the device has no context to look into";
}

void World::InDomain(lab::Place place, const std::function<void(USB4_DOMAIN&)>& body) {
  const auto look = [&](DEVICE_EXTENSION& context) {
    if (context.Domain == nullptr) {
      ADD_FAILURE() << "the device has no domain to look into";
      return;
    }
    device_ = context.Device;
    body(*context.Domain);
  };
  InDevice(look, place);
}

void World::RunInWorkItem(const std::function<void()>& body) {
  WorkItemBody work{&body, {}};
  KeInitializeEvent(&work.done, SynchronizationEvent, FALSE);
  WDF_WORKITEM_CONFIG config;
  WDF_WORKITEM_CONFIG_INIT(&config, RunBody);
  WDF_OBJECT_ATTRIBUTES attributes;
  WDF_OBJECT_ATTRIBUTES_INIT_CONTEXT_TYPE(&attributes, WORK_BODY_CONTEXT);
  attributes.ParentObject = device_;
  WDFWORKITEM item = nullptr;
  if (!NT_SUCCESS(WdfWorkItemCreate(&config, &attributes, &item))) {
    ADD_FAILURE() << "no work item to run in";
    return;
  }
  WorkBodyOf(item)->body = &work;
  WdfWorkItemEnqueue(item);
  KeWaitForSingleObject(&work.done, Executive, KernelMode, FALSE, nullptr);
  WdfWorkItemFlush(item);
  WdfObjectDelete(item);
}

std::string World::Wire(lab::Place place) {
  return wire(place).log().TakeText();
}

std::string World::Registers(const std::string& place) {
  const bool adapter = place.find(':') != std::string::npos;
  const sim::ConfigSpace* space = nullptr;
  if (adapter && fabric().FindAdapter(place) != nullptr) space = &fabric().FindAdapter(place)->space();
  if (!adapter && fabric().Find(place) != nullptr) space = &fabric().Find(place)->space();
  if (space == nullptr) return "no such place\n";
  std::string text;
  for (unsigned offset = 0; offset < space->size(); ++offset) {
    if (!space->Defined(offset)) continue;
    char line[40];
    std::snprintf(line, sizeof(line), "0x%02x = 0x%08x\n", offset, space->Get(offset));
    text += line;
  }
  return text;
}

std::string World::Paths() {
  std::string text;
  for (const std::string& path : sim::LivePaths(fabric())) text += path + "\n";
  return text;
}

std::string World::Tunnels(lab::Place place) {
  std::string text;
  for (const lab::TunnelView& tunnel : machine_->Domain(place).tunnels) {
    if (tunnel.listed) text += lab::TunnelText(tunnel) + (tunnel.active ? "\n" : " inactive\n");
  }
  return text;
}

std::string World::Tree(lab::Place place) {
  return lab::FormatTree(machine_->Domain(place), 1);
}

KIV_RESULT ReadFirstWord(World& world) {
  return world.InDriver([](USB4_DOMAIN& domain) {
    std::uint32_t word = 0;
    return KivUsb4CfgRead(domain.ControlChannel, &word, {0, 0, {USB4_CFG_SPACE_ROUTER, 0, 1}});
  });
}

void RunWithSeeds(const std::function<void()>& body) {
  const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
  for (const std::optional<std::uint64_t>& seed : SeedsToRun()) {
    SetCurrentSeed(seed);
    body();
    if (!testing::Test::HasFailure()) continue;
    const std::string seeds = seed ? std::to_string(*seed) + ".." + std::to_string(*seed) : "1..1";
    std::printf("  seed: %s\n  replay: ./check --test %s.%s --seeds %s\n",
                seed ? std::to_string(*seed).c_str() : "none, first-come", test.test_suite_name(), test.name(),
                seeds.c_str());
    break;
  }
  SetCurrentSeed(std::nullopt);
}

}  // namespace tests
