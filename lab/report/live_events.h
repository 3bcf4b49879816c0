// What a person sees happen: selects the records of a run that mean something and says them in words.
#pragma once
#include <functional>
#include <vector>

#include "lab/machine/run_report.h"
#include "platform/host/trace_sink.h"

namespace lab {

class LiveEvents final : public platform::TraceSink {
 public:
  using Listener = std::function<void(const LiveEvent&)>;
  using Namer = std::function<std::string(const platform::HostKernel&, unsigned device)>;

  explicit LiveEvents(Namer namer) : namer_(std::move(namer)) {}

  void Listen(Listener listener) { listeners_.push_back(std::move(listener)); }
  void OnTrace(const platform::TraceRecord& record) override;
  // An event of the run itself: a scenario's verb, a check that failed.
  void Add(LiveEvent event);
  const std::vector<LiveEvent>& events() const { return events_; }

 private:
  Namer namer_;
  std::vector<Listener> listeners_;
  std::vector<LiveEvent> events_;
};

}  // namespace lab
