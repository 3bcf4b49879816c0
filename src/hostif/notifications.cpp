// Decodes hot-plug notifications on the receive handler; handling them is the work loop's.
#include "hostif/notifications.h"

#include "hostif/control_packet.h"
#include "hostif/work_items.h"
#include "include/device_context.h"
#include "include/trace.h"

void KivUsb4HandleEvent(USB4_DOMAIN* domain, std::uint32_t pdf, const std::uint32_t* packet, std::uint32_t bytes) {
  if (pdf != USB4_PDF_HOT_PLUG) return;
  if (bytes < kControlHeaderBytes) {
    TraceError("hot-plug packet too short", "bytes", bytes);
    return;
  }
  DEVICE_EXTENSION* context = ContextOf(domain);
  if (context == nullptr || context->Suspending.Load() != 0) return;
  const std::uint32_t word = packet[2];
  KivUsb4QueueHotplug(domain, {.Route = PacketRoute(packet),
                               .Adapter = static_cast<std::uint8_t>(HotplugWord::Adapter::Get(word)),
                               .Unplug = HotplugWord::Unplug::Get(word) != 0});
}

void KivUsb4QueueHotplug(USB4_DOMAIN* domain, const USB4_HOTPLUG_CHANGE& change) {
  DEVICE_EXTENSION* context = ContextOf(domain);
  if (context == nullptr) return;
  USB4_HOTPLUG_EVENT* event = PoolNew<USB4_HOTPLUG_EVENT>();
  if (event == nullptr) {
    TraceError("no memory for an event", "route", AsRoute(change.Route), "adapter", change.Adapter);
    return;
  }
  event->Domain = domain;
  event->Route = change.Route;
  event->Adapter = change.Adapter;
  event->Unplug = change.Unplug ? 1 : 0;
  TraceInfo("hot-plug event queued", "route", AsRoute(change.Route), "adapter", change.Adapter, "unplug",
            change.Unplug);
  KivUsb4QueueWorkItemData(context->WorkItem, context, event);
}
