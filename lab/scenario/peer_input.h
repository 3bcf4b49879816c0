// Hosts without a driver: read from a scenario file, checked where they are written.
#pragma once
#include <optional>
#include <string>
#include <vector>

#include "lab/input/toml_reader.h"
#include "lab/machine/machine_config.h"

namespace lab {

// One table of `peer`; `hosts` are the names of the host routers that there are. A properties file is looked for beside
// `scenarioFile`.
PeerHostConfig ReadPeer(TableReader& table, const std::vector<std::string>& hosts, const std::string& scenarioFile);
// Key `uid`, 16 hex digits at most; none where it is left out or wrong.
std::optional<std::uint64_t> ReadUid(TableReader& table);

}  // namespace lab
