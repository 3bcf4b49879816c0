#include "platform/host/simulation.h"

#include <utility>

#include "platform/scheduler/backtrace.h"
#include "platform/scheduler/scheduler.h"

namespace platform {

Simulation::Simulation(SimulationOptions options)
    : options_(std::move(options)), faults_(options_.seed), scheduler_(std::make_unique<Scheduler>(*this)) {}

Simulation::~Simulation() = default;

Time Simulation::Now() const {
  return scheduler_->Now();
}
std::uint64_t Simulation::Step() const {
  return scheduler_->step();
}
std::uint64_t Simulation::TraceHash() const {
  return scheduler_->traceHash();
}

RandomStream& Simulation::LookForStream(HashedName name) {
  const auto [it, inserted] = streams_.try_emplace(name.hash);
  if (inserted) it->second = RandomStream(options_.seed, name.text);
  return it->second;
}

EventId Simulation::After(Time delay, const char* name, Action action) {
  return scheduler_->After(delay, name, std::move(action));
}

void Simulation::Cancel(EventId id) {
  scheduler_->Cancel(id);
}

Task& Simulation::Spawn(HostKernel* kernel, std::string name, std::function<void()> body) {
  return scheduler_->Spawn(kernel, std::move(name), std::move(body));
}

Outcome Simulation::RunUntil(const std::function<bool()>& done, Time deadline) {
  return scheduler_->RunUntil(done, deadline);
}

Outcome Simulation::RunFor(Time duration) {
  return scheduler_->RunUntil({}, Now() + duration);
}

Outcome Simulation::RunTask(HostKernel* kernel, std::string name, std::function<void()> body) {
  if (stopped_) return RunUntil({});
  // The task may outlive this call when the run stops early, so what it sets lives on the heap.
  auto ended = std::make_shared<bool>(false);
  Spawn(kernel, std::move(name), [ended, body = std::move(body)] {
    body();
    *ended = true;
  });
  return RunUntil([ended] { return *ended; });
}

bool Simulation::RunAlone(HostKernel* kernel, std::string name, std::function<void()> body) {
  if (!stepReached_) return false;
  const auto ended = std::make_shared<bool>(false);
  Task& task = Spawn(kernel, std::move(name), [ended, body = std::move(body)] {
    body();
    *ended = true;
  });
  stopped_ = false;
  scheduler_->RunAlone(task, *ended);
  stopped_ = true;
  // What a released task does on its way is no longer the run.
  violations_.clear();
  hangReport_.clear();
  return *ended;
}

bool Simulation::QuietUntil(Time horizon) const {
  return scheduler_->QuietUntil(horizon);
}

void Simulation::Report(Rule rule, std::string detail, std::int64_t measured) {
  Task* task = Scheduler::Current();
  const std::string call = task ? task->call : "";
  for (Waiver& waiver : waivers_) {
    const bool named = call.find(waiver.where) != std::string::npos || detail.find(waiver.where) != std::string::npos;
    if (waiver.rule == rule && named && measured <= waiver.bound) {
      ++waiver.hits;
      return;
    }
  }
  Violation violation{rule,          call, task ? task->name() : "", task ? task->irql : 0, std::move(detail), {},
                      options_.seed, Now()};
  violation.stack = Backtrace();
  violations_.push_back(std::move(violation));
  stopped_ = true;
  if (task) scheduler_->Abandon();
}

void Simulation::ReportHang(std::string why) {
  hangReport_ = std::move(why) + scheduler_->WhoWaits();
  stopped_ = true;
  if (Scheduler::Current()) scheduler_->Abandon();
}

void Simulation::AddSink(TraceSink* sink) {
  sinks_.push_back(sink);
}
void Simulation::RemoveSink(TraceSink* sink) {
  std::erase(sinks_, sink);
}

void Simulation::Emit(const TraceRecord& record) {
  for (TraceSink* sink : sinks_) sink->OnTrace(record);
}

}  // namespace platform
