// Framework objects: handles with generations, parents, reference counts, typed contexts, cleanup and destroy
// callbacks.
//
// A handle is a number, never an address: the table finds the object behind it or reports the handle as stale or of the
// wrong type. For the platform's own files; on tasks of the host unless said otherwise.
#pragma once
#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <ntddk.h>
#include <wdf.h>

#include "platform/host/host_kernel.h"
#include "platform/scheduler/scheduler.h"

namespace platform {

enum class ObjectType : std::uint8_t {
  Driver,
  Device,
  Queue,
  Request,
  Interrupt,
  DmaEnabler,
  CommonBuffer,
  WorkItem,
  IoTarget,
  Key,
  ResourceList,
  Count
};
const char* TypeName(ObjectType type);  // "WDFDRIVER", ...

class Object;

// What a driver asks of a new object, checked.
struct ObjectOptions {
  Object* parent = nullptr;
  PFN_WDF_OBJECT_CONTEXT_CLEANUP cleanup = nullptr;
  PFN_WDF_OBJECT_CONTEXT_DESTROY destroy = nullptr;
  PCWDF_OBJECT_CONTEXT_TYPE_INFO contextType = nullptr;
};

class Object {
 public:
  Object(HostKernel& kernel, ObjectType type) : kernel_(kernel), type_(type) {}
  virtual ~Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  HostKernel& kernel() const { return kernel_; }
  ObjectType type() const { return type_; }
  Object* parent() const { return parent_; }
  bool Deleted() const { return deleted_; }
  template <class H>
  H Handle() const {
    return static_cast<H>(handle_);
  }

  // Before anything of the object's deletion is done: reports what the driver must not do. `call` is the deleting one.
  virtual void CheckDelete(KernelCall&) {}
  // After the cleanup callback: stops what the object does and unties it from others.
  virtual void Release() {}
  // At the last reference: gives back the memory that the driver could still reach until now.
  virtual void Destroyed() {}

 private:
  friend class ObjectTable;
  HostKernel& kernel_;
  ObjectType type_;
  bool deleted_ = false;
  std::uint32_t references_ = 1;
  void* handle_ = nullptr;
  Object* parent_ = nullptr;
  Object* firstChild_ = nullptr;  // newest first
  Object* nextSibling_ = nullptr;
  Object* previousSibling_ = nullptr;
  ObjectOptions options_;
  void* context_ = nullptr;  // from the host's pool, so that it is checked like the driver's own memory
};

class ObjectTable {
 public:
  explicit ObjectTable(HostKernel& kernel);
  ~ObjectTable();  // frees what is left without calling the driver

  // Gives the object its handle, its parent and its zeroed context.
  template <class T>
  T& Add(std::unique_ptr<T> object, const ObjectOptions& options) {
    T& added = *object;
    Insert(std::move(object), options);
    return added;
  }
  // The object behind the handle; reports stale handles and does not return then.
  Object& Find(KernelCall& call, const void* handle);
  // The same for an object that is deleted but still referenced.
  Object& FindEvenDeleted(KernelCall& call, const void* handle);
  // The handle is of a request that is completed.
  bool WasRequest(const void* handle) const;
  // Deletes children first, calls cleanup, drops the creator's reference.
  void Delete(KernelCall& call, Object& object);
  void Reference(Object& object) { ++object.references_; }
  void Dereference(Object& object);

  static void* Context(Object& object, PCWDF_OBJECT_CONTEXT_TYPE_INFO type);
  static const PCWDF_OBJECT_CONTEXT_TYPE_INFO& ContextType(const Object& object) { return object.options_.contextType; }

  std::size_t live() const { return liveTotal_; }
  std::size_t live(ObjectType type) const { return live_[static_cast<std::size_t>(type)]; }
  unsigned NextWorkItem() { return ++workItems_; }  // numbers that name tasks, in order of creation

 private:
  struct Slot {
    std::unique_ptr<Object> object;
    std::uint32_t generation = 1;
  };
  void Insert(std::unique_ptr<Object> object, const ObjectOptions& options);
  static void Link(Object& child, Object* parent);
  static void Unlink(Object& child);
  Object* Lookup(const void* handle) const;
  [[noreturn]] void ReportStale(KernelCall& call, const void* handle);

  HostKernel& kernel_;
  std::uint64_t kernelTag_;
  std::vector<Slot> slots_;
  std::vector<std::uint32_t> free_;
  std::size_t liveTotal_ = 0;
  unsigned workItems_ = 0;
  std::array<std::size_t, static_cast<std::size_t>(ObjectType::Count)> live_{};
};

// The object of type T behind the handle.
[[noreturn]] void ReportWrongType(KernelCall& call, const Object& object, ObjectType wanted);
template <class T>
T& Resolve(KernelCall& call, const void* handle) {
  Object& object = call.kernel().objects().Find(call, handle);
  if (object.type() != T::kType) ReportWrongType(call, object, T::kType);
  return static_cast<T&>(object);
}

// Reads and checks the attributes; null attributes are the defaults. Execution level and synchronisation scope that
// would ask for anything but what every object of this layer does are reported as not modelled.
ObjectOptions ReadAttributes(KernelCall& call, PWDF_OBJECT_ATTRIBUTES attributes, Object* defaultParent);

// Reports a violation that leaves nothing sensible to go on with.
[[noreturn]] void ReportAndStop(KernelCall& call, Rule rule, std::string detail);
// Stops the run when the driver asks for something that this layer does not model.
void RequireModelled(KernelCall& call, bool modelled, const char* what);
// Reports an argument that the published description forbids.
void RequireArgument(KernelCall& call, bool valid, const char* what);

// Calls the driver: checks what a callback must leave as it found it, and tells the sinks.
void EmitCallback(HostKernel& kernel, const char* name, bool ends);
template <class F>
auto CallDriver(HostKernel& kernel, const char* name, F&& body) {
  struct Edge {
    HostKernel& kernel;
    const char* name;
    ~Edge() { EmitCallback(kernel, name, true); }
  } edge{kernel, name};
  EmitCallback(kernel, name, false);
  return InvokeCallback(name, body);
}

// What the running task does for the framework just now; null outside of the driver's callbacks.
struct CallbackContext {
  enum class Kind { Power, WorkItem } kind;
  const void* subject;  // the device node or the work item
};
class CallbackContextScope {
 public:
  CallbackContextScope(CallbackContext::Kind kind, const void* subject)
      : context_{kind, subject}, outer_(Scheduler::Current()->callbackContext) {
    Scheduler::Current()->callbackContext = &context_;
  }
  ~CallbackContextScope() { Scheduler::Current()->callbackContext = outer_; }
  CallbackContextScope(const CallbackContextScope&) = delete;
  CallbackContextScope& operator=(const CallbackContextScope&) = delete;

 private:
  CallbackContext context_;
  void* outer_;
};
inline bool RunsFor(const Task& task, CallbackContext::Kind kind, const void* subject) {
  const auto* context = static_cast<const CallbackContext*>(task.callbackContext);
  return context != nullptr && context->kind == kind && context->subject == subject;
}

}  // namespace platform
