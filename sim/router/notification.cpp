// Hot-plug notifications of one router.
#include "sim/router/notification.h"

#include "sim/router/router.h"

namespace sim {

void NotificationQueue::Post(unsigned adapter, bool unplug) {
  auto found = outstanding_.find(adapter);
  if (found != outstanding_.end()) fabric_.simulation().Cancel(found->second.timer);
  outstanding_[adapter] = {unplug, 0};
  Send(adapter);
}

// The packet goes out last: whoever watches the wire may pull the cable at that very moment.
void NotificationQueue::Send(unsigned adapter) {
  Event& event = outstanding_.at(adapter);
  const ControlPacket packet = HotPlugPacket(router_.configuredRoute(), adapter, event.unplug);
  const std::uint32_t intervalMs = router_.space().Get(kRouterCs4) & 0xFF;
  if (intervalMs == 0) {
    outstanding_.erase(adapter);
  } else {
    const platform::Time interval = static_cast<platform::Time>(intervalMs) * platform::kMillisecond;
    event.timer = fabric_.simulation().After(interval, "hot-plug repeat", [this, adapter] { Send(adapter); });
  }
  fabric_.SendUp(router_, packet);
}

void NotificationQueue::Acknowledge(unsigned adapter, bool unplug) {
  auto found = outstanding_.find(adapter);
  if (found == outstanding_.end() || found->second.unplug != unplug) return;
  fabric_.simulation().Cancel(found->second.timer);
  outstanding_.erase(found);
}

void NotificationQueue::Clear() {
  for (auto& [adapter, event] : outstanding_) fabric_.simulation().Cancel(event.timer);
  outstanding_.clear();
}

}  // namespace sim
