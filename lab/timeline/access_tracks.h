// Configuration accesses of one domain in a timeline: each is a slice from its request on the wire to its answer, or to
// the moment at which the driver gives it up. Those under way at the same time stand on tracks of their own.
#pragma once
#include <list>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "lab/report/driver_event.h"
#include "lab/timeline/trace_file.h"
#include "sim/host/wire_log.h"
#include "sim/host/wire_packet.h"

namespace lab {

// One attempt of an access, from the mouth of the driver.
struct Question {
  std::uint32_t task = 0;  // its ordinal; a task asks one thing at a time
  Track asker;
  unsigned controller = 0;
  sim::Pdf pdf = sim::Pdf::Read;
  std::uint64_t route = 0;
  sim::AddressWord address;
  bool sent = false;
};

// Which controller of its host a task works for: the place of its domain, as far as a packet has shown it. The driver's
// index tells two kinds of controllers apart, not two controllers of one kind.
using TaskHomes = std::map<std::uint32_t, std::size_t>;

// None when a field is missing or no number.
std::optional<Question> QuestionFrom(const DriverEvent& event);

class AccessTracks {
 public:
  // `questions` and `homes`: of all controllers of the host, borrowed. `place`: of this one among them.
  AccessTracks(TraceFile& file, unsigned pid, std::list<Question>& questions, TaskHomes& homes, std::size_t place)
      : file_(file),
        pid_(pid),
        questions_(questions),
        homes_(homes),
        place_(place),
        others_(file.AddTrack(pid, "ring 0 other packets")) {}

  void SetController(unsigned controller) { controller_ = controller; }
  std::optional<unsigned> controller() const { return controller_; }  // none before its device is added
  void Packet(const sim::WireEntry& entry);
  // The task's question is over; what was asked for it and has no answer yet never gets one.
  void GiveUp(std::uint32_t task, platform::Time when);

 private:
  struct Access {
    std::string name;
    std::uint64_t number = 0;  // of the request on the wire
    std::uint32_t task = 0;    // that waits for the answer
    std::uint64_t arrow = 0;
    sim::Pdf pdf = sim::Pdf::Read;
    std::uint64_t route = 0;
    std::uint32_t sequence = 0;
  };
  struct Lane {
    Track track;
    std::optional<Access> access;
  };
  void Open(const sim::WireEntry& entry, const sim::ControlPacket& packet);
  bool Answer(const sim::WireEntry& entry, const sim::ControlPacket& packet);
  void Close(Lane& lane, platform::Time when, std::string_view answer);
  int RankOf(const Question& question) const;
  Question* QuestionOf(const sim::ControlPacket& packet);
  Lane& FreeLane();

  TraceFile& file_;
  unsigned pid_;
  std::list<Question>& questions_;
  TaskHomes& homes_;
  std::size_t place_;
  std::optional<unsigned> controller_;
  Track others_;
  std::vector<Lane> lanes_;
};

}  // namespace lab
