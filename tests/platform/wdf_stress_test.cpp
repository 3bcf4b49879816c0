// Everything at once, many seeds: sleep, resume, wake, messages, requests, references, removal and re-plug in any
// order. Whatever the order, each callback follows only those that the framework documents before it, and nothing is
// left.
#include <map>
#include <set>
#include <sstream>

#include "wdf_fixture.h"

namespace wdf_test {
namespace {

using namespace platform;

const std::map<std::string, std::set<std::string>> kMayFollow = {
    {"", {"add"}},
    {"add", {"prepare"}},
    {"prepare", {"D0 entry from 5", "release"}},
    {"D0 entry from 5", {"post-interrupts from 5", "release"}},
    {"D0 entry from 4", {"post-interrupts from 4", "release"}},
    {"post-interrupts from 5", {"pre-interrupts to 4", "pre-interrupts to 5", "surprise removal", "D0 exit to 5"}},
    {"post-interrupts from 4", {"pre-interrupts to 4", "pre-interrupts to 5", "surprise removal", "D0 exit to 5"}},
    {"surprise removal", {"pre-interrupts to 5", "release"}},
    {"pre-interrupts to 4", {"D0 exit to 4"}},
    {"pre-interrupts to 5", {"D0 exit to 5"}},
    {"D0 exit to 4", {"D0 entry from 4", "surprise removal", "release"}},
    {"D0 exit to 5", {"release"}},
    {"release", {"device cleanup"}},
    {"device cleanup", {"add", "unload"}},
    {"unload", {"driver cleanup"}},
};

std::string FirstWrongStep(const std::string& log) {
  std::istringstream lines(log);
  std::string line, before;
  while (std::getline(lines, line)) {
    if (line.starts_with("function ")) continue;
    const auto allowed = kMayFollow.find(before);
    if (allowed == kMayFollow.end() || !allowed->second.contains(line)) return before + " -> " + line;
    before = line;
  }
  return before == "driver cleanup" ? "" : "ends after " + before;
}

BOOLEAN WorkItemIsr(WDFINTERRUPT interrupt, ULONG) {
  return WdfInterruptQueueWorkItemForIsr(interrupt);
}

struct Items {
  WDFWORKITEM Item;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(Items, GetItems)

// The handler starts work that holds the device awake for a while.
VOID Handler(WDFINTERRUPT interrupt, WDFOBJECT) {
  DelayMs(3);
  WdfWorkItemEnqueue(GetItems(interrupt)->Item);
}
VOID Work(WDFWORKITEM item) {
  const auto device = static_cast<WDFDEVICE>(WdfWorkItemGetParentObject(item));
  const NTSTATUS status = WdfDeviceStopIdle(device, GetContext(device)->Marks++ % 2 == 0);
  DelayMs(20);
  if (NT_SUCCESS(status)) WdfDeviceResumeIdle(device);
}
VOID Read(WDFQUEUE, WDFREQUEST request, size_t) {
  DelayMs(5);
  WdfRequestComplete(request, STATUS_SUCCESS);
}

class WdfStress : public WdfTest {
 protected:
  WdfStress() {
    script.onAdd = [](WDFDEVICE device) {
      AssignIdle(device, 40);
      AssignWake(device);
      WDF_IO_QUEUE_CONFIG queue;
      WDF_IO_QUEUE_CONFIG_INIT_DEFAULT_QUEUE(&queue, WdfIoQueueDispatchParallel);
      queue.EvtIoRead = Read;
      EXPECT_EQ(WdfIoQueueCreate(device, &queue, WDF_NO_OBJECT_ATTRIBUTES, nullptr), 0);
    };
    script.onPrepare = [this](WDFDEVICE device, WDFCMRESLIST raw, WDFCMRESLIST translated) {
      WDF_WORKITEM_CONFIG work;
      WDF_WORKITEM_CONFIG_INIT(&work, Work);
      WDF_OBJECT_ATTRIBUTES attributes;
      WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
      attributes.ParentObject = device;
      EXPECT_EQ(WdfWorkItemCreate(&work, &attributes, &item), 0);
      WDF_INTERRUPT_CONFIG interrupt;
      WDF_INTERRUPT_CONFIG_INIT(&interrupt, WorkItemIsr, nullptr);
      interrupt.EvtInterruptWorkItem = Handler;
      interrupt.InterruptRaw = WdfCmResourceListGetDescriptor(raw, 0);
      interrupt.InterruptTranslated = WdfCmResourceListGetDescriptor(translated, 0);
      WDF_OBJECT_ATTRIBUTES_INIT_CONTEXT_TYPE(&attributes, Items);
      WDFINTERRUPT created = nullptr;
      EXPECT_EQ(WdfInterruptCreate(device, &interrupt, &attributes, &created), 0);
      GetItems(created)->Item = item;
    };
    script.onPre = [](WDFDEVICE) { DelayMs(7); };
    script.onPost = [](WDFDEVICE) { DelayMs(7); };
    script.onRelease = [this](WDFDEVICE) {
      WdfWorkItemFlush(item);
      WdfObjectDelete(item);
    };
  }

  void Step(RandomStream& random) {
    switch (random.Below(12)) {
      case 0:
        return host.SystemSleepAsync(random.Chance(1, 2) ? SystemPowerAction::Sleep : SystemPowerAction::Hibernate);
      case 1:
      case 2:
        return host.SystemResumeAsync();
      case 3:
      case 4:
        return function.slot->SignalWake();
      case 5:
      case 6:
        return function.slot->SignalMessage(0);
      case 7:
        host.SendAsync(id, IoRequest{IoRequest::Kind::Read, 0, {}, 4, true});
        return;
      case 8:
        script.entryFromD3 = random.Chance(1, 4) ? STATUS_DEVICE_NOT_READY : STATUS_SUCCESS;
        return;
      case 9:
        if (random.Chance(1, 2)) return;
        return host.SurpriseRemoveAsync(id);
      case 10:
        if (random.Chance(1, 2)) return;
        return host.RemoveAsync(id);
      default:
        script.entryFromD3 = STATUS_SUCCESS;
        return Replug();
    }
  }
  void Replug() {
    host.SystemResumeAsync();
    Settle();
    if (host.State(id) != PnpState::Started) {
      ASSERT_EQ(host.Enable(id), 0);
    }
  }

  WDFWORKITEM item = nullptr;
};
INSTANTIATE_TEST_SUITE_P(Seeds, WdfStress, testing::Range(0u, 60u));

TEST_P(WdfStress, CallbacksKeepTheirOrderAndNothingIsLeft) {
  ASSERT_EQ(Start(), 0);
  RandomStream random(GetParam(), "stress");
  for (int step = 0; step < 150 && !simulation.Stopped() && !HasFatalFailure(); ++step) {
    Step(random);
    simulation.RunFor(random.Between(0, 30) * kMillisecond);
  }
  ASSERT_EQ(simulation.HangReport(), "");
  script.entryFromD3 = STATUS_SUCCESS;
  Replug();
  host.Remove(id);
  Unload();
  EXPECT_EQ(FirstWrongStep(Log()), "");
  EXPECT_EQ(host.LiveObjects(), 0u);
}

}  // namespace
}  // namespace wdf_test
