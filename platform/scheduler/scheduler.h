// Tasks and their scheduler: the primitives on which every waiting kernel object is built. For the platform's own
// files.
#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/host/simulation.h"

namespace platform {

// A lock that a task holds: for the rules about waits, callbacks and order. `spin` locks raise IRQL, mutexes do not.
struct HeldLock {
  const void* lock;
  bool spin;
  std::uint8_t irqlBefore = 0;  // spin locks: what the release must go back to
  std::uint32_t id = 0;         // in the lock order
  std::uint16_t place = 0;      // in the driver's own order, from 1; 0: none was told
  bool leaf = false;
};

class Task {
 public:
  // After each change of `held`.
  void NoteHeldPlaces() {
    heldPlaces = 0;
    for (const HeldLock& lock : held) heldPlaces |= lock.place == 0 ? 0 : 1u << (lock.place - 1);
  }
  HostKernel* kernel() const { return kernel_; }
  const std::string& name() const { return name_; }
  std::uint32_t ordinal() const { return ordinal_; }  // 1, 2, ... in order of creation

  unsigned irql = 0;           // the running task's IRQL: 0 PASSIVE, 1 APC, 2 DISPATCH, 3.. device
  const char* call = "";       // platform call in progress, innermost
  std::vector<HeldLock> held;  // locks in order of acquisition
  unsigned heldPlaces = 0;     // places of these locks; bit n stands for place n + 1
  // For the framework: the work item, interrupt or power transition that this task runs for.
  void* callbackContext = nullptr;

 private:
  friend class Scheduler;
  HostKernel* kernel_ = nullptr;
  std::string name_;
  std::uint32_t ordinal_ = 0;
  std::function<void()> body_;
  friend class KernelCall;
  const std::byte* stackTop_ = nullptr;
  struct Machine;  // stack, saved context, wait state
  std::unique_ptr<Machine> machine_;

 public:
  Task();
  ~Task();
};

class Scheduler {
 public:
  explicit Scheduler(Simulation& simulation);
  ~Scheduler();

  // The task that runs now on this thread; null on the scheduler's own stack and outside a simulation.
  static Task* Current() { return current_; }
  static Scheduler* Active() { return active_; }  // the scheduler whose run is in progress on this thread, or null

  Time Now() const { return now_; }

  // Parks the running task until Wake(), or until `deadline` (absolute; kNever: none) has been reached at a timer tick.
  // True when woken, false on time-out. `why` and `object` are for the deadlock report. The caller has checked IRQL.
  bool Park(const char* why, const void* object, Time deadline = kNever);
  // Makes a parked task runnable; a task that is not parked is not affected.
  void Wake(Task& task);
  bool IsParked(const Task& task) const;
  // Lets other runnable tasks run first. With a seeded policy a choice; with first-come a move to the back of the
  // queue.
  void Yield();
  // A busy wait: `duration` of virtual time passes in which other tasks, and device events, run.
  void Stall(Time duration);
  // A possible switch point: every platform call passes one. Does nothing under Policy::FirstCome.
  void SwitchPoint() {
    if (seeded_) SeededSwitchPoint();
  }
  // A possible switch point at a touch of shared memory, which takes no virtual time. One touch in eight is one: a
  // driver touches its lists far more often than it calls.
  void MemorySwitchPoint() {
    if (seeded_ && OneIn(touches_, 3)) ChooseNext();
  }
  // Runs `action` on the scheduler's stack while the task stands still: register handlers, sinks, reports.
  void OnSchedulerStack(ActionRef action);
  // Ends the calling task's run for good (after a violation); never returns to the task.
  [[noreturn]] void Abandon();
  std::vector<const Task*> WaitersOn(const void* object) const;  // tasks parked with this object

  Task& Spawn(HostKernel* kernel, std::string name, std::function<void()> body);
  EventId After(Time delay, const char* name, Action&& action);
  void Cancel(EventId id);
  Outcome RunUntil(const std::function<bool()>& done, Time deadline);
  void RunAlone(Task& task, const bool& ended);  // Simulation::RunAlone
  bool QuietUntil(Time horizon) const;
  std::string WhoWaits() const;  // one line per live task, for hang reports
  std::uint64_t step() const;
  const std::vector<std::uint32_t>& choices() const;  // so far, when the run keeps them; Policy::Replay repeats them
  void Mix(std::uint64_t word) {
    hash_ = (hash_ ^ word) * 0x9ddfea08eb382d69u, hash_ ^= hash_ >> 29;
  }  // into the trace hash
  std::uint64_t traceHash() const { return hash_; }

