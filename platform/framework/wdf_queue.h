// I/O queues: which requests go where, and when they are presented.
//
// A parallel queue calls its handler on the task that brings the request; a request that a queue holds while the device
// is out of D0 gets a task of its own when D0 is entered again. A manual queue only keeps requests.
#pragma once
#include <deque>

#include "platform/framework/wdf_object.h"

namespace platform {

class Device;
class Request;

class Queue final : public Object {
 public:
  static constexpr ObjectType kType = ObjectType::Queue;
  Queue(Device& owner, const WDF_IO_QUEUE_CONFIG& asked);
  void Release() override;

  // Takes a request that is nobody's (new, or given up by the driver) and presents it when it may.
  void Insert(Request& request);
  void InsertFirst(Request& request);  // without presenting
  Request* TakeFirst();                // for the driver; null when empty
  bool Presents() const;               // power allows it
  void PresentHeld();                  // after D0 entry
  void CancelAll(KernelCall& call);    // STATUS_CANCELLED for each request that waits here

  Device& device;
  const WDF_IO_QUEUE_CONFIG config;
  const bool powerManaged;

 private:
  void Present(Request& request);

  std::deque<Request*> waiting_;
};

// Waits until the driver owns no request of the device's queues, or of its power-managed ones. A driver that keeps one
// for ten minutes is reported: nothing would end the wait on a real system.
enum class Requests { PowerManaged, All };
void WaitForRequests(Device& device, Requests which);

}  // namespace platform
