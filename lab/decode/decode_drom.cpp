// Walks the entries once for their places; what the image means for a router comes from the driver's own parser, and
// both CRCs are the driver's code.
#include "lab/decode/decode_drom.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "hostif/crc32c.h"
#include "lab/decode/driver_drom.h"
#include "topology/drom_image.h"
#include "topology/drom_parse.h"

namespace lab {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kSmallestImage = 23;
constexpr unsigned kThunderboltFormat = 1;
constexpr unsigned kLengthField = 0xFFF, kLengthRead = 0x3FF;  // what is checked, what is read
constexpr unsigned kPort = 0x80, kDisabled = 0x40, kNumber = 0x3F;
constexpr unsigned kSecondLane = 0x10, kHasPartner = 0x80;
constexpr unsigned kVendorName = 1, kDeviceName = 2, kProduct = 9;
constexpr std::size_t kLaneEntry = 8, kProductEntry = 8;

std::string Hex(const Bytes& image, std::size_t from, std::size_t to) {
  std::string text;
  for (std::size_t i = from; i < to; ++i) text += fmt::format("{}{:02x}", i == from ? "" : " ", image[i]);
  return text;
}

// The check byte of the UID that a Thunderbolt 3 host's EEPROM begins with: CRC-32C, each dword turned round.
std::uint8_t HostCheck(const Bytes& image) {
  std::uint8_t swapped[kDromUidBytes];
  for (std::size_t i = 0; i < kDromUidBytes; ++i) swapped[i] = image[kDromUidOffset + (i ^ 3)];
  return static_cast<std::uint8_t>(Crc32c(swapped, sizeof swapped));
}

class Decoder {
 public:
  explicit Decoder(const Bytes& image) : image_(image) {}

  DecodedFields Decode() {
    if (image_.size() < kSmallestImage) {
      Fault("{} bytes: the smallest image has {}", image_.size(), kSmallestImage);
      out_.title = fmt::format("DROM image, {} bytes", image_.size());
      return std::move(out_);
    }
    usb4_ = image_[kDromVersionOffset] == kUsb4Format;
    end_ = (Le16(&image_[kDromLengthOffset]) & kLengthField) + kDromDataOffset;
    out_.title = fmt::format("DROM image, {} bytes, {} format", image_.size(), usb4_ ? "USB4" : "Thunderbolt");
    Header();
    const bool whole = Length();
    DataCrc(whole);
    Entries();
    if (whole) AskDriver();
    return std::move(out_);
  }

 private:
  template <class... Values>
  void Field(std::string name, fmt::format_string<Values...> text, Values&&... values) {
    out_.fields.emplace_back(std::move(name), fmt::format(text, std::forward<Values>(values)...));
  }
  template <class... Values>
  void Fault(fmt::format_string<Values...> text, Values&&... values) {
    out_.faults.push_back(fmt::format(text, std::forward<Values>(values)...));
  }

  void Header() {
    std::uint64_t uid = 0;
    std::memcpy(&uid, &image_[kDromUidOffset], sizeof uid);
    Field("UID", "{:016x}", uid);
    const unsigned computed = Crc8(&image_[kDromUidOffset], kDromUidBytes);
    if (computed == image_[0]) {
      Field("CRC-8", "0x{:02x}, good", image_[0]);
    } else if (usb4_) {
      Field("CRC-8", "0x{:02x}, computed 0x{:02x}: differs, not checked in this format", image_[0], computed);
    } else if (HostCheck(image_) == image_[0]) {
      hostImage_ = true;
      Field("CRC-8", "0x{:02x}, good as the check byte of a Thunderbolt 3 host's UID", image_[0]);
    } else {
      Field("CRC-8", "0x{:02x}, computed 0x{:02x}: bad", image_[0], computed);
      Fault("byte 0: CRC-8 of the UID is 0x{:02x}, computed 0x{:02x}", image_[0], computed);
    }
    const unsigned version = image_[kDromVersionOffset];
    const bool known = version == kUsb4Format || version == kThunderboltFormat;
    Field("version", "{} ({}{} format)", version, known ? "" : "unknown, taken as ", usb4_ ? "USB4" : "Thunderbolt");
  }

  bool Length() {
    const std::size_t length = end_ - kDromDataOffset;
    Field("data length", "{} bytes, the image ends at byte {}", length, end_);
    if (end_ > image_.size()) Fault("byte 14: the data end at byte {}, the dump has {} bytes", end_, image_.size());
    if (length > kLengthRead) Fault("byte 14: {} bytes of data, the driver reads {} at most", length, kLengthRead);
    if (end_ < kSmallestImage) Fault("byte 14: the image ends at byte {}, the smallest at {}", end_, kSmallestImage);
    if (end_ < image_.size()) Field("behind the image", "{} bytes, not looked at", image_.size() - end_);
    return end_ <= image_.size() && length <= kLengthRead && end_ >= kSmallestImage;
  }

