// A timeline for the Perfetto viewer: Chrome trace JSON, one event a line, times in microseconds with one decimal.
//
// Slices of one track nest: each end names the slice that was opened last. Whatever is open at the end is closed there.
#pragma once
#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/time.h"

namespace lab {

struct Track {
  unsigned pid = 0, tid = 0;
};

// What the viewer shows beside an event.
class TraceArguments {
 public:
  TraceArguments& Add(std::string_view key, std::string_view text);
  TraceArguments& Add(std::string_view key, std::int64_t number);
  const std::string& Json() const { return json_; }  // the members of an object

 private:
  void Key(std::string_view key);
  std::string json_;
};

class TraceFile {
 public:
  // Opens the file at once; Good() tells whether that, and every write so far, went well.
  explicit TraceFile(const std::string& file);

  bool Good() const { return out_.good(); }
  unsigned AddProcess(std::string_view name);
  Track AddTrack(unsigned pid, std::string_view name);

  void Begin(Track track, platform::Time when, std::string_view name, const TraceArguments& arguments = {});
  void End(Track track, platform::Time when, std::string_view name, const TraceArguments& arguments = {});
  void Instant(Track track, platform::Time when, std::string_view name, const TraceArguments& arguments = {});
  // An arrow from the slice that is open on one track to the one that is open on another. Returns the arrow's number.
  std::uint64_t StartArrow(Track track, platform::Time when);
  void FinishArrow(Track track, platform::Time when, std::uint64_t arrow);
  // Something that lives beside the tracks of its process. Returns its number.
  std::uint64_t BeginLife(unsigned pid, platform::Time when, std::string_view name);
  void EndLife(unsigned pid, platform::Time when, std::string_view name, std::uint64_t life);
  void Counter(unsigned pid, platform::Time when, std::string_view name, const TraceArguments& values);

  [[nodiscard]] bool Close(platform::Time when);

 private:
  void Write(const std::string& event);

  std::ofstream out_;
  bool first_ = true;
  unsigned processes_ = 0;
  std::vector<Track> tracks_;                   // by thread number, from 1 on
  std::vector<std::vector<std::string>> open_;  // names of the slices on each, outermost first
  std::uint64_t arrows_ = 0, lives_ = 0;
};

}  // namespace lab
