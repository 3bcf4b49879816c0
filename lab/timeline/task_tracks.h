// The tracks of tasks in a timeline: tasks of one name share a track as long as only one of them has a slice open.
#pragma once
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "lab/timeline/trace_file.h"
#include "platform/host/trace_sink.h"

namespace lab {

class TaskTracks {
 public:
  explicit TaskTracks(TraceFile& file) : file_(file) {}

  Track Begin(unsigned pid, const platform::TraceRecord& record, std::string_view name,
              const TraceArguments& arguments = {});
  void End(const platform::TraceRecord& record, std::string_view name);
  // Where the task's slice is open; none when it has none.
  std::optional<Track> Of(const platform::TraceRecord& record) const;

 private:
  struct Lane {
    Track track;
    unsigned open = 0;
  };
  Lane& LaneFor(unsigned pid, const platform::TraceRecord& record);

  TraceFile& file_;
  std::map<std::pair<unsigned, std::string>, std::vector<Track>> named_;  // by process and task name
  std::map<unsigned, bool> busy_;                                         // by thread number
  std::map<std::uint32_t, Lane> lanes_;                                   // of tasks with an open slice, by ordinal
};

}  // namespace lab
