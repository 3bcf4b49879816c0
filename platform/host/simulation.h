// One simulation: the clock, the tasks, the event list and the verifier that all hosts of a run share.
//
// Exactly one task runs at a time, on its own stack. Device events, timers, register handlers and reports run on the
// scheduler's stack, between tasks. Nothing here knows USB4 or the driver.
#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/host/action.h"
#include "platform/host/faults.h"
#include "platform/host/random.h"
#include "platform/host/rules.h"
#include "platform/host/time.h"
#include "platform/host/trace_sink.h"

namespace platform {

class HostKernel;
class Scheduler;
class Simulation;
class Task;

enum class Policy {
  FirstCome,  // first runnable, first run; no switch points, no drift, exact timers
  Uniform,    // at each switch point any runnable task, drawn from the seed
  Priority,   // random priorities with a few forced drops: finds bugs that need few but exact switches
  Replay,     // the recorded choices of an earlier run
};

struct SimulationOptions {
  Policy policy = Policy::FirstCome;
  std::uint64_t seed = 0;
  unsigned priorityDrops = 3;          // Policy::Priority only
  std::vector<std::uint32_t> choices;  // Policy::Replay only
  bool keepChoices = false;            // Scheduler::choices() has them, for such a replay
  std::uint64_t stopAtStep = 0;        // the last choice that is made; 0: no limit
};

// A thing that the verifier holds against the driver (or, for `host` reports, against the model).
struct Violation {
  Rule rule;
  std::string call;  // the platform call in progress
  std::string task;
  unsigned irql = 0;
  std::string detail;              // one line
  std::vector<std::string> stack;  // innermost first; empty where no symbols are to be had
  std::uint64_t seed = 0;
  Time when = 0;
};

// A known, bounded breach of a rule that required behaviour brings with it. Data of the assembly; the platform knows no
// names.
struct Waiver {
  Rule rule;
  std::string where;       // call and detail must contain this text
  std::int64_t bound = 0;  // largest measured value that is still waived (stall in microseconds, objects, ...)
  std::string reason;
  std::uint64_t hits = 0;
};

enum class Outcome {
  Done,         // the condition holds
  Idle,         // nothing is runnable and nothing is scheduled before the deadline
  Deadline,     // virtual time is up
  Violation,    // the verifier stopped the run
  Hang,         // deadlock, or spinning without virtual time advancing
  StepReached,  // the next choice would be the one after stopAtStep
};

using EventId = std::uint64_t;

class Simulation {
 public:
  explicit Simulation(SimulationOptions options = {});
  ~Simulation();
  Simulation(const Simulation&) = delete;
  Simulation& operator=(const Simulation&) = delete;

  const SimulationOptions& options() const { return options_; }
  Time Now() const;
  std::uint64_t Step() const;       // scheduling choices made so far (steps with two or more runnable tasks)
  std::uint64_t TraceHash() const;  // of every platform call, switch and event so far; equal for equal seeds

  // A random stream of its own for `name`; the same object on every call.
  RandomStream& Random(HashedName name) {
    KnownStream& known = knownStreams_[name.hash % kKnownStreams];
    if (known.stream == nullptr || known.hash != name.hash) [[unlikely]] {
      known = {name.hash, &LookForStream(name)};
    }
    return *known.stream;
  }
  FaultPlan& faults() { return faults_; }

  // --- events: run on the scheduler's stack when the clock reaches them, in (time, insertion) order
  EventId After(Time delay, const char* name, Action action);
  void Cancel(EventId id);  // of an event that has run or was cancelled: no effect

  // --- tasks
  // A new runnable task at PASSIVE_LEVEL that belongs to `kernel` (null: to nobody; it may make no kernel call).
  Task& Spawn(HostKernel* kernel, std::string name, std::function<void()> body);

  // --- running (from the outside only, never from a task)
  // Runs until `done()` holds (checked between tasks), nothing is left to do, or `deadline` (absolute) is reached.
  Outcome RunUntil(const std::function<bool()>& done, Time deadline = kNever);
  Outcome RunFor(Time duration);  // lets virtual time pass; Deadline is the normal outcome
  // Runs `body` as a task of `kernel` and returns when it has ended.
  Outcome RunTask(HostKernel* kernel, std::string name, std::function<void()> body);
  // After StepReached: runs `body` as a task of `kernel`, and beside it only tasks that hold a lock it waits for, until
  // they release it. Makes no choice; time and trace hash stay as they are. False when `body` waits for anything else.
  bool RunAlone(HostKernel* kernel, std::string name, std::function<void()> body);
  // True when no task is runnable and no event is scheduled at or before `horizon` (absolute).
  bool QuietUntil(Time horizon) const;

  // --- verifier
  const std::vector<Violation>& violations() const { return violations_; }
  std::vector<Waiver>& waivers() { return waivers_; }
  // Records a violation and stops the run. `measured` is compared with a waiver's bound; when a waiver covers it,
  // counts the hit and returns. Otherwise does not return when called from a task.
  void Report(Rule rule, std::string detail, std::int64_t measured = 0);
  void ReportHang(std::string why);          // ends the run; HangReport() then also says who waits for what
  bool Stopped() const { return stopped_; }  // a violation, a hang or stopAtStep has ended this simulation for good
  bool StepReached() const { return stepReached_; }
  std::string HangReport() const { return hangReport_; }  // who waits for what

  // --- sinks
  void AddSink(TraceSink* sink);
  void RemoveSink(TraceSink* sink);
  bool HasSinks() const { return !sinks_.empty(); }
  void Emit(const TraceRecord& record);  // to every sink; observers change nothing, the trace hash included

  Scheduler& scheduler() { return *scheduler_; }  // platform/scheduler/scheduler.h; for the platform's own files

 private:
  friend class Scheduler;
  SimulationOptions options_;
  FaultPlan faults_;
  RandomStream& LookForStream(HashedName name);
  std::unordered_map<std::uint64_t, RandomStream> streams_;  // by the hash of the name
  struct KnownStream {
    std::uint64_t hash = 0;
    RandomStream* stream = nullptr;
  };
  static constexpr std::size_t kKnownStreams = 64;
  KnownStream knownStreams_[kKnownStreams];  // used of late, by the low bits of their hash
  std::vector<Violation> violations_;
  std::vector<Waiver> waivers_;
  std::vector<TraceSink*> sinks_;
  std::string hangReport_;
  bool stopped_ = false;
  bool stepReached_ = false;
  std::unique_ptr<Scheduler> scheduler_;
};

}  // namespace platform
