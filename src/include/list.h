// A typed view of the platform's intrusive lists: a record stands on a list through one of its LIST_ENTRY fields.
// The view adds no lock; whoever guards the list head guards the view.
#pragma once
#include <ntddk.h>

#include <cstddef>

// `LinkOffset` is offsetof(T, <the link field>).
template <class T, std::size_t LinkOffset>
class ListView {
 public:
  explicit ListView(LIST_ENTRY& head) : head_(&head) {}

  class Iterator {
   public:
    // The next entry is looked up first, so that the current one may leave the list inside the loop.
    explicit Iterator(LIST_ENTRY* entry) : entry_(entry), next_(entry->Flink) {}
    T& operator*() const { return *RecordOf(entry_); }
    Iterator& operator++() {
      entry_ = next_;
      next_ = entry_->Flink;
      return *this;
    }
    bool operator!=(const Iterator& other) const { return entry_ != other.entry_; }

   private:
    LIST_ENTRY* entry_;
    LIST_ENTRY* next_;
  };

  Iterator begin() const { return Iterator(head_->Flink); }
  Iterator end() const { return Iterator(head_); }

  void Initialise() const { InitializeListHead(head_); }
  bool IsEmpty() const { return head_->Flink == head_; }
  void Append(T& record) const { InsertTailList(head_, LinkOf(record)); }
  T* First() const { return IsEmpty() ? nullptr : RecordOf(head_->Flink); }
  // Null when the list is empty.
  T* TakeFirst() const { return IsEmpty() ? nullptr : RecordOf(RemoveHeadList(head_)); }
  static void Remove(T& record) { RemoveEntryList(LinkOf(record)); }
  bool Contains(const T& record) const {
    for (const LIST_ENTRY* entry = head_->Flink; entry != head_; entry = entry->Flink) {
      if (entry == LinkOf(const_cast<T&>(record))) return true;
    }
    return false;
  }
  // Moves every record to the end of `to`; this list is empty afterwards.
  void MoveAllTo(const ListView& to) const {
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
