// Tasks, their switches, and the clock. Everything here runs on one thread; tasks run on their own stacks, all else on
// the stack of the one who called RunUntil.
#include "platform/scheduler/scheduler.h"

#include <algorithm>
#include <boost/context/fiber.hpp>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "platform/scheduler/event_queue.h"
#include "platform/scheduler/policy.h"
#include "platform/scheduler/task_stack.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/common_interface_defs.h>
#endif

namespace platform {

namespace ctx = boost::context;

namespace {

constexpr std::uint32_t kEventsWithoutProgress = 1'000'000;
constexpr Time kDriftPerWait = 20 * kMillisecond;
constexpr unsigned kTurnsAlone = 10'000;

}  // namespace

enum class TaskState { Runnable, Running, Parked, Ended };

struct Task::Machine {
  Machine() : fiber() {}
  ~Machine() {}  // does not unwind an abandoned task: its frames go with its stack

  TaskStack stack;
  union {
    ctx::fiber fiber;  // where the task goes on; empty while it runs and once it has ended
  };
  void* fakeStack = nullptr;  // address sanitizer's
  TaskState state = TaskState::Runnable;
  bool timedOut = false;
  EventId timeout = 0;
  const char* why = "";
  const void* object = nullptr;
  Time deadline = kNever;
};

Task::Task() : machine_(std::make_unique<Machine>()) {}
Task::~Task() = default;

struct Scheduler::State {
  explicit State(Simulation& owner) : simulation(owner), policy(MakePolicy(owner.options())) {}

  Simulation& simulation;
  std::unique_ptr<SchedulingPolicy> policy;
  TaskStackPool stacks;
  std::vector<std::unique_ptr<Task>> tasks;  // every task object, ended ones kept for reuse
  std::vector<Task*> ended;
  std::vector<Task*> runnable;  // in order of becoming so; few
  std::vector<std::uint32_t> choices;
  EventQueue events;
  ctx::fiber scheduler;                // where the scheduler goes on, while a task runs
  const ActionRef* request = nullptr;  // what a task wants done on the scheduler's stack
  Task* forced = nullptr;              // chosen at a switch point
  Task* alone = nullptr;               // RunAlone
  std::uint32_t nextOrdinal = 1;
  std::uint64_t step = 0;
  std::uint32_t eventsSinceTimeMoved = 0;
  Time driftLeft = kDriftPerWait;
  Time tick = 1;
  RandomStream lateAnswer;
  const void* schedulerStack = nullptr;
  std::size_t schedulerStackBytes = 0;
  void* schedulerFakeStack = nullptr;

