// Posting the host router's time into a device router.
#include "hostif/abort.h"
#include "include/domain_record.h"
#include "topology/router_access.h"
#include "topology/router_queries.h"
#include "topology/tmu.h"

namespace {

constexpr ULONG kPostPollMs = 10;
constexpr std::uint32_t kPostPolls = 100;

KIV_RESULT ReadHostTime(const USB4_SWITCH* host, std::uint64_t& time) {
  std::uint32_t words[RouterTmuLocalTime::kCount] = {};
  const KIV_RESULT result = ReadArray<RouterTmuLocalTime>(host, host->TmuCapability, words);
  if (result != kKivOk) return result;
  const std::uint64_t low = RouterTmuCs1::Value(words[0]).Get<RouterTmuCs1::TimeLow>();
  const std::uint64_t middle = RouterTmuCs2::Value(words[1]).Get<RouterTmuCs2::TimeMiddle>();
  const std::uint64_t high = RouterTmuCs3::Value(words[2]).Get<RouterTmuCs3::TimeHigh>();
  time = high << 48 | middle << 16 | low;
  return kKivOk;
}

template <class Array>
KIV_RESULT WriteTime(const USB4_SWITCH* router, std::uint64_t time) {
  return WriteArray<Array>(router, router->TmuCapability,
                           {static_cast<std::uint32_t>(time), static_cast<std::uint32_t>(time >> 32)});
}

KIV_RESULT WaitUntilTaken(const USB4_SWITCH* router) {
  for (std::uint32_t left = kPostPolls;;) {
    SleepMs(router->Domain, kPostPollMs);
    std::uint32_t words[RouterTmuPostTime::kCount] = {};
    const KIV_RESULT result = ReadArray<RouterTmuPostTime>(router, router->TmuCapability, words);
    if (result != kKivOk) return result;
    // Counted before the value is looked at: taken at the last poll is too late.
    if (--left == 0) return kKivFailed;
    if (words[0] == 0 && words[1] == 0) return kKivOk;
  }
}

KIV_RESULT Post(const USB4_SWITCH* router, std::uint64_t time) {
  KIV_RESULT result = WriteTime<RouterTmuPostLocalTime>(router, time);
  if (result == kKivOk) result = WriteTime<RouterTmuPostTime>(router, 1);
  if (result == kKivOk) result = WaitUntilTaken(router);
  return result;
}

}  // namespace

KIV_RESULT KivUsb4SwitchTmuPostTime(const USB4_SWITCH* router) {
  const USB4_SWITCH* host = router->Domain->HostRouter;
  if (!KivUsb4SwitchIsUsb4(router) || IsHostRouter(router)) return kKivOk;
  if (host == nullptr || host->TmuCapability == 0) return kKivOk;
  std::uint64_t time = 0;
  KIV_RESULT result = ReadHostTime(host, time);
  if (result != kKivOk) return result;
  result = KivUsb4SwitchTmuSetTimeDisruption(router, true);
  if (result != kKivOk) return result;
  result = Post(router, time);
  // Also after a failure; what counts is whether the time was taken.
  IgnoreResult(KivUsb4SwitchTmuSetTimeDisruption(router, false));
  return result;
}
