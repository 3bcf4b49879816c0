// What each bit of a register does.
#include "sim/registers/register_rules.h"

namespace sim {

StoreResult Store(const RegisterRules& rules, std::uint32_t old, std::uint32_t written) {
  StoreResult result;
  const std::uint32_t changed = old ^ written;
  result.readOnly = changed & rules.Mask(BitKind::ReadOnly);
  result.preserved = changed & rules.Mask(BitKind::Preserve);
  result.reserved = written & rules.Mask(BitKind::ReservedZero);

  const std::uint32_t stored = rules.Mask(BitKind::ReadWrite);
  result.value = (old & ~stored) | (written & stored);
  result.value &= ~(written & rules.Mask(BitKind::WriteOneToClear));
  result.started = written & rules.Mask(BitKind::SelfClearing);
  return result;
}

}  // namespace sim
