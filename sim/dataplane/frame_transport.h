// Frames on their way between host interfaces, hop by hop along programmed path entries.
//
// A frame travels in packets of 256 bytes. Each waits for the link, which carries them one after the other at its
// speed, and for a buffer at the far side: as many packets as its entry has initial credits may be on their way there.
// What is on a link that goes down is gone.
#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/host/time.h"
#include "sim/dataplane/path_walker.h"
#include "sim/host/frame.h"

namespace sim {

class Router;
class Surroundings;

class FrameTransport {
 public:
  // Takes a frame that has come to receive ring `ring` of a host.
  using Deliver =
      std::function<void(const Router& host, unsigned ring, const Frame& frame, const WriteBackForgery& damage)>;
  FrameTransport(Surroundings& fabric, Deliver deliver) : fabric_(fabric), deliver_(std::move(deliver)) {}

  // From transmit ring `ring` of the host whose host interface adapter `adapter` is.
  void Send(Adapter& adapter, unsigned ring, Frame frame);
  // Until the fabric has sent on what it was given from there; 0 when it takes the next frame at once.
  platform::Time RoomAfter(const Adapter& adapter, unsigned ring) const;
  bool Quiet() const { return travelling_ == 0; }
  std::uint64_t arrived() const { return arrived_; }
  // Frames that never reached a host interface, by the reason that a probe would give, or "H1:1 went down".
  const std::map<std::string, std::uint64_t>& lost() const { return lost_; }

 private:
  using Picoseconds = std::int64_t;
  using Place = std::pair<const Adapter*, unsigned>;  // an adapter, and an input hop ID there

  struct Journey {
    PathWalker walker;
    Frame frame;
    std::vector<Picoseconds> ready;  // when each packet is at the router that comes next
  };
  void Go(Journey journey);
  void CrossLink(Journey journey);
  void Arrive(const Adapter& adapter, unsigned ring, Journey journey);
  void Lose(const std::string& reason) { ++lost_[reason]; }
  Picoseconds Now() const;

  Surroundings& fabric_;
  const Deliver deliver_;
  std::map<const Adapter*, Picoseconds> linkFree_;   // by sending lane
  std::map<Place, std::vector<Picoseconds>> freed_;  // when each buffer behind a link was last given back
  std::map<Place, Picoseconds> sentOn_;              // when the last packet left the router of this place
  std::map<Place, platform::Time> lastArrival_;      // frames of a path never overtake one another
  std::uint64_t arrived_ = 0;
  std::map<std::string, std::uint64_t> lost_;
  unsigned travelling_ = 0;
};

}  // namespace sim
