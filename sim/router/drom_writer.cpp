// A router's DROM image, built from its model.
//
// Byte 0 CRC-8 of the UID, 1..8 UID, 9..12 CRC-32C of the data part, 13 version, 14..15 data length from byte 13 on;
// entries from byte 16 (USB4 format) or 22 (Thunderbolt format, with vendor and model at 17 and 19).
#include "sim/router/drom_writer.h"

#include <span>
#include <string>

#include "sim/host/wire_packet.h"

namespace sim {
namespace {

constexpr std::size_t kChecksummedFrom = 13;
constexpr unsigned kUsb4Format = 3;

void Put(std::vector<std::uint8_t>& image, std::size_t at, std::uint64_t value, unsigned bytes) {
  for (unsigned i = 0; i < bytes; ++i) image[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

// Lane entries are 8 bytes and name their partner; byte 2 bit 4: second lane, bit 7: partner given.
void AppendPort(std::vector<std::uint8_t>& image, const AdapterModel& adapter) {
  const bool disabled = adapter.presence == AdapterPresence::DisabledByDrom;
  const auto header = static_cast<std::uint8_t>(0x80 | (disabled ? 0x40 : 0) | adapter.number);
  if (adapter.type == kTypeLane && !disabled) {
    const auto flags = static_cast<std::uint8_t>((adapter.pair != 0 ? 0x80 : 0) | (adapter.lane == 1 ? 0x10 : 0));
    image.insert(image.end(), {8, header, flags, static_cast<std::uint8_t>(adapter.pair), 0x80, 0, 0, 0});
  } else {
    image.insert(image.end(), {2, header});
  }
}

void AppendText(std::vector<std::uint8_t>& image, std::uint8_t type, const std::string& text) {
  if (text.empty()) return;
  image.push_back(static_cast<std::uint8_t>(text.size() + 3));
  image.push_back(type);
  image.insert(image.end(), text.begin(), text.end());
  image.push_back(0);
}

void AppendIds(std::vector<std::uint8_t>& image, const DromModel& drom) {
  image.insert(image.end(), {8, 9, 0, 0, 0, 0, 0, 0});
  Put(image, image.size() - 4, drom.vendorId, 2);
  Put(image, image.size() - 2, drom.modelId, 2);
}

// The check byte that a manager computes when it reads nothing but the UID: CRC-32C with each group of four bytes
// reversed.
std::uint8_t EepromUidCheck(const std::uint8_t* uid) {
  std::uint8_t reversed[8];
  for (unsigned i = 0; i < 8; ++i) reversed[i] = uid[i ^ 3];
  return static_cast<std::uint8_t>(Crc32c(reversed));
}

void Break(std::vector<std::uint8_t>& image, const std::vector<std::string>& faults) {
  for (const std::string& fault : faults) {
    if (fault == "crc-8") image[0] ^= 0xFF;
    if (fault == "crc-32") image[9] ^= 0xFF;
    if (fault == "length") image[15] ^= 0x04;
  }
}

}  // namespace

std::uint8_t DromCrc8(const std::uint8_t* bytes, unsigned count) {
  unsigned crc = 0xFF;
  for (unsigned i = 0; i < count; ++i) {
    crc ^= bytes[i];
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 0x80) != 0 ? (crc << 1) ^ 0x07 : crc << 1;
  }
  return static_cast<std::uint8_t>(crc);
}

std::vector<std::uint8_t> BuildDrom(const RouterModel& model) {
  if (!model.drom.present) return {};
  const bool usb4 = model.drom.version == kUsb4Format;
  std::vector<std::uint8_t> image(usb4 ? 16 : 22);
  Put(image, 1, model.uid, 8);
  image[13] = static_cast<std::uint8_t>(model.drom.version);
  if (usb4) {
    AppendIds(image, model.drom);
  } else {
    Put(image, 17, model.drom.vendorId, 2);
    Put(image, 19, model.drom.modelId, 2);
  }
  for (const std::vector<std::uint8_t>& entry : model.drom.entries) {
    image.insert(image.end(), entry.begin(), entry.end());
  }
  for (const AdapterModel& adapter : model.adapters) {
    if (model.drom.entries.empty() && adapter.number != 0 && adapter.presence != AdapterPresence::NotImplemented) {
      AppendPort(image, adapter);
    }
  }
  AppendText(image, 1, model.drom.vendorName);
  AppendText(image, 2, model.drom.deviceName);
  Put(image, 14, image.size() - kChecksummedFrom, 2);
  image[0] = model.host && !usb4 ? EepromUidCheck(image.data() + 1) : DromCrc8(image.data() + 1, 8);
  Put(image, 9, Crc32c(std::span(image).subspan(kChecksummedFrom)), 4);
  Break(image, model.drom.faults);
  return image;
}

}  // namespace sim
