// Tracing: one event per thing worth telling, written to the platform's tracing facility. Runs at any IRQL.
//
// An event carries no formatted text. Its user data is, packed and little-endian:
//   operation   text, NUL-terminated: the function that speaks
//   what        text, NUL-terminated: what happened
//   line        32 bits
//   count       8 bits, then that many fields:
//     key       text, NUL-terminated
//     kind      8 bits: 1 unsigned, 2 signed, 3 text
//     value     64 bits for kinds 1 and 2; text, NUL-terminated, for kind 3
// The event's level is 2 (error), 3 (warning) or 4 (information); its opcode is 0, or says that a step begins or ends;
// id and keyword are 0. Sinks format.
//
// Use: TraceError("header size differs", "expected", expectedSize, "found", foundSize);
// Values are integers, enumerators, booleans and NUL-terminated narrow texts. Addresses are refused: they tell a reader
// nothing and make two equal runs look different.
#pragma once
#include <ntddk.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

inline constexpr UCHAR kTraceLevelError = 2;
inline constexpr UCHAR kTraceLevelWarning = 3;
inline constexpr UCHAR kTraceLevelInfo = 4;

// As the platform's tracing facility numbers them.
inline constexpr UCHAR kTraceOpcodeNone = 0;
inline constexpr UCHAR kTraceOpcodeStart = 1;
inline constexpr UCHAR kTraceOpcodeStop = 2;

struct TraceSite {
  const char* Operation;
  const char* What;
  std::uint32_t Line;
  UCHAR Level;
  UCHAR Opcode;
};

struct TraceField {
  const char* Key;
  const char* Text;
  std::uint64_t Number;
  std::uint8_t Kind;
};

// Whether anybody listens at this level. Cheap; asked before a field is built.
bool TraceIsEnabled(UCHAR level);
void TraceEmit(const TraceSite& site, const TraceField* fields, std::size_t count);

namespace trace_detail {

inline constexpr std::size_t kMostFields = 8;

template <class Value>
TraceField MakeField(const char* key, const Value& value) {
  if constexpr (std::is_convertible_v<const Value&, const char*>) {
    return {key, value, 0, 3};
  } else if constexpr (std::is_enum_v<Value>) {
    return MakeField(key, static_cast<std::underlying_type_t<Value>>(value));
  } else {
    static_assert(std::is_integral_v<Value>, "a trace field is a number or a text, never an address");
    if constexpr (std::is_signed_v<Value>) {
      return {key, nullptr, static_cast<std::uint64_t>(static_cast<std::int64_t>(value)), 2};
    } else {
      return {key, nullptr, static_cast<std::uint64_t>(value), 1};
    }
  }
}

inline void Fill(TraceField*) {}

template <class Value, class... Rest>
void Fill(TraceField* field, const char* key, const Value& value, const Rest&... rest) {
  *field = MakeField(key, value);
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

#define TRACE_SITE(what, level, opcode)                                 \
  TraceSite {                                                           \
    __func__, what, static_cast<std::uint32_t>(__LINE__), level, opcode \
  }
#define TRACE_EVENT_AT(level, what, ...) \
  TraceEvent(TRACE_SITE(what, level, kTraceOpcodeNone) __VA_OPT__(, ) __VA_ARGS__)
#define TraceInfo(what, ...) TRACE_EVENT_AT(kTraceLevelInfo, what __VA_OPT__(, ) __VA_ARGS__)
#define TraceWarning(what, ...) TRACE_EVENT_AT(kTraceLevelWarning, what __VA_OPT__(, ) __VA_ARGS__)
#define TraceError(what, ...) TRACE_EVENT_AT(kTraceLevelError, what __VA_OPT__(, ) __VA_ARGS__)
// From here to the end of the scope; one in a scope.
#define TraceStep(what, ...) \
  const TracedStep tracedStep(TRACE_SITE(what, kTraceLevelInfo, kTraceOpcodeStart) __VA_OPT__(, ) __VA_ARGS__)
