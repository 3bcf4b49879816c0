// Reading and writing path entries.
#include "tunnel/path_entry.h"

#include "topology/router_access.h"

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
