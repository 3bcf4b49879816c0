// What a run tells its observers. Records are flat and carry no addresses; sinks format.
#pragma once
#include <cstdint>
#include <span>
#include <string_view>

#include "platform/host/time.h"

namespace platform {

class HostKernel;

enum class TraceKind : std::uint8_t {
  Driver,    // one event of the driver's tracing facility: payload holds its fields, level its level
  Call,      // a platform call stands still: name, text why, value 0 when it begins to and 1 when it goes on
  Callback,  // a framework callback begins or ends: name, value 0/1
  Register,  // a register access: name "read" or "write", offset, value
  Device,    // an event of the hardware model: name, text
  Power,     // device power or PnP step: name, value
};

struct TraceRecord {
  TraceKind kind;
  Time when = 0;
  HostKernel* kernel = nullptr;
  std::string_view task;
  std::uint32_t taskOrdinal = 0;  // tells tasks of the same name apart; 0 on the scheduler's own stack
  std::string_view name;
  std::string_view text;
  std::uint8_t level = 0;   // 1 critical .. 5 verbose, as the tracing facility numbers them
  std::uint8_t opcode = 0;  // of the driver's events: 1 a step begins, 2 it ends, 0 anything else
  std::uint64_t offset = 0;
  std::uint64_t value = 0;
  std::span<const std::byte> payload;
};

class TraceSink {
 public:
  virtual ~TraceSink() = default;
  // On the scheduler's stack or a task's; must make no kernel call.
  virtual void OnTrace(const TraceRecord& record) = 0;
};

}  // namespace platform
