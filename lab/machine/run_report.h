// What a run says: the events as they happened, and at the end the domain, the verdict and what was left over.
#pragma once
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "lab/machine/domain_view.h"
#include "platform/host/simulation.h"
#include "sim/host/complaints.h"

namespace lab {

enum class ExitCode { Held = 0, Failed = 1, Usage = 2, Violation = 3, Hang = 4, InputOutput = 5 };

struct LiveEvent {
  platform::Time when = 0;
  std::string where;  // "host/H1", "host" or empty
  std::string event;
  std::string effect;
};

// What the driver still held after its unload, by host. Everything must be 0.
struct Leftovers {
  std::string host;
  std::size_t poolBytes = 0, objects = 0, mappings = 0, buffers = 0;
  std::int64_t references = 0;
  bool Nothing() const { return poolBytes == 0 && objects == 0 && mappings == 0 && buffers == 0 && references == 0; }
};

struct RunReport {
  ExitCode code = ExitCode::Held;
  bool seeded = false;
  std::uint64_t seed = 0;
  std::uint64_t step = 0;
  std::uint64_t failedStep = 0;  // when the first failure showed; 0: none has
  std::uint64_t traceHash = 0;
  platform::Time virtualTime = 0;
  std::vector<DomainView> domains;        // after the last event, once quiet, before the removal
  std::vector<std::string> explanations;  // one text of several lines for each domain, where asked for
  std::vector<Leftovers> leftovers;
  std::vector<LiveEvent> events;
  std::vector<std::string> failures;  // expectations and oracles that did not hold, one line each
  std::vector<platform::Violation> violations;
  std::vector<sim::ProtocolError> protocolErrors;
  std::vector<platform::Waiver> waivers;         // those that were hit
  std::vector<sim::ProtocolError> waivedErrors;  // complaints of the hardware that a fault excuses
  std::string hang;
  std::uint64_t faultsFired = 0;
  bool captured = false;     // the capture was written to its end
  bool traced = false;       // the timeline was, too
  bool stopReached = false;  // ended after the choice that was asked for; `domains` is what it found there
};

}  // namespace lab
