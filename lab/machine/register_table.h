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

const std::vector<RegisterRow>& RegistersOf(RegisterBlockKind kind);

}  // namespace lab
