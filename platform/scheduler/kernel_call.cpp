// What every platform call and every framework callback does at its edges.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/host/host_kernel.h"
#include "platform/scheduler/scheduler.h"

namespace platform {
namespace {

[[noreturn]] void OutsideTask(const char* name) {
  std::fprintf(stderr, "%s: %s was called outside a task of a simulation\n", RuleName(Rule::CallOutsideTask), name);
  std::abort();
}

Task& CallingTask(const char* name) {
  Task* task = Scheduler::Current();
  if (task == nullptr || task->kernel() == nullptr) OutsideTask(name);
  return *task;
}

}  // namespace

void KernelCall::OutsideTask(HashedName name) {
  platform::OutsideTask(name.text.data());
}

void KernelCall::ReportEntry(unsigned maxIrql, std::size_t stack) {
  if (task_.irql > maxIrql) {
    Report(Rule::IrqlTooHigh, std::string(name_.text) + " may be called up to IRQL " + std::to_string(maxIrql) +
                                  ", not at " + std::to_string(task_.irql));
  }
  if (stack > kStackLimit) {
    Report(Rule::StackTooDeep, std::to_string(stack) + " bytes of stack in use, limit " + std::to_string(kStackLimit),
           static_cast<std::int64_t>(stack));
  }
  if (scheduler_.callsSinceTimeMoved_ > kCallsWithoutProgress) {
    simulation().ReportHang("task '" + task_.name() + "' spins without virtual time advancing");
  }
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
