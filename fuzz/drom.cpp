// Images are applied to copies of an enumerated hub's record, twice each; the machine behind them serves many inputs.
#include "fuzz/drom.h"

#include <ntddk.h>
#include <wdf.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "fuzz/drom_reading.h"
#include "fuzz/verdict.h"
#include "include/device_context.h"
#include "include/domain_record.h"
#include "lab/machine/machine.h"
#include "sim/host/wire_packet.h"
#include "sim/router/drom_writer.h"
#include "topology/device_list.h"
#include "topology/drom.h"
#include "topology/drom_parse.h"

namespace fuzz {
namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr std::size_t kSmallestImage = 23;
constexpr std::size_t kLongestImage = 1036;
constexpr std::size_t kLongestName = 253;
constexpr unsigned kOperationData = 9;  // router space: what an operation has read begins here

struct Case {
  enum class Kind { Parse, Read, Enumerate };
  Kind kind = Kind::Parse;
  std::uint16_t lie = 0;
  Bytes image;
};

void Put(Bytes& image, std::size_t at, std::uint32_t value, unsigned bytes) {
  for (unsigned i = 0; i < bytes; ++i) image[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

Case Decode(std::span<const std::uint8_t> input) {
  Case out;
  if (input.empty()) return {Case::Kind::Read, 0, {}};
  const unsigned how = input[0];
  input = input.subspan(1);
  if ((how & 0x40) != 0 && input.size() >= 2) {
    out.lie = static_cast<std::uint16_t>(input[0] | input[1] << 8);
    input = input.subspan(2);
  }
  out.image.assign(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(std::min(input.size(), kLongestImage)));
  Bytes& image = out.image;
  if (image.size() >= kSmallestImage) {
    if ((how & 0x08) != 0) Put(image, 14, static_cast<std::uint32_t>(image.size() - 13), 2);
    if ((how & 0x20) != 0) image[0] = sim::DromCrc8(&image[1], 8);
    const std::size_t length = std::min<std::size_t>((image[14] | image[15] << 8) & 0xFFF, image.size() - 13);
    if ((how & 0x10) != 0) Put(image, 9, sim::Crc32c(std::span(image).subspan(13, length)), 4);
  }
  const unsigned kind = how & 7;
  if (kind >= 5 || image.size() < kSmallestImage) out.kind = kind == 7 ? Case::Kind::Enumerate : Case::Kind::Read;
  return out;
}

// H1 with a D1 behind it whose image is the input's.
class Hub {
 public:
  Hub() : machine_(lab::MachineConfig{}) {
    machine_.wire().log().Keep(false);
    sim::Router& router = machine_.fabric().AddRouter("D1", "D1");
    machine_.fabric().Connect("H1:1", "D1:1", {2, 0, true});
    router.space().OnRead(kOperationData, [this](std::uint32_t word) { return word ^ std::exchange(lie_, 0u) << 16; });
  }
  lab::Machine& machine() { return machine_; }
  bool Stopped() { return machine_.simulation().Stopped(); }
  void Start() {
    machine_.Start();
    if (!Stopped()) IgnoreResult(machine_.WaitQuiet(kLongest));
  }
  // The length field is the upper half of the one dword that is read first.
  void SetImage(const Case& input) {
    machine_.fabric().Find("D1")->operations().SetDrom(input.image);
    lie_ = input.lie;
  }
  // `look` sees the hub's record; false when there is none.
  bool Look(const std::function<void(USB4_SWITCH& hub)>& look) {
    bool found = false;
    machine_.InDriver({}, [&](DEVICE_EXTENSION& context) {
      const RouterReference hub = KivUsb4DevListFindSwitch(context.Domain, 1);
      found = hub != nullptr;
      if (found) look(*hub);
    });
    return found;
  }

 private:
  std::uint32_t lie_ = 0;
  lab::Machine machine_;
};

std::optional<std::string> NameOf(const char* name) {
  return name == nullptr ? std::nullopt : std::optional<std::string>(name);
}

// A copy of the hub's record that has not seen any image yet.
class Copy {
 public:
  explicit Copy(const USB4_SWITCH& hub) : router_(hub), adapters_(hub.Adapters, hub.Adapters + kHubAdapters) {
    router_.VendorName = router_.DeviceName = nullptr;
    router_.DromVendorId = router_.DromModelId = 0;
    router_.Uid = 0;
    router_.Drom = nullptr;
    router_.DromBytes = 0;
    router_.Adapters = adapters_.data();
    for (USB4_PORT& adapter : adapters_) {
      adapter.Router = &router_;
      adapter.DualLinkPartner = nullptr;
      adapter.Flags = adapter.Disabled = 0;
    }
  }
  ~Copy() {
    PoolDeleteArray(router_.VendorName, USB4_SWITCH::kVendorNameTag);
    PoolDeleteArray(router_.DeviceName, USB4_SWITCH::kDeviceNameTag);
    PoolDeleteArray(router_.Drom, USB4_SWITCH::kDromTag);
  }
  Copy(const Copy&) = delete;
  Copy& operator=(const Copy&) = delete;

  // In a block of its own length, so that the sanitizer knows where the image ends.
  bool Parse(const Bytes& image) {
    const auto block = std::make_unique<std::uint8_t[]>(image.size());
    std::copy(image.begin(), image.end(), block.get());
    router_.Drom = block.get();
    router_.DromBytes = static_cast<std::uint32_t>(image.size());
    const KIV_RESULT result = image[13] == 3 ? KIVUsb4DromParse(&router_) : KIVUsb4tbdromparse(&router_);
    router_.Drom = nullptr;
    return result == kKivOk;
  }
  KIV_RESULT Read() { return KivUsb4DromRead(&router_); }
  bool Kept() const { return router_.Drom != nullptr; }

  DromReading Reading(bool accepted) const {
    DromReading out;
    out.accepted = accepted;
    out.vendorName = NameOf(router_.VendorName);
    out.deviceName = NameOf(router_.DeviceName);
    out.vendorId = router_.DromVendorId;
    out.modelId = router_.DromModelId;
    out.uid = router_.Uid;
    for (unsigned number = 0; number < kHubAdapters; ++number) {
      const USB4_PORT& adapter = adapters_[number];
      out.adapters[number] = {adapter.Disabled != 0, adapter.IsSecondLane(), {}};
      if (adapter.DualLinkPartner != nullptr) {
        out.adapters[number].partner = static_cast<unsigned>(adapter.DualLinkPartner - adapters_.data());
      }
    }
    return out;
  }

 private:
  USB4_SWITCH router_;
  std::vector<USB4_PORT> adapters_;
};

std::string Compare(const DromReading& taken, const DromReading& said) {
  for (const auto& name : {taken.vendorName, taken.deviceName}) {
    if (name && name->size() > kLongestName) return "a name without an end";
  }
  return taken == said ? "" : "the driver took: " + Text(taken) + "; the image says: " + Text(said);
}

std::string Parse(const USB4_SWITCH& hub, const Bytes& image) {
  Copy copy(hub);
  const bool accepted = copy.Parse(image);
  return Compare(copy.Reading(accepted), ReadImage(image));
}

std::string Read(const USB4_SWITCH& hub, const Case& input) {
  Copy copy(hub);
  const KIV_RESULT result = copy.Read();
  const auto arrived = ArrivingImage(input.image, input.lie);
  if (!arrived) return result == kKivFailed && !copy.Kept() ? "" : "an image is taken that should be refused unread";
  if (result != kKivOk) return "a broken image fails the read";
  const std::string broken = Compare(copy.Reading(copy.Kept()), ReadImage(*arrived));
  return broken.empty() ? Parse(hub, *arrived) : broken;
}

// The machine of all inputs that need none of their own. Anew at times, before its clock and traces have grown old.
Hub& SharedHub() {
  static std::unique_ptr<Hub> hub;
  if (hub == nullptr || hub->Stopped() || hub->machine().simulation().Now() > 100 * platform::kSecond) {
    hub = nullptr;  // never two machines at a time
    hub = std::make_unique<Hub>();
    hub->Start();
    // A device that idles answers nothing.
    hub->machine().InDriver({}, [](DEVICE_EXTENSION& context) { WdfDeviceStopIdle(context.Device, FALSE); });
  }
  return *hub;
}

std::string Apply(const Case& input) {
  Hub& hub = SharedHub();
  hub.SetImage(input);
  std::string broken;
  const std::size_t pool = hub.machine().kernel().PoolBytes();
  const bool found = hub.Look([&](const USB4_SWITCH& record) {
    broken = input.kind == Case::Kind::Read ? Read(record, input) : Parse(record, input.image);
    if (broken.empty() && input.kind == Case::Kind::Parse) broken = Parse(record, input.image);
  });
  if (hub.Stopped()) return WhyStopped(hub.machine().simulation());
  if (!found) return "the hub has gone";
  if (broken.empty() && hub.machine().kernel().PoolBytes() != pool) return "pool left behind";
  return broken;
}

// A hub may make itself unusable by its own image, so that it need not be listed; if it is, it has its image's names.
std::string Enumerate(const Case& input) {
  Hub hub;
  hub.SetImage(input);
  hub.Start();
  lab::Machine& machine = hub.machine();
  std::string broken;
  const auto arrived = ArrivingImage(input.image, input.lie);
  const bool listed = !hub.Stopped() && hub.Look([&](const USB4_SWITCH& record) {
    if (!arrived) return;
    const DromReading said = ReadImage(*arrived);
    if (NameOf(record.VendorName) != said.vendorName || NameOf(record.DeviceName) != said.deviceName ||
        (record.Drom != nullptr) != said.accepted) {
      broken = "the hub is not called what its image says: " + Text(said);
    }
  });
  if (listed && !arrived) broken = "a hub is listed whose image could not be read";
  if (!hub.Stopped()) {
    machine.fabric().Unplug("D1");
    IgnoreResult(machine.WaitQuiet(kLongest));
    if (!hub.Stopped() && !machine.Quiet()) broken = "not quiet ten minutes later";
  }
  if (!hub.Stopped() && hub.Look([](const USB4_SWITCH&) {})) broken = "the hub is listed although it has gone";
  if (!hub.Stopped()) machine.RemoveAndUnload();
  if (hub.Stopped()) return WhyStopped(machine.simulation());
  if (broken.empty() && machine.kernel().PoolBytes() != 0) broken = "pool left behind";
  return broken;
}

}  // namespace

std::string RunDrom(std::span<const std::uint8_t> bytes) {
  const Case input = Decode(bytes);
  return input.kind == Case::Kind::Enumerate ? Enumerate(input) : Apply(input);
}

}  // namespace fuzz
