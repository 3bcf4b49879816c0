// What this room needs from rooms above it, and which room has it.
#pragma once
#include <ntddk.h>
#include <wdf.h>

#include <cstdint>

#include "include/status.h"

struct USB4_DOMAIN;

void KivUsb4WorkItemCallback(WDFWORKITEM workItem);    // cm: the work loop
void KivUsb4XdpHandleRequest(WDFWORKITEM workItem);    // xdomain: answers requests of peers
void ReapPeers(WDFWORKITEM workItem);                  // xdomain: removes the peers that are to go
void KivUsb4NetCleanUpWorkItem(WDFWORKITEM workItem);  // ioctl: cleans up after the network miniport
// cm: brings the domain up; `resuming` is not looked at.
[[nodiscard]] KIV_RESULT KivUsb4BusStart(USB4_DOMAIN* domain, bool resuming);
// xdomain: an inter-domain packet, host order. True when it was one for this host.
[[nodiscard]] bool KivUsb4XdomainHandleRequest(USB4_DOMAIN* domain, std::uint32_t pdf, const std::uint32_t* packet,
                                               std::uint32_t bytes);
