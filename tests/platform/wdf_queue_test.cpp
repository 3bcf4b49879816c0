// Requests: routing by type, buffers by transfer method, ownership, completion, manual queues, power-managed queues.
#include <cstring>

#include "wdf_fixture.h"

namespace wdf_test {
namespace {

using namespace platform;

constexpr std::uint32_t kBuffered = CTL_CODE(0x22, 1, METHOD_BUFFERED, FILE_ANY_ACCESS);
constexpr std::uint32_t kNeither = CTL_CODE(0x22, 1, METHOD_NEITHER, FILE_ANY_ACCESS);

WDFQUEUE manual = nullptr;
// What a handler does with its request; null: completes it.
std::function<void(WDFREQUEST)> handle;

void Handle(const std::string& line, WDFREQUEST request) {
  Write(line);
  if (handle) return handle(request);
  WdfRequestComplete(request, STATUS_SUCCESS);
}
VOID Control(WDFQUEUE, WDFREQUEST request, size_t out, size_t in, ULONG code) {
  Handle("control " + std::to_string(code & 0xFFFF) + " out " + std::to_string(out) + " in " + std::to_string(in),
         request);
}
VOID Internal(WDFQUEUE, WDFREQUEST request, size_t, size_t, ULONG) {
  Handle("internal", request);
}
VOID OnRead(WDFQUEUE, WDFREQUEST request, size_t length) {
  Handle("read " + std::to_string(length), request);
}
VOID OnWrite(WDFQUEUE, WDFREQUEST request, size_t length) {
  Handle("write " + std::to_string(length), request);
}

std::vector<std::byte> Bytes(const char* text) {
  const auto* first = reinterpret_cast<const std::byte*>(text);
  return {first, first + std::strlen(text)};
}
std::string Text(const PendingIo& io) {
  return {reinterpret_cast<const char*>(io.output.data()), static_cast<std::size_t>(io.information)};
}
IoRequest ControlRequest(std::uint32_t code, const char* input, std::size_t outputBytes) {
  IoRequest request;
  request.code = code;
  request.input = Bytes(input);
  request.outputBytes = outputBytes;
  return request;
}
IoRequest Transfer(IoRequest::Kind kind, const char* input, std::size_t outputBytes) {
  IoRequest request = ControlRequest(0, input, outputBytes);
  request.kind = kind;
  return request;
}

class WdfQueue : public WdfTest {
 protected:
  WdfQueue() {
    handle = nullptr;
    script.onInit = [](PWDFDEVICE_INIT init) { WdfDeviceInitSetIoType(init, WdfDeviceIoDirect); };
    script.onAdd = [this](WDFDEVICE device) {
      const struct {
        WDF_REQUEST_TYPE type;
        PFN_WDF_IO_QUEUE_IO_DEVICE_CONTROL control;
        PFN_WDF_IO_QUEUE_IO_INTERNAL_DEVICE_CONTROL internal;
        PFN_WDF_IO_QUEUE_IO_READ read;
        PFN_WDF_IO_QUEUE_IO_WRITE write;
      } queues[] = {{WdfRequestTypeDeviceControl, Control, nullptr, nullptr, nullptr},
                    {WdfRequestTypeDeviceControlInternal, nullptr, Internal, nullptr, nullptr},
                    {WdfRequestTypeRead, nullptr, nullptr, OnRead, nullptr},
                    {WdfRequestTypeWrite, nullptr, nullptr, nullptr, OnWrite}};
      for (const auto& queue : queues) {
        WDF_IO_QUEUE_CONFIG asked;
        WDF_IO_QUEUE_CONFIG_INIT(&asked, WdfIoQueueDispatchParallel);
        asked.PowerManaged = powerManaged;
        asked.EvtIoDeviceControl = queue.control;
        asked.EvtIoInternalDeviceControl = queue.internal;
        asked.EvtIoRead = queue.read;
        asked.EvtIoWrite = queue.write;
        WDFQUEUE created = nullptr;
        EXPECT_EQ(WdfIoQueueCreate(device, &asked, WDF_NO_OBJECT_ATTRIBUTES, &created), 0);
        EXPECT_EQ(WdfDeviceConfigureRequestDispatching(device, created, queue.type), 0);
        EXPECT_EQ(WdfIoQueueGetDevice(created), device);
      }
      WDF_IO_QUEUE_CONFIG asked;
      WDF_IO_QUEUE_CONFIG_INIT(&asked, WdfIoQueueDispatchManual);
      asked.PowerManaged = WdfFalse;
      EXPECT_EQ(WdfIoQueueCreate(device, &asked, WDF_NO_OBJECT_ATTRIBUTES, &manual), 0);
      AssignIdle(device);
    };
  }
  WDF_TRI_STATE powerManaged = WdfFalse;
};
INSTANTIATE_WDF(WdfQueue);

TEST_P(WdfQueue, RequestsGoToTheQueueOfTheirType) {
  StartQuietly();
  host.Send(id, ControlRequest(kBuffered, "ab", 7));
  host.Send(id, Transfer(IoRequest::Kind::InternalDeviceControl, "", 0));
  host.Send(id, Transfer(IoRequest::Kind::Read, "", 5));
  host.Send(id, Transfer(IoRequest::Kind::Write, "abc", 0));
  EXPECT_EQ(host.Send(id, Transfer(IoRequest::Kind::Read, "", 0))->status, 0) << "completed without the driver";
  EXPECT_EQ(Log(), "control 4 out 7 in 2\ninternal\nread 5\nwrite 3\n");
}

struct BufferCase {
  const char* name;
  IoRequest request;
  bool output;
  std::size_t minimum;
  NTSTATUS status;
  std::size_t bytes;
};

TEST_P(WdfQueue, BuffersAreFoundOrRefusedAsTheTransferMethodSays) {
  constexpr NTSTATUS kTooSmall = static_cast<NTSTATUS>(0xC0000023), kInvalid = static_cast<NTSTATUS>(0xC0000010);
  IoRequest application = ControlRequest(kNeither, "abcd", 4);
  application.kernelMode = false;
  IoRequest internal = application;
  internal.kind = IoRequest::Kind::InternalDeviceControl;
  const BufferCase cases[] = {
      {"buffered input", ControlRequest(kBuffered, "abcd", 0), false, 4, 0, 4},
      {"buffered input, too short", ControlRequest(kBuffered, "abc", 0), false, 4, kTooSmall, 0},
      {"no input", ControlRequest(kBuffered, "", 8), false, 0, kTooSmall, 0},
      {"buffered output", ControlRequest(kBuffered, "", 8), true, 8, 0, 8},
      {"buffered output, too short", ControlRequest(kBuffered, "", 7), true, 8, kTooSmall, 0},
      {"neither, from the kernel", ControlRequest(kNeither, "abcd", 4), false, 4, 0, 4},
      {"neither, from an application", application, false, 4, kInvalid, 0},
      {"neither, output of an application", application, true, 4, kInvalid, 0},
      {"neither, internal", internal, false, 4, 0, 4},
      {"input of a read", Transfer(IoRequest::Kind::Read, "", 4), false, 1, kInvalid, 0},
      {"output of a read", Transfer(IoRequest::Kind::Read, "", 4), true, 4, 0, 4},
      {"input of a write", Transfer(IoRequest::Kind::Write, "abcd", 0), false, 4, 0, 4},
  };
  StartQuietly();
  for (const BufferCase& buffer : cases) {
    SCOPED_TRACE(buffer.name);
    handle = [&](WDFREQUEST request) {
      PVOID memory = nullptr;
      size_t bytes = 0;
      const NTSTATUS status = buffer.output ? WdfRequestRetrieveOutputBuffer(request, buffer.minimum, &memory, &bytes)
                                            : WdfRequestRetrieveInputBuffer(request, buffer.minimum, &memory, &bytes);
      EXPECT_EQ(status, buffer.status);
      EXPECT_EQ(bytes, buffer.bytes);
      EXPECT_EQ(memory != nullptr, status == 0);
      WdfRequestComplete(request, status);
    };
    EXPECT_EQ(host.Send(id, buffer.request)->status, buffer.status);
  }
  Finish();
}

TEST_P(WdfQueue, ABufferedRequestSharesOneBufferAndReturnsWhatWasSaid) {
  StartQuietly();
  handle = [](WDFREQUEST request) {
    PVOID input = nullptr, output = nullptr;
    EXPECT_EQ(WdfRequestRetrieveInputBuffer(request, 4, &input, nullptr), 0);
    EXPECT_EQ(WdfRequestRetrieveOutputBuffer(request, 8, &output, nullptr), 0);
    EXPECT_EQ(input, output);
    std::memcpy(output, "answered", 8);
    WdfRequestCompleteWithInformation(request, STATUS_SUCCESS, 6);
  };
  EXPECT_EQ(Text(*host.Send(id, ControlRequest(kBuffered, "abcd", 8))), "answer");
}

TEST_P(WdfQueue, AManualQueueKeepsRequestsInOrderAndTakesThemBack) {
  StartQuietly();
  handle = [](WDFREQUEST request) { EXPECT_EQ(WdfRequestForwardToIoQueue(request, manual), 0); };
  auto first = host.SendAsync(id, Transfer(IoRequest::Kind::Read, "", 1));
  simulation.RunFor(1 * kMillisecond);
  auto second = host.SendAsync(id, Transfer(IoRequest::Kind::Read, "", 2));
  simulation.RunFor(1 * kMillisecond);
  EXPECT_FALSE(first->completed || second->completed);
  InDriver([](WDFDEVICE) {
    WDFREQUEST request = nullptr;
    EXPECT_EQ(WdfIoQueueRetrieveNextRequest(manual, &request), 0);
    EXPECT_EQ(WdfRequestRequeue(request), 0);  // back to the head
    EXPECT_EQ(WdfIoQueueRetrieveNextRequest(manual, &request), 0);
    WdfRequestComplete(request, STATUS_REMOTE_DISCONNECT);
  });
  EXPECT_TRUE(first->completed && !second->completed);
  EXPECT_EQ(first->status, STATUS_REMOTE_DISCONNECT);
  InDriver([](WDFDEVICE) {
    WDFREQUEST request = nullptr;
    EXPECT_EQ(WdfIoQueueRetrieveNextRequest(manual, &request), 0);
    WdfRequestComplete(request, STATUS_SUCCESS);
    EXPECT_EQ(WdfIoQueueRetrieveNextRequest(manual, &request), static_cast<NTSTATUS>(0x8000001A));
    EXPECT_EQ(request, nullptr);
  });
}

TEST_P(WdfQueue, WhatWaitsInAQueueIsCancelledAtRemoval) {
  StartQuietly();
  handle = [](WDFREQUEST request) { EXPECT_EQ(WdfRequestForwardToIoQueue(request, manual), 0); };
  auto waiting = host.SendAsync(id, Transfer(IoRequest::Kind::Read, "", 1));
  simulation.RunFor(1 * kMillisecond);
  Finish();
  EXPECT_EQ(waiting->status, STATUS_CANCELLED);
  EXPECT_EQ(host.Send(id, Transfer(IoRequest::Kind::Read, "", 1))->status, STATUS_NO_SUCH_DEVICE);
}

TEST_P(WdfQueue, AQueueThatIsNotPowerManagedPresentsInD3) {
  StartQuietly();
  RunToIdle();
  host.Send(id, Transfer(IoRequest::Kind::Read, "", 3));
  EXPECT_EQ(Log(), "read 3\n");
}

TEST_P(WdfQueue, ARequestWakesTheDeviceOfAPowerManagedQueue) {
  powerManaged = WdfUseDefault;
  StartQuietly();
  RunToIdle();
  EXPECT_EQ(host.Send(id, Transfer(IoRequest::Kind::Read, "", 3))->status, 0);
  EXPECT_EQ(Log(), "function D0\nD0 entry from 4\npost-interrupts from 4\nread 3\n");
}

TEST_P(WdfQueue, AnOwnedRequestOfAPowerManagedQueueKeepsTheDeviceInD0) {
  powerManaged = WdfTrue;
  StartQuietly();
  WDFREQUEST owned = nullptr;
  handle = [&](WDFREQUEST request) { owned = request; };
  auto io = host.SendAsync(id, Transfer(IoRequest::Kind::Read, "", 3));
  simulation.RunFor(60 * kSecond);
  EXPECT_EQ(host.Power(id), DevicePower::D0);
  host.SystemSleepAsync(SystemPowerAction::Sleep);
  simulation.RunFor(1 * kSecond);
  EXPECT_EQ(host.Power(id), DevicePower::D0);  // leaving D0 waits for the request
  Log();
  InDriver([&](WDFDEVICE) { WdfRequestComplete(owned, STATUS_SUCCESS); });
  Settle();
  EXPECT_EQ(Log(), "pre-interrupts to 4\nD0 exit to 4\nfunction D3hot\n");
  host.SystemResume();
  Finish();
}

struct Misuse {
  const char* name;
  void (*use)(WDFREQUEST request);
  const char* broken;
};
const Misuse kMisuses[] = {
    {"completed twice",
     [](WDFREQUEST request) {
       WdfRequestComplete(request, STATUS_SUCCESS);
       WdfRequestComplete(request, STATUS_SUCCESS);
     },
     "request-completed-twice in WdfRequestComplete"},
    {"completed twice, with a reference",
     [](WDFREQUEST request) {
       WdfObjectReference(request);
       WdfRequestComplete(request, STATUS_SUCCESS);
       WdfRequestComplete(request, STATUS_SUCCESS);
     },
     "request-completed-twice in WdfRequestComplete"},
    {"touched after completion",
     [](WDFREQUEST request) {
       WdfRequestComplete(request, STATUS_SUCCESS);
       PVOID buffer = nullptr;
       (void)WdfRequestRetrieveInputBuffer(request, 1, &buffer, nullptr);
     },
     "request-after-completion in WdfRequestRetrieveInputBuffer"},
    {"completed while a queue owns it",
     [](WDFREQUEST request) {
       EXPECT_EQ(WdfRequestForwardToIoQueue(request, manual), 0);
       WdfRequestComplete(request, STATUS_SUCCESS);
     },
     "request-not-owned in WdfRequestComplete"},
    {"forwarded while a queue owns it",
     [](WDFREQUEST request) {
       EXPECT_EQ(WdfRequestForwardToIoQueue(request, manual), 0);
       (void)WdfRequestForwardToIoQueue(request, manual);
     },
     "request-not-owned in WdfRequestForwardToIoQueue"},
    {"completed as pending", [](WDFREQUEST request) { WdfRequestComplete(request, STATUS_PENDING); },
     "invalid-argument in WdfRequestComplete"},
};

class WdfRequestMisuse : public WdfQueue {};
INSTANTIATE_TEST_SUITE_P(Cases, WdfRequestMisuse, testing::Range(0u, unsigned{std::size(kMisuses)}));

TEST_P(WdfRequestMisuse, IsReported) {
  SCOPED_TRACE(kMisuses[GetParam()].name);
  StartQuietly();
  handle = kMisuses[GetParam()].use;
  host.Send(id, ControlRequest(kBuffered, "abcd", 4), 1 * kSecond);
  EXPECT_EQ(Broken(), kMisuses[GetParam()].broken);
}

TEST_P(WdfQueue, ARequestThatIsNeverCompletedIsReportedAtRemoval) {
  StartQuietly();
  handle = [](WDFREQUEST) {};
  host.SendAsync(id, Transfer(IoRequest::Kind::Read, "", 3));
  simulation.RunFor(1 * kMillisecond);
  host.Remove(id);
  EXPECT_EQ(Broken().substr(0, 23), "request-never-completed");
}

TEST_P(WdfQueue, RemovalWaitsForAHandlerThatStillRuns) {
  StartQuietly();
  handle = [](WDFREQUEST request) {
    DelayMs(3000);
    WdfRequestComplete(request, STATUS_SUCCESS);
  };
  auto io = host.SendAsync(id, ControlRequest(kBuffered, "", 4));
  simulation.RunFor(1 * kMillisecond);
  Finish();
  EXPECT_TRUE(io->completed);
  EXPECT_EQ(io->status, 0);
}

BROKEN_BY_TEST(WdfRequestMisuse, RequestCompletedTwice, "WdfRequestComplete")
BROKEN_BY_TEST(WdfRequestMisuse, RequestAfterCompletion, "WdfRequestRetrieveInputBuffer")
BROKEN_BY_TEST(WdfRequestMisuse, RequestNotOwned, "WdfRequestComplete")
BROKEN_BY_TEST(WdfRequestMisuse, RequestNotOwned, "WdfRequestForwardToIoQueue")
BROKEN_BY_TEST(WdfRequestMisuse, InvalidArgument, "WdfRequestComplete")
BROKEN_BY_TEST(ARequestThatIsNeverCompletedIsReportedAtRemoval, RequestNeverCompleted, "device removal")

}  // namespace
}  // namespace wdf_test
