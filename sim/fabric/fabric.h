// All routers, hosts and cables of a simulation. Control packets travel hop by hop along the cables that are up.
//
// Runs on the scheduler's stack; the verbs (AddRouter, Connect, Plug, Unplug, ...) may also be called from outside a
// run.
#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/simulation.h"
#include "sim/host/complaints.h"
#include "sim/host/control_wire.h"
#include "sim/host/host_device.h"
#include "sim/host/host_firmware.h"
#include "sim/host/timing.h"
#include "sim/router/cable.h"
#include "sim/router/router.h"

namespace sim {

// A topology that cannot exist; one clear line.
class TopologyError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class FrameTransport;
class ScriptedPeer;
struct PeerConfig;

class Fabric final : public Surroundings {
 public:
  explicit Fabric(platform::Simulation& simulation);
  ~Fabric();

  // --- building: all throw TopologyError
  Router& AddRouter(std::string_view model, std::string name);
  // `model` must outlive the fabric; for models that a test has parsed itself.
  Router& AddRouter(const RouterModel& model, std::string name);
  // A host of this model, called as the configuration says, whose manager is a script.
  Router& AddPeer(const RouterModel& model, PeerConfig config);
  // Ports as "D1:3": router name and lane adapter. Plug lets the link train and reports it; Connect was there all
  // along.
  void Connect(std::string_view first, std::string_view second, CableOptions options = {});
  void Plug(std::string_view first, std::string_view second, CableOptions options = {});
  // A port pulls that port's cable; a router name pulls the cable towards the host.
  void Unplug(std::string_view portOrRouter);
  // The link goes down and trains again after `backAfter`.
  void DropLink(std::string_view portOrRouter, platform::Time backAfter);
  // A display at a DP OUT adapter appears or goes.
  void PlugDisplay(std::string_view port, const Display& display = {});
  void UnplugDisplay(std::string_view port);
  // The device behind a downstream PCIe or USB3 adapter asks to be served, which means something only to a host that
  // sleeps and has armed it.
  void SignalWake(std::string_view port);

  // --- looking
  Router* Find(std::string_view name) const;
  Adapter* FindAdapter(std::string_view port) const;
  const std::vector<std::unique_ptr<Link>>& links() const { return links_; }
  HostInterface& hostInterface(std::string_view hostName);
  ControlWire& wire(std::string_view hostName);
  HostFirmware& firmware(std::string_view hostName);
  const ScriptedPeer* peer(std::string_view hostName);  // null for a host that is none
  const FrameTransport& frames() const { return *frames_; }
  // No packet or frame on its way and no notification outstanding.
  bool Quiet() const;

  // --- for the fabric's own parts
  void SendUp(Router& from, const ControlPacket& packet) override;
  void LinkCameUp(Link& link) override;
  void LinkWentDown(Link& link) override;
  bool Asleep(const Router& router) const override;
  void WakeFrom(Router& router, Adapter& adapter, bool unplug) override;
  void AdapterMade(Adapter& adapter) override;
  void AdapterReset(Adapter& adapter) override;

 private:
  struct Host;
  struct Journey {
    ControlPacket packet;
    std::uint64_t route = 0;
    bool damaged = false;
  };
  void PacketFromHost(Router& host, const DecodedPacket& packet, bool damaged);
  void Complain(Router& host, const ControlPacket& packet);
  void HandOver(Router& host, const ControlPacket& packet);
  void Arrive(Router& at, unsigned arrival, unsigned depth, const Journey& journey);
  void Forward(Router& at, unsigned depth, const Journey& journey);
  void Refuse(Router& at, unsigned arrival, unsigned adapter, unsigned depth, ErrorCode code, const Journey& journey);
  void Answer(Router& at, unsigned arrival, const Journey& journey);
  void SendBack(Router& at, unsigned arrival, const ControlPacket& packet);
  void CrossDomains(Router& at, unsigned arrival, const Journey& journey);
  // Cables have come up or gone down: who is where.
  static bool StaysElsewhere(const Adapter& port);
  void PlacesChanged();
  // Runs `action` with the adapter at the other end of `from`'s lane, a hop later, unless the link is lost by then.
  template <class F>
  void Cross(Adapter& from, F action);
  void Climb(Router& at, const ControlPacket& packet);
  void HostPowerChanged(Host& host, platform::FunctionPower power);
  void Sleep(Host& host, platform::FunctionPower power);
  bool WakeChainArmed(const Router& router) const;
  void Wake(Host& host);
  void ReconsiderLinksToOthers(const Host& host);
  void WakeSleepingEnds(const Link& link) override;
  void ChangeDisplay(Adapter& adapter, const std::optional<Display>& display);
  Link& AddLink(std::string_view first, std::string_view second, CableOptions options);
  Adapter& LanePort(std::string_view port) const;
  Link* FindLink(std::string_view portOrRouter) const;
  void RemoveLink(Link& link);
  void CutOff(Router& router);
  static void CollectBelow(Router& router, std::vector<Router*>& found);
  Host* HostOf(const Router& router) const;
  void Watch(Router& router);

  std::vector<std::unique_ptr<Link>> links_;
  std::vector<std::unique_ptr<Link>> retired_;  // pulled, perhaps from inside one of their own events
  std::vector<std::unique_ptr<Host>> hosts_;
  std::unique_ptr<FrameTransport> frames_;
  unsigned inFlight_ = 0;
};

}  // namespace sim
