// One configuration space: numbered dwords with rules, values after reset, and what happens on access.
#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <vector>

#include "sim/host/complaints.h"
#include "sim/registers/register_rules.h"

namespace sim {

class ConfigSpace {
 public:
  // A driver's write of one dword, after it has been stored. `now` is what the register holds.
  struct Access {
    std::uint32_t old;
    std::uint32_t written;
    std::uint32_t now;
    std::uint32_t started;  // self-clearing bits written 1
  };
  using WriteHook = std::function<void(const Access&)>;
  using ReadHook = std::function<std::uint32_t(std::uint32_t stored)>;

  explicit ConfigSpace(Space space) : space_(space) {}

  void Define(unsigned offset, std::uint32_t resetValue, const RegisterRules& rules = kAllReadOnly);
  void OnWrite(unsigned offset, WriteHook hook) { writeHooks_[offset] = std::move(hook); }
  void OnRead(unsigned offset, ReadHook hook) { readHooks_[offset] = std::move(hook); }

  bool Defined(unsigned offset) const { return offset < registers_.size() && registers_[offset].defined; }
  unsigned size() const { return static_cast<unsigned>(registers_.size()); }

  // The hardware's own access: no rules, no hooks. Reading a hole gives 0; setting one is a mistake of the model.
  std::uint32_t Get(unsigned offset) const { return Defined(offset) ? registers_[offset].value : 0; }
  void Set(unsigned offset, std::uint32_t value);
  // Replaces the bits of `mask`.
  void SetBits(unsigned offset, std::uint32_t mask, std::uint32_t value);
  void SetResetValue(unsigned offset, std::uint32_t value);
  void Reset();                                      // every register to its value after reset
  void ResetRange(unsigned offset, unsigned count);  // only those

  // The driver's access. Reading a hole between registers gives 0; reading past the last register fails.
  bool Read(unsigned offset, unsigned length, std::vector<std::uint32_t>& data);
  // Fails without storing anything when one of the dwords does not exist. Tells `complain` what is wrong with each
  // dword.
  bool Write(unsigned offset, std::span<const std::uint32_t> data, const Complain& complain);

 private:
  struct Register {
    std::uint32_t value = 0;
    std::uint32_t resetValue = 0;
    RegisterRules rules;
    bool defined = false;
  };

  void Judge(unsigned offset, std::uint32_t written, const StoreResult& stored, const Complain& complain) const;

  Space space_;
  std::vector<Register> registers_;
  std::map<unsigned, WriteHook> writeHooks_;
  std::map<unsigned, ReadHook> readHooks_;
};

}  // namespace sim
