// Which protocol adapters are in use, which are free, and which belongs to which link. PASSIVE_LEVEL: whether an
// adapter is in use is asked of the hardware each time.
#pragma once
#include <cstdint>

#include "include/router_record.h"
#include "include/status.h"
#include "include/tunnel_record.h"

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
