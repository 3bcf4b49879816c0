// Address ranges that outlive the run that used them: mapping them and touching their pages again costs more than a
// short run.
#pragma once
#include <sys/mman.h>

#include <cstddef>
#include <new>
#include <vector>

namespace platform {

inline constexpr std::size_t kPageBytes = 4096;

class KeptRanges {
 public:
  // Readable and writable but for `guardBytes` at the start. Zero only where nobody has written before.
  static void* Take(std::size_t bytes, std::size_t guardBytes = 0) {
    std::vector<Range>& kept = Kept();
    for (std::size_t i = kept.size(); i-- > 0;) {
      if (kept[i].bytes != bytes) continue;
      void* start = kept[i].start;
      kept[i] = kept.back();
      kept.pop_back();
      return start;
    }
    void* start = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (start == MAP_FAILED) throw std::bad_alloc();
    if (guardBytes != 0) mprotect(start, guardBytes, PROT_NONE);
    return start;
  }
  // `touched`: bytes from the start that may have been written.
  static void Give(void* start, std::size_t bytes, std::size_t touched) {
    if (touched > kKeptPages) madvise(static_cast<std::byte*>(start) + kKeptPages, touched - kKeptPages, MADV_DONTNEED);
    if (Kept().size() < kMost) {
      Kept().push_back({start, bytes});
    } else {
      munmap(start, bytes);
    }
  }

 private:
  static constexpr std::size_t kMost = 96;
  // Bytes of a range whose pages are kept too. None with sanitizers: the pages read zero in the next run, because a
  // stale byte that the driver reads must not make a replay differ.
#if defined(KIVUSB4_SANITIZED)
  static constexpr std::size_t kKeptPages = 0;
#else
  static constexpr std::size_t kKeptPages = std::size_t{8} << 20;
#endif
  struct Range {
    void* start;
    std::size_t bytes;
  };
  static std::vector<Range>& Kept() {
    // Never destroyed: a simulation may end after the thread's objects have.
    thread_local std::vector<Range>* const kept = new std::vector<Range>;
    return *kept;
  }
};

}  // namespace platform
