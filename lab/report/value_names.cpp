// Statuses have the platform's names, results those of the driver's constants.
#include "lab/report/value_names.h"

#include <fmt/format.h>
#include <ntddk.h>

#include <algorithm>
#include <iterator>

#include "include/status.h"

namespace lab {
namespace {

template <class Number>
struct Name {
  Number number;
  const char* text;
};

#define NAMED(status) \
  { status, #status }
constexpr Name<NTSTATUS> kStatuses[] = {
    NAMED(STATUS_SUCCESS),
    NAMED(STATUS_TIMEOUT),
    NAMED(STATUS_PENDING),
    NAMED(STATUS_OBJECT_NAME_EXISTS),
    NAMED(STATUS_BUFFER_OVERFLOW),
    NAMED(STATUS_NO_MORE_ENTRIES),
    NAMED(STATUS_UNSUCCESSFUL),
    NAMED(STATUS_NOT_IMPLEMENTED),
    NAMED(STATUS_INFO_LENGTH_MISMATCH),
    NAMED(STATUS_INVALID_HANDLE),
    NAMED(STATUS_INVALID_PARAMETER),
    NAMED(STATUS_NO_SUCH_DEVICE),
    NAMED(STATUS_INVALID_DEVICE_REQUEST),
    NAMED(STATUS_NO_MEMORY),
    NAMED(STATUS_ACCESS_DENIED),
    NAMED(STATUS_BUFFER_TOO_SMALL),
    NAMED(STATUS_OBJECT_TYPE_MISMATCH),
    NAMED(STATUS_OBJECT_NAME_INVALID),
    NAMED(STATUS_OBJECT_NAME_NOT_FOUND),
    NAMED(STATUS_OBJECT_NAME_COLLISION),
    NAMED(STATUS_DELETE_PENDING),
    NAMED(STATUS_INSUFFICIENT_RESOURCES),
    NAMED(STATUS_DEVICE_NOT_CONNECTED),
    NAMED(STATUS_MEMORY_NOT_ALLOCATED),
    NAMED(STATUS_DEVICE_NOT_READY),
    NAMED(STATUS_IO_TIMEOUT),
    NAMED(STATUS_NOT_SUPPORTED),
    NAMED(STATUS_CANCELLED),
    NAMED(STATUS_REMOTE_DISCONNECT),
    NAMED(STATUS_INVALID_ADDRESS),
    NAMED(STATUS_DEVICE_CONFIGURATION_ERROR),
    NAMED(STATUS_INVALID_DEVICE_STATE),
    NAMED(STATUS_INVALID_BUFFER_SIZE),
    NAMED(STATUS_NOT_FOUND),
    NAMED(STATUS_DEVICE_REMOVED),
    NAMED(STATUS_POWER_STATE_INVALID),
    NAMED(STATUS_RESOURCE_IN_USE),
};
#undef NAMED

constexpr Name<KIV_RESULT> kResults[] = {
    {kKivFailed, "failed"},
    {kKivNotSent, "not sent"},
    {kKivIoError, "malformed answer or error packet"},
    {kKivBlockTooLong, "block too long"},
    {kKivTryAgain, "try again"},
    {kKivNoMemory, "no memory"},
    {kKivKeepWaiting, "keep waiting"},
    {kKivBusy, "busy"},
    {kKivExists, "exists"},
    {kKivNoDevice, "no device"},
    {kKivInvalid, "invalid"},
    {kKivNotAvailable, "not available"},
    {kKivTooDeep, "too deep"},
    {kKivNotReady, "not ready"},
    {kKivTimedOut, "timed out"},
    {kKivRemoteFailure, "remote failure"},
    {kKivNoAnswer, "no answer"},
    {kKivNotSupported, "not supported"},
    {kKivNoNetDevice, "no network device"},
};

template <class Number, std::size_t Count>
std::string NameOf(const Name<Number> (&names)[Count], std::int64_t number) {
  const auto found =
      std::find_if(std::begin(names), std::end(names), [&](const auto& name) { return name.number == number; });
  return found == std::end(names) ? "" : fmt::format(" ({})", found->text);
}

}  // namespace

std::string StatusText(std::uint32_t status) {
  return fmt::format("0x{:08X}", status) + NameOf(kStatuses, static_cast<std::int32_t>(status));
}

std::string ResultText(std::int64_t result) {
  return fmt::format("{}", result) + NameOf(kResults, result);
}

}  // namespace lab