  void DataCrc(bool whole) {
    std::uint32_t stored = 0;
    std::memcpy(&stored, &image_[kDromCrc32Offset], sizeof stored);
    if (!whole) return Field("CRC-32C", "0x{:08x}, not checked: the data are not whole", stored);
    const std::uint32_t computed = Crc32c(&image_[kDromDataOffset], end_ - kDromDataOffset);
    const char* state = computed == stored ? "good" : usb4_ ? "bad" : "differs, tolerated in this format";
    Field("CRC-32C", "0x{:08x}, computed 0x{:08x}: {}", stored, computed, state);
    if (computed != stored && usb4_) {
      Fault("byte 9: CRC-32C of the data is 0x{:08x}, computed 0x{:08x}", stored, computed);
    }
  }

  void Entries() {
    if (!usb4_) {
      Field("vendor", "0x{:04x}", Le16(&image_[kDromVendorOffset]));
      Field("model", "0x{:04x}", Le16(&image_[kDromModelOffset]));
    }
    const std::size_t end = std::min<std::size_t>(end_, image_.size());
    for (std::size_t at = usb4_ ? kDromFirstEntryUsb4 : kDromFirstEntryTbt3; at < end;) {
      const std::size_t length = image_[at];
      if (at + 1 == end) return Fault("byte {}: a lone byte at the end", at);
      if (length == 0) return Fault("byte {}: an entry of length 0", at);
      if (at + length > end) return Fault("byte {}: an entry of {} bytes, {} are left", at, length, end - at);
      Field(fmt::format("byte {}", at), "{}", Entry(at, length));
      at += length;
    }
  }

  // An entry of one byte has no kind of its own: the driver takes the next entry's first byte for it.
  std::string Entry(std::size_t at, std::size_t length) {
    const unsigned kind = image_[at + 1];
    return (kind & kPort) != 0 ? Port(at, length) : Generic(at, length);
  }

  std::string Port(std::size_t at, std::size_t length) {
    const unsigned kind = image_[at + 1];
    std::string text = fmt::format("adapter {}", kind & kNumber);
    if ((kind & kDisabled) != 0) return text + ": disabled";
    if (length == kLaneEntry) {
      text += fmt::format(": lane {}", (image_[at + 2] & kSecondLane) != 0 ? 1 : 0);
      if ((image_[at + 2] & kHasPartner) != 0) {
        text += fmt::format(" of a link with adapter {}", image_[at + 3] & kNumber);
      }
      return text;
    }
    return length > 2 ? text + ": " + Hex(image_, at + 2, at + length) : text;
  }

  std::string Name(std::size_t at, std::size_t length) {
    const auto* text = reinterpret_cast<const char*>(&image_[at]);
    return length > 2 ? Printable({text + 2, length - 2}) : "";
  }

  std::string Generic(std::size_t at, std::size_t length) {
    const unsigned type = image_[at + 1] & kNumber;
    const std::size_t end = at + length;
    if (type == kVendorName) return fmt::format("vendor name \"{}\"", Name(at, length));
    if (type == kDeviceName) return fmt::format("device name \"{}\"", Name(at, length));
    if (type == kProduct && length >= kProductEntry) {
      return fmt::format("product: vendor 0x{:04x}, model 0x{:04x}", Le16(&image_[at + 4]), Le16(&image_[at + 6]));
    }
    return fmt::format("type {}, ignored: {}", type, length > 2 ? Hex(image_, at + 2, end) : "no data");
  }

  void AskDriver() {
    if (hostImage_) return Field("the driver", "reads nothing but the UID from a host's EEPROM");
    const DriverDrom drom = ParseWithDriver(Bytes(image_.begin(), image_.begin() + static_cast<std::ptrdiff_t>(end_)));
    if (!drom.accepted) {
      Field("the driver", "drops this image");
      if (out_.faults.empty()) Fault("the driver drops this image");
      return;
    }
    Field("the driver", "takes vendor 0x{:04x}, model 0x{:04x}, name \"{}\" \"{}\", adapters disabled: {}",
          drom.vendorId, drom.modelId, Printable(drom.vendorName), Printable(drom.deviceName),
          drom.disabledAdapters.empty() ? "none" : fmt::format("{}", fmt::join(drom.disabledAdapters, ", ")));
  }

  const Bytes& image_;
  bool usb4_ = false;
  bool hostImage_ = false;
  std::size_t end_ = 0;  // of the image, by its own length field
  DecodedFields out_;
};

}  // namespace

DecodedFields DecodeDromImage(const std::vector<std::uint8_t>& image) {
  return Decoder(image).Decode();
}

ExitCode DecodeDrom(const std::string& file, const Console& console) {
  Bytes image;
  for (const HexLine& line : ReadHexLines(file)) image.insert(image.end(), line.bytes.begin(), line.bytes.end());
  const DecodedFields decoded = DecodeDromImage(image);
  PrintDecoded(console, decoded.title, decoded);
  return decoded.faults.empty() ? ExitCode::Held : ExitCode::Failed;
}

}  // namespace lab
