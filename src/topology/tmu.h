// Time management: keeping the local time of USB4 routers in step with the host router's. PASSIVE_LEVEL. Thunderbolt 3
// routers keep what their firmware has set.
#pragma once
#include "include/router_record.h"
#include "include/status.h"

// Intervals of the time-sync packets.
inline constexpr std::uint32_t kTmuOff = 0;
inline constexpr std::uint32_t kTmuHiFi = 16;
inline constexpr std::uint32_t kTmuNormal = 1000;

// Finds the capabilities and reads the state that hardware or firmware left. Negative when the rate can't be read.
[[nodiscard]] KIV_RESULT KivUsb4SwitchTmuInit(USB4_SWITCH* router);
// The sequence for a router that has been added: off, the host's time posted, then HiFi and bi-directional. The first
// failure ends it; a router in that mode already is left alone.
[[nodiscard]] KIV_RESULT KivUsb4EnableTmu(USB4_SWITCH* router);
[[nodiscard]] KIV_RESULT KivUsb4SwitchTmuEnable(USB4_SWITCH* router);
[[nodiscard]] KIV_RESULT KivUsb4SwitchTmuDisable(USB4_SWITCH* router);
// Hands the host router's time to a USB4 device router: 0; -1 when the router has not taken it within 99 polls of 10
// ms; the error of a failed access. 0 without an access for other routers, or when the host router has no TMU.
[[nodiscard]] KIV_RESULT KivUsb4SwitchTmuPostTime(const USB4_SWITCH* router);

// The rate, or a negative error.
[[nodiscard]] KIV_RESULT KivUsb4SwitchTmuRateRead(const USB4_SWITCH* router);
[[nodiscard]] KIV_RESULT KivUsb4SwitchTmuRateWrite(const USB4_SWITCH* router, std::uint32_t rate);
[[nodiscard]] KIV_RESULT KivUsb4SwitchTmuSetTimeDisruption(const USB4_SWITCH* router, bool on);
// False when the read fails, both.
[[nodiscard]] bool KivUsb4SwitchTmuUcapSupported(const USB4_SWITCH* router);
[[nodiscard]] bool KivUsb4PortTmuIsUnidirectional(const USB4_PORT* adapter);

// A change of one word of an adapter's TMU capability: clears Mask, then sets Value.
struct ADAPTER_TMU_CHANGE {
  std::uint32_t Offset;
  std::uint32_t Mask;
  std::uint32_t Value;
};
[[nodiscard]] KIV_RESULT KivUsb4PortTmuWrite(const USB4_PORT* adapter, const ADAPTER_TMU_CHANGE& change);
// 0 without an access on a router that knows no uni-directional mode.
[[nodiscard]] KIV_RESULT KivUsb4PortTmuSetUnidirectional(const USB4_PORT* adapter, bool on);
[[nodiscard]] KIV_RESULT KivUsb4PortTmuSetBidirectional(const USB4_PORT* adapter);

// By the cached state.
[[nodiscard]] bool KivUsb4SwitchTmuIsHiFiBidirectional(const USB4_SWITCH* router);
[[nodiscard]] const char* KivUsb4SwitchTmuModeName(const USB4_SWITCH* router);
