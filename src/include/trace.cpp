// Writes trace events; the registration handle stands in the driver object's context.
#include "include/trace.h"

#include "include/device_context.h"
#include "include/status.h"

namespace {

REGHANDLE RegistrationHandle() {
  WDFDRIVER driver = WdfGetDriver();
  if (driver == nullptr) return 0;
  const DRIVER_CONTEXT* context = DriverContextOf(driver);
  return context == nullptr ? 0 : context->TraceHandle;
}

EVENT_DESCRIPTOR DescriptorFor(UCHAR level, UCHAR opcode) {
  EVENT_DESCRIPTOR descriptor{};
  descriptor.Level = level;
  descriptor.Opcode = opcode;
  return descriptor;
}

ULONG SizeWithTerminator(const char* text) {
  ULONG size = 1;
  while (text[size - 1] != '\0') ++size;
  return size;
}

// Collects the pieces of one event's user data in order.
class UserData {
 public:
  void Add(const void* data, ULONG size) {
    EVENT_DATA_DESCRIPTOR& piece = pieces_[count_++];
    piece.Ptr = reinterpret_cast<ULONG_PTR>(data);
    piece.Size = size;
    piece.Reserved = 0;
  }
  void AddText(const char* text) {
    const char* present = text == nullptr ? "" : text;
    Add(present, SizeWithTerminator(present));
  }
  EVENT_DATA_DESCRIPTOR* Pieces() { return pieces_; }
  ULONG Count() const { return count_; }

 private:
  EVENT_DATA_DESCRIPTOR pieces_[4 + 4 * trace_detail::kMostFields];
  ULONG count_ = 0;
};

}  // namespace

bool TraceIsEnabled(UCHAR level) {
  const REGHANDLE handle = RegistrationHandle();
  if (handle == 0) return false;
  const EVENT_DESCRIPTOR descriptor = DescriptorFor(level, kTraceOpcodeNone);
  return EtwEventEnabled(handle, &descriptor) != FALSE;
}

void TraceEmit(const TraceSite& site, const TraceField* fields, std::size_t count) {
  const REGHANDLE handle = RegistrationHandle();
  if (handle == 0) return;
  const std::uint8_t fieldCount = static_cast<std::uint8_t>(count);
  UserData data;
  data.AddText(site.Operation);
  data.AddText(site.What);
  data.Add(&site.Line, sizeof site.Line);
  data.Add(&fieldCount, sizeof fieldCount);
  for (std::size_t i = 0; i < count; ++i) {
    data.AddText(fields[i].Key);
    const TraceValue& value = fields[i].Value;
    data.Add(&value.Kind, sizeof value.Kind);
    if (value.Text != nullptr) data.AddText(value.Text);
    if (value.Kind == TraceKind::Adapter) {
      data.Add(&value.Number, sizeof(std::uint8_t));
    } else if (value.Text == nullptr) {
      data.Add(&value.Number, sizeof value.Number);
    }
  }
  const EVENT_DESCRIPTOR descriptor = DescriptorFor(site.Level, site.Opcode);
  // Nothing to do about a lost event: tracing about tracing would only lose more.
  IgnoreResult(EtwWrite(handle, &descriptor, nullptr, data.Count(), data.Pieces()));
}

void TracedStep::TellEnd() const {
  TraceSite end = site_;
  end.Opcode = kTraceOpcodeStop;
  TraceEmit(end, nullptr, 0);
}
