// What happened in a run and in which order, one step a line: framework callbacks, register writes, control packets,
// what the driver traced, power steps.
//
//   begin EvtDeviceD0Exit
//   end EvtDeviceD0Exit
//   write 0x29800 = 0xc0000000
//   -> READ route=0 ...
//   driver: event handled route=0 adapter=3 unplug=0
//   power D3
#pragma once
#include <memory>
#include <string>
#include <vector>

#include "tests/support/world.h"

namespace tests {

// Declared after its world, whose first controller it watches.
class StepLog final : public platform::TraceSink {
 public:
  // Keeps the lines that start with one of `prefixes`.
  StepLog(World& world, std::vector<std::string> prefixes);
  ~StepLog() override;
  StepLog(const StepLog&) = delete;
  StepLog& operator=(const StepLog&) = delete;

  // The lines since the last call.
  std::string Take();

  void OnTrace(const platform::TraceRecord& record) override;

 private:
  struct Lines {
    std::vector<std::string> prefixes;
    std::string text;
    void Add(const std::string& line);
  };

  World& world_;
  std::shared_ptr<Lines> lines_;  // the wire's listener may outlive this
};

// How often `what` stands in `text`.
[[nodiscard]] std::size_t Count(const std::string& text, const std::string& what);

}  // namespace tests
