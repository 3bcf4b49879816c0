// One entry for each: rule, where, exact bound, reason. An entry that no test hits, or that is hit beyond its bound,
// fails.
#include "lab/machine/waivers.h"

#include <algorithm>

namespace lab {

std::vector<platform::Waiver> KnownWaivers() {
  return {
      {platform::Rule::StallTooLong, "KeStallExecutionProcessor", 3100,
       "the power-on sequence of function 8086:9A1B prescribes busy waits of 3100 us between reads of its ready bit",
       0},
      {platform::Rule::CommonBufferLeak, "WdfObjectDelete", 2,
       "the descriptor tables of the two control rings belong to the DMA enabler and go with it", 0},
  };
}

std::vector<ComplaintWaiver> KnownComplaintWaivers() {
  using enum sim::Complaint;
  using enum sim::Space;
  constexpr auto kAny = std::nullopt;
  return {
      {ReadOnlyBits, Router, 0, 100,
       "a router whose TMU capability could not be read is taken to have it at offset 0, where the header stands"},
      {ReadOnlyBits, Router, 3, 100,
       "a router whose TMU capability could not be read is taken to have it at offset 0, where the header stands"},
      {UnknownDword, Adapter, 19, 100,
       "a port whose USB4 port capability could not be read is marked configured all the same, at the mark's offset"},
      {ConfiguredRoute, kAny, kAny, 100,
       "the second lane of a port whose first lane could not be read is taken for a port of its own"},
      {ConfiguredUpstream, kAny, kAny, 100,
       "the second lane of a port whose first lane could not be read is taken for a port of its own"},
      {ReadOnlyBits, Adapter, 57, 100,
       "an answer about another adapter that a fault has put in the right one's place makes it one of another type for "
       "the driver, which switches it on by the bits of that type"},
      {UnknownDword, Path, kAny, 100,
       "an answer about another adapter that a fault has put in the right one's place makes it one with paths"},
      {EntryHopLimit, kAny, kAny, 100,
       "an answer about another adapter that a fault has put in the right one's place gives it that one's limits"},
      {ReadOnlyBits, Adapter, 2, 100,
       "a DP IN whose capability could not be found is taken to have it at offset 0, where the header stands"},
      {DisplayResource, kAny, kAny, 100,
       "an answer about another adapter that a fault has put in the right one's place makes it a DP IN for the driver"},
      {OperationBusy, kAny, kAny, 1000,
       "an operation that a router never ends is given up after its time-out, and the next one is asked all the same"},
      {DromMetadata, kAny, kAny, 100,
       "a metadata write that a fault has held back or overtaken leaves the DROM read with the metadata of another "
       "one"},
  };
}

bool Excused(const sim::ProtocolError& error) {
  static const std::vector<ComplaintWaiver> kWaivers = KnownComplaintWaivers();
  return std::any_of(kWaivers.begin(), kWaivers.end(), [&](const ComplaintWaiver& waiver) {
    return waiver.rule == error.rule && error.count <= waiver.most &&
           (!waiver.space || waiver.space == error.arguments.space) &&
           (!waiver.dword || waiver.dword == error.arguments.dword);
  });
}

}  // namespace lab
