// Putting routers to sleep with chosen wake sources armed, and reporting what woke them. PASSIVE_LEVEL, while no event
// is handled.
#pragma once
#include "include/router_record.h"
#include "include/status.h"

inline constexpr std::uint32_t kWakeOnConnect = 0x01;     // on a downstream adapter
inline constexpr std::uint32_t kWakeOnDisconnect = 0x02;  // on a downstream adapter
inline constexpr std::uint32_t kWakeOnUsb4 = 0x04;        // signalled over a link
inline constexpr std::uint32_t kWakeOnUsb3 = 0x08;
inline constexpr std::uint32_t kWakeOnPcie = 0x10;
inline constexpr std::uint32_t kWakeOnDisplayPort = 0x20;

// Puts the router and everything below it to sleep, deepest first, with every wake source armed or only those that
// tunnels need. A router whose plug events can't be switched off stays awake with all below it; other failures are
// traced.
void KivUsb4SwitchSuspend(USB4_SWITCH* router, bool armAll);
void KivUsb4SwitchSetWake(const USB4_SWITCH* router, std::uint32_t flags);
// A USB4 router's lane adapters and its own bits: the error of the first access that fails.
[[nodiscard]] KIV_RESULT Usb4SwitchSetWake(const USB4_SWITCH* router, std::uint32_t flags);
// Asks a USB4 router to sleep and waits until it is ready: -1 when that takes more than about 1.1 s.
[[nodiscard]] KIV_RESULT Usb4SwitchSetSleep(const USB4_SWITCH* router);
// Traces what woke the router and through which links; changes nothing.
void Usb4SwitchCheckWakes(const USB4_SWITCH* router);
