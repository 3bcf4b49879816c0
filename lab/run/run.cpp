// Plays a scenario on a machine: start, events and expectations in time order, quiet, judgement, removal, leftovers.
#include "lab/run/run.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "lab/input/duration.h"
#include "lab/machine/fault_profiles.h"
#include "lab/machine/machine.h"
#include "lab/machine/waivers.h"
#include "lab/oracle/expectations.h"
#include "lab/oracle/oracle.h"
#include "lab/report/explain.h"
#include "lab/report/value_names.h"
#include "lab/timeline/capture.h"
#include "lab/timeline/timeline.h"
#include "sim/dataplane/usb3_function.h"

namespace lab {
namespace {

// A storm of false unplugs leaves a backlog; each takes a tree of tunnels down and up again, which is a matter of
// seconds.
constexpr platform::Time kQuietWithin = 600 * platform::kSecond;
// Long enough to take down what was there and to idle for 15 s. A tree that is back before that is scanned while the
// idle timer of the empty domain runs, which cuts the scan of a large one short.
constexpr platform::Time kReplugPause = 60 * platform::kSecond;
constexpr platform::Time kTrained = 1 * platform::kSecond;
// Requests carry the number of the attempt, from 0; the driver gives up after four.
constexpr std::uint32_t kLastAttempt = 3;
// With the quiet horizon behind it, shorter than the 15 s after which a device without tunnels powers down and takes
// its tree along.
constexpr platform::Time kHealPause = 8 * platform::kSecond;

class Run {
 public:
  Run(const Scenario& scenario, const RunOptions& options, const LiveEvents::Listener& live);
  RunReport Execute();

 private:
  void Start();
  void PlayUntil(platform::Time end);
  void Play(const ScenarioEvent& event);
  void PlayHardware(const ScenarioEvent& event);
  void ArmPackets();
  void Heal();
  void ReplugRoots();
  void Judge(const Expectation& expectation);
  void JudgeHardware();
  void JudgeQuiet();
  void JudgeStarts();
  void JudgeEnd();
  void Removal();
  void AddLeftovers();
  void Fail(std::string text);
  void Say(std::string where, std::string event, std::string effect);
  ExitCode Code() const;
  bool Over() { return machine_.simulation().Stopped(); }
  void Pass(platform::Time until);
  void Settle();
  void View();
  void Sum(bool heals);

