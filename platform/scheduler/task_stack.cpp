#include "platform/scheduler/task_stack.h"

#include <sys/mman.h>

#include <new>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#endif

namespace platform {
namespace {

constexpr std::size_t kGuardBytes = 4096;
#if defined(__SANITIZE_ADDRESS__)
constexpr std::size_t kStackBytes = 1024 * 1024;
#else
constexpr std::size_t kStackBytes = 256 * 1024;
#endif

constexpr std::size_t kMostKept = 64;

// Stacks of runs that are over, guard pages and all.
std::vector<TaskStack>& Kept() {
  // Never destroyed: a simulation may end after the thread's objects have.
  thread_local std::vector<TaskStack>* const kept = new std::vector<TaskStack>;
  return *kept;
}

}  // namespace

TaskStackPool::~TaskStackPool() {
  for (TaskStack& stack : free_) {
    if (Kept().size() < kMostKept) {
      Kept().push_back(stack);
    } else {
      munmap(stack.bottom - kGuardBytes, stack.bytes + kGuardBytes);
    }
  }
}

TaskStack TaskStackPool::Take() {
  if (!free_.empty()) {
    TaskStack stack = free_.back();
    free_.pop_back();
    return stack;
  }
  if (!Kept().empty()) {
    const TaskStack stack = Kept().back();
    Kept().pop_back();
    return stack;
  }
  void* base = mmap(nullptr, kStackBytes + kGuardBytes, PROT_READ | PROT_WRITE,
                    MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (base == MAP_FAILED) throw std::bad_alloc();
  mprotect(base, kGuardBytes, PROT_NONE);
  return {static_cast<std::byte*>(base) + kGuardBytes, kStackBytes};
}

void TaskStackPool::Give(TaskStack stack) {
#if defined(__SANITIZE_ADDRESS__)
  // A task that never returned left its frames' red zones behind.
  __asan_unpoison_memory_region(stack.bottom, stack.bytes);
#endif
  free_.push_back(stack);
}

}  // namespace platform
