// Work items: passive-level routines, each on its own task, so that any number of them may block at the same time.
#include "platform/device/device_node.h"
#include "platform/framework/wdf_device.h"
#include "platform/framework/wdf_object.h"
#include "platform/scheduler/worker.h"

namespace platform {
namespace {

class WorkItem final : public Object {
 public:
  static constexpr ObjectType kType = ObjectType::WorkItem;
  WorkItem(HostKernel& kernel, PFN_WDF_WORKITEM routine, std::string name)
      : Object(kernel, kType), routine_(routine), worker(kernel, std::move(name), [this] { Run(); }) {}

  // Its own callback may delete a work item; then the routine is the last thing that happens on its task.
  void CheckDelete(KernelCall& call) override {
    if (!worker.Busy() || RunsItself(call)) return;
    call.Report(Rule::WorkItemFreedRunning, "the work item is deleted while it is queued or running");
  }
  void Release() override { worker.Stop(); }
  bool RunsItself(KernelCall& call) const { return RunsFor(call.task(), CallbackContext::Kind::WorkItem, this); }

 private:
  void Run() {
    ObjectTable& objects = kernel().objects();
    objects.Reference(*this);
    {
      CallbackContextScope context(CallbackContext::Kind::WorkItem, this);
      CallDriver(kernel(), "EvtWorkItem", [this] { routine_(Handle<WDFWORKITEM>()); });
    }
    objects.Dereference(*this);
  }

  const PFN_WDF_WORKITEM routine_;

 public:
  Worker worker;
};

// A power callback that flushes work which waits for D0 waits for itself.
void CheckFlushForD0(KernelCall& call, const WorkItem& item) {
  const auto* context = static_cast<const CallbackContext*>(call.task().callbackContext);
  if (context == nullptr || context->kind != CallbackContext::Kind::Power) return;
  const auto* node = static_cast<const DeviceNode*>(context->subject);
  if (node->policy.WaitsForD0(item.worker.task())) {
    ReportAndStop(call, Rule::PowerReferenceDeadlock, "a power callback flushes work that waits for D0");
  }
}

}  // namespace
}  // namespace platform

using namespace platform;

NTSTATUS WdfWorkItemCreate(PWDF_WORKITEM_CONFIG Config, PWDF_OBJECT_ATTRIBUTES Attributes, WDFWORKITEM* WorkItem) {
  KernelCall call("WdfWorkItemCreate", DISPATCH_LEVEL);
  RequireArgument(call, Config->Size == sizeof(WDF_WORKITEM_CONFIG) && Config->EvtWorkItemFunc,
                  "WDF_WORKITEM_CONFIG.Size or EvtWorkItemFunc");
  const ObjectOptions options = ReadAttributes(call, Attributes, nullptr);
  RequireArgument(call, options.parent != nullptr, "a work item needs a parent object");
  // Nothing but work items and passive queue handlers would be serialised with it, and devices here ask for no scope.
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  const std::string name = "work item " + std::to_string(call.kernel().objects().NextWorkItem());
  auto object = std::make_unique<platform::WorkItem>(call.kernel(), Config->EvtWorkItemFunc, name);
  *WorkItem = call.kernel().objects().Add(std::move(object), options).Handle<WDFWORKITEM>();
  return STATUS_SUCCESS;
}

VOID WdfWorkItemEnqueue(WDFWORKITEM WorkItem) {
  KernelCall call("WdfWorkItemEnqueue", DISPATCH_LEVEL);
  Resolve<platform::WorkItem>(call, WorkItem).worker.Queue();
  call.EffectVisible();
}

VOID WdfWorkItemFlush(WDFWORKITEM WorkItem) {
  KernelCall call("WdfWorkItemFlush", PASSIVE_LEVEL);
  platform::WorkItem& item = Resolve<platform::WorkItem>(call, WorkItem);
  if (item.RunsItself(call)) {
    call.Report(Rule::WorkItemSelfFlush, "a work item's own callback flushes it");
    return;
  }
  CheckFlushForD0(call, item);
  item.worker.WaitIdle(call.scheduler(), "a work item's end");
}

WDFOBJECT WdfWorkItemGetParentObject(WDFWORKITEM WorkItem) {
  KernelCall call("WdfWorkItemGetParentObject", DISPATCH_LEVEL);
  return Resolve<platform::WorkItem>(call, WorkItem).parent()->Handle<WDFOBJECT>();
}
