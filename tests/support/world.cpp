// Verbs are thin: the machine does the work, this file says what a test expects of it.
#include "tests/support/world.h"

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

lab::MachineConfig ConfigFor(const TopologyText& topology, const WorldOptions& options) {
  lab::MachineConfig config;
  lab::RunOptions run;
  run.seed = options.seed;
  config.simulation = lab::SimulationFor(run);
  if (options.policy) config.simulation.policy = *options.policy;
  lab::HostConfig& host = config.hosts.front();
  host.controllers.clear();
  for (const TopologyText::RouterMention& router : topology.routers) {
    const sim::RouterModel* model = sim::FindModel(router.model);
    if (model == nullptr || !model->host) continue;
    lab::ControllerConfig controller;
    controller.name = router.name;
    controller.model = router.model;
    controller.parameters = options.registry;
    if (options.configure) options.configure(controller);
    host.controllers.push_back(controller);
  }
  return config;
}

}  // namespace

World::World(const std::string& topology, WorldOptions options) {
  const TopologyText parsed = ParseTopology(topology);
  machine_ = std::make_unique<lab::Machine>(ConfigFor(parsed, options));
  for (const TopologyText::RouterMention& router : parsed.routers)
    if (fabric().Find(router.name) == nullptr) fabric().AddRouter(router.model, router.name);
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

void World::Stop() {
  kernel().Remove(machine_->device());
  Check("Stop");
}

void World::Sleep() {
  kernel().SystemSleep(platform::SystemPowerAction::Sleep);
  Check("Sleep");
}

void World::Hibernate() {
  kernel().SystemSleep(platform::SystemPowerAction::Hibernate);
  Check("Hibernate");
}

void World::Resume() {
  kernel().SystemResume();
  Check("Resume");
}

void World::SurpriseRemove(std::size_t controller) {
  kernel().SurpriseRemove(machine_->device({0, controller}));
  Check("SurpriseRemove");
}

void World::Plug(const std::string& cable) {
  const TopologyText parsed = ParseTopology(cable);
  for (const TopologyText::RouterMention& router : parsed.routers)
    if (fabric().Find(router.name) == nullptr) fabric().AddRouter(router.model, router.name);
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

void World::AtPacket(std::uint64_t n, std::function<void()> verb) {
  wire().AtPacket(wire().log().count() + n, std::move(verb));
}

void World::Quiet(platform::Time within) {
  if (simulation().Stopped()) return;
  const platform::Outcome outcome = machine_->WaitQuiet(within);
  Check("Quiet");
  if (!simulation().Stopped() && !machine_->Quiet())
    ADD_FAILURE() << "not quiet within " << within / platform::kMillisecond << " ms (outcome "
                  << static_cast<int>(outcome) << ")";
}

std::string World::TakeProtocolErrors() {
  std::string text;
  for (const sim::ProtocolError& error : fabric().errors().list())
    if (!faults().Fired() || !lab::Excused(error)) text += error.Text() + "\n";
  fabric().errors().Clear();
  return text;
}

void World::CheckLeftovers() {
  EXPECT_EQ(kernel().PoolBytes(), 0u);
  EXPECT_EQ(kernel().LiveObjects(), 0u);
  EXPECT_EQ(kernel().LiveMappings(), 0u);
  EXPECT_EQ(kernel().LiveCommonBuffers(), 0u);
}

void World::CheckOracle() {
  if (!verdictExpected_ || leftovers_ || !machine_->Quiet()) return;
  const bool struck = faults().Fired();
  for (const lab::Finding& finding :
       lab::OracleFindings(*machine_, {.complete = complete_ && !struck, .remains = struck}))
    ADD_FAILURE() << "oracle: " << finding.Text();
  Check("the oracle");
}

void World::Finish() {
  finished_ = true;
  if (!simulation().Stopped()) {
    CheckOracle();
    machine_->RemoveAndUnload();
    Check("Finish");
    if (!simulation().Stopped()) CheckLeftovers();
  }
  if (verdictExpected_) {
    EXPECT_EQ(TakeProtocolErrors(), "");
  }
}

void World::InDevice(const std::function<void(DEVICE_EXTENSION&)>& look, std::size_t controller) {
  const bool looked = machine_->InDriver({0, controller}, look);
  Check("InDriver");
  if (!looked && !simulation().Stopped()) ADD_FAILURE() << "the device has no context to look into";
}

void World::InDomain(const std::function<void(USB4_DOMAIN&)>& body) {
  InDevice([&](DEVICE_EXTENSION& context) {
    if (context.Domain == nullptr) {
      ADD_FAILURE() << "the device has no domain to look into";
      return;
    }
    device_ = context.Device;
    body(*context.Domain);
  });
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

std::string World::Wire() {
  return wire().log().TakeText();
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

std::string World::Tunnels() {
  std::string text;
  for (const lab::TunnelView& tunnel : machine_->Domain().tunnels)
    if (tunnel.listed) text += lab::TunnelText(tunnel) + (tunnel.active ? "\n" : " inactive\n");
  return text;
}

std::string World::Tree() {
  return lab::FormatTree(machine_->Domain(), 1);
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
