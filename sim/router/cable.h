// A cable between two ports: trains its lanes, bonds them, drops. Each change shows in the lane adapters of both ends.
// A lane is up where both ends enable it; lanes are bonded once both ends have asked for it.
#pragma once
#include <array>
#include <cstdint>
#include <memory>

#include "sim/host/timing.h"
#include "sim/router/adapter.h"

namespace sim {

class Surroundings;

struct CableOptions {
  unsigned lanes = 2;        // 1: only lane 0 is wired
  unsigned gbpsPerLane = 0;  // 10 or 20; 0: what both ends can do
  bool trained = false;      // was there before the machine was switched on: up at once, no event
};

class Link {
 public:
  // `first` and `second` are the lane 0 adapters of two ports without a cable. Nothing happens before Start().
  Link(Surroundings& fabric, Adapter& first, Adapter& second, CableOptions options);
  ~Link();
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;
  void Start() { Evaluate(); }

  Adapter& end(unsigned index) const { return *ends_[index]; }
  // The adapter that this end's lane leads to; null when it is not wired.
  Adapter* Opposite(const Adapter& adapter) const;
  bool LaneUp(const Adapter& adapter) const;
  // Lane 0 carries the control packets: up, or resting in a power state, it keeps its routers in their places.
  bool attached() const { return lanes_[0].up || (paused_ && lanes_[0].training); }
  bool paused() const { return paused_; }
  bool bonded() const { return bonded_; }
  unsigned gbpsPerLane() const { return speed_; }
  bool usb4() const;
  // The ends belong to different hosts, or are two ports of one host.
  bool betweenDomains() const;
  // A link between two domains runs only while both hosts are awake; going to sleep disconnects it.
  bool mayRun() const;
  // Changes whenever the link goes down, and differs between cables: what was on its way is lost.
  std::uint64_t generation() const { return generation_; }

  void Drop(platform::Time backAfter);  // as a bad cable does; it trains again after that time
  void Retrain();                       // a router at one end was reset: down, and up again at once
  void Pause();                         // power saving: lanes off, bonding kept, nobody told
  void Resume(platform::Time after);    // lanes up again as they were
  void ResumeUntrained();               // the lanes have forgotten everything and train anew
  void Unplugged();                     // the cable has gone; the fabric frees the link afterwards
  void LaneControlWritten(const Adapter& adapter, bool bondingRequested);  // LANE_ADP_CS_1
  void Reconsider() { Evaluate(); }  // a host at one end has gone to sleep or has woken
  bool BondAtOnce();                 // as firmware has done before; false without two lanes that are up
  void Show();                       // what the link knows, in the registers of both ends again

 private:
  struct Lane {
    bool wired = false;
    bool up = false;
    bool training = false;
  };
  struct Position {
    unsigned end = 0;
    unsigned lane = 0;
  };
  Adapter* LaneAdapter(unsigned end, unsigned lane) const;
  Position Find(const Adapter& adapter) const;
  bool Wanted(unsigned lane) const;
  // Starts training where both ends want a lane, drops it where one does not.
  void Evaluate();
  void StartTraining(unsigned lane);
  void LaneCameUp(unsigned lane);
  void StopLanes();
  void ClearMarks();
  void TakeDown();  // all lanes, then tells the fabric once
  void Release();
  void BringUp();
  void EvaluateBonding();
  void FinishBonding();
  bool BondingWanted() const;
  void SetBonded(bool bonded);
  void ShowLane(unsigned end, unsigned lane);
  void ShowPort(unsigned end);
  void After(platform::Time delay, const char* name, void (Link::*action)());
  unsigned NegotiatedSpeed() const;

  Surroundings& fabric_;
  std::array<Adapter*, 2> ends_;
  CableOptions options_;
  std::array<Lane, 2> lanes_;
  unsigned speed_ = 10;
  bool bonded_ = false;
  bool bondingPending_ = false;
  std::array<bool, 2> asked_{};  // by end: its manager has asked for bonding since the lanes were last parted
  bool held_ = false;            // after Drop: may not train before heldUntil_
  platform::Time heldUntil_ = 0;
  bool paused_ = false;  // between Pause and Resume
  std::uint64_t generation_;
  std::shared_ptr<bool> alive_;  // events outlive the cable
};

}  // namespace sim
