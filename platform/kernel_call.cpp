// What every platform call and every framework callback does at its edges.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/host/host_kernel.h"
#include "platform/scheduler.h"

namespace platform {
namespace {

#if defined(__SANITIZE_ADDRESS__) || !defined(__OPTIMIZE__)
constexpr std::size_t kStackLimit = 64 * 1024;
#else
constexpr std::size_t kStackLimit = 16 * 1024;
#endif
constexpr std::uint32_t kCallsWithoutProgress = 20'000'000;

[[noreturn]] void OutsideTask(const char* name) {
  std::fprintf(stderr, "%s: %s was called outside a task of a simulation\n", RuleName(Rule::CallOutsideTask), name);
  std::abort();
}

Scheduler& RunningScheduler(const char* name) {
  if (Scheduler::Active() == nullptr) OutsideTask(name);
  return *Scheduler::Active();
}

Task& CallingTask(const char* name) {
  Task* task = Scheduler::Current();
  if (task == nullptr || task->kernel() == nullptr) OutsideTask(name);
  return *task;
}

}  // namespace

KernelCall::KernelCall(HashedName name, unsigned maxIrql, Kind kind)
    : scheduler_(RunningScheduler(name.text.data())),
      task_(CallingTask(name.text.data())),
      name_(name),
      outer_(task_.call) {
  task_.call = name.text.data();
  if (kind == Silent) return;
  if (task_.irql > maxIrql) [[unlikely]] {
    Report(Rule::IrqlTooHigh, std::string(name.text) + " may be called up to IRQL " + std::to_string(maxIrql) +
                                  ", not at " + std::to_string(task_.irql));
  }
  if (const std::size_t bytes = scheduler_.StackInUse(); bytes > kStackLimit) [[unlikely]] {
    Report(Rule::StackTooDeep, std::to_string(bytes) + " bytes of stack in use, limit " + std::to_string(kStackLimit),
           static_cast<std::int64_t>(bytes));
  }
  if (++scheduler_.callsSinceTimeMoved_ > kCallsWithoutProgress) [[unlikely]] {
    simulation().ReportHang("task '" + task_.name() + "' spins without virtual time advancing");
  }
  scheduler_.Mix(name.hash + task_.ordinal());
  scheduler_.SwitchPoint();
}

KernelCall::~KernelCall() {
  task_.call = outer_;
}

Simulation& KernelCall::simulation() {
  return task_.kernel()->simulation();
}

bool KernelCall::Fails() {
  return simulation().faults().Fires(name_);
}

void KernelCall::Report(Rule rule, std::string detail, std::int64_t measured) {
  simulation().Report(rule, std::move(detail), measured);
}

CallbackScope::CallbackScope(const char* name) : name_(name) {
  const Task& task = CallingTask(name);
  irql_ = task.irql;
  held_ = task.held.size();
}

CallbackScope::~CallbackScope() {
  const Task& task = *Scheduler::Current();
  Simulation& simulation = task.kernel()->simulation();
  if (task.irql != irql_) {
    simulation.Report(Rule::CallbackIrql, std::string(name_) + " was called at IRQL " + std::to_string(irql_) +
                                              " and returned at " + std::to_string(task.irql));
  }
  if (task.held.size() != held_) {
    simulation.Report(Rule::CallbackHoldsLock, std::string(name_) + " returned with another number of locks held: " +
                                                   std::to_string(task.held.size()) + " instead of " +
                                                   std::to_string(held_));
  }
}

}  // namespace platform
