// What a host's manager owes its peers: each request that it was handed waits for at most one answer.
#pragma once
#include <cstdint>
#include <deque>

#include "sim/host/inter_domain_packet.h"

namespace sim {

class InterDomainLedger {
 public:
  // `own`: the UUID that the host's packets must carry.
  explicit InterDomainLedger(const Uuid& own) : own_(own) {}

  // A request has been handed to the host. One that a fault has damaged may be answered in any way.
  void Handed(const ControlPacket& request, bool damaged);
  // What a correct peer would hold against a packet of the host; an answer settles its request.
  Faults Sent(const ControlPacket& packet);

 private:
  bool Settles(const ControlPacket& answer);
  void CheckUuid(const ControlPacket& packet, Faults& faults) const;

  const Uuid own_;
  std::deque<ControlPacket> open_;
  bool anything_ = false;
};

}  // namespace sim
