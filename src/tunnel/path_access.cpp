// Path entries, and non-flow-controlled buffers.
#include "tunnel/path_access.h"

#include "topology/router_access.h"
#include "topology/router_queries.h"

KIV_RESULT ReadPathEntry(const USB4_PORT* adapter, std::uint32_t inputHopId, USB4_PATH_ENTRY& entry) {
  std::uint32_t words[kPathEntryDwords] = {};
  const KIV_RESULT result = ReadArray<PathEntryWords>(adapter, std::uint64_t{kPathEntryDwords} * inputHopId, words);
  if (result == kKivOk) entry = {PathCs0::Value(words[0]), PathCs1::Value(words[1])};
  return result;
}

KIV_RESULT WritePathEntry(const USB4_PORT* adapter, std::uint32_t inputHopId, const USB4_PATH_ENTRY& entry) {
  return WriteArray<PathEntryWords>(adapter, std::uint64_t{kPathEntryDwords} * inputHopId,
                                    {entry.Word0.Word(), entry.Word1.Word()});
}

KIV_RESULT KivUsb4PortAddNfcCredits(USB4_PORT* adapter, std::int32_t credits) {
  const USB4_SWITCH* router = adapter->Router;
  if (credits == 0 || router->Unplugged.IsSet()) return kKivOk;
  if (KivUsb4SwitchIsUsb4(router) && !KivUsb4PortIsLane(adapter)) return kKivOk;
  AdpCs4::Value cs4(adapter->Header[AdpCs4::kOffset]);
  // The sum is not cut to its field: what was added has to come off again bit for bit, and it does only when nothing is
  // lost in between. A count that goes below zero thus shows in the bits above.
  const std::uint32_t sum = cs4.Get<AdpCs4::NfcBuffers>() + static_cast<std::uint32_t>(credits);
  cs4.Set<AdpCs4::NfcBuffers>(0);
  cs4 = AdpCs4::Value(cs4.Word() | AdpCs4::NfcBuffers::Spill(sum));
  adapter->Header[AdpCs4::kOffset] = cs4.Word();
  return WriteRegister<AdpCs4>(adapter, 0, cs4);
}
