// Results. Framework-facing code returns NTSTATUS; control channel, topology, tunnel and inter-domain code returns
// KIV_RESULT, 0 or one of the negative numbers below. The two are never mixed: a KIV_RESULT that completes a request is
// converted by name where that happens.
#pragma once
#include <ntddk.h>

#include <cstdint>

using KIV_RESULT = std::int32_t;

inline constexpr KIV_RESULT kKivOk = 0;
inline constexpr KIV_RESULT kKivErrorPacket = 1;  // USB4_CFG_RESULT.Err only: the router answered with an error packet
inline constexpr KIV_RESULT kKivFailed = -1;
inline constexpr KIV_RESULT kKivNotSent = -4;       // the request could not be queued or sent
inline constexpr KIV_RESULT kKivIoError = -5;       // malformed header, or an error packet where an answer was needed
inline constexpr KIV_RESULT kKivBlockTooLong = -7;  // a peer's property block
inline constexpr KIV_RESULT kKivTryAgain = -11;
inline constexpr KIV_RESULT kKivNoMemory = -12;
inline constexpr KIV_RESULT kKivKeepWaiting = -13;
inline constexpr KIV_RESULT kKivBusy = -16;  // the hop is in use
inline constexpr KIV_RESULT kKivExists = -17;
inline constexpr KIV_RESULT kKivNoDevice = -19;
inline constexpr KIV_RESULT kKivInvalid = -22;  // invalid argument, or the wrong kind of adapter
inline constexpr KIV_RESULT kKivNotAvailable = -45;
inline constexpr KIV_RESULT kKivTooDeep = -49;
inline constexpr KIV_RESULT kKivNotReady = -57;  // adapter not ready
inline constexpr KIV_RESULT kKivTimedOut = -60;  // a hardware poll ran out
inline constexpr KIV_RESULT kKivRemoteFailure = -121;
inline constexpr KIV_RESULT kKivNoAnswer = -258;  // no answer to a request within its time-out
inline constexpr KIV_RESULT kKivNotSupported = -524;
inline constexpr KIV_RESULT kKivNoNetDevice = -525;

// Kernel statuses by what they mean here; some published names say something else.
inline constexpr NTSTATUS kStatusOk = 0;
inline constexpr NTSTATUS kStatusWaitTimedOut = 0x00000102;
inline constexpr NTSTATUS kStatusNoResources = static_cast<NTSTATUS>(0xC000009Au);
inline constexpr NTSTATUS kStatusNotAllocated = static_cast<NTSTATUS>(0xC00000A0u);  // domain or control channel
inline constexpr NTSTATUS kStatusNoContextInPrepare = static_cast<NTSTATUS>(0xC00001ADu);
inline constexpr NTSTATUS kStatusNoContextInRelease = static_cast<NTSTATUS>(0xC0000017u);
inline constexpr NTSTATUS kStatusNoDescriptor = static_cast<NTSTATUS>(0xC0000182u);
inline constexpr NTSTATUS kStatusNoDomain = static_cast<NTSTATUS>(0xC0000206u);  // context or domain missing at D0
inline constexpr NTSTATUS kStatusAborted = static_cast<NTSTATUS>(0xC0000120u);  // of a wait: a power-down wants its end
inline constexpr NTSTATUS kStatusNotReady = static_cast<NTSTATUS>(0xC0000033u);  // generic work refused
inline constexpr NTSTATUS kStatusInvalidRequest = static_cast<NTSTATUS>(0xC0000010u);
inline constexpr NTSTATUS kStatusNotFound = static_cast<NTSTATUS>(0xC0000034u);

// A result that is dropped on purpose; the reason stands beside the call.
template <class Result>
inline void IgnoreResult(const Result&) {}

// Our own mistakes stop the machine in every build: going on would program hardware from a broken record. Never for a
// value that crossed the wire or came from a caller.
inline constexpr ULONG kKivAssertBugCheck = 0x4B495655;
#define KivAssert(condition)                                                                       \
  do {                                                                                             \
    if (!(condition)) KeBugCheckEx(kKivAssertBugCheck, static_cast<ULONG_PTR>(__LINE__), 0, 0, 0); \
  } while (false)
