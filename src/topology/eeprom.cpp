// Clocking bytes out of the EEPROM.
#include "topology/eeprom.h"

#include "topology/router_access.h"

namespace {

constexpr std::uint8_t kReadCommand = 0x03;
constexpr std::uint32_t kMostOffset = 0x10000;
constexpr std::uint32_t kBitsPerByte = 8;

KIV_RESULT ReadEepromControl(const USB4_SWITCH* router, EepromControl::Value& control) {
  return ReadRegister<EepromControl>(router, router->PlugEventsCapability, control);
}

KIV_RESULT WriteEepromControl(const USB4_SWITCH* router, EepromControl::Value control) {
  return WriteRegister<EepromControl>(router, router->PlugEventsCapability, control);
}

}  // namespace

KIV_RESULT KivUsb4EepromGetDromOffset(const USB4_SWITCH* router, std::uint32_t& offset) {
  if (router->PlugEventsCapability == 0) return kKivFailed;
  std::uint32_t words[PlugEventsBlock::kCount] = {};
  const KIV_RESULT result = ReadArray<PlugEventsBlock>(router, router->PlugEventsCapability, words);
  if (result != kKivOk) return result;
  const EepromControl::Value control(words[EepromControl::kOffset]);
  const std::uint32_t found = words[kPlugEventsDromOffset];
  if (!control.IsSet<EepromControl::Present>() || control.IsSet<EepromControl::Absent>()) return kKivFailed;
  if (found >= kMostOffset) return kKivFailed;
  offset = found;
  return kKivOk;
}

KIV_RESULT KivUsb4EepromActive(const USB4_SWITCH* router, bool active) {
  EepromControl::Value control;
  KIV_RESULT result = ReadEepromControl(router, control);
  if (result != kKivOk) return result;
  if (active) {
    control.Set<EepromControl::BitBangEnable>(1);
    result = WriteEepromControl(router, control);
    if (result != kKivOk) return result;
    control.Set<EepromControl::Deselect>(0);
  } else {
    control.Set<EepromControl::Deselect>(1);
    result = WriteEepromControl(router, control);
    if (result != kKivOk) return result;
    control.Set<EepromControl::BitBangEnable>(0);
  }
  return WriteEepromControl(router, control);
}

KIV_RESULT KivUsb4EepromTransfer(const USB4_SWITCH* router, EepromControl::Value& control, EepromDirection direction) {
  KIV_RESULT result = kKivOk;
  if (direction == EepromDirection::kOut) result = WriteEepromControl(router, control);
  if (result != kKivOk) return result;
  control.Set<EepromControl::Clock>(1);
  result = WriteEepromControl(router, control);
  if (result == kKivOk && direction == EepromDirection::kIn) result = ReadEepromControl(router, control);
  if (result != kKivOk) return result;
  control.Set<EepromControl::Clock>(0);
  return WriteEepromControl(router, control);
}

KIV_RESULT KivUsb4EepromOut(const USB4_SWITCH* router, std::uint8_t byte) {
  EepromControl::Value control;
  KIV_RESULT result = ReadEepromControl(router, control);
  for (std::uint32_t bit = kBitsPerByte; bit > 0 && result == kKivOk; --bit) {
    control.Set<EepromControl::DataOut>(byte >> (bit - 1) & 1u);
    result = KivUsb4EepromTransfer(router, control, EepromDirection::kOut);
  }
  return result;
}

KIV_RESULT KivUsb4EepromIn(const USB4_SWITCH* router, std::uint8_t& byte) {
  EepromControl::Value control;
  KIV_RESULT result = ReadEepromControl(router, control);
  std::uint32_t collected = 0;
  for (std::uint32_t bit = 0; bit < kBitsPerByte && result == kKivOk; ++bit) {
    result = KivUsb4EepromTransfer(router, control, EepromDirection::kIn);
    collected = collected << 1 | control.Get<EepromControl::DataIn>();
  }
  byte = static_cast<std::uint8_t>(collected);
  return result;
}

KIV_RESULT KivUsb4EepromReadN(const USB4_SWITCH* router, std::uint16_t offset, std::uint8_t* buffer,
                              std::uint32_t length) {
  std::uint32_t dromOffset = 0;
  KIV_RESULT result = KivUsb4EepromGetDromOffset(router, dromOffset);
  if (result != kKivOk) return result;
  const std::uint16_t address = static_cast<std::uint16_t>(offset + dromOffset);
  result = KivUsb4EepromActive(router, true);
  if (result == kKivOk) result = KivUsb4EepromOut(router, kReadCommand);
  if (result == kKivOk) result = KivUsb4EepromOut(router, static_cast<std::uint8_t>(address >> 8));
  if (result == kKivOk) result = KivUsb4EepromOut(router, static_cast<std::uint8_t>(address));
  for (std::uint32_t i = 0; i < length && result == kKivOk; ++i) result = KivUsb4EepromIn(router, buffer[i]);
  if (result != kKivOk) return result;
  return KivUsb4EepromActive(router, false);
}
