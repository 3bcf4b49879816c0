// The controller table.
#include "driver/controller.h"

#include <cstddef>

#include "include/trace.h"

namespace {

constexpr std::size_t kComparedCharacters = 21;

struct ControllerRow {
  WCHAR Prefix[kComparedCharacters + 1];
  LONG Index;
};

constexpr ControllerRow kControllers[] = {
    {L"PCI\\VEN_1F3A&DEV_3A0E", 0}, {L"PCI\\VEN_1F3A&DEV_3A48", 0}, {L"PCI\\VEN_1F3A&DEV_3A64", 0},
    {L"PCI\\VEN_1F3A&DEV_3A0F", 1}, {L"PCI\\VEN_1F3A&DEV_3A49", 1}, {L"PCI\\VEN_1F3A&DEV_3A65", 1},
};

// A shorter ID differs at its terminator, so nothing behind it is read.
bool HasPrefix(const WCHAR* hardwareId, const ControllerRow& row) {
  for (std::size_t i = 0; i < kComparedCharacters; ++i) {
    if (hardwareId[i] != row.Prefix[i]) return false;
  }
  return true;
}

}  // namespace

LONG KivUsb4ReturnControllerBasedOnDevId(const WCHAR* hardwareId) {
  for (const ControllerRow& row : kControllers) {
    if (HasPrefix(hardwareId, row)) return row.Index;
  }
  TraceWarning("unknown controller");
  return -1;
}
