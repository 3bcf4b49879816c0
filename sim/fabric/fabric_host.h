// A host of the fabric: its router, its host interface and the wire between the two. For the fabric's own files.
#pragma once
#include "sim/dataplane/frame_transport.h"
#include "sim/fabric/fabric.h"
#include "sim/fabric/inter_domain_ledger.h"
#include "sim/host/control_wire.h"
#include "sim/host/host_device.h"
#include "sim/host/host_firmware.h"
#include "sim/peer/scripted_peer.h"

namespace sim {

struct Fabric::Host final : PacketSink {
  Host(Fabric& owner, Router& hostRouter, const HostInterfaceConfig& config)
      : fabric(owner),
        router(hostRouter),
        interface(owner.simulation_, hostRouter.name(), config, owner.errors_),
        wire(owner.simulation_, interface, *this, owner.errors_),
        ledger(hostRouter.uuid()) {}

  void PacketFromHost(const DecodedPacket& packet, bool damaged) override {
    fabric.PacketFromHost(router, packet, damaged || peer != nullptr);
  }
  void RequestHanded(const ControlPacket& request, bool damaged) override { ledger.Handed(request, damaged); }
  void FrameFromNetworkRing(unsigned hop, Frame frame) override {
    fabric.frames_->Send(*router.adapter(router.upstreamAdapter()), hop, std::move(frame));
  }
  platform::Time NetworkRoomAfter(unsigned hop) override {
    return fabric.frames_->RoomAfter(*router.adapter(router.upstreamAdapter()), hop);
  }
  void HostPowerChanged(platform::FunctionPower power) override { fabric.HostPowerChanged(*this, power); }

  Fabric& fabric;
  Router& router;
  HostInterface interface;
  ControlWire wire;
  HostFirmware firmware;
  InterDomainLedger ledger;
  std::unique_ptr<ScriptedPeer> peer;  // in the place of a driver
  bool asleep = false;
};

}  // namespace sim
