// A scenario file: the machine, what happens to it and when, and what must then be true. docs/scenarios.md lists every
// key.
#pragma once
#include <optional>
#include <string>
#include <vector>

#include "lab/machine/machine.h"

namespace lab {

enum class Verb {
  Sleep,
  Hibernate,
  Resume,
  Wake,
  Disable,
  Enable,
  SurpriseRemove,
  Remove,
  Plug,
  Unplug,
  DropLink,
  PlugDisplay,
  UnplugDisplay,
  UseUsb3
};

// Names of the verbs as files write them ("surprise-remove"), in the order of the enumeration.
const std::vector<std::string>& VerbNames();

struct ScenarioEvent {
  platform::Time at = 0;  // after the start of the last controller
  Verb verb = Verb::Sleep;
  std::uint64_t packet = 0;  // not 0: just before this control packet of the controller's ring passes, `at` is kNever
  Place place;               // verbs of a whole host (sleep, hibernate, resume) look at the host only
  CableConfig cable;         // plug
  std::string what;          // unplug, drop-link: a router or one of its ports
  platform::Time backAfter = 0;  // drop-link
  DisplayConfig display;         // plug-display; unplug-display looks at its adapter only
  Usb3Config usb3;               // use-usb3: what it consumes from now on
  unsigned line = 0, column = 0;
};

struct Expectation {
  platform::Time at =
      0;  // checked before an event of the same time; kNever: once the domain is quiet, before the removal
  Place place;
  unsigned line = 0, column = 0;
  std::optional<std::string> power;             // "D0", "D3" or "off"
  std::optional<std::string> state;             // "started", "failed", "surprise-removed", "removed"
  std::optional<platform::Status> startStatus;  // of add and start
  std::optional<std::string> interface;         // GUID of a registered device interface, in lower case
  std::optional<std::int64_t> routers;          // routers in the domain
  std::optional<std::int64_t> adapters;         // of the router, adapter 0 not counted
  // Of the router at `route`, which must be there, or must not be.
  std::uint64_t route = 0;
  bool aboutRouter = false;
  bool present = true;
  std::optional<std::string> routerName;  // vendor and device name, "" for none; of the peer if there is `peer`
  std::optional<std::string> model;       // of the hardware at that place
  std::optional<std::string> link;        // "40G = 2 x 20G"
  std::optional<std::string> tmu;         // "bi-directional, HiFi"
  std::optional<std::int64_t> generation;
  // Of the peer host at `peer`; `present`, `routerName` and `link` are about it, too.
  std::optional<std::uint64_t> peer;
  std::optional<std::string> peerState;  // "ENUMERATED"
  std::optional<std::string> hopLimits;  // "22/11": highest hop IDs from and to it
  std::optional<std::int64_t> peers;     // in the domain
  // Every listed tunnel, in any order: "PCIe 0:3 -> 1:9".
  std::optional<std::vector<std::string>> tunnels;
  std::optional<std::int64_t> tunnelCount, pcieTunnels, usb3Tunnels, dpTunnels;  // the driver's counters
  std::optional<std::string> tunnel;                                             // what the keys below are about
  // "H1:3 -> D1:9": packets travel both ways between these adapters; `present` = false: neither way.
  std::optional<std::string> probe;
  std::optional<std::string> consumed;
  std::optional<std::string> allocated;  // "9000/9000", up and down
};

struct Scenario {
  std::string file;
  std::string name;  // one line for people
  MachineConfig machine;
  std::vector<ScenarioEvent> events;      // in time order; those at a packet come last
  std::vector<Expectation> expectations;  // in time order
};

// Reads a scenario; a mistake in it throws InputError (lab/input/toml_reader.h).
Scenario ReadScenario(const std::string& file);
// The same from a text; `name` stands for the file in errors and replay commands.
Scenario ReadScenarioText(const std::string& text, const std::string& name);
// A file, or the scenario that is generated from `seed` where the file is called kGenerated (lab/scenario/generate.h).
Scenario FindScenario(const std::string& file, std::uint64_t seed);

}  // namespace lab
