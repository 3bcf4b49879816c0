// One packet on its way along programmed path entries: router by router, cable by cable. Probes take the whole way at
// once, frames take their time.
#pragma once
#include <string>

#include "sim/registers/hop_entry.h"

namespace sim {

class Adapter;

std::string NameWithHop(const Adapter& adapter, unsigned hop);  // "H1:3 8"

class PathWalker {
 public:
  // At `from`, with input hop ID `hop`. `packet`: needs what a packet needs, not only entries that lead on.
  PathWalker(Adapter& from, unsigned hop, bool packet) : at_(&from), hop_(hop), packet_(packet) {}

  // Each gives the reason why the packet gets no further; empty when it does.
  std::string Start() const;  // into the fabric: the router is awake, a protocol adapter is switched on
  std::string Enter();        // through the router: its entry leads to out(), which it leaves with outHop()
  std::string Cross();        // over the cable at out(), to the adapter at its other end
  std::string Leave() const;  // out of the fabric through out(), which is no lane

  Adapter& at() const { return *at_; }
  unsigned hop() const { return hop_; }
  const PathEntry& entry() const { return entry_; }
  Adapter& out() const { return *out_; }
  unsigned outHop() const { return entry_.outHop(); }

 private:
  std::string Stuck() const;

  Adapter* at_;
  unsigned hop_;
  const bool packet_;
  PathEntry entry_;  // that took it through the router
  Adapter* out_ = nullptr;
  // The last cable: what its near end says of flow control, and where that was; empty before the first.
  bool flowControl_ = false;
  std::string sentFrom_;
};

}  // namespace sim
