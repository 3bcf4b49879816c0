// What libFuzzer calls.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fuzz/receive_path.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string broken = fuzz::RunReceivePath({data, size});
  if (broken.empty()) return 0;
  std::fprintf(stderr, "%s\n", broken.c_str());
  std::abort();
}
