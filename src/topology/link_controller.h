// The link controller of Thunderbolt 3 routers: what USB4 routers do with port and router registers. PASSIVE_LEVEL.
//
// Routers below generation 2 have none of these functions: 0, without an access. A router whose search for the
// capability failed holds all ones as its offset; every access then goes to an offset that no router has and fails with
// -1.
#pragma once
#include "include/registers.h"
#include "include/router_record.h"
#include "include/status.h"

// -1 when the router has no link controller, or the read's error.
[[nodiscard]] KIV_RESULT ReadLcDesc(const USB4_SWITCH* router, LinkControllerDescriptor::Value& descriptor);
// The offset in router space of the block that holds the adapter's link: links 1/2, 3/4, ... have one block each.
[[nodiscard]] KIV_RESULT FindPortLcCap(const USB4_PORT* adapter, std::uint64_t& block);

// 16 bytes as they stand in four dwords. -1 without a link controller.
[[nodiscard]] KIV_RESULT KivUsb4LcReadUuid(const USB4_SWITCH* router, std::uint32_t (&uuid)[4]);
// False below generation 2 and when a read fails.
[[nodiscard]] bool KivUsb4LcLaneBondingPossible(const USB4_SWITCH* router);
// The configured mark of a lane adapter, with the mark of the upstream link if it is that.
[[nodiscard]] KIV_RESULT KivUsb4LcSetConfigured(const USB4_PORT* adapter, bool on);
[[nodiscard]] KIV_RESULT KivUsb4LcSetXdomainConfigured(const USB4_PORT* adapter, bool on);
// Arms one link block, or every one of the router (not of a host router), with the wake flags of sleep.h. Connect also
// arms disconnect; the flags for disconnect, USB3 and DisplayPort have no bit of their own here.
[[nodiscard]] KIV_RESULT KivUsb4LcSetWakeOne(const USB4_SWITCH* router, std::uint64_t block, std::uint32_t flags);
[[nodiscard]] KIV_RESULT KivUsb4LcSetWake(const USB4_SWITCH* router, std::uint32_t flags);
// Puts every link of the router to sleep, without waiting for it.
[[nodiscard]] KIV_RESULT KivUsb4LcSetSleep(const USB4_SWITCH* router);
