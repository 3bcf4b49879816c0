// Tracing: one event per thing worth telling, written to the platform's tracing facility. Runs at any IRQL.
//
// An event carries no formatted text. Its user data is, packed and little-endian:
//   operation   text, NUL-terminated: the public operation that speaks
//   what        text, NUL-terminated: what happened
//   line        32 bits
//   count       8 bits, then that many fields:
//     key       text, NUL-terminated
//     kind      8 bits, TraceKind
//     value     see TraceKind
// The event's level is 2 (error), 3 (warning) or 4 (information); its opcode is 0, or says that a step begins or ends;
// id and keyword are 0. Sinks format. Each kind has its like in the platform's self-describing events, TraceKind says
// which.
//
// Use: TraceError("router not added", "route", AsRoute(route), "result", AsResult(result));
// A value without a wrapper is a number, a NUL-terminated narrow text, a bool (as yes or no) or an enumerator (as the
// word that TraceWord has for it). Addresses are refused: they tell a reader nothing and make two equal runs look
// different. A helper that is private to its file names the public operation that it works for:
// TraceErrorBy(NAME_OF(KivUsb4SwitchAlloc), "router is too deep", ...).
#pragma once
#include <ntddk.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "include/status.h"

inline constexpr UCHAR kTraceLevelError = 2;
inline constexpr UCHAR kTraceLevelWarning = 3;
inline constexpr UCHAR kTraceLevelInfo = 4;

// As the platform's tracing facility numbers them.
inline constexpr UCHAR kTraceOpcodeNone = 0;
inline constexpr UCHAR kTraceOpcodeStart = 1;
inline constexpr UCHAR kTraceOpcodeStop = 2;

// Numbers are 64 bits wide, texts NUL-terminated. In brackets: type and format in self-describing events.
enum class TraceKind : std::uint8_t {
  Unsigned = 1,  // [64 bits]
  Signed = 2,    // [64 bits, signed]
  Text = 3,      // [8-bit text]
  Route = 4,     // a number, whose bytes are adapter numbers [64 bits, hexadecimal]
  Adapter = 5,   // a text, the router's name, and 8 bits, the adapter's number [8-bit text; 8 bits]
  Hex = 6,       // a number: a register's word, a mask, an address [64 bits, hexadecimal]
  Status = 7,    // a number: an NTSTATUS, sign-extended [32 bits, status]
  Result = 8,    // a number: a KIV_RESULT, sign-extended [32 bits, signed]
  Word = 9,      // a text: an enumerator [8-bit text]
  Duration = 10  // a number: milliseconds [32 bits]
};

struct TraceSite {
  const char* Operation;
  const char* What;
  std::uint32_t Line;
  UCHAR Level;
  UCHAR Opcode;
};

struct TraceValue {
  TraceKind Kind;
  std::uint64_t Number;
  const char* Text;
};

struct TraceField {
  const char* Key;
  TraceValue Value;
};

constexpr TraceValue AsRoute(std::uint64_t route) {
  return {TraceKind::Route, route, nullptr};
}
// A `Port` is an adapter's record.
template <class Port>
constexpr TraceValue AsAdapter(const Port* adapter) {
  return {TraceKind::Adapter, adapter->Number, adapter->Router->Info.Name};
}
constexpr TraceValue AsHex(std::uint64_t word) {
  return {TraceKind::Hex, word, nullptr};
}
constexpr TraceValue AsStatus(NTSTATUS status) {
  return {TraceKind::Status, static_cast<std::uint64_t>(std::int64_t{status}), nullptr};
}
// Also for what an operation returns in place of an error: a state, an adapter's number.
constexpr TraceValue AsResult(KIV_RESULT result) {
  return {TraceKind::Result, static_cast<std::uint64_t>(std::int64_t{result}), nullptr};
}
constexpr TraceValue AsWord(const char* word) {
  return {TraceKind::Word, 0, word};
}
constexpr TraceValue AsMs(std::uint32_t ms) {
  return {TraceKind::Duration, ms, nullptr};
}

// Whether anybody listens at this level. Cheap; asked before a field is built.
bool TraceIsEnabled(UCHAR level);
void TraceEmit(const TraceSite& site, const TraceField* fields, std::size_t count);

