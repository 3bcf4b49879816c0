// Protocol adapters: which are in use, which are free, which belongs to which link, and the registers of their own
// capability. PASSIVE_LEVEL: whether an adapter is in use is asked of the hardware each time.
#pragma once
#include <cstdint>

#include "include/router_record.h"
#include "include/status.h"
#include "include/tunnel_record.h"
#include "topology/router_access.h"

// False for a null adapter.
[[nodiscard]] bool PortIs(const USB4_PORT* adapter, USB4_ADAPTER_TYPE type);

// Whether the adapter is switched on, by its kind; false for kinds that carry no tunnel, and when it cannot be read.
[[nodiscard]] bool KivUsb4PortIsTunnelEnabled(const USB4_PORT* adapter);
// The first adapter of this type from number 1 up that has its capability and is not switched on, or null. The upstream
// adapter and its partner are passed over.
[[nodiscard]] USB4_PORT* KivUsb4FindUnusedPort(const USB4_SWITCH* router, std::uint32_t type);
// The position of a lane adapter among the first lanes of the router's downstream links, from 0; their number when it
// is none of them.
[[nodiscard]] std::uint32_t Usb4PortIdx(const USB4_SWITCH* router, const USB4_PORT* adapter);

// The downstream protocol adapter at the same position as the link of `laneAdapter`: the first link goes with the first
// one, the second with the second. Null when the router has too few of them.
[[nodiscard]] USB4_PORT* Usb4SwitchMapPcieDown(const USB4_SWITCH* router, const USB4_PORT* laneAdapter);
// The same, but an adapter that is switched on counts as none; later ones are not considered.
[[nodiscard]] USB4_PORT* Usb4SwitchMapUsb3Down(const USB4_SWITCH* router, const USB4_PORT* laneAdapter);

// A register of the adapter's own capability. An adapter without that capability holds 0 for its offset, where its
// header stands. What these operations would read there means something else, and what they would write would break the
// adapter: -1 instead, without an access.
template <class R>
[[nodiscard]] KIV_RESULT ReadProtocolRegister(const USB4_PORT* adapter, typename R::Value& value) {
  if (adapter->ProtocolCapability == 0) return kKivFailed;
  return ReadRegister<R>(adapter, adapter->ProtocolCapability, value);
}

template <class R>
[[nodiscard]] KIV_RESULT WriteProtocolRegister(const USB4_PORT* adapter, typename R::Value value) {
  if (adapter->ProtocolCapability == 0) return kKivFailed;
  return WriteRegister<R>(adapter, adapter->ProtocolCapability, value);
}

template <class R, class Change>
[[nodiscard]] KIV_RESULT ModifyProtocolRegister(const USB4_PORT* adapter, Change change) {
  if (adapter->ProtocolCapability == 0) return kKivFailed;
  return ModifyRegister<R>(adapter, adapter->ProtocolCapability, change);
}
