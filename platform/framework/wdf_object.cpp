#include "platform/framework/wdf_object.h"

#include "platform/framework/wdf_io_target.h"
#include "platform/memory/kernel_pool.h"

namespace platform {

namespace {

// Where a handle keeps its parts. The top byte makes it an address that no machine can reach, so that a driver that
// dereferences a handle stops there and then.
constexpr std::uint64_t kHandleMark = 0x5D;
constexpr unsigned kMarkShift = 56, kKernelShift = 48, kTypeShift = 44, kGenerationShift = 20;
constexpr std::uint64_t kSlotMask = 0xFFFFF;
constexpr std::uint32_t kGenerationMask = 0xFFFFFF;

constexpr const char* kTypeNames[] = {"WDFDRIVER",    "WDFDEVICE",     "WDFQUEUE",        "WDFREQUEST",
                                      "WDFINTERRUPT", "WDFDMAENABLER", "WDFCOMMONBUFFER", "WDFWORKITEM",
                                      "WDFIOTARGET",  "WDFKEY",        "WDFCMRESLIST"};
static_assert(std::size(kTypeNames) == static_cast<std::size_t>(ObjectType::Count));

std::uint64_t Number(const void* handle) {
  return reinterpret_cast<std::uint64_t>(handle);
}
ObjectType TypeOf(const void* handle) {
  return static_cast<ObjectType>((Number(handle) >> kTypeShift) & 0xF);
}

}  // namespace

const char* TypeName(ObjectType type) {
  return type < ObjectType::Count ? kTypeNames[static_cast<std::size_t>(type)] : "no framework object";
}

ObjectTable::ObjectTable(HostKernel& kernel)
    : kernel_(kernel),
      kernelTag_(kHandleMark << kMarkShift | (HashText(kernel.options().name) & 0xFF) << kKernelShift) {}

ObjectTable::~ObjectTable() = default;

void ObjectTable::Insert(std::unique_ptr<Object> object, const ObjectOptions& options) {
  std::uint32_t index;
  if (free_.empty()) {
    index = static_cast<std::uint32_t>(slots_.size());
    if (index > kSlotMask) {
      kernel_.simulation().Report(Rule::NotModelled, "more framework objects than handles can name");
    }
    slots_.emplace_back();
  } else {
    index = free_.back();
    free_.pop_back();
  }
  Object& added = *object;
  Slot& slot = slots_[index];
  added.handle_ = reinterpret_cast<void*>(kernelTag_ | static_cast<std::uint64_t>(added.type_) << kTypeShift |
                                          static_cast<std::uint64_t>(slot.generation) << kGenerationShift | index);
  slot.object = std::move(object);
  added.options_ = options;
  if (options.contextType) added.context_ = kernel_.pool().AllocateInternal(options.contextType->ContextSize);
  Link(added, options.parent);
  ++liveTotal_;
  ++live_[static_cast<std::size_t>(added.type_)];
}

void ObjectTable::Link(Object& child, Object* parent) {
  child.parent_ = parent;
  if (parent == nullptr) return;
  ++parent->references_;  // a parent outlives its children
  child.nextSibling_ = parent->firstChild_;
  if (child.nextSibling_) child.nextSibling_->previousSibling_ = &child;
  parent->firstChild_ = &child;
}

void ObjectTable::Unlink(Object& child) {
  if (child.parent_ == nullptr) return;
  (child.previousSibling_ ? child.previousSibling_->nextSibling_ : child.parent_->firstChild_) = child.nextSibling_;
  if (child.nextSibling_) child.nextSibling_->previousSibling_ = child.previousSibling_;
  child.nextSibling_ = child.previousSibling_ = nullptr;
}

Object* ObjectTable::Lookup(const void* handle) const {
  const std::uint64_t number = Number(handle);
  constexpr std::uint64_t kTagMask = ~std::uint64_t{0} << kKernelShift;
  if ((number & kTagMask) != kernelTag_ || (number & kSlotMask) >= slots_.size()) return nullptr;
  const Slot& slot = slots_[number & kSlotMask];
  if (((number >> kGenerationShift) & kGenerationMask) != slot.generation) return nullptr;
  return slot.object.get();
}

void ObjectTable::ReportStale(KernelCall& call, const void* handle) {
  if (handle == nullptr) ReportAndStop(call, Rule::HandleWrongType, "the handle is null");
  if (Number(handle) >> kMarkShift != kHandleMark) ReportAndStop(call, Rule::HandleWrongType, "this is no handle");
  const ObjectType type = TypeOf(handle);
  const bool request = type == ObjectType::Request;
  ReportAndStop(call, request ? Rule::RequestAfterCompletion : Rule::HandleStale,
                std::string("this ") + TypeName(type) + (request ? " is completed" : " is deleted"));
}

Object& ObjectTable::FindEvenDeleted(KernelCall& call, const void* handle) {
  Object* object = Lookup(handle);
  if (object == nullptr) ReportStale(call, handle);
  return *object;
}

bool ObjectTable::WasRequest(const void* handle) const {
  const Object* object = Lookup(handle);
  return Number(handle) >> kMarkShift == kHandleMark && TypeOf(handle) == ObjectType::Request &&
         (object == nullptr || object->deleted_);
}

Object& ObjectTable::Find(KernelCall& call, const void* handle) {
  Object& object = FindEvenDeleted(call, handle);
  if (object.deleted_) ReportStale(call, handle);
  return object;
}

void ObjectTable::Delete(KernelCall& call, Object& object) {
  if (object.deleted_) return;  // deleted by its parent while its own deletion waits
  object.CheckDelete(call);
  object.deleted_ = true;
  while (object.firstChild_) Delete(call, *object.firstChild_);
  if (object.options_.cleanup) {
    CallDriver(kernel_, "EvtCleanupCallback", [&] { object.options_.cleanup(object.handle_); });
  }
  object.Release();
  Unlink(object);
  Dereference(object);
}

void ObjectTable::Dereference(Object& object) {
  if (--object.references_ != 0) return;
  if (object.options_.destroy) {
    CallDriver(kernel_, "EvtDestroyCallback", [&] { object.options_.destroy(object.handle_); });
  }
  object.Destroyed();
  if (object.context_) kernel_.pool().FreeInternal(object.context_);
  Object* parent = object.parent_;
  const auto index = static_cast<std::uint32_t>(Number(object.handle_) & kSlotMask);
  --liveTotal_;
  --live_[static_cast<std::size_t>(object.type_)];
  Slot& slot = slots_[index];
  slot.generation = static_cast<std::uint32_t>(slot.generation % kGenerationMask + 1);
  slot.object.reset();
  free_.push_back(index);
  if (parent) Dereference(*parent);
}

void* ObjectTable::Context(Object& object, PCWDF_OBJECT_CONTEXT_TYPE_INFO type) {
  const PCWDF_OBJECT_CONTEXT_TYPE_INFO own = object.options_.contextType;
  return own != nullptr && own->UniqueType == type->UniqueType ? object.context_ : nullptr;
}

void ReportWrongType(KernelCall& call, const Object& object, ObjectType wanted) {
  ReportAndStop(call, Rule::HandleWrongType,
                std::string("a ") + TypeName(object.type()) + " was given for a " + TypeName(wanted));
}

void ReportAndStop(KernelCall& call, Rule rule, std::string detail) {
  call.Report(rule, std::move(detail));
  call.scheduler().Abandon();  // only when a waiver covers the report: there is nothing to go on with
}

void RequireModelled(KernelCall& call, bool modelled, const char* what) {
  if (!modelled) call.Report(Rule::NotModelled, what);
}

void RequireArgument(KernelCall& call, bool valid, const char* what) {
  if (!valid) call.Report(Rule::InvalidArgument, what);
}

ObjectOptions ReadAttributes(KernelCall& call, PWDF_OBJECT_ATTRIBUTES attributes, Object* defaultParent) {
  ObjectOptions options;
  options.parent = defaultParent;
  if (attributes == nullptr) return options;
  RequireArgument(call, attributes->Size == sizeof(WDF_OBJECT_ATTRIBUTES), "WDF_OBJECT_ATTRIBUTES.Size");
  RequireModelled(call, attributes->ExecutionLevel != WdfExecutionLevelInvalid, "ExecutionLevel");
  RequireModelled(call,
                  attributes->SynchronizationScope == WdfSynchronizationScopeInheritFromParent ||
                      attributes->SynchronizationScope == WdfSynchronizationScopeNone,
                  "a SynchronizationScope that serialises callbacks");
  RequireModelled(call, attributes->ContextSizeOverride == 0, "ContextSizeOverride");
  if (attributes->ParentObject) options.parent = &call.kernel().objects().Find(call, attributes->ParentObject);
  options.cleanup = attributes->EvtCleanupCallback;
  options.destroy = attributes->EvtDestroyCallback;
  options.contextType = attributes->ContextTypeInfo;
  if (options.contextType) {
    RequireArgument(call, options.contextType->Size == sizeof(WDF_OBJECT_CONTEXT_TYPE_INFO), "context type's Size");
  }
  return options;
}

void EmitCallback(HostKernel& kernel, const char* name, bool ends) {
  Simulation& simulation = kernel.simulation();
  if (!simulation.HasSinks()) return;
  TraceRecord record{};
  record.kind = TraceKind::Callback;
  record.when = simulation.Now();
  record.kernel = &kernel;
  record.task = Scheduler::Current()->name();
  record.taskOrdinal = Scheduler::Current()->ordinal();
  record.name = name;
  record.value = ends ? 1 : 0;
  simulation.Emit(record);
}

}  // namespace platform

