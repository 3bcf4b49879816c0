// A capture that Wireshark opens: pcapng, link type USER0 (147), one interface per ring, nanosecond times.
//
// Each packet stands behind four bytes of our own, because its type travels in the ring descriptor, not in the packet:
// format (1), ring, start-of-frame type, end-of-frame type. Then the wire bytes, CRC included.
#pragma once
#include <cstdint>
#include <fstream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/time.h"

namespace lab {

enum class Direction { FromDevice = 1, ToDevice = 2 };  // as the packet flags number them: inbound, outbound

struct CapturedPacket {
  platform::Time when = 0;
  Direction direction = Direction::ToDevice;
  std::uint8_t startPdf = 0, endPdf = 0;
  std::span<const std::uint8_t> bytes;
  std::string_view comment;
};

class PcapngWriter {
 public:
  // Opens the file at once; Good() tells whether that, and every write so far, went well.
  explicit PcapngWriter(const std::string& file);

  bool Good() const { return out_.good(); }
  // Returns the interface's number. All interfaces of a file must be added before its first packet.
  std::uint32_t AddInterface(std::string_view name, std::uint8_t ring);
  void Write(std::uint32_t interface, const CapturedPacket& packet);
  // A thing that happened and is no packet: an empty frame of its own that carries the comment.
  void Comment(std::uint32_t interface, platform::Time when, std::string_view text);
  // Flushes; false when anything could not be written.
  [[nodiscard]] bool Close();

 private:
  void PutBlock(std::uint32_t type, const std::vector<std::uint8_t>& body);
  void PutPacketBlock(std::uint32_t interface, platform::Time when, std::span<const std::uint8_t> data,
                      const std::vector<std::uint8_t>& options);

  std::ofstream out_;
  std::vector<std::uint8_t> rings_;  // by interface
};

}  // namespace lab
