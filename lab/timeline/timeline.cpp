// Distributes the records of a run over the tracks of the timeline.
#include "lab/timeline/timeline.h"

#include <algorithm>

namespace lab {
namespace {

constexpr std::string_view kAccess = "configuration access";  // as the driver calls one attempt
constexpr std::uint8_t kOpcodeStart = 1, kOpcodeStop = 2;
constexpr std::uint64_t kEnds = 1;

TraceArguments ArgumentsOf(const DriverEvent& event) {
  TraceArguments arguments;
  arguments.Add("operation", event.operation);
  for (const EventField& field : event.fields) arguments.Add(field.key, field.text);
  return arguments;
}

}  // namespace

Timeline::Timeline(const std::string& file, Machine& machine) : machine_(machine), file_(file), tasks_(file_) {
  events_ = file_.AddTrack(file_.AddProcess("machine"), "events");
  for (std::size_t host = 0; host < machine.config().hosts.size(); ++host) AddHost(host);
  machine.simulation().AddSink(this);
}

void Timeline::AddHost(std::size_t number) {
  hosts_.push_back(std::make_unique<Host>());
  Host& host = *hosts_.back();
  host.kernel = &machine_.kernel(number);
  host.pid = file_.AddProcess(host.kernel->options().name);
  for (Place place : machine_.Places()) {
    if (place.host != number) continue;
    const unsigned pid = file_.AddProcess(machine_.DomainName(place));
    const sim::Router& router = *machine_.fabric().Find(HostRouterName(machine_.config(), place));
    host.domains.push_back(
        std::make_unique<Domain>(Domain{pid, AccessTracks(file_, pid, host.questions, host.homes, host.domains.size()),
                                        TunnelTracks(file_, pid, router)}));
    Domain& domain = *host.domains.back();
    machine_.wire(place).log().Listen([&domain](const sim::WireEntry& entry) { domain.accesses.Packet(entry); });
  }
}

Timeline::Host& Timeline::HostOf(const platform::TraceRecord& record) {
  for (const auto& host : hosts_) {
    if (host->kernel == record.kernel) return *host;
  }
  return *hosts_.front();
}

Timeline::Domain& Timeline::DomainOf(Host& host, std::uint32_t task, unsigned controller) {
  const auto home = host.homes.find(task);
  if (home != host.homes.end()) return *host.domains[home->second];
  const auto found = std::find_if(host.domains.begin(), host.domains.end(),
                                  [&](const auto& domain) { return domain->accesses.controller() == controller; });
  return found == host.domains.end() ? *host.domains.front() : **found;
}

void Timeline::OnTrace(const platform::TraceRecord& record) {
  switch (record.kind) {
    case platform::TraceKind::Callback:
    case platform::TraceKind::Call:
      if (record.value == kEnds) return tasks_.End(record, record.name);
      tasks_.Begin(HostOf(record).pid, record, record.name,
                   record.text.empty() ? TraceArguments() : TraceArguments().Add("waits for", record.text));
      return;
    case platform::TraceKind::Driver:
      return Driver(record);
    case platform::TraceKind::Device:
      return Mark({record.when, "", std::string(record.name), std::string(record.text)});
    case platform::TraceKind::Power:
      return Mark({record.when, machine_.NameOf(*record.kernel, static_cast<platform::DeviceId>(record.value)), "power",
                   std::string(record.name)});
    default:
      return;
  }
}

void Timeline::Driver(const platform::TraceRecord& record) {
  const auto event = UnpackDriverEvent(record.payload);
  if (!event) return;
  if (record.opcode == kOpcodeStart) {
    StepBegins(record, *event);
  } else if (record.opcode == kOpcodeStop) {
    StepEnds(record, *event);
  } else {
    Told(record, *event);
  }
}

void Timeline::StepBegins(const platform::TraceRecord& record, const DriverEvent& event) {
  Host& host = HostOf(record);
  const Track track = tasks_.Begin(host.pid, record, event.what, ArgumentsOf(event));
  if (event.what != kAccess) return;
  std::optional<Question> question = QuestionFrom(event);
  if (!question) return;
  question->task = record.taskOrdinal;
  question->asker = track;
  host.questions.push_back(*question);
}

void Timeline::StepEnds(const platform::TraceRecord& record, const DriverEvent& event) {
  Host& host = HostOf(record);
  if (event.what == kAccess) {
    for (const auto& domain : host.domains) domain->accesses.GiveUp(record.taskOrdinal, record.when);
    host.questions.remove_if([&](const Question& question) { return question.task == record.taskOrdinal; });
  } else {
    Sample(host, record.when);
  }
  tasks_.End(record, event.what);
}

void Timeline::Told(const platform::TraceRecord& record, const DriverEvent& event) {
  Host& host = HostOf(record);
  if (event.what == "device added") DeviceAdded(host, event, record.taskOrdinal);
  TunnelTold(host, event, record);
  file_.Instant(tasks_.Of(record).value_or(events_), record.when, event.what, ArgumentsOf(event));
}

// Devices are added in the order of the controllers; one that is added again finds its place by what it says on the
// wire.
void Timeline::DeviceAdded(Host& host, const DriverEvent& event, std::uint32_t task) {
  const unsigned controller = FieldNumber<unsigned>(event, "controller").value_or(0);
  if (host.added == host.domains.size()) return;
  host.homes[task] = host.added;
  host.domains[host.added++]->accesses.SetController(controller);
}

void Timeline::TunnelTold(Host& host, const DriverEvent& event, const platform::TraceRecord& record) {
  const bool listed = event.what == "tunnel listed", unlisted = event.what == "tunnel unlisted";
  if (!listed && !unlisted && event.what != "USB3 granted") return;
  const auto tunnel = TunnelFrom(event);
  if (!tunnel) return;
  TunnelTracks& tunnels = DomainOf(host, record.taskOrdinal, ControllerOf(*tunnel)).tunnels;
  if (listed) {
    tunnels.Listed(*tunnel, record.when);
  } else if (unlisted) {
    tunnels.Unlisted(*tunnel, record.when);
  } else {
    tunnels.Granted(*tunnel, record.when);
  }
}

void Timeline::Sample(Host& host, platform::Time when) {
  for (const auto& domain : host.domains) domain->tunnels.Sample(when);
}

void Timeline::Mark(const LiveEvent& event) {
  TraceArguments arguments;
  if (!event.where.empty()) arguments.Add("where", event.where);
  if (!event.effect.empty()) arguments.Add("effect", event.effect);
  file_.Instant(events_, event.when, event.event, arguments);
  for (const auto& host : hosts_) Sample(*host, event.when);
}

bool Timeline::Close() {
  const platform::Time now = machine_.simulation().Now();
  machine_.simulation().RemoveSink(this);
  for (const auto& host : hosts_) {
    for (const Question& question : host->questions) {
      for (const auto& domain : host->domains) domain->accesses.GiveUp(question.task, now);
    }
    for (const auto& domain : host->domains) domain->tunnels.Finish(now);
  }
  return file_.Close(now);
}

}  // namespace lab
