#include "platform/scheduler/worker.h"

#include <utility>

#include "platform/host/host_kernel.h"

namespace platform {

Worker::Worker(HostKernel& kernel, std::string name, std::function<void()> routine)
    : state_(new State{kernel, std::move(name), std::move(routine), nullptr, false, false, false, false, {}}) {}

Worker::~Worker() {
  state_->stopped = true;
}

bool Worker::Queue() {
  State& state = *state_;
  if (state.queued || state.stopped) return false;
  state.queued = true;
  if (state.task == nullptr) {
    state.task = &state.kernel.simulation().Spawn(&state.kernel, state.name, [shared = state_] { Run(shared); });
  } else if (state.idling) {
    state.kernel.simulation().scheduler().Wake(*state.task);
  }
  return true;
}

void Worker::Run(const std::shared_ptr<State>& state) {
  Scheduler& scheduler = state->kernel.simulation().scheduler();
  while (!state->stopped) {
    if (!state->queued) {
      state->idling = true;
      scheduler.Park("nothing to do", nullptr);
      state->idling = false;
      continue;
    }
    state->queued = false;
    state->running = true;
    state->routine();
    state->running = false;
    for (Task* waiter : std::exchange(state->waiters, {})) scheduler.Wake(*waiter);
  }
  state->task = nullptr;
}

void Worker::WaitIdle(Scheduler& scheduler, const char* why) {
  const std::shared_ptr<State> state = state_;
  while (state->queued || state->running) {
    state->waiters.push_back(Scheduler::Current());
    scheduler.Park(why, state.get());
  }
}

void Worker::Stop() {
  State& state = *state_;
  state.stopped = true;
  state.queued = false;
  if (state.idling) state.kernel.simulation().scheduler().Wake(*state.task);
}

}  // namespace platform
