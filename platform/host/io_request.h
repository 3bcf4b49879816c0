// What a client of a device sends, and what comes back. Clients are tests, the tool and simulated companion drivers.
#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

namespace platform {

class Task;

struct IoRequest {
  enum class Kind { Read, Write, DeviceControl, InternalDeviceControl };
  Kind kind = Kind::DeviceControl;
  std::uint32_t code = 0;        // of a control request
  std::vector<std::byte> input;  // of a write: what is written
  std::size_t outputBytes = 0;   // room for the answer; of a read: how much to read
  bool kernelMode = true;        // false: the client is an application
};

// One request on its way; lives until both the client and the device have let go of it.
struct PendingIo {
  IoRequest request;
  std::vector<std::byte> output;  // `outputBytes` long; the first `information` bytes are the answer
  bool completed = false;
  std::int32_t status = 0;
  std::uint64_t information = 0;
  Task* waiter = nullptr;  // a task of the client that is woken at completion; its code never runs inside it
};

}  // namespace platform
