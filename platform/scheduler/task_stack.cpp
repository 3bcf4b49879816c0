#include "platform/scheduler/task_stack.h"

#include "platform/scheduler/kept_range.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#endif

namespace platform {
namespace {

constexpr std::size_t kGuardBytes = kPageBytes;
#if defined(__SANITIZE_ADDRESS__)
constexpr std::size_t kStackBytes = 1024 * 1024;
#else
constexpr std::size_t kStackBytes = 256 * 1024;
#endif
constexpr std::size_t kRangeBytes = kGuardBytes + kStackBytes;

}  // namespace

TaskStackPool::~TaskStackPool() {
  for (TaskStack& stack : free_) KeptRanges::Give(stack.bottom - kGuardBytes, kRangeBytes, kRangeBytes);
}

TaskStack TaskStackPool::Take() {
  if (!free_.empty()) {
    TaskStack stack = free_.back();
    free_.pop_back();
    return stack;
  }
  return {static_cast<std::byte*>(KeptRanges::Take(kRangeBytes, kGuardBytes)) + kGuardBytes, kStackBytes};
}

void TaskStackPool::Give(TaskStack stack) {
#if defined(__SANITIZE_ADDRESS__)
  // A task that never returned left its frames' red zones behind.
  __asan_unpoison_memory_region(stack.bottom, stack.bytes);
#endif
  free_.push_back(stack);
}

}  // namespace platform
