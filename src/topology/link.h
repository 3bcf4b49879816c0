// Links: speed, width, bonding of their two lanes, and the configured marks of their ends. PASSIVE_LEVEL.
#pragma once
#include "include/router_record.h"
#include "include/status.h"

// Gb/s per lane, 10 or 20; -1 without a lane capability, or the read's error.
[[nodiscard]] KIV_RESULT KivUsb4PortGetLinkSpeed(const USB4_PORT* adapter);
// Negotiated lanes; -1 without a lane capability, or the read's error.
[[nodiscard]] KIV_RESULT KivUsb4PortGetLinkWidth(const USB4_PORT* adapter);
// False without a lane capability and when the read fails.
[[nodiscard]] bool KivUsb4PortIsWidthSupported(const USB4_PORT* adapter, std::uint32_t width);
// `width` is 1 or 2 lanes; -1 for any other and without a lane capability.
[[nodiscard]] KIV_RESULT KivUsb4PortSetLinkWidth(const USB4_PORT* adapter, std::uint32_t width);
// Polls once a second, timeoutMs / 1000 + 1 times: 0, -60 when the width never came, or the error of a read.
[[nodiscard]] KIV_RESULT KivUsb4PortWaitForLinkWidth(const USB4_PORT* adapter, std::uint32_t width,
                                                     std::uint32_t timeoutMs);

// Asks both lanes of one end for a dual link and marks them bonded; a half-done change is taken back.
[[nodiscard]] KIV_RESULT KivUsb4PortLaneBondingEnable(USB4_PORT* adapter);
void KivUsb4PortLaneBondingDisable(USB4_PORT* adapter);
// -22 for anything but a lane adapter.
[[nodiscard]] KIV_RESULT KivUsb4PortSetLaneEnabled(const USB4_PORT* adapter, bool enable);
[[nodiscard]] KIV_RESULT KivUsb4PortLaneEnable(const USB4_PORT* adapter);
[[nodiscard]] KIV_RESULT KivUsb4PortLaneDisable(const USB4_PORT* adapter);

// The mark of a link end behind which a router is configured. For lane adapters of USB4 routers.
[[nodiscard]] KIV_RESULT KivUsb4SetPortConfigured(const USB4_PORT* adapter, bool on);
// The mark of a link end behind which another host stands: -22 without a USB4 port capability.
[[nodiscard]] KIV_RESULT Usb4SetXdomainConfigured(const USB4_PORT* adapter, bool on);
// The same on a router of either kind.
[[nodiscard]] KIV_RESULT KivUsb4SetXdomainConfiguredAny(const USB4_PORT* adapter, bool set);

// Of the link through which `router` is reached. The host router has none: 0 or nothing for it.
[[nodiscard]] bool Usb4SwitchLaneBondingPossible(const USB4_SWITCH* router);
[[nodiscard]] bool KivUsb4SwitchLaneBondingPossible(const USB4_SWITCH* router);
// Bonds the lanes where both ends can; 0 also where they can't. The new width is recorded as the hardware reports it at
// once, without a wait for it.
[[nodiscard]] KIV_RESULT KivUsb4SwitchLaneBondingEnable(USB4_SWITCH* router);
void KivUsb4SwitchLaneBondingDisable(USB4_SWITCH* router);
// Reads speed and width into the record; a failed read keeps the older value and is returned.
[[nodiscard]] KIV_RESULT KivUsb4SwitchUpdateLinkAttributes(USB4_SWITCH* router);
// Marks both ends of the link configured, the router's end first; the first error ends it.
[[nodiscard]] KIV_RESULT KivUsb4SwitchConfigureLink(const USB4_SWITCH* router);
// Takes the marks away at both ends, but touches neither for a router that is marked unplugged. Always 0.
[[nodiscard]] KIV_RESULT KivUsb4SwitchUnconfigureLink(const USB4_SWITCH* router);
