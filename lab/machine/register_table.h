// The driver's typed registers as a table: what each is called, where it stands, which fields it has.
#pragma once
#include <cstdint>
#include <string_view>
#include <vector>

namespace lab {

struct FieldRow {
  std::string_view name;
  std::uint32_t (*get)(std::uint32_t word);
};

struct RegisterRow {
  std::string_view name;
  std::uint32_t offset = 0;  // dwords from the start of its block
  std::vector<FieldRow> fields;
};

// What a block of registers belongs to.
enum class RegisterBlockKind {
  RouterSpace,
  RouterTmu,
  PlugEvents,
  LinkController,
  AdapterSpace,
  Lane,
  AdapterTmu,
  Usb4Port,
  PcieAdapter,
  Usb3Adapter,
  DpAdapter,
};

// What the driver keeps as the offset of a capability: 0 before it has looked, all ones when there is none.
inline bool CapabilityFound(std::uint32_t offset) {
  return offset != 0 && offset != 0xFFFFFFFF;
}

const std::vector<RegisterRow>& RegistersOf(RegisterBlockKind kind);

}  // namespace lab
