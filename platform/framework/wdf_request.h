// I/O requests: who owns each, its buffers, its completion.
#pragma once
#include <memory>
#include <vector>

#include "platform/framework/wdf_object.h"
#include "platform/host/io_request.h"

namespace platform {

class Device;
class Queue;

class Request final : public Object {
 public:
  static constexpr ObjectType kType = ObjectType::Request;
  Request(Device& device, std::shared_ptr<PendingIo> io);

  WDF_REQUEST_TYPE requestType() const;
  std::size_t inputBytes() const { return io_->request.input.size(); }
  std::size_t outputBytes() const { return io_->request.outputBytes; }
  ULONG code() const { return io_->request.code; }

  struct Buffer {
    Status status;
    std::byte* memory = nullptr;
    std::size_t bytes = 0;
  };
  Buffer Input(std::size_t minimum);
  Buffer Output(std::size_t minimum);
  // Answers the client and ends the request.
  void Complete(KernelCall& call, Status status, std::uint64_t information);

  // Moves between queue and driver; only queues call these. While it is in a power-managed queue, or the driver owns it
  // from one, the request keeps the device in D0.
  void GiveTo(Queue& queue);
  void GiveToDriver() { SetOwnedByDriver(true); }
  bool OwnedByDriver() const { return ownedByDriver_; }
  Queue* queue() const { return queue_; }  // that holds the request, or from which the driver got it

 private:
  void SetOwnedByDriver(bool owned);
  void CountForPower(bool counts);
  bool Buffered() const;
  bool PointersUnreachable() const;  // the buffers of a METHOD_NEITHER request of an application

  Device& device_;
  std::shared_ptr<PendingIo> io_;
  std::vector<std::byte> systemBuffer_;  // METHOD_BUFFERED: input and output share it
  Queue* queue_ = nullptr;
  bool ownedByDriver_ = false;
  bool countsForPower_ = false;
};

// Brings a request to the device's queues, on the client's task; completed at once when no queue takes it.
void Dispatch(KernelCall& call, Device& device, std::shared_ptr<PendingIo> io);

}  // namespace platform