  const Scenario& scenario_;
  const RunOptions& options_;
  Machine machine_;
  LiveEvents events_;
  std::unique_ptr<Capture> capture_;
  std::unique_ptr<Timeline> timeline_;
  RunReport report_;
  platform::Time origin_ = 0;  // when the last controller had started
  unsigned packetEventsLeft_ = 0;
};

std::string StatusWord(platform::Status status) {
  return "status " + StatusText(static_cast<std::uint32_t>(status));
}

MachineConfig ConfigFor(const Scenario& scenario, const RunOptions& options) {
  MachineConfig config = scenario.machine;
  config.simulation = SimulationFor(options);
  return config;
}

Run::Run(const Scenario& scenario, const RunOptions& options, const LiveEvents::Listener& live)
    : scenario_(scenario),
      options_(options),
      machine_(ConfigFor(scenario, options)),
      events_([this](const platform::HostKernel& kernel, unsigned device) { return machine_.NameOf(kernel, device); }) {
  if (live) events_.Listen(live);
  if (!options.captureFile.empty()) {
    capture_ = std::make_unique<Capture>(options.captureFile, machine_);
    events_.Listen([this](const LiveEvent& event) { capture_->Comment(event); });
  }
  if (!options.traceFile.empty()) timeline_ = std::make_unique<Timeline>(options.traceFile, machine_);
  if (options.events || capture_) machine_.simulation().AddSink(&events_);
  if (!options.events) {
    for (Place place : machine_.Places()) machine_.wire(place).log().Keep(false);
  }
  report_.seeded = options.seed.has_value();
  report_.seed = options.seed.value_or(0);
}

void Run::Say(std::string where, std::string event, std::string effect) {
  const LiveEvent said{machine_.simulation().Now(), std::move(where), std::move(event), std::move(effect)};
  if (timeline_) timeline_->Mark(said);
  events_.Add(said);
}

void Run::Fail(std::string text) {
  Say("", "expectation failed", text);
  if (report_.failures.empty()) report_.failedStep = machine_.simulation().Step();
  report_.failures.push_back(std::move(text));
}

void Run::Pass(platform::Time until) {
  while (!Over() && machine_.simulation().Now() < until) {
    const platform::Outcome outcome = machine_.simulation().RunUntil([] { return false; }, until);
    if (outcome != platform::Outcome::Done) return;
  }
}

// JudgeEnd asks whether it became quiet.
void Run::Settle() {
  static_cast<void>(machine_.WaitQuiet(kQuietWithin));
}

void Run::View() {
  report_.domains.clear();
  for (Place place : machine_.Places()) report_.domains.push_back(machine_.Domain(place));
}

// These happen inside the machine, between two packets, from its first one on.
void Run::ArmPackets() {
  for (const ScenarioEvent& event : scenario_.events) {
    if (event.packet == 0) continue;
    ++packetEventsLeft_;
    machine_.wire(event.place).AtPacket(event.packet, [this, &event] {
      --packetEventsLeft_;
      Play(event);
    });
  }
}

void Run::Start() {
  ArmPackets();
  machine_.Start();
  if (Over()) return;
  for (Place place : machine_.Places()) {
    Say(machine_.DomainName(place), "start", StatusWord(machine_.StartStatus(place)));
  }
  origin_ = machine_.simulation().Now();
}

void Run::PlayHardware(const ScenarioEvent& event) {
  try {
    if (event.verb == Verb::Plug) machine_.fabric().Plug(event.cable.first, event.cable.second, event.cable.options);
    if (event.verb == Verb::Unplug) machine_.fabric().Unplug(event.what);
    if (event.verb == Verb::DropLink) machine_.fabric().DropLink(event.what, event.backAfter);
    if (event.verb == Verb::PlugDisplay) machine_.fabric().PlugDisplay(event.display.adapter, event.display.display);
    if (event.verb == Verb::UnplugDisplay) machine_.fabric().UnplugDisplay(event.display.adapter);
    if (event.verb == Verb::UseUsb3) {
      sim::Adapter& adapter = *machine_.fabric().FindAdapter(event.usb3.adapter);
      sim::Usb3Facts facts = adapter.usb3;
      facts.consumed = event.usb3.facts.consumed;
      sim::SetUsb3Facts(adapter, facts);
    }
  } catch (const sim::TopologyError& error) {
    // With faults, the packets that other events wait for come when they come.
    if (options_.faults != "none") return Say("", "event left out", error.what());
    Fail(fmt::format("{}:{}:{}: {}", scenario_.file, event.line, event.column, error.what()));
  }
}

void Run::Play(const ScenarioEvent& event) {
  if (event.verb >= Verb::Plug) return PlayHardware(event);
  platform::HostKernel& kernel = machine_.kernel(event.place.host);
  const std::string& verb = VerbNames()[static_cast<std::size_t>(event.verb)];
  const bool wholeHost = event.verb == Verb::Sleep || event.verb == Verb::Hibernate || event.verb == Verb::Resume;
  Say(wholeHost ? kernel.options().name : machine_.DomainName(event.place), verb, "asked");
  const platform::DeviceId device = machine_.device(event.place);
  switch (event.verb) {
    case Verb::Sleep:
      return kernel.SystemSleepAsync(platform::SystemPowerAction::Sleep);
    case Verb::Hibernate:
      return kernel.SystemSleepAsync(platform::SystemPowerAction::Hibernate);
    case Verb::Resume:
      return kernel.SystemResumeAsync();
    case Verb::Wake:
      return machine_.hostInterface(event.place).SignalWake();
    case Verb::Disable:  // takes its time; asleep, it waits for the resume, which is an event of its own
      return kernel.SystemAsleep() ? kernel.RemoveAsync(device) : kernel.Disable(device);
    case Verb::Enable: {
      const auto done = [this, place = event.place](platform::Status status) {
        Say(machine_.DomainName(place), "enable", StatusWord(status));
      };
      return kernel.SystemAsleep() ? kernel.EnableAsync(device, done) : done(kernel.Enable(device));
    }
    case Verb::SurpriseRemove:
      return kernel.SurpriseRemoveAsync(device);
    case Verb::Remove:
      return kernel.RemoveAsync(device);
    default:
      return;
  }
}

void Run::PlayUntil(platform::Time end) {
  auto event = scenario_.events.begin();
  auto expectation = scenario_.expectations.begin();
  while (!Over()) {
    const platform::Time nextEvent = event == scenario_.events.end() ? platform::kNever : event->at;
    const platform::Time nextCheck = expectation == scenario_.expectations.end() ? platform::kNever : expectation->at;
    const platform::Time next = std::min(nextEvent, nextCheck);
    if (next >= end) return;
    Pass(origin_ + next);
    if (Over()) return;
    if (nextCheck <= nextEvent) {
      // With faults on, what is true in between depends on the draw; what must be true in the end does not.
      if (options_.faults == "none") Judge(*expectation);
      ++expectation;
    } else {
      Play(*event);
      ++event;
    }
  }
}

// Every cable of a host router, with a reset of all that hangs on it: what a fault made the driver tell a router is
// forgotten there.
void Run::ReplugRoots() {
  std::set<std::string> wakeThemselves;
  for (const auto& link : machine_.fabric().links()) {
    for (unsigned end = 0; end < 2; ++end) {
      const sim::Router& router = link->end(end).router();
      if (!router.isHost()) continue;
      machine_.fabric().DropLink(link->end(end).Name(), kReplugPause);
      if (router.model().usb4()) wakeThemselves.insert(router.name());
      break;
    }
  }
  Pass(machine_.simulation().Now() + kReplugPause + kTrained);
  // What else idles is woken from outside: a host without a cable, and a Thunderbolt host, which wakes only by what its
  // firmware has armed, and here that has armed nothing.
  for (Place place : machine_.Places()) {
    if (!Over() && !wakeThemselves.contains(HostRouterName(scenario_.machine, place))) {
      machine_.hostInterface(place).SignalWake();
    }
  }
}

// Safety was shown; now liveness: without faults, every device that can run is started afresh, every domain is plugged
// anew, and all must come up complete.
void Run::Heal() {
  machine_.faults().HealAll();
  // A host router keeps its power through all that follows, and with it an operation that got stuck.
  for (const auto& router : machine_.fabric().routers()) router->operations().Reset();
  Say("", "faults", "healed");
  Settle();
  for (std::size_t host = 0; host < scenario_.machine.hosts.size() && !Over(); ++host) {
    machine_.kernel(host).SystemSleep(platform::SystemPowerAction::Hibernate);
    if (!Over()) machine_.kernel(host).SystemResume();
  }
  for (Place place : machine_.Places()) {
    if (Over()) return;
    machine_.RestartIfFailed(place);
  }
  if (Over()) return;
  Settle();
  if (!Over()) ReplugRoots();
  Pass(machine_.simulation().Now() + kHealPause);
}

// A run that ends while it is looked at shows nothing.
void Run::Judge(const Expectation& expectation) {
  const std::vector<std::string> mismatches = Mismatches(expectation, machine_, options_.faults != "none");
  if (Over()) return;
  for (const std::string& text : mismatches) {
    Fail(fmt::format("{}:{}:{}: {}", scenario_.file, expectation.line, expectation.column, text));
  }
}

void Run::JudgeHardware() {
  OracleOptions options = OracleOptionsFor(scenario_.machine);
  options.lostGrants = options_.faults == kLightFaults && machine_.faults().Fired();
  const Findings findings = OracleFindings(machine_, options);
  if (Over()) return;
  for (const Finding& finding : findings) Fail("oracle: " + finding.Text());
}

// What is asked of a controller whose host sleeps waits for the resume, and keeps the machine busy until then.
void Run::JudgeQuiet() {
  bool waiting = false;
  for (std::size_t host = 0; host < scenario_.machine.hosts.size(); ++host) {
    const platform::HostKernel& kernel = machine_.kernel(host);
    if (!kernel.WaitsForResume()) continue;
    waiting = true;
    Fail(
        fmt::format("host {} sleeps, and what was asked of a controller in the meantime waits for its resume: "
                    "add an event that resumes it",
                    kernel.options().name));
  }
  if (!waiting && !machine_.Quiet()) {
    Fail(fmt::format("the machine is not quiet {} ms after the last event", kQuietWithin / platform::kMillisecond));
  }
}

// A controller that does not run has failed, unless the scenario expects that. One that was torn out could not start.
void Run::JudgeStarts() {
  for (Place place : machine_.Places()) {
    const platform::Status status = machine_.StartStatus(place);
    const platform::PnpState state = machine_.State(place);
    const bool started = status >= 0 || state == platform::PnpState::SurpriseRemoved;
    if (started && state != platform::PnpState::Failed) continue;
    const auto expected = [&](const Expectation& expectation) {
      return expectation.place == place && (expectation.startStatus == status || expectation.state == "failed");
    };
    if (std::any_of(scenario_.expectations.begin(), scenario_.expectations.end(), expected)) continue;
    const std::string name = machine_.DomainName(place);
    Fail(started ? fmt::format("{}: did not come back; its state is \"failed\"", name)
                 : fmt::format("{}: the start has failed with {}", name, StatusWord(status)));
  }
}

void Run::JudgeEnd() {
  Settle();
  if (Over()) return;
  if (timeline_) timeline_->Mark({machine_.simulation().Now(), "", "judged", ""});
  if (packetEventsLeft_ != 0) Fail(fmt::format("{} events wait for a packet that never came", packetEventsLeft_));
  JudgeQuiet();
  JudgeStarts();
  View();
  for (std::size_t i = 0; i < report_.domains.size() && !Over(); ++i) {
    DomainView& domain = report_.domains[i];
    const Place place = machine_.Places()[i];
    if (options_.explain) report_.explanations.push_back(Explain(domain, machine_, place));
    if (options_.registers && !Over()) machine_.ReadRegisters(place, domain);
  }
  if (Over()) return;
  if (machine_.Quiet()) JudgeHardware();
  for (const Expectation& expectation : scenario_.expectations) {
    if (expectation.at == platform::kNever && !Over()) Judge(expectation);
  }
}

void Run::AddLeftovers() {
  for (std::size_t host = 0; host < scenario_.machine.hosts.size(); ++host) {
    const platform::HostKernel& kernel = machine_.kernel(host);
    Leftovers left;
    left.host = kernel.options().name;
    left.poolBytes = kernel.PoolBytes();
    left.objects = kernel.LiveObjects();
    left.mappings = kernel.LiveMappings();
    left.buffers = kernel.LiveCommonBuffers();
    for (Place place : machine_.Places()) {
      if (place.host == host) left.references += kernel.References(machine_.device(place)).leftAtRemoval;
    }
    report_.leftovers.push_back(left);
    if (!left.Nothing()) Fail(fmt::format("host {} still holds something after the unload", left.host));
  }
}

void Run::Removal() {
  machine_.RemoveAndUnload();
  if (!Over()) AddLeftovers();
}

ExitCode Run::Code() const {
  if (!report_.violations.empty()) return ExitCode::Violation;
  if (!report_.hang.empty()) return ExitCode::Hang;
  if (!report_.failures.empty() || !report_.protocolErrors.empty()) return ExitCode::Failed;
  if ((capture_ && !report_.captured) || (timeline_ && !report_.traced)) return ExitCode::InputOutput;
  return ExitCode::Held;
}

void Run::Sum(bool heals) {
  platform::Simulation& simulation = machine_.simulation();
  simulation.RemoveSink(&events_);
  report_.stopReached = simulation.StepReached();
  // A stop while the end is judged keeps the view that was judged.
  if (report_.stopReached && report_.domains.empty()) View();
  report_.violations = simulation.violations();
  report_.hang = simulation.HangReport();
  for (const sim::ProtocolError& error : machine_.fabric().errors().list()) {
    (heals && machine_.faults().Fired() && Excused(error) ? report_.waivedErrors : report_.protocolErrors)
        .push_back(error);
  }
  report_.virtualTime = simulation.Now();
  report_.step = simulation.Step();
  report_.traceHash = simulation.TraceHash();
  report_.faultsFired = machine_.faults().FiredCount();
  for (const platform::Waiver& waiver : simulation.waivers()) {
    if (waiver.hits > 0) report_.waivers.push_back(waiver);
  }
  report_.captured = capture_ && capture_->Close();
  report_.traced = timeline_ && timeline_->Close();
  report_.code = Code();
  // The choice after which this code is certain: what stops a run comes last.
  const bool late = report_.code == ExitCode::Violation || report_.code == ExitCode::Hang;
  if (report_.code != ExitCode::Held && (late || report_.failedStep == 0)) report_.failedStep = report_.step;
  report_.events = events_.events();
}

RunReport Run::Execute() {
  const bool heals = options_.faults != "none" && options_.faults != kLightFaults;
  if ((capture_ && !capture_->Good()) || (timeline_ && !timeline_->Good())) {
    report_.code = ExitCode::InputOutput;
    return std::move(report_);
  }
  if (!ArmFaults(options_.faults, report_.seed, machine_.faults(), scenario_.machine.routers.size())) {
    Fail("unknown fault profile " + options_.faults);
  }
  if (options_.faults == kLightFaults) {
    for (Place place : machine_.Places()) machine_.wire(place).LetRepeatsThrough(kLastAttempt);
    for (const PeerHostConfig& peer : scenario_.machine.peers) {
      machine_.fabric().wire(peer.peer.name).LetRepeatsThrough(kLastAttempt);
    }
  }
  Start();
  if (!Over()) PlayUntil(platform::kNever);
  if (!Over() && heals) Heal();
  if (!Over()) JudgeEnd();
  if (!Over()) Removal();
  Sum(heals);
  return std::move(report_);
}

}  // namespace

platform::SimulationOptions SimulationFor(const RunOptions& options) {
  platform::SimulationOptions simulation;
  simulation.stopAtStep = options.stopAtStep;
  if (!options.seed) return simulation;
  simulation.seed = *options.seed;
  simulation.policy = *options.seed % 4 == 3 ? platform::Policy::Priority : platform::Policy::Uniform;
  return simulation;
}

RunReport RunScenario(const Scenario& scenario, const RunOptions& options, const LiveEvents::Listener& live) {
  return Run(scenario, options, live).Execute();
}

}  // namespace lab
