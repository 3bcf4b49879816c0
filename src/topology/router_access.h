// Reading and writing the configuration registers of routers and adapters. PASSIVE_LEVEL: an access waits for its
// answer, at worst 4 x 200 ms.
#pragma once
#include "include/registers.h"
#include "include/router_record.h"

// Registers of the router's control adapter: 0, or -1 when the access failed or the router is marked unplugged (then
// without traffic). The buffer holds range.Length dwords; a read that fails, or that finds no control channel, leaves
// it as it is, so callers hand in zeros.
[[nodiscard]] KIV_RESULT KivUsb4SwRead(const USB4_SWITCH* router, std::uint32_t* buffer,
                                       const USB4_REGISTER_RANGE& range);
[[nodiscard]] KIV_RESULT KivUsb4SwWrite(const USB4_SWITCH* router, const std::uint32_t* words,
                                        const USB4_REGISTER_RANGE& range);
// The same for one adapter's adapter, path or counters space. -1 also for an adapter without a router.
[[nodiscard]] KIV_RESULT KivUsb4PortRead(const USB4_PORT* adapter, std::uint32_t* buffer,
                                         const USB4_REGISTER_RANGE& range);
[[nodiscard]] KIV_RESULT KivUsb4PortWrite(const USB4_PORT* adapter, const std::uint32_t* words,
                                          const USB4_REGISTER_RANGE& range);

namespace register_access {

inline KIV_RESULT Read(const USB4_SWITCH* router, std::uint32_t* buffer, const USB4_REGISTER_RANGE& range) {
  return KivUsb4SwRead(router, buffer, range);
}
inline KIV_RESULT Read(const USB4_PORT* adapter, std::uint32_t* buffer, const USB4_REGISTER_RANGE& range) {
  return KivUsb4PortRead(adapter, buffer, range);
}
inline KIV_RESULT Write(const USB4_SWITCH* router, const std::uint32_t* words, const USB4_REGISTER_RANGE& range) {
  return KivUsb4SwWrite(router, words, range);
}
inline KIV_RESULT Write(const USB4_PORT* adapter, const std::uint32_t* words, const USB4_REGISTER_RANGE& range) {
  return KivUsb4PortWrite(adapter, words, range);
}

// A router's register is reached through the router, any other through its adapter.
template <class R, class Owner>
inline constexpr bool kReachedThrough =
    (R::Block::kSpace == USB4_CFG_SPACE_ROUTER) == std::is_same_v<std::remove_const_t<Owner>, USB4_SWITCH>;

}  // namespace register_access

// One register whose block starts at `base` (0 for the spaces themselves, else the offset of a capability).
template <class R, class Owner>
[[nodiscard]] KIV_RESULT ReadRegister(Owner* owner, std::uint64_t base, typename R::Value& value) {
  static_assert(register_access::kReachedThrough<R, Owner>);
  std::uint32_t word = 0;
  const KIV_RESULT result = register_access::Read(owner, &word, {R::Block::kSpace, base + R::kOffset, 1});
  if (result == kKivOk) value = typename R::Value(word);
  return result;
}

template <class R, class Owner>
[[nodiscard]] KIV_RESULT WriteRegister(Owner* owner, std::uint64_t base, typename R::Value value) {
  static_assert(register_access::kReachedThrough<R, Owner>);
  const std::uint32_t word = value.Word();
  return register_access::Write(owner, &word, {R::Block::kSpace, base + R::kOffset, 1});
}

// Reads the register, lets `change` set fields of it, and writes it back: one read and one write. A failed read is
// returned without a write.
template <class R, class Owner, class Change>
[[nodiscard]] KIV_RESULT ModifyRegister(Owner* owner, std::uint64_t base, Change change) {
  typename R::Value value;
  const KIV_RESULT result = ReadRegister<R>(owner, base, value);
  if (result != kKivOk) return result;
  change(value);
  return WriteRegister<R>(owner, base, value);
}

// `Array` read or written as one block of Array::kCount dwords.
template <class Array, class Owner>
[[nodiscard]] KIV_RESULT ReadArray(Owner* owner, std::uint64_t base, std::uint32_t (&words)[Array::kCount]) {
  static_assert(register_access::kReachedThrough<Array, Owner>);
  return register_access::Read(owner, words, Array::At(base));
}

template <class Array, class Owner>
[[nodiscard]] KIV_RESULT WriteArray(Owner* owner, std::uint64_t base, const std::uint32_t (&words)[Array::kCount]) {
  static_assert(register_access::kReachedThrough<Array, Owner>);
  return register_access::Write(owner, words, Array::At(base));
}
