// A peer host played by hand: behind the cable stands a host that keeps silent by itself, and the test says what
// comes back for each packet that this host sends there.
#pragma once
#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/meeting.h"

namespace tests {

using Words = std::vector<std::uint32_t>;  // a packet in host order, without its CRC

class HandPeer : public Meeting {
 public:
  // The peer stands behind adapter 1; its UUID is above this host's unless it is said to be below.
  explicit HandPeer(bool upperUuid = true);

  // Starts, and plugs the cable in once the domain is quiet: a peer that is plugged keeps the device awake.
  void Meet();

  // What the peer answers to a request, or nothing; BehaveWell unless a test replaces it.
  std::function<std::optional<Words>(const Words& request)> script;
  std::optional<Words> BehaveWell(const Words& request);
  // What a well-behaved peer says.
  Words uuid;                // 4 words
  std::uint32_t widths = 3;  // that its lanes can have
  Words block;               // properties, 48 words
  std::uint32_t generation = 1;
  platform::Time delay = 200 * platform::kMicrosecond;

  // A packet of `type`, as an answer to a request or on its own.
  static Words Packet(std::uint32_t type, Words payload, std::uint32_t sequence = 0);
  static Words AnswerTo(const Words& request, std::uint32_t type, Words payload);
  // A piece of a block, with whatever the peer claims.
  Words Piece(const Words& request, std::uint32_t offset, std::uint32_t total, const Words& words) const;
  // The peer asks something, now; bit 63 of the route is set on the way.
  void Ask(const Words& packet, std::uint64_t route = 1);
  // The same, and what this host answers within 200 ms, "none" if it keeps silent.
  std::string AskAndHear(const Words& packet, std::uint64_t route = 1);

  // Types of the requests of this host since the last call, with sequence numbers and the milliseconds since the one
  // before: "12 seq=2 +0\n15 seq=2 +1000\n".
  std::string Requests();
  Words OwnUuid();

 private:
  void Hear(const sim::WireEntry& entry);

  struct Request {
    std::uint32_t type, sequence;
    platform::Time when;
  };
  std::shared_ptr<HandPeer*> self_;  // the wire's listener may outlive this
  std::vector<Request> requests_;
  std::vector<Words> answers_;
  platform::Time last_ = 0;
};

// "12/3: 1 2a ...": type, sequence number, then the payload in hex.
std::string PacketText(const Words& packet);

}  // namespace tests
