// What each bit of a register does.
#include "sim/registers/register_rules.h"

#include <cstdio>

namespace sim {
namespace {

void Complain(std::string& complaint, const char* kind, std::uint32_t bits, const std::string& place,
              const char* what) {
  if (bits == 0) return;
  char number[16];
  std::snprintf(number, sizeof number, "0x%08x", bits);
  if (!complaint.empty()) complaint += "; ";
  complaint += std::string(kind) + " bits " + number + " of " + place + " " + what;
}

}  // namespace

StoreResult Store(const RegisterRules& rules, std::uint32_t old, std::uint32_t written, const std::string& place) {
  StoreResult result;
  const std::uint32_t changed = old ^ written;
  Complain(result.complaint, "read-only", changed & rules.Mask(BitKind::ReadOnly), place, "changed");
  Complain(result.complaint, "preserved", changed & rules.Mask(BitKind::Preserve), place, "changed");
  Complain(result.complaint, "reserved", written & rules.Mask(BitKind::ReservedZero), place, "written");

  const std::uint32_t stored = rules.Mask(BitKind::ReadWrite);
  result.value = (old & ~stored) | (written & stored);
  result.value &= ~(written & rules.Mask(BitKind::WriteOneToClear));
  result.started = written & rules.Mask(BitKind::SelfClearing);
  return result;
}

}  // namespace sim
