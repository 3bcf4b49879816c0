// One ring frame between host interface and router, and the port through which the host interface hands them out.
#pragma once
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/host/device_model.h"

namespace sim {

struct Frame {
  std::uint8_t startPdf = 0;
  std::uint8_t endPdf = 0;
  std::vector<std::uint8_t> bytes;  // as on the wire, CRC included on the control ring
};

// What a hostile or broken device writes back for a frame instead of the truth.
struct WriteBackForgery {
  std::optional<std::uint32_t> size;      // 12 bits; payload beyond the posted buffer is never written
  std::optional<std::uint32_t> startPdf;  // 4 bits
  std::optional<std::uint32_t> endPdf;    // 4 bits
  std::uint32_t statusBits = 0;           // OR-ed into bits 31:20; bit 0 says that the payload is damaged
  bool Nothing() const { return !size && !startPdf && !endPdf && statusBits == 0; }
};

// The router's side of a host interface.
class FramePort {
 public:
  virtual ~FramePort() = default;
  virtual void FrameFromHost(unsigned hop, Frame frame) = 0;
  // Until a frame of this ring could be sent on; 0: at once.
  virtual platform::Time RoomAfter(unsigned hop) = 0;
  virtual void HostPowerChanged(platform::FunctionPower power) = 0;
};

}  // namespace sim
