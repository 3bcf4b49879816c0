// Router operations, and the polls on which they and other handshakes stand. PASSIVE_LEVEL.
#pragma once
#include "include/router_record.h"
#include "include/status.h"

// A condition on one register: (word AND Mask) equals Value.
struct REGISTER_CONDITION {
  std::uint64_t Offset;  // dwords
  std::uint32_t Mask;
  std::uint32_t Value;
};

// Sets the argument of the next operation; the result of the write.
[[nodiscard]] KIV_RESULT Usb4SwitchOpSetMetadata(const USB4_SWITCH* router, std::uint32_t value);
// Runs one operation to its end. 0 with the operation's own status (6 bits, 0 = success) in `operationStatus`; -1 when
// the router does not know the operation, or was not done after about 1.1 s (`operationStatus` untouched); the error of
// a failed access.
[[nodiscard]] KIV_RESULT Usb4SwitchOp(const USB4_SWITCH* router, std::uint16_t opcode, std::uint8_t& operationStatus);

// Polls router space: 0 once the condition holds; -1 after 11 reads, each followed by 100 ms; the error of a failed
// read. The time-out that some callers name is accepted and not used.
[[nodiscard]] KIV_RESULT Usb4SwitchWaitForBit(const USB4_SWITCH* router, const REGISTER_CONDITION& condition,
                                              std::uint32_t unusedTimeoutMs = 0);
// The same in adapter space: 11 reads with 100 ms between them and none after the last.
[[nodiscard]] KIV_RESULT Usb4PortWaitForBit(const USB4_PORT* adapter, const REGISTER_CONDITION& condition,
                                            std::uint32_t unusedTimeoutMs = 0);
