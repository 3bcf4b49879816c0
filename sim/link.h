// A cable between two ports: trains its lanes, bonds them, drops. Each change shows in the lane adapters of both ends.
#pragma once
#include <array>
#include <cstdint>
#include <memory>

#include "sim/adapter.h"
#include "sim/timing.h"

namespace sim {

class Fabric;

struct CableOptions {
  unsigned lanes = 2;        // 1: only lane 0 is wired
  unsigned gbpsPerLane = 0;  // 10 or 20; 0: what both ends can do
  bool trained = false;      // was there before the machine was switched on: up at once, no event
};

class Link {
 public:
  // `first` and `second` are the lane 0 adapters of two ports without a cable.
  Link(Fabric& fabric, Adapter& first, Adapter& second, CableOptions options);
  ~Link();
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  Adapter& end(unsigned index) const { return *ends_[index]; }
  Adapter& otherEnd(const Adapter& adapter) const;  // the adapter that `adapter`'s lane leads to
  Adapter& farPort(const Router& router) const;     // the lane 0 adapter at the end that is not `router`'s
  const CableOptions& options() const { return options_; }
  bool laneUp(unsigned lane) const { return lanes_[lane].up; }
  bool anyLaneUp() const { return lanes_[0].up || lanes_[1].up; }
  bool bonded() const { return bonded_; }
  unsigned gbpsPerLane() const { return speed_; }
  bool usb4() const;
  // Changes whenever the link goes down: what was on its way is lost.
  std::uint64_t generation() const { return generation_; }

  void Drop(platform::Time backAfter);  // loses the link as a bad cable does; it trains again after that time
  void Retrain();                       // far router was reset: down and up again
  void Pause();                         // power saving: lanes off, bonding kept
  void Resume(platform::Time after);    // lanes up again as they were, without an event
  void Unplugged();                     // the cable has gone; only the fabric calls this, just before it frees the link
  void AdapterControlWritten();         // LANE_ADP_CS_1 of one of the four adapters was written

 private:
  struct Lane {
    bool wired = false;
    bool up = false;
    bool training = false;
  };
  Adapter* LaneAdapter(unsigned end, unsigned lane) const;
  void Evaluate();  // starts training where both ends want a lane, drops it where one does not
  void StartTraining(unsigned lane);
  void LaneCameUp(unsigned lane, bool quiet);
  void LaneWentDown(unsigned lane);
  void ShowState(unsigned lane);
  void EvaluateBonding();
  void SetBonded(bool bonded);
  void ShowPort();
  unsigned NegotiatedSpeed() const;

  Fabric& fabric_;
  std::array<Adapter*, 2> ends_;
  CableOptions options_;
  std::array<Lane, 2> lanes_;
  unsigned speed_;
  bool bonded_ = false;
  bool bondingPending_ = false;
  bool held_ = false;  // between Drop or Pause and the moment it may train again
  std::uint64_t generation_ = 0;
  std::shared_ptr<bool> alive_;  // events outlive the cable
};

}  // namespace sim