  void SwitchTo(Task& task);  // from the scheduler's stack
  void SwitchToScheduler(Task& task);
  ctx::fiber Run(Task& task, ctx::fiber&& caller);  // a task from its first to its last moment
};

namespace {

// The stack of a task, which the task's fiber borrows.
struct BorrowedStack {
  TaskStack stack;
  ctx::stack_context allocate() const {
    ctx::stack_context context;
    context.sp = stack.Top();
    context.size = stack.bytes;
    return context;
  }
  void deallocate(ctx::stack_context&) const noexcept {}
};

Time TickFor(const SimulationOptions& options) {
  if (options.policy == Policy::FirstCome) return 1;
  constexpr Time kTicks[] = {1 * kMillisecond, 10 * kMillisecond, 156'000};
  return kTicks[RandomStream(options.seed, "timer.tick").Below(3)];
}

}  // namespace

Scheduler::Scheduler(Simulation& simulation) : state_(std::make_unique<State>(simulation)) {
  const SimulationOptions& options = simulation.options();
  seeded_ = options.policy != Policy::FirstCome;
  touches_ = RandomStream(options.seed, "memory.touches").Next();
  drift_ = RandomStream(options.seed, "clock.drift").Next();
  state_->tick = TickFor(options);
  state_->lateAnswer = RandomStream(options.seed, "clock.late-answer");
}

Scheduler::~Scheduler() {
  for (auto& task : state_->tasks) {
    if (task->machine_->stack.bottom) state_->stacks.Give(task->machine_->stack);
  }
}

std::uint64_t Scheduler::step() const {
  return state_->step;
}
const std::vector<std::uint32_t>& Scheduler::choices() const {
  return state_->choices;
}

// --- switching

ctx::fiber Scheduler::State::Run(Task& task, ctx::fiber&& caller) {
  scheduler = std::move(caller);
#if defined(__SANITIZE_ADDRESS__)
  __sanitizer_finish_switch_fiber(nullptr, &schedulerStack, &schedulerStackBytes);
#endif
  task.body_();
  task.machine_->state = TaskState::Ended;
#if defined(__SANITIZE_ADDRESS__)
  __sanitizer_start_switch_fiber(nullptr, schedulerStack, schedulerStackBytes);
#endif
  return std::move(scheduler);
}

void Scheduler::State::SwitchTo(Task& task) {
  Task::Machine& machine = *task.machine_;
  machine.state = TaskState::Running;
  current_ = &task;
#if defined(__SANITIZE_ADDRESS__)
  __sanitizer_start_switch_fiber(&schedulerFakeStack, machine.stack.bottom, machine.stack.bytes);
#endif
  machine.fiber = std::move(machine.fiber).resume();
#if defined(__SANITIZE_ADDRESS__)
  __sanitizer_finish_switch_fiber(schedulerFakeStack, nullptr, nullptr);
#endif
  current_ = nullptr;
}

void Scheduler::State::SwitchToScheduler([[maybe_unused]] Task& task) {
#if defined(__SANITIZE_ADDRESS__)
  __sanitizer_start_switch_fiber(&task.machine_->fakeStack, schedulerStack, schedulerStackBytes);
#endif
  scheduler = std::move(scheduler).resume();
#if defined(__SANITIZE_ADDRESS__)
  __sanitizer_finish_switch_fiber(task.machine_->fakeStack, nullptr, nullptr);
#endif
}

Task& Scheduler::Spawn(HostKernel* kernel, std::string name, std::function<void()> body) {
  Task* task;
  if (state_->ended.empty()) {
    task = state_->tasks.emplace_back(std::make_unique<Task>()).get();
    task->machine_->stack = state_->stacks.Take();
  } else {
    task = state_->ended.back();
    state_->ended.pop_back();
  }
  task->kernel_ = kernel;
  task->name_ = std::move(name);
  task->ordinal_ = state_->nextOrdinal++;
  task->body_ = std::move(body);
  task->irql = 0;
  task->call = "";
  task->stackTop_ = task->machine_->stack.Top();
  task->held.clear();
  task->heldPlaces = 0;
  task->callbackContext = nullptr;
  Task::Machine& machine = *task->machine_;
  machine.fakeStack = nullptr;
  machine.fiber = ctx::fiber(std::allocator_arg, BorrowedStack{machine.stack},
                             [this, task](ctx::fiber&& caller) { return state_->Run(*task, std::move(caller)); });
  machine.state = TaskState::Runnable;
  state_->runnable.push_back(task);
  return *task;
}

void Scheduler::OnSchedulerStack(ActionRef action) {
  Task* task = current_;
  if (task == nullptr) return action();
  state_->request = &action;
  state_->SwitchToScheduler(*task);
}

void Scheduler::Abandon() {
  Task& task = *current_;
  task.machine_->state = TaskState::Parked;
  task.machine_->why = "stopped";
  state_->SwitchToScheduler(task);
  std::abort();  // a stopped simulation runs no task
}

// --- parking and waking

// Only for waits inside a platform call: a worker without work waits for nothing that the driver knows of.
void Scheduler::EmitWait(const char* why, bool ends) {
  const Task& task = *current_;
  if (*task.call == '\0' || !state_->simulation.HasSinks()) return;
  TraceRecord record{};
  record.kind = TraceKind::Call;
  record.when = now_;
  record.kernel = task.kernel();
  record.task = task.name();
  record.taskOrdinal = task.ordinal();
  record.name = task.call;
  record.text = why;
  record.value = ends ? 1 : 0;
  state_->simulation.Emit(record);
}

bool Scheduler::Park(const char* why, const void* object, Time deadline) {
  Task& task = *current_;
  EmitWait(why, false);
  Task::Machine& machine = *task.machine_;
  machine.state = TaskState::Parked;
  machine.why = why;
  machine.object = object;
  machine.deadline = deadline;
  machine.timedOut = false;
  machine.timeout = 0;
  if (deadline != kNever) {
    const Time due = (deadline + state_->tick - 1) / state_->tick * state_->tick;
    machine.timeout = state_->events.AddTimeout(std::max(due, now_), task);
  }
  state_->SwitchToScheduler(task);
  machine.object = nullptr;
  EmitWait(why, true);
  return !machine.timedOut;
}

void Scheduler::Wake(Task& task) {
  Task::Machine& machine = *task.machine_;
  if (machine.state != TaskState::Parked) return;
  if (machine.timeout != 0) state_->events.Cancel(std::exchange(machine.timeout, 0));
  machine.state = TaskState::Runnable;
  state_->runnable.push_back(&task);
}

bool Scheduler::IsParked(const Task& task) const {
  return task.machine_->state == TaskState::Parked;
}

std::vector<const Task*> Scheduler::WaitersOn(const void* object) const {
  std::vector<const Task*> waiters;
  for (const auto& task : state_->tasks) {
    if (task->machine_->state == TaskState::Parked && task->machine_->object == object) waiters.push_back(task.get());
  }
  return waiters;
}

void Scheduler::Yield() {
  Task& task = *current_;
  task.machine_->state = TaskState::Runnable;
  state_->runnable.push_back(&task);
  state_->SwitchToScheduler(task);
}

void Scheduler::Stall(Time duration) {
  Task& task = *current_;
  Task::Machine& machine = *task.machine_;
  EmitWait("a stall", false);
  machine.state = TaskState::Parked;
  machine.why = "stall";
  machine.object = nullptr;
  machine.deadline = now_ + duration;
  machine.timeout = state_->events.AddTimeout(now_ + duration, task);
  state_->SwitchToScheduler(task);
  EmitWait("a stall", true);
}

void Scheduler::SeededSwitchPoint() {
  if (current_ == nullptr) return;
  if (state_->alone == nullptr && OneIn(drift_, 5)) OnSchedulerStack([this] { DriftToNextDeviceEvent(); });
  ChooseNext();
}

void Scheduler::ChooseNext() {
  State& state = *state_;
  if (current_ == nullptr) return;
  if (state.alone != nullptr) [[unlikely]] {
    return SwitchAlone();
  }
  if (state.runnable.empty()) return;
  if (StopBeforeChoice()) [[unlikely]] {
    return Yield();
  }
  state.runnable.push_back(current_);
  const std::uint32_t index = Choose(state.runnable);
  state.runnable.pop_back();
  if (index == state.runnable.size()) return;
  state.forced = state.runnable[index];
  Yield();
}

// The run ends between two choices, so that all that follows from the last one still happens.
bool Scheduler::StopBeforeChoice() {
  Simulation& simulation = state_->simulation;
  const std::uint64_t stopAt = simulation.options().stopAtStep;
  if (stopAt == 0 || state_->step < stopAt) return false;
  simulation.stepReached_ = simulation.stopped_ = true;
  return true;
}

std::uint32_t Scheduler::Choose(std::span<Task* const> candidates) {
  ++state_->step;
  const std::uint32_t index = state_->policy->Next(candidates);
  if (state_->simulation.options().keepChoices) state_->choices.push_back(index);
  Mix(candidates[index]->ordinal());
  return index;
}

// Time does not stand still while the driver computes: answers, interrupts and unplugs land between any two calls. A
// driver's deadline is passed only when the seed says that an answer comes late.
void Scheduler::DriftToNextDeviceEvent() {
  State& state = *state_;
  const Time next = state.events.NextTimeOf(false);
  if (next == kNever || next - now_ > state.driftLeft) return;
  if (next > state.events.NextTimeOf(true) && !state.lateAnswer.Chance(1, 256)) return;
  state.driftLeft -= std::max<Time>(0, next - now_);
  bool ran = false;
  while (!ran && !state.simulation.Stopped()) ran = RunNextEvent(false);
}

// Runs the first event. True when it was a device event, not a time-out.
bool Scheduler::RunNextEvent(bool naturally) {
  State& state = *state_;
  EventQueue::Due due = state.events.Pop();
  if (due.when > now_) {
    now_ = due.when;
    callsSinceTimeMoved_ = 0;
    state.eventsSinceTimeMoved = 0;
    if (naturally) state.driftLeft = kDriftPerWait;
  } else if (++state.eventsSinceTimeMoved > kEventsWithoutProgress) {
    state.simulation.ReportHang("events follow one another without virtual time advancing; the last one: " +
                                std::string(due.name));
  }
  if (due.task) {
    due.task->machine_->timedOut = true;
    due.task->machine_->timeout = 0;
    due.task->machine_->state = TaskState::Runnable;
    state.runnable.push_back(due.task);
    return false;
  }
  Mix(static_cast<std::uint64_t>(now_));
  due.action();
  return true;
}

EventId Scheduler::After(Time delay, const char* name, Action&& action) {
  return state_->events.Add(now_ + std::max<Time>(0, delay), name, std::move(action));
}

void Scheduler::Cancel(EventId id) {
  state_->events.Cancel(id);
}

// --- running

Task* Scheduler::TakeRunnable() {
  State& state = *state_;
  if (state.runnable.empty()) return nullptr;
  std::size_t index = 0;
  if (state.forced) {
    index = static_cast<std::size_t>(std::find(state.runnable.begin(), state.runnable.end(), state.forced) -
                                     state.runnable.begin());
    state.forced = nullptr;
  } else if (seeded_ && state.runnable.size() > 1) {
    if (StopBeforeChoice()) return nullptr;
    index = Choose(state.runnable);
  }
  Task* task = state.runnable[index];
  // A few at most: no call of the library for them.
  Task** const runnable = state.runnable.data();
  const std::size_t last = state.runnable.size() - 1;
#pragma GCC unroll 1
  for (std::size_t i = index; i < last; ++i) {
    runnable[i] = runnable[i + 1];
    asm volatile("" ::: "memory");
  }
  state.runnable.pop_back();
  return task;
}

// Switches to the task and serves its requests until it gives up the processor.
void Scheduler::RunTask(Task& task) {
  State& state = *state_;
  state.SwitchTo(task);
  while (state.request) {
    const ActionRef* action = std::exchange(state.request, nullptr);
    (*action)();
    if (state.simulation.Stopped()) {
      task.machine_->state = TaskState::Parked;
      return;
    }
    state.SwitchTo(task);
  }
  if (task.machine_->state == TaskState::Ended) {
    task.body_ = {};
    state.ended.push_back(&task);
  }
}

Outcome Scheduler::RunUntil(const std::function<bool()>& done, Time deadline) {
  State& state = *state_;
  if (current_ != nullptr || active_ != nullptr) {
    std::fprintf(stderr, "a simulation is run from outside, never from one of its own tasks or events\n");
    std::abort();
  }
  struct Activation {
    explicit Activation(Scheduler* scheduler) { active_ = scheduler; }
    ~Activation() { active_ = nullptr; }
  } activation(this);
  for (;;) {
    if (state.simulation.StepReached()) return Outcome::StepReached;
    if (state.simulation.Stopped()) return state.simulation.HangReport().empty() ? Outcome::Violation : Outcome::Hang;
    if (done && done()) return Outcome::Done;
    if (Task* task = TakeRunnable()) {
      RunTask(*task);
      continue;
    }
    if (state.simulation.Stopped()) continue;
    const Time next = state.events.NextTime();
    if (next == kNever && deadline == kNever) {
      if (!done) return Outcome::Idle;
      state.simulation.ReportHang("nothing can run and nothing is scheduled");
      continue;
    }
    if (next > deadline) {
      now_ = std::max(now_, deadline);
      return Outcome::Deadline;
    }
    RunNextEvent(true);
  }
}

// --- alone

// The owner of a lock runs no further than to its release.
void Scheduler::SwitchAlone() {
  if (current_ != state_->alone && !IsParked(*state_->alone)) Yield();
}

// The task itself, or the owner of the lock that it waits for, or of the lock that this one waits for; null when they
// wait for anything else than a lock or the end of a stall.
Task* Scheduler::RunnableFor(Task& task) {
  Task* next = &task;
  for (std::size_t i = 0; i < state_->tasks.size() && next != nullptr && IsParked(*next); ++i) {
    const Task::Machine& machine = *next->machine_;
    if (machine.object == nullptr && machine.timeout != 0) {
      Wake(*next);
    } else {
      next = OwnerOf(machine.object);
    }
  }
  return next != nullptr && !IsParked(*next) ? next : nullptr;
}

void Scheduler::RunAlone(Task& task, const bool& ended) {
  const std::uint64_t hash = hash_;
  active_ = this;
  state_->alone = &task;
  for (unsigned turn = 0; turn < kTurnsAlone && !ended && !state_->simulation.Stopped(); ++turn) {
    Task* next = RunnableFor(task);
    if (next == nullptr) break;
    std::erase(state_->runnable, next);
    RunTask(*next);
  }
  state_->alone = nullptr;
  active_ = nullptr;
  hash_ = hash;
}

bool Scheduler::QuietUntil(Time horizon) const {
  return state_->runnable.empty() && state_->events.NextTime() > horizon;
}

Task* Scheduler::OwnerOf(const void* lock) const {
  for (const auto& task : state_->tasks) {
    for (const HeldLock& held : task->held) {
      if (lock && held.lock == lock) return task.get();
    }
  }
  return nullptr;
}

std::string Scheduler::WhoWaits() const {
  std::string text;
  for (const auto& task : state_->tasks) {
    const Task::Machine& machine = *task->machine_;
    if (machine.state == TaskState::Ended) continue;
    text += "\n  task '" + task->name_ + "' (" + std::to_string(task->ordinal_) + ")";
    if (machine.state != TaskState::Parked) {
      text += " can run, last in " + std::string(task->call[0] ? task->call : "its own code");
      continue;
    }
    text += " waits in " + std::string(task->call[0] ? task->call : "the platform") + ": " + machine.why;
    if (const Task* owner = OwnerOf(machine.object)) text += ", held by task '" + owner->name_ + "'";
    if (machine.deadline == kNever) text += ", without a time-out";
  }
  return text;
}

}  // namespace platform
