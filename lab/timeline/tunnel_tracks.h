// Tunnels of one domain in a timeline: each lives while it stands on the driver's list; what they take of the links on
// their ways, and what is left, are counters.
#pragma once
#include <array>
#include <map>
#include <string>
#include <vector>

#include "lab/machine/domain_view.h"
#include "lab/report/driver_event.h"
#include "lab/timeline/trace_file.h"
#include "sim/fabric/fabric.h"

namespace lab {

class TunnelTracks {
 public:
  TunnelTracks(TraceFile& file, unsigned pid, const sim::Router& host) : file_(file), pid_(pid), host_(host) {}

  // Events of the driver that name a tunnel.
  void Listed(const TunnelView& tunnel, platform::Time when);
  void Unlisted(const TunnelView& tunnel, platform::Time when);
  void Granted(const TunnelView& tunnel, platform::Time when);  // to the USB3 tunnel of that source
  // Looks at the links; tells those whose figures have changed.
  void Sample(platform::Time when);
  void Finish(platform::Time when);  // ends the lives that go on

 private:
  struct Life {
    TunnelView tunnel;
    std::uint64_t number = 0;
  };
  // Mb/s: consumed up and down, available up and down.
  using Figures = std::array<std::int64_t, 4>;
  DomainView View();
  void AddRouter(DomainView& view, std::uint64_t route);
  void Show(std::uint64_t route, const Figures& figures, platform::Time when);

  TraceFile& file_;
  unsigned pid_;
  const sim::Router& host_;
  std::vector<Life> lives_;
  std::map<std::uint64_t, Figures> shown_;  // by the route of the router below the link
};

// The tunnel that an event names; one without a type is about USB3, and may say no destination. None when anything else
// is missing.
std::optional<TunnelView> TunnelFrom(const DriverEvent& event);
unsigned ControllerOf(const TunnelView& tunnel);  // the driver's index

}  // namespace lab
