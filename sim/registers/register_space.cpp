// One configuration space.
#include "sim/registers/register_space.h"

#include <cassert>
#include <utility>

namespace sim {

void ConfigSpace::Define(unsigned offset, std::uint32_t resetValue, const RegisterRules& rules) {
  if (offset >= registers_.size()) registers_.resize(offset + 1);
  registers_[offset] = {resetValue, resetValue, rules, true};
}

void ConfigSpace::Set(unsigned offset, std::uint32_t value) {
  assert(Defined(offset));
  registers_[offset].value = value;
}

void ConfigSpace::SetBits(unsigned offset, std::uint32_t mask, std::uint32_t value) {
  Set(offset, (Get(offset) & ~mask) | (value & mask));
}

void ConfigSpace::SetResetValue(unsigned offset, std::uint32_t value) {
  assert(Defined(offset));
  registers_[offset].resetValue = registers_[offset].value = value;
}

void ConfigSpace::Reset() {
  ResetRange(0, size());
}

void ConfigSpace::ResetRange(unsigned offset, unsigned count) {
  for (unsigned i = offset; i < offset + count && i < size(); ++i) registers_[i].value = registers_[i].resetValue;
}

bool ConfigSpace::Read(unsigned offset, unsigned length, std::vector<std::uint32_t>& data) {
  if (length == 0 || offset + length > size()) return false;
  for (unsigned at = offset; at < offset + length; ++at) {
    auto hook = readHooks_.find(at);
    data.push_back(hook == readHooks_.end() ? Get(at) : hook->second(Get(at)));
    if (Defined(at)) registers_[at].value &= ~registers_[at].rules.Mask(BitKind::ReadClear);
  }
  return true;
}

void ConfigSpace::Judge(unsigned offset, std::uint32_t written, const StoreResult& stored,
                        const Complain& complain) const {
  for (const auto& [rule, bits] :
       {std::pair(Complaint::ReadOnlyBits, stored.readOnly), std::pair(Complaint::PreservedBits, stored.preserved),
        std::pair(Complaint::ReservedBits, stored.reserved)}) {
    if (bits != 0) complain(rule, {.value = written, .bits = bits, .space = space_, .dword = offset});
  }
}

bool ConfigSpace::Write(unsigned offset, std::span<const std::uint32_t> data, const Complain& complain) {
  const auto length = static_cast<unsigned>(data.size());
  if (length == 0 || offset + length > size()) return false;
  for (unsigned i = 0; i < length; ++i) {
    if (!Defined(offset + i)) return false;
  }

  // All dwords are stored before the first one acts: a router sees a whole packet, not half of one.
  std::vector<Access> accesses;
  for (unsigned i = 0; i < length; ++i) {
    Register& reg = registers_[offset + i];
    const std::uint32_t old = reg.value;
    const StoreResult stored = Store(reg.rules, old, data[i]);
    Judge(offset + i, data[i], stored, complain);
    reg.value = stored.value;
    accesses.push_back({old, data[i], stored.value, stored.started});
  }
  for (unsigned i = 0; i < length; ++i) {
    auto hook = writeHooks_.find(offset + i);
    if (hook != writeHooks_.end()) hook->second(accesses[i]);
  }
  return true;
}

}  // namespace sim