 private:
  friend class KernelCall;
  // Moves the stream on; true once in 2^`bits` times.
  static bool OneIn(std::uint64_t& stream, unsigned bits) {
    stream = stream * 0x5851F42D4C957F2Du + 0x14057B7EF767814Fu;
    return stream >> (64 - bits) == 0;
  }
  void SeededSwitchPoint();
  void ChooseNext();
  std::uint32_t Choose(std::span<Task* const> candidates);
  Task* OwnerOf(const void* lock) const;
  void DriftToNextDeviceEvent();
  void EmitWait(const char* why, bool ends);
  bool RunNextEvent(bool naturally);
  Task* TakeRunnable();
  bool StopBeforeChoice();
  void SwitchAlone();
  Task* RunnableFor(Task& task);
  void RunTask(Task& task);
  struct State;
  static inline constinit thread_local Task* current_ = nullptr;
  static inline constinit thread_local Scheduler* active_ = nullptr;
  std::unique_ptr<State> state_;
  bool seeded_ = false;
  std::uint32_t callsSinceTimeMoved_ = 0;
  Time now_ = 0;
  std::uint64_t hash_ = 0;
  std::uint64_t touches_ = 0;  // streams of random bits: whether a touch of memory switches,
  std::uint64_t drift_ = 0;    // whether a call takes time
};

// Opens every platform call: checks that a task runs and its IRQL, samples the stack, names the call for reports, mixes
// it into the trace hash, and is the call's switch point. The rule that the call's public documentation states for IRQL
// is the second argument.
class KernelCall {
 public:
  enum Kind { SwitchPoint, Silent };  // Silent: observation only; neither a switch point nor part of the trace hash
  KernelCall(HashedName name, unsigned maxIrql, Kind kind = SwitchPoint)
      : scheduler_(ActiveOr(name)), task_(CallerOr(name)), name_(name), outer_(task_.call) {
    task_.call = name.text.data();
    if (kind == Silent) return;
    const auto stack =
        static_cast<std::size_t>(task_.stackTop_ - static_cast<const std::byte*>(__builtin_frame_address(0)));
    if (task_.irql > maxIrql || stack > kStackLimit || ++scheduler_.callsSinceTimeMoved_ > kCallsWithoutProgress) {
      [[unlikely]] ReportEntry(maxIrql, stack);
    }
    scheduler_.Mix(name.hash + task_.ordinal());
    scheduler_.SwitchPoint();
  }
  ~KernelCall() { task_.call = outer_; }
  KernelCall(const KernelCall&) = delete;
  KernelCall& operator=(const KernelCall&) = delete;

  Task& task() { return task_; }
  HostKernel& kernel() { return *task_.kernel(); }
  Scheduler& scheduler() { return scheduler_; }
  Simulation& simulation();
  // A second switch point, for calls whose effect another task may act on before the caller's next step: a signal, a
  // release, a completion. The caller touches nothing of the object afterwards.
  void EffectVisible() { scheduler_.SwitchPoint(); }
  [[nodiscard]] bool Fails();  // the fault site with the call's own name fires
  void Report(Rule rule, std::string detail, std::int64_t measured = 0);  // simulation().Report()

 private:
#if defined(__SANITIZE_ADDRESS__) || defined(KIVUSB4_SANITIZED) || !defined(__OPTIMIZE__)
  static constexpr std::size_t kStackLimit = 64 * 1024;
#else
  static constexpr std::size_t kStackLimit = 16 * 1024;
#endif
  static constexpr std::uint32_t kCallsWithoutProgress = 20'000'000;
  [[noreturn]] static void OutsideTask(HashedName name);
  static Scheduler& ActiveOr(HashedName name) {
    if (Scheduler::Active() == nullptr) [[unlikely]] {
      OutsideTask(name);
    }
    return *Scheduler::Active();
  }
  static Task& CallerOr(HashedName name) {
    Task* task = Scheduler::Current();
    if (task == nullptr || task->kernel() == nullptr) [[unlikely]] {
      OutsideTask(name);
    }
    return *task;
  }
  void ReportEntry(unsigned maxIrql, std::size_t stack);  // what is wrong with the call

  Scheduler& scheduler_;
  Task& task_;
  HashedName name_;
  const char* outer_;
};

// Runs a framework callback for the driver: checks that it returns at the IRQL it was called at and with the locks it
// had. Use: `Status s = InvokeCallback("EvtDeviceD0Entry", [&] { return callback(device, state); });`
class CallbackScope {
 public:
  explicit CallbackScope(const char* name);
  ~CallbackScope();

 private:
  const char* name_;
  unsigned irql_;
  std::size_t held_;
};

template <class F>
auto InvokeCallback(const char* name, F&& body) {
  CallbackScope scope(name);
  return body();
}

}  // namespace platform
