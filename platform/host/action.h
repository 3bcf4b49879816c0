// What an event does: a callable that stays where it is. Up to kRoom bytes of captures cost no allocation.
#pragma once
#include <cstddef>
#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>

namespace platform {

class Action {
 public:
  static constexpr std::size_t kRoom = 96;

  Action() = default;
  template <class F>
  requires(!std::is_same_v<std::decay_t<F>, Action>)
      // NOLINTNEXTLINE(google-explicit-constructor): a lambda is an action.
      Action(F&& callable) {
    using T = std::decay_t<F>;
    if constexpr (sizeof(T) <= kRoom && alignof(T) <= alignof(std::max_align_t) &&
                  std::is_nothrow_move_constructible_v<T>) {
      ::new (static_cast<void*>(room_)) T(std::forward<F>(callable));
      call_ = [](void* room) { (*static_cast<T*>(room))(); };
      if constexpr (!std::is_trivially_copyable_v<T>) {
        move_ = [](void* room, void* to) {
          T* from = static_cast<T*>(room);
          if (to != nullptr) ::new (to) T(std::move(*from));
          from->~T();
        };
      }
    } else {
      auto kept = std::make_unique<T>(std::forward<F>(callable));
      *this = Action([kept = std::move(kept)] { (*kept)(); });
    }
  }
  Action(Action&& other) noexcept { Take(other); }
  Action& operator=(Action&& other) noexcept {
    if (this == &other) return *this;
    Clear();
    Take(other);
    return *this;
  }
  ~Action() { Clear(); }
  Action(const Action&) = delete;
  Action& operator=(const Action&) = delete;

  void operator()() { call_(room_); }
  void Clear() {
    if (move_ != nullptr) move_(room_, nullptr);
    move_ = nullptr;
    call_ = nullptr;
  }

 private:
  void Take(Action& other) {
    call_ = std::exchange(other.call_, nullptr);
    move_ = std::exchange(other.move_, nullptr);
    if (move_ != nullptr) {
      move_(other.room_, room_);
    } else if (call_ != nullptr) {
      std::memcpy(room_, other.room_, kRoom);
    }
  }

  void (*call_)(void* room) = nullptr;
  void (*move_)(void* room, void* to) = nullptr;  // null: bytes may be copied; `to` null: only destroys
  alignas(std::max_align_t) std::byte room_[kRoom];
};

// A callable of somebody else, for the time of one call.
class ActionRef {
 public:
  template <class F>
  requires(!std::is_same_v<std::decay_t<F>, ActionRef>)
      // NOLINTNEXTLINE(google-explicit-constructor)
      ActionRef(F&& callable)
      : object_(const_cast<void*>(static_cast<const void*>(std::addressof(callable)))),
        call_([](void* object) { (*static_cast<std::remove_reference_t<F>*>(object))(); }) {}
  void operator()() const { call_(object_); }

 private:
  void* object_;
  void (*call_)(void* object);
};

}  // namespace platform
