// An image read by its format alone: header, checks, entries.
#include "fuzz/drom_reading.h"

#include <fmt/format.h>

#include "sim/host/wire_packet.h"
#include "sim/router/drom_writer.h"

namespace fuzz {
namespace {

constexpr std::size_t kData = 13;
constexpr std::size_t kSmallest = 23;
constexpr unsigned kLanes = 8;

unsigned Half(std::span<const std::uint8_t> image, std::size_t at) {
  return image[at] | image[at + 1] << 8;
}

class Reader {
 public:
  explicit Reader(std::span<const std::uint8_t> image) : image_(image), end_(kData + (Half(image, 14) & 0xFFF)) {}

  DromReading Read() {
    out_.accepted = image_[13] == 3 ? Usb4() : Thunderbolt();
    return out_;
  }

 private:
  bool Usb4() {
    if (end_ > image_.size()) return false;
    std::uint32_t stored = 0;
    for (unsigned i = 0; i < 4; ++i) stored |= static_cast<std::uint32_t>(image_[9 + i]) << (8 * i);
    if (sim::Crc32c(image_.subspan(kData, end_ - kData)) != stored) return false;
    return Entries(16);
  }

  bool Thunderbolt() {
    if (sim::DromCrc8(&image_[1], 8) != image_[0] || end_ > image_.size()) return false;
    for (unsigned i = 0; i < 8; ++i) out_.uid |= static_cast<std::uint64_t>(image_[1 + i]) << (8 * i);
    out_.vendorId = Half(image_, 17);
    out_.modelId = Half(image_, 19);
    return Entries(22);
  }

  bool Entries(std::size_t at) {
    for (; at < end_; at += image_[at]) {
      const std::size_t left = end_ - at;
      if (left == 1 || image_[at] == 0 || image_[at] > left) return false;
      const unsigned kind = image_[at + 1];
      if (kind >= 0x80 && !Port(at, kind & 0x3F, (kind & 0x40) != 0)) return false;
      if (kind < 0x80) Generic(at, kind & 0x3F);
    }
    return true;
  }

  void Generic(std::size_t at, unsigned type) {
    if (type == 1) out_.vendorName = Name(at);
    if (type == 2) out_.deviceName = Name(at);
    if (type != 9 || at + 8 > image_.size() || out_.vendorId != 0 || out_.modelId != 0) return;
    out_.vendorId = Half(image_, at + 4);
    out_.modelId = Half(image_, at + 6);
  }

  std::string Name(std::size_t at) const {
    std::string name;
    for (std::size_t i = at + 2; i < at + image_[at] && image_[i] != 0; ++i) name += static_cast<char>(image_[i]);
    return name;
  }

  // The type of adapter 0, the control adapter, can't be asked for.
  bool Port(std::size_t at, unsigned number, bool disabled) {
    if (number >= kHubAdapters) return true;
    AdapterReading& adapter = out_.adapters[number];
    adapter.disabled = disabled;
    if (disabled || number > kLanes) return true;
    if (number == 0 || image_[at] != 8) return false;
    adapter.secondLane = (image_[at + 2] & 0x10) != 0;
    const unsigned partner = image_[at + 3] & 0x3F;
    if ((image_[at + 2] & 0x80) != 0 && partner < kHubAdapters) adapter.partner = partner;
    return true;
  }

  std::span<const std::uint8_t> image_;
  std::size_t end_;
  DromReading out_;
};

std::string Quoted(const std::optional<std::string>& name) {
  if (!name) return "none";
  std::string text = "\"";
  for (char c : *name) text += fmt::format("{:02x}", static_cast<unsigned char>(c));
  return text + "\"";
}

}  // namespace

std::string Text(const DromReading& reading) {
  std::string text = fmt::format("{} names {} {} ids {:04x}:{:04x} uid {:x}", reading.accepted ? "accepted" : "refused",
                                 Quoted(reading.vendorName), Quoted(reading.deviceName), reading.vendorId,
                                 reading.modelId, reading.uid);
  for (unsigned number = 0; number < kHubAdapters; ++number) {
    const AdapterReading& adapter = reading.adapters[number];
    if (adapter.disabled) text += fmt::format(" {} off", number);
    if (adapter.secondLane) text += fmt::format(" {} second", number);
    if (adapter.partner) text += fmt::format(" {}-{}", number, *adapter.partner);
  }
  return text;
}

DromReading ReadImage(std::span<const std::uint8_t> image) {
  return Reader(image).Read();
}

std::optional<std::vector<std::uint8_t>> ArrivingImage(std::span<const std::uint8_t> content, std::uint16_t lie) {
  // A router without a DROM refuses; one with a short one gives zeros behind its end.
  if (content.empty()) return std::nullopt;
  std::vector<std::uint8_t> image(content.begin(), content.end());
  image.resize(std::max<std::size_t>(image.size(), 16));
  const std::size_t size = kData + ((Half(image, 14) ^ lie) & 0x3FF);
  if (size < kSmallest) return std::nullopt;
  image.resize(size);
  if (kData + (Half(image, 14) & 0xFFF) != size) return std::nullopt;
  return image;
}

}  // namespace fuzz
