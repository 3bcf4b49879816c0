// A scenario file: the machine, what happens to it and when, and what must then be true. docs/scenarios.md lists every
// key.
#pragma once
#include <optional>
#include <string>
#include <vector>

#include "lab/machine.h"

namespace lab {

enum class Verb { Sleep, Hibernate, Resume, Wake, Disable, Enable, SurpriseRemove, Remove };

// Names of the verbs as files write them ("surprise-remove"), in the order of the enumeration.
const std::vector<std::string>& VerbNames();

struct ScenarioEvent {
  platform::Time at = 0;  // after the start of the last controller
  Verb verb = Verb::Sleep;
  Place place;  // verbs of a whole host (sleep, hibernate, resume) look at the host only
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
  std::optional<std::int64_t> adapters;         // adapters of the host router, adapter 0 not counted
};

struct Scenario {
  std::string file;
  std::string name;  // one line for people
  MachineConfig machine;
  std::vector<ScenarioEvent> events;      // in time order
  std::vector<Expectation> expectations;  // in time order
};

// Reads a scenario; a mistake in it throws InputError (lab/toml_reader.h).
Scenario ReadScenario(const std::string& file);

}  // namespace lab
