// Requests outstanding on the control channel: the list, matching, answering, and the wait for an answer.
#pragma once
#include <ntddk.h>

#include "include/config_space.h"
#include "include/control_channel_record.h"
#include "include/status.h"

// A request with one reference, its owner's; null when there is no memory. Request and Response point to its own words
// until the owner says otherwise.
_IRQL_requires_max_(DISPATCH_LEVEL) [[nodiscard]] USB4_CFG_REQUEST* AllocateRequest();
_IRQL_requires_max_(DISPATCH_LEVEL) void ReleaseRequest(USB4_CFG_REQUEST* request);

// Appends to the list. -1 when the channel does not run.
_IRQL_requires_max_(DISPATCH_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4CfgRequestEnqueue(USB4_CTL* channel, USB4_CFG_REQUEST* request);
// Takes the request off the list. While the channel does not run it stays there for the channel's stop to drop.
_IRQL_requires_max_(DISPATCH_LEVEL) void KivUsb4CfgRequestDequeue(USB4_CTL* channel, USB4_CFG_REQUEST* request);
// The oldest request that the packet answers, with a reference, or null.
_IRQL_requires_max_(DISPATCH_LEVEL)
    [[nodiscard]] USB4_CFG_REQUEST* KivUsb4CfgRequestFind(USB4_CTL* channel, const USB4_CTL_PKG* packet);
// Match and copy of configuration requests.
[[nodiscard]] bool KivUsb4CfgMatch(USB4_CFG_REQUEST* request, const USB4_CTL_PKG* packet);
[[nodiscard]] bool KivUsb4CfgRequestCopy(USB4_CFG_REQUEST* request, const USB4_CTL_PKG* packet);

// Queues and sends. On failure the request is off the list and the owner's reference is gone. A request that wants an
// answer stays queued; one that does not is released too.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4CfgRequest(USB4_CTL* channel, USB4_CFG_REQUEST* request);
// Sends and waits. Err -4: not sent, and the owner's reference is gone. Otherwise the owner dequeues and releases.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] USB4_CFG_RESULT
    KivUsb4CfgRequestSync(USB4_CTL* channel, USB4_CFG_REQUEST* request, ULONG timeoutMs);

// Gives the packet to the request that it answers, if any, and wakes its waiter.
_IRQL_requires_max_(PASSIVE_LEVEL) void AnswerRequest(USB4_CTL* channel, const USB4_CTL_PKG* packet);
// Empties the list. Waiters keep their own references and are not woken.
_IRQL_requires_max_(DISPATCH_LEVEL) void DropOutstandingRequests(USB4_CTL* channel);