namespace trace_detail {

inline constexpr std::size_t kMostFields = 8;

template <class Value>
constexpr TraceValue MakeValue(const Value& value) {
  if constexpr (std::is_same_v<Value, TraceValue>) {
    return value;
  } else if constexpr (std::is_convertible_v<const Value&, const char*>) {
    const char* text = value;
    return {TraceKind::Text, 0, text == nullptr ? "" : text};
  } else if constexpr (std::is_same_v<Value, bool>) {
    return AsWord(value ? "yes" : "no");
  } else if constexpr (std::is_enum_v<Value>) {
    return AsWord(TraceWord(value));
  } else {
    static_assert(std::is_integral_v<Value>, "a trace field is a number or a text, never an address");
    if constexpr (std::is_signed_v<Value>) {
      return {TraceKind::Signed, static_cast<std::uint64_t>(std::int64_t{value}), nullptr};
    } else {
      return {TraceKind::Unsigned, value, nullptr};
    }
  }
}

inline void Fill(TraceField*) {}

template <class Value, class... Rest>
void Fill(TraceField* field, const char* key, const Value& value, const Rest&... rest) {
  *field = {key, MakeValue(value)};
  Fill(field + 1, rest...);
}

}  // namespace trace_detail

// True when somebody heard it.
template <class... Pairs>
bool TraceEvent(const TraceSite& site, const Pairs&... pairs) {
  constexpr std::size_t count = sizeof...(Pairs) / 2;
  static_assert(sizeof...(Pairs) % 2 == 0, "fields are key, value pairs");
  static_assert(count <= trace_detail::kMostFields);
  if (!TraceIsEnabled(site.Level)) return false;
  TraceField fields[count + 1];
  trace_detail::Fill(fields, pairs...);
  TraceEmit(site, fields, count);
  return true;
}

// A piece of work that takes time: tells its beginning, with fields, and its end, without. Steps of one thread nest.
class TracedStep {
 public:
  template <class... Pairs>
  explicit TracedStep(const TraceSite& site, const Pairs&... pairs) : site_(site), told_(TraceEvent(site, pairs...)) {}
  ~TracedStep() {
    if (told_) TellEnd();
  }
  TracedStep(const TracedStep&) = delete;
  TracedStep& operator=(const TracedStep&) = delete;

 private:
  void TellEnd() const;

  TraceSite site_;
  bool told_;
};

// The name of an operation as text; a name that is not declared does not compile.
#define NAME_OF(operation) (static_cast<void>(&operation), #operation)

#define TRACE_SITE(operation, what, level, opcode)                       \
  TraceSite {                                                            \
    operation, what, static_cast<std::uint32_t>(__LINE__), level, opcode \
  }
#define TRACE_EVENT_AT(operation, level, what, ...) \
  TraceEvent(TRACE_SITE(operation, what, level, kTraceOpcodeNone) __VA_OPT__(, ) __VA_ARGS__)
#define TraceInfoBy(operation, what, ...) TRACE_EVENT_AT(operation, kTraceLevelInfo, what __VA_OPT__(, ) __VA_ARGS__)
#define TraceWarningBy(operation, what, ...) \
  TRACE_EVENT_AT(operation, kTraceLevelWarning, what __VA_OPT__(, ) __VA_ARGS__)
#define TraceErrorBy(operation, what, ...) TRACE_EVENT_AT(operation, kTraceLevelError, what __VA_OPT__(, ) __VA_ARGS__)
// From here to the end of the scope; one in a scope.
#define TraceStepBy(operation, what, ...)                                                                    \
  const TracedStep tracedStep(TRACE_SITE(operation, what, kTraceLevelInfo, kTraceOpcodeStart) __VA_OPT__(, ) \
                                  __VA_ARGS__)
// In the public operation itself.
#define TraceInfo(what, ...) TraceInfoBy(__func__, what __VA_OPT__(, ) __VA_ARGS__)
#define TraceWarning(what, ...) TraceWarningBy(__func__, what __VA_OPT__(, ) __VA_ARGS__)
#define TraceError(what, ...) TraceErrorBy(__func__, what __VA_OPT__(, ) __VA_ARGS__)
#define TraceStep(what, ...) TraceStepBy(__func__, what __VA_OPT__(, ) __VA_ARGS__)
