// What libFuzzer calls.
#include "fuzz/peer.h"

#include <cstddef>

#include "fuzz/verdict.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::EndInput(fuzz::RunPeer({data, size}));
}