using namespace platform;

PVOID WdfObjectGetTypedContextWorker(WDFOBJECT Handle, PCWDF_OBJECT_CONTEXT_TYPE_INFO TypeInfo) {
  KernelCall call("WdfObjectGetTypedContextWorker", HIGH_LEVEL, KernelCall::Silent);
  return ObjectTable::Context(call.kernel().objects().FindEvenDeleted(call, Handle), TypeInfo);
}

VOID WdfObjectDelete(WDFOBJECT Object) {
  KernelCall call("WdfObjectDelete", DISPATCH_LEVEL);
  platform::Object& object = call.kernel().objects().Find(call, Object);
  switch (object.type()) {
    case ObjectType::Driver:
    case ObjectType::Device:
    case ObjectType::ResourceList:
    case ObjectType::Request:
    case ObjectType::Interrupt:
      RequireArgument(call, false, "an object that the framework deletes itself");
      break;
    case ObjectType::IoTarget:
      RequireArgument(call, static_cast<IoTarget&>(object).remote, "a target that the framework deletes itself");
      [[fallthrough]];
    case ObjectType::CommonBuffer:
    case ObjectType::DmaEnabler:
    case ObjectType::Key:
    case ObjectType::WorkItem:
      if (call.task().irql > PASSIVE_LEVEL) {
        call.Report(Rule::IrqlTooHigh, std::string("a ") + TypeName(object.type()) + " is deleted at PASSIVE_LEVEL");
      }
      break;
    default:
      RequireModelled(call, false, "deleting a queue");
      break;
  }
  call.kernel().objects().Delete(call, object);
}

VOID WdfObjectReferenceActual(WDFOBJECT Handle, PVOID, LONG, PCCH) {
  KernelCall call("WdfObjectReferenceActual", HIGH_LEVEL);
  call.kernel().objects().Reference(call.kernel().objects().FindEvenDeleted(call, Handle));
}

VOID WdfObjectDereferenceActual(WDFOBJECT Handle, PVOID, LONG, PCCH) {
  KernelCall call("WdfObjectDereferenceActual", DISPATCH_LEVEL);
  call.kernel().objects().Dereference(call.kernel().objects().FindEvenDeleted(call, Handle));
}
