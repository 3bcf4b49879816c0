// One entry for each: rule, where, exact bound, reason. An entry that no test hits, or that is hit beyond its bound,
// fails.
#include "lab/machine/waivers.h"

#include <algorithm>
#include <utility>

namespace lab {

std::vector<platform::Waiver> KnownWaivers() {
  return {
      {platform::Rule::StallTooLong, "KeStallExecutionProcessor", 3100,
       "the power-on sequence of function 8086:9A1B polls its ready bit with busy waits of 3100 us, as that hardware "
       "wants",
       0},
      {platform::Rule::CommonBufferLeak, "outlive their DMA enabler", 2,
       "the descriptor tables of the two control rings belong to the DMA enabler and go with it", 0},
  };
}

std::vector<ProtocolWaiver> KnownProtocolWaivers() {
  return {
      {"of router dword 0 changed",
       "a router whose TMU capability could not be read is taken to have it at offset 0, where the header stands"},
      {"of router dword 3 changed",
       "a router whose TMU capability could not be read is taken to have it at offset 0, where the header stands"},
      {"write to unknown adapter dword 19",
       "a port whose USB4 port capability could not be read is marked configured all the same, at the mark's offset"},
      {"configured for route",
       "the second lane of a port whose first lane could not be read is taken for a port of its own"},
      {"configured with upstream adapter",
       "the second lane of a port whose first lane could not be read is taken for a port of its own"},
      {"of adapter dword 57 changed",
       "an answer about another adapter that a fault has put in the right one's place makes it one of another type for "
       "the driver, which switches it on by the bits of that type"},
      {"write to unknown path dword",
       "an answer about another adapter that a fault has put in the right one's place makes it one with paths"},
      {"leaves with a hop ID above the limit of",
       "an answer about another adapter that a fault has put in the right one's place gives it that one's limits"},
      {"of adapter dword 2 changed",
       "a DP IN whose capability could not be found is taken to have it at offset 0, where the header stands"},
      {"display resource of adapter",
       "an answer about another adapter that a fault has put in the right one's place makes it a DP IN for the driver"},
      {"router operation started while another one runs",
       "an operation that a router never ends is given up after its time-out, and the next one is asked all the same"},
      {"DROM read with metadata",
       "a metadata write that a fault has held back or overtaken leaves the DROM read with the metadata of another "
       "one"},
  };
}

std::vector<ProtocolWaiver> LostGrants() {
  return {
      {"is reserved without video",
       "a router that was asked for a DP IN and whose answer got lost keeps it for a tunnel that never came"},
  };
}

std::vector<ProtocolWaiver> KnownRemains() {
  std::vector<ProtocolWaiver> remains = {
      {"dangling entry at",
       "an entry whose switching off a fault has prevented stays in the host router, where nobody looks at it again"},
      {"lost: ",
       "a path that begins with an entry whose switching off a fault has prevented leads nowhere once its tunnel is "
       "gone"},
      {"two entries lead to",
       "the hop behind an entry whose switching off a fault has prevented is free for the next path through that link"},
  };
  for (ProtocolWaiver& grant : LostGrants()) remains.push_back(std::move(grant));
  return remains;
}

namespace {

bool Covers(const std::vector<ProtocolWaiver>& waivers, const std::string& text) {
  return std::any_of(waivers.begin(), waivers.end(),
                     [&](const ProtocolWaiver& waiver) { return text.find(waiver.text) != std::string::npos; });
}

}  // namespace

bool Excused(const sim::ProtocolError& error) {
  return Covers(KnownProtocolWaivers(), error.text);
}

std::vector<std::string> Without(const std::vector<ProtocolWaiver>& waivers, std::vector<std::string> findings) {
  std::erase_if(findings, [&](const std::string& finding) { return Covers(waivers, finding); });
  return findings;
}

}  // namespace lab
