// What must hold between hardware and driver once a machine is quiet. Truth is the fabric: entries, adapters and
// buffers as packets find them; the driver's records are what is judged.
#pragma once
#include "lab/machine/machine.h"
#include "lab/oracle/finding.h"

namespace lab {

struct OracleOptions {
  bool complete = true;   // every router that can be reached must be listed; not so after a failure
  bool wreckage = false;  // firmware has left half-built tunnels, parts of which stay: docs/known-behaviour.md
  // Faults have struck and nothing was reset since (lab/machine/waivers.h): answers got lost, or accesses failed for
  // good.
  bool lostGrants = false;
  bool remains = false;
};

// Those for a machine of this configuration.
OracleOptions OracleOptionsFor(const MachineConfig& config);

// What does not hold; empty when all does. Controllers that are not running are left out, and so is what
// hangs on them: what a domain leaves programmed while it sleeps is looked at when it is awake.
Findings OracleFindings(Machine& machine, const OracleOptions& options = {});

}  // namespace lab
