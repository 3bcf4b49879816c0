// A simulated companion driver: it offers a device interface, and answers control codes that come over it.
#pragma once
#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "platform/host/simulation.h"

namespace platform {

struct CompanionReply {
  std::int32_t status = 0;  // an NTSTATUS
  Time after = 0;           // virtual time that the answer takes
};

struct Companion {
  std::string interfaceClass;   // "{52d5f7e0-0786-41ef-a5d8-f03a2b29ba26}"
  std::string symbolicLink;     // unique: "\\??\\display"
  std::int32_t openStatus = 0;  // what opening it gives
  std::function<CompanionReply(std::uint32_t code, std::span<const std::uint8_t> input)> onControl;
};

}  // namespace platform
