// A host of the fabric: its router, its host interface and the wire between the two. For the fabric's own files.
#pragma once
#include "sim/fabric/fabric.h"
#include "sim/host/control_wire.h"
#include "sim/host/host_device.h"
#include "sim/host/host_firmware.h"

namespace sim {

struct Fabric::Host final : PacketSink {
  Host(Fabric& owner, Router& hostRouter, const HostInterfaceConfig& config)
      : fabric(owner),
        router(hostRouter),
        interface(owner.simulation_, hostRouter.name(), config, owner.errors_),
        wire(owner.simulation_, interface, *this, owner.errors_) {}

  void PacketFromHost(const DecodedPacket& packet, bool damaged) override {
    fabric.PacketFromHost(router, packet, damaged);
  }
  // Network frames need a path that leads somewhere; without one the host interface adapter drops them.
  void FrameFromNetworkRing(unsigned, Frame) override {}
  void HostPowerChanged(platform::FunctionPower power) override { fabric.HostPowerChanged(*this, power); }

  Fabric& fabric;
  Router& router;
  HostInterface interface;
  ControlWire wire;
  HostFirmware firmware;
  bool asleep = false;
};

}  // namespace sim
