// A typed view of the platform's intrusive lists: a record stands on a list through one of its LIST_ENTRY fields. The
// view takes no lock, but knows which ones guard the list, and checks that the caller holds them.
#pragma once
#include <ntddk.h>

#include <cstddef>

#include "include/guarded.h"

// `LinkOffset` is offsetof(T, <the link field>).
template <class T, std::size_t LinkOffset, class Guard = NoGuard>
class ListView {
 public:
  explicit ListView(LIST_ENTRY& head) : head_(&head) {}

  class Iterator {
   public:
    // The next entry is looked up first, so that the current one may leave the list inside the loop.
    explicit Iterator(LIST_ENTRY* entry) : entry_(entry), next_(entry->Flink) {}
    T& operator*() const { return *RecordOf(entry_); }
    Iterator& operator++() {
      Guard::Read();
      entry_ = next_;
      next_ = entry_->Flink;
      return *this;
    }
    bool operator!=(const Iterator& other) const { return entry_ != other.entry_; }

   private:
    LIST_ENTRY* entry_;
    LIST_ENTRY* next_;
  };

  Iterator begin() const {
    Guard::Read();
    return Iterator(head_->Flink);
  }
  Iterator end() const { return Iterator(head_); }

  // Before anybody else knows the list.
  void Initialise() const { InitializeListHead(head_); }
  bool IsEmpty() const {
    Guard::Read();
    return head_->Flink == head_;
  }
  void Append(T& record) const {
    Guard::Write();
    InsertTailList(head_, LinkOf(record));
  }
  T* First() const { return IsEmpty() ? nullptr : RecordOf(head_->Flink); }
  // Null when the list is empty.
  T* TakeFirst() const {
    Guard::Write();
    return head_->Flink == head_ ? nullptr : RecordOf(RemoveHeadList(head_));
  }
  static void Remove(T& record) {
    Guard::Write();
    RemoveEntryList(LinkOf(record));
  }
  bool Contains(const T& record) const {
    Guard::Read();
    for (const LIST_ENTRY* entry = head_->Flink; entry != head_; entry = entry->Flink) {
      if (entry == LinkOf(const_cast<T&>(record))) return true;
    }
    return false;
  }
  // Moves every record to the end of `to`; this list is empty afterwards.
  template <class OtherGuard>
  void MoveAllTo(const ListView<T, LinkOffset, OtherGuard>& to) const {
    while (T* record = TakeFirst()) to.Append(*record);
  }

 private:
  static LIST_ENTRY* LinkOf(T& record) {
    return reinterpret_cast<LIST_ENTRY*>(reinterpret_cast<std::byte*>(&record) + LinkOffset);
  }
  static T* RecordOf(LIST_ENTRY* entry) {
    return reinterpret_cast<T*>(reinterpret_cast<std::byte*>(entry) - LinkOffset);
  }

  LIST_ENTRY* head_;
};
