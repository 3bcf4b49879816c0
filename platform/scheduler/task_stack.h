// Stacks of tasks: with a guard page below, kept for reuse, and told to the address sanitizer.
#pragma once
#include <cstddef>
#include <vector>

namespace platform {

struct TaskStack {
  std::byte* bottom = nullptr;  // lowest usable byte
  std::size_t bytes = 0;
  std::byte* Top() const { return bottom + bytes; }
};

class TaskStackPool {
 public:
  TaskStackPool() = default;
  ~TaskStackPool();
  TaskStackPool(const TaskStackPool&) = delete;
  TaskStackPool& operator=(const TaskStackPool&) = delete;
  TaskStack Take();
  void Give(TaskStack stack);

 private:
  std::vector<TaskStack> free_;
};

}  // namespace platform
