// Records in non-paged pool: the only place that allocates and frees. Any IRQL up to DISPATCH_LEVEL.
//
// A record type names its tag: `static constexpr ULONG kPoolTag = PoolTag("SWI1");`. Memory comes zero-filled, and
// every record is valid when it is all zero. PoolPtr and PoolArray own, a plain pointer borrows.
#pragma once
#include <ntddk.h>

#include <cstddef>
#include <type_traits>
#include <utility>

// The tag whose four bytes read as the text in memory.
constexpr ULONG PoolTag(const char (&text)[5]) {
  ULONG tag = 0;
  for (int i = 3; i >= 0; --i) tag = tag << 8 | static_cast<unsigned char>(text[i]);
  return tag;
}

// Null when there is no memory.
template <class T>
[[nodiscard]] T* PoolNew() {
  static_assert(std::is_trivially_destructible_v<T> && std::is_trivially_default_constructible_v<T>);
  return static_cast<T*>(ExAllocatePool2(POOL_FLAG_NON_PAGED, sizeof(T), T::kPoolTag));
}

// A null pointer is ignored.
template <class T>
void PoolDelete(T* record) {
  if (record != nullptr) ExFreePoolWithTag(record, T::kPoolTag);
}

// `count` elements, zero-filled; null when there is no memory or nothing to allocate.
template <class T>
[[nodiscard]] T* PoolNewArray(std::size_t count, ULONG tag) {
  static_assert(std::is_trivially_destructible_v<T> && std::is_trivially_default_constructible_v<T>);
  if (count == 0 || count > (std::size_t{1} << 31) / sizeof(T)) return nullptr;
  return static_cast<T*>(ExAllocatePool2(POOL_FLAG_NON_PAGED, count * sizeof(T), tag));
}

template <class T>
void PoolDeleteArray(T* array, ULONG tag) {
  if (array != nullptr) ExFreePoolWithTag(array, tag);
}

// Owns one record.
template <class T>
class PoolPtr {
 public:
  PoolPtr() = default;
  explicit PoolPtr(T* record) : record_(record) {}
  PoolPtr(PoolPtr&& other) : record_(other.Release()) {}
  PoolPtr& operator=(PoolPtr&& other) {
    if (this != &other) {
      PoolDelete(record_);
      record_ = other.Release();
    }
    return *this;
  }
  ~PoolPtr() { PoolDelete(record_); }

  [[nodiscard]] static PoolPtr New() { return PoolPtr(PoolNew<T>()); }
  [[nodiscard]] T* Release() { return std::exchange(record_, nullptr); }
  T* Get() const { return record_; }
  T* operator->() const { return record_; }
  T& operator*() const { return *record_; }
  explicit operator bool() const { return record_ != nullptr; }

 private:
  T* record_ = nullptr;
};

// Owns one array whose length its user knows.
template <class T, ULONG Tag>
class PoolArray {
 public:
  PoolArray() = default;
  explicit PoolArray(std::size_t count) : array_(PoolNewArray<T>(count, Tag)) {}
  PoolArray(PoolArray&& other) : array_(other.Release()) {}
  PoolArray& operator=(PoolArray&&) = delete;
  ~PoolArray() { PoolDeleteArray(array_, Tag); }

  [[nodiscard]] T* Release() { return std::exchange(array_, nullptr); }
  T* Get() const { return array_; }
  T& operator[](std::size_t index) const { return array_[index]; }
  explicit operator bool() const { return array_ != nullptr; }

 private:
  T* array_ = nullptr;
};
