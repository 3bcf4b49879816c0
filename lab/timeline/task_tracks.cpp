// A task takes a track with its first slice and gives it back with its last.
#include "lab/timeline/task_tracks.h"

#include <fmt/format.h>

namespace lab {

TaskTracks::Lane& TaskTracks::LaneFor(unsigned pid, const platform::TraceRecord& record) {
  const auto found = lanes_.find(record.taskOrdinal);
  if (found != lanes_.end()) return found->second;
  const std::string name(record.task);
  std::vector<Track>& tracks = named_[{pid, name}];
  std::size_t index = 0;
  while (index < tracks.size() && busy_[tracks[index].tid]) ++index;
  if (index == tracks.size()) {
    tracks.push_back(file_.AddTrack(pid, index == 0 ? name : fmt::format("{} ({})", name, index + 1)));
  }
  busy_[tracks[index].tid] = true;
  return lanes_[record.taskOrdinal] = {tracks[index], 0};
}

Track TaskTracks::Begin(unsigned pid, const platform::TraceRecord& record, std::string_view name,
                        const TraceArguments& arguments) {
  Lane& lane = LaneFor(pid, record);
  ++lane.open;
  file_.Begin(lane.track, record.when, name, arguments);
  return lane.track;
}

void TaskTracks::End(const platform::TraceRecord& record, std::string_view name) {
  const auto found = lanes_.find(record.taskOrdinal);
  if (found == lanes_.end()) return;
  file_.End(found->second.track, record.when, name);
  if (--found->second.open != 0) return;
  busy_[found->second.track.tid] = false;
  lanes_.erase(found);
}

std::optional<Track> TaskTracks::Of(const platform::TraceRecord& record) const {
  const auto found = lanes_.find(record.taskOrdinal);
  return found == lanes_.end() ? std::nullopt : std::optional(found->second.track);
}

}  // namespace lab
