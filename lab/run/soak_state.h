// How far a campaign has come, kept in a file, so that one that was interrupted goes on where it stopped.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "platform/host/time.h"

namespace lab {

struct SoakState {
  std::string campaign;    // what is run, on one line; a file of another campaign is refused
  std::uint64_t next = 0;  // runs of the whole campaign before this one are done, or another shard's
  std::uint64_t runs = 0, failed = 0, faultsFired = 0;
  platform::Time virtualTime = 0;
  std::uint64_t milliseconds = 0;     // of real time
  int code = 0;                       // of the first run that failed
  std::vector<std::string> findings;  // without line ends

  bool operator==(const SoakState&) const = default;
};

// False when the file is there and cannot be used; `why` then says so. A file that is not there leaves `state` alone.
[[nodiscard]] bool LoadSoakState(const std::string& file, SoakState& state, std::string& why);
// The old file stands until the new one is whole.
[[nodiscard]] bool SaveSoakState(const std::string& file, const SoakState& state);

}  // namespace lab
