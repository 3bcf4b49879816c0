// Power steps, events of the hardware and the driver's own warnings; calls and register accesses are for traces.
#include "lab/report/live_events.h"

#include <fmt/format.h>

#include "lab/report/driver_event.h"
#include "platform/host/host_kernel.h"

namespace lab {
namespace {

constexpr std::uint8_t kWarning = 3;  // levels up to this one are shown

std::optional<LiveEvent> Describe(const platform::TraceRecord& record, const LiveEvents::Namer& namer) {
  LiveEvent event;
  event.when = record.when;
  event.where = record.kernel ? record.kernel->options().name : "";
  switch (record.kind) {
    case platform::TraceKind::Power:
      event.where = namer(*record.kernel, static_cast<unsigned>(record.value));
      event.event = "power";
      event.effect = record.name;
      return event;
    case platform::TraceKind::Device:
      event.event = record.name;
      event.effect = record.text;
      return event;
    case platform::TraceKind::Driver: {
      if (record.level > kWarning) return std::nullopt;
      const auto driver = UnpackDriverEvent(record.payload);
      event.event = driver ? driver->operation : "driver";
      event.effect = driver ? FormatDriverEvent(*driver) : "a trace event that cannot be read";
      return event;
    }
    default:
      return std::nullopt;
  }
}

}  // namespace

void LiveEvents::OnTrace(const platform::TraceRecord& record) {
  if (auto event = Describe(record, namer_)) Add(std::move(*event));
}

void LiveEvents::Add(LiveEvent event) {
  for (const Listener& listener : listeners_) listener(event);
  events_.push_back(std::move(event));
}

}  // namespace lab
