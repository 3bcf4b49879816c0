// A task of its own that runs one routine whenever it is queued: never two runs at a time, requests made while one is
// queued are merged, one made while it runs makes it run once more. Work items, interrupts and power policy stand on
// it.
#pragma once
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/scheduler/scheduler.h"

namespace platform {

class Worker {
 public:
  // The task is spawned at the first Queue(), so a worker that is never used costs nothing. `routine` runs at
  // PASSIVE_LEVEL.
  Worker(HostKernel& kernel, std::string name, std::function<void()> routine);
  ~Worker();
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  bool Queue();  // from a task or the scheduler's stack; false when a run was queued already
  bool Queued() const { return state_->queued; }
  bool Running() const { return state_->running; }
  bool Busy() const { return state_->queued || state_->running; }
  Task* task() const { return state_->task; }  // null before the first run
  // Waits until no run is queued or running; not from the routine itself.
  void WaitIdle(Scheduler& scheduler, const char* why);
  // Ends the task once the routine has returned; a queued run is dropped. A stopped worker is never queued again.
  void Stop();

 private:
  // Outlives the worker while the task still runs in its own routine.
  struct State {
    HostKernel& kernel;
    std::string name;
    std::function<void()> routine;
    Task* task = nullptr;
    bool queued = false, running = false, idling = false, stopped = false;
    std::vector<Task*> waiters;
  };
  static void Run(const std::shared_ptr<State>& state);
  std::shared_ptr<State> state_;
};

}  // namespace platform
