// One router: router space, adapters, notifications, router operations; answers control packets that end at it.
#pragma once
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/simulation.h"
#include "sim/host/complaints.h"
#include "sim/host/inter_domain_packet.h"
#include "sim/host/timing.h"
#include "sim/host/wire_packet.h"
#include "sim/registers/register_space.h"
#include "sim/router/adapter.h"
#include "sim/router/notification.h"
#include "sim/router/router_model.h"
#include "sim/router/router_operations.h"
#include "sim/router/router_services.h"

namespace sim {

class Link;
class Router;

// What routers and cables ask of the fabric around them.
class Surroundings {
 public:
  Surroundings(const Surroundings&) = delete;
  Surroundings& operator=(const Surroundings&) = delete;

  platform::Simulation& simulation() { return simulation_; }
  const Timing& timing() const { return timing_; }
  ProtocolErrors& errors() { return errors_; }
  const std::vector<std::unique_ptr<Router>>& routers() const { return routers_; }
  // The router at `route` below `host`, along the cables that are up; null when nothing is there.
  Router* AtRoute(const Router& host, std::uint64_t route) const;
  std::uint64_t NewGeneration() { return ++generations_; }
  // One event of the model for whoever watches the run: name and one line of text.
  void Note(const char* name, const std::string& text);

  virtual void SendUp(Router& from, const ControlPacket& packet) = 0;
  virtual void LinkCameUp(Link& link) = 0;
  virtual void LinkWentDown(Link& link) = 0;
  virtual bool Asleep(const Router& router) const = 0;
  virtual void WakeSleepingEnds(const Link& link) = 0;  // of a link between domains that would run if they were awake
  // Something happened at an adapter while its host sleeps: wakes the host if the adapter's wake bits ask for it.
  virtual void WakeFrom(Router& router, Adapter& adapter, bool unplug) = 0;
  // What an adapter does by its protocol begins with it, and shows in registers that have been reset.
  virtual void AdapterMade(Adapter& adapter) = 0;
  virtual void AdapterReset(Adapter& adapter) = 0;

 protected:
  explicit Surroundings(platform::Simulation& simulation) : simulation_(simulation), timing_(simulation) {}
  ~Surroundings();

  platform::Simulation& simulation_;
  Timing timing_;
  ProtocolErrors errors_;
  std::vector<std::unique_ptr<Router>> routers_;
  std::uint64_t generations_ = 0;
};

// Where a router physically is. Upstream adapter 0: no link leads to a host.
struct Place {
  Router* host = nullptr;
  unsigned upstream = 0;
  std::uint64_t route = 0;
  unsigned depth = 0;
};

// Router space dwords.
inline constexpr unsigned kRouterCs1 = 1;
inline constexpr unsigned kRouterCs2 = 2;
inline constexpr unsigned kRouterCs3 = 3;
inline constexpr unsigned kRouterCs4 = 4;
inline constexpr unsigned kRouterCs5 = 5;
inline constexpr unsigned kRouterCs6 = 6;
inline constexpr std::uint32_t kManagerVersion = 0x10;          // in bits 15:8 of dword 4: the manager knows USB4
inline constexpr std::uint32_t kConfigurationValid = 1u << 31;  // of dword 3
inline constexpr std::uint32_t kEnterSleep = 1u << 0;           // of dword 5
inline constexpr std::uint32_t kSleepReady = 1u << 0;           // of dword 6
inline constexpr std::uint32_t kWakeStatus = 3u << 2;           // of dword 6: PCIe, USB3
inline constexpr std::uint32_t kConfigurationReady = 1u << 25;  // of dword 6

class Router {
 public:
  Router(Surroundings& fabric, const RouterModel& model, std::string name);
  Router(const Router&) = delete;
  Router& operator=(const Router&) = delete;

  Surroundings& fabric() const { return fabric_; }
  const RouterModel& model() const { return model_; }
  const std::string& name() const { return name_; }
  bool isHost() const { return model_.host; }

  ConfigSpace& space() { return space_; }
  const ConfigSpace& space() const { return space_; }
  unsigned maxAdapter() const { return model_.maxAdapter; }
  Adapter* adapter(unsigned number) const;  // null above the maximum and for number 0
  bool takesPartInDpHandshake() const;

  // --- place in the domain
  bool configured() const { return (space_.Get(kRouterCs3) & kConfigurationValid) != 0; }
  std::uint64_t configuredRoute() const;
  Uuid uuid() const;  // that its UID makes: of a host router, the host's
  const Place& place() const { return place_; }
  unsigned upstreamAdapter() const { return place_.upstream; }
  void SetPlace(const Place& place);

  // --- control packets
  // Answers a packet that ends here and came in through `arrival`; nothing for acknowledgements and for what a router
  // drops.
  std::optional<ControlPacket> Handle(const ControlPacket& packet, unsigned arrival);
  // Records a mistake of the driver with one of its adapters, or with the router itself (adapter 0).
  void Misuse(unsigned adapter, Complaint rule, ComplaintArguments arguments = {}) const;

  // --- events
  NotificationQueue& notifications() { return notifications_; }
  const NotificationQueue& notifications() const { return notifications_; }
  // Reports a change at an adapter to the manager if that is enabled and the router is enumerated.
  void PlugChanged(Adapter& adapter, bool unplug);
  // Hot-plug reporting is on: an enumerated USB4 router, or a Thunderbolt 3 router whose plug events are switched on.
  bool reportsPlugEvents() const;
  void Reset();
  // Counts resets: what was begun before one never completes.
  std::uint64_t life() const { return life_; }
  // --- power: links are the fabric's business
  void LosePower();              // everything is lost, reservations too
  void Drain();                  // no packet of a path is on its way any more
  bool sleepArmed() const;       // the manager has asked for sleep with the proper handshake
  void ClearSleep();             // awake again
  bool stateKept = true;         // of the power state that the router is in or came out of last
  platform::Time busyUntil = 0;  // packets are answered one after the other

  RouterOperations& operations() { return operations_; }
  const RouterOperations& operations() const { return operations_; }
  RouterServices& services() { return services_; }
  const RouterServices& services() const { return services_; }

 private:
  void DefineSpace();
  void WatchHeader();
  void WatchSleep();
  void ForgetWakes();
  void CheckTopologyWritten();
  void ScheduleStartEvents();
  void SetBitLater(const DelayRange& delay, platform::HashedName fault, unsigned offset, std::uint32_t bit);

  std::optional<ControlPacket> HandleAccess(const ControlPacket& packet, unsigned arrival);
  void HandleAcknowledge(const ControlPacket& packet);
  ConfigSpace* FindSpace(const AddressWord& address, ErrorCode& error);

  Surroundings& fabric_;
  const RouterModel& model_;
  std::string name_;
  ConfigSpace space_{Space::Router};
  std::vector<std::unique_ptr<Adapter>> adapters_;
  NotificationQueue notifications_;
  RouterOperations operations_;
  RouterServices services_;
  Place place_;
  std::uint64_t life_ = 0;
  bool headerRead_ = false;  // since the last reset: a manager may not know yet that this is another router
};

}  // namespace sim
