// Every control packet of one host, in both directions, as decoded text and as raw bytes.
#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/host/time.h"

namespace sim {

struct WireEntry {
  std::uint64_t number = 0;  // 1, 2, ... over both directions
  platform::Time when = 0;
  bool up = false;  // towards the host
  std::uint8_t pdf = 0;
  std::vector<std::uint8_t> bytes;  // with the CRC
  std::string text;                 // DescribePacket, then " crc=bad" or " fault=wire.lose" where it applies

  // "     1.234500 -> READ route=0 ..." with milliseconds and direction (-> from the host, <- to it).
  std::string Line() const;
};

class WireLog {
 public:
  // Receives each entry as it is made; an entry's text is only made when somebody listens or keeps.
  using Listener = std::function<void(const WireEntry&)>;

  void Keep(bool keep) { keep_ = keep; }
  void Listen(Listener listener) { listeners_.push_back(std::move(listener)); }
  bool Wanted() const { return keep_ || !listeners_.empty(); }

  std::uint64_t NextNumber() { return ++count_; }
  std::uint64_t count() const { return count_; }
  void Add(WireEntry entry);
  const std::vector<WireEntry>& entries() const { return entries_; }
  // Texts of the entries since the last call, "-> READ route=0 ..." one a line, without times.
  std::string TakeText();

 private:
  bool keep_ = true;
  std::uint64_t count_ = 0;
  std::size_t taken_ = 0;
  std::vector<WireEntry> entries_;
  std::vector<Listener> listeners_;
};

}  // namespace sim
