// A run as a timeline: what tasks do and wait for, what crosses the control rings, which tunnels live, what happens to
// the machine. Listens only; a run is the same with it and without.
#pragma once
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "lab/machine/machine.h"
#include "lab/machine/run_report.h"
#include "lab/timeline/access_tracks.h"
#include "lab/timeline/task_tracks.h"
#include "lab/timeline/trace_file.h"
#include "lab/timeline/tunnel_tracks.h"

namespace lab {

class Timeline final : public platform::TraceSink {
 public:
  // Listens from now on until RemoveSink() and the machine's end.
  Timeline(const std::string& file, Machine& machine);

  void OnTrace(const platform::TraceRecord& record) override;
  // An event of the run itself.
  void Mark(const LiveEvent& event);
  bool Good() const { return file_.Good(); }
  [[nodiscard]] bool Close();  // ends at the machine's time whatever is open

 private:
  // One controller: a process of its own.
  struct Domain {
    unsigned pid = 0;
    AccessTracks accesses;
    TunnelTracks tunnels;
  };
  // One kernel: the process of its tasks.
  struct Host {
    const platform::HostKernel* kernel = nullptr;
    unsigned pid = 0;
    std::list<Question> questions;
    std::vector<std::unique_ptr<Domain>> domains;  // by place
    TaskHomes homes;
    std::size_t added = 0;  // devices; a second start of one adds none
  };
  void AddHost(std::size_t number);
  Host& HostOf(const platform::TraceRecord& record);
  Domain& DomainOf(Host& host, std::uint32_t task, unsigned controller);
  void Driver(const platform::TraceRecord& record);
  void StepBegins(const platform::TraceRecord& record, const DriverEvent& event);
  void StepEnds(const platform::TraceRecord& record, const DriverEvent& event);
  void Told(const platform::TraceRecord& record, const DriverEvent& event);
  void DeviceAdded(Host& host, const DriverEvent& event, std::uint32_t task);
  void TunnelTold(Host& host, const DriverEvent& event, const platform::TraceRecord& record);
  void Sample(Host& host, platform::Time when);

  Machine& machine_;
  TraceFile file_;
  TaskTracks tasks_;
  Track events_;
  std::vector<std::unique_ptr<Host>> hosts_;
};

}  // namespace lab
