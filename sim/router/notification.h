// Hot-plug notifications of one router: each repeats until the manager acknowledges that adapter with that plug bit.
#pragma once
#include <cstdint>
#include <map>

#include "platform/host/simulation.h"

namespace sim {

class Surroundings;
class Router;

class NotificationQueue {
 public:
  NotificationQueue(Surroundings& fabric, Router& router) : fabric_(fabric), router_(router) {}

  // A newer state of an adapter replaces the one that is outstanding.
  void Post(unsigned adapter, bool unplug);
  // An acknowledgement that matches nothing is ignored: the event may have been answered already.
  void Acknowledge(unsigned adapter, bool unplug);
  void Clear();
  bool Outstanding() const { return !outstanding_.empty(); }

 private:
  struct Event {
    bool unplug = false;
    platform::EventId timer = 0;
  };
  void Send(unsigned adapter);

  Surroundings& fabric_;
  Router& router_;
  std::map<unsigned, Event> outstanding_;
};

}  // namespace sim
