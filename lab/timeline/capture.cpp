// Listens to the wire of each controller; ring 0 is the only one that carries control packets.
#include "lab/timeline/capture.h"

#include <algorithm>

namespace lab {

Capture::Capture(const std::string& file, Machine& machine) : writer_(file) {
  for (Place place : machine.Places()) {
    names_.push_back(machine.DomainName(place));
    const std::uint32_t interface = writer_.AddInterface(names_.back() + " ring 0", 0);
    machine.wire(place).log().Listen([this, interface](const sim::WireEntry& entry) {
      CapturedPacket packet;
      packet.when = entry.when;
      packet.direction = entry.up ? Direction::FromDevice : Direction::ToDevice;
      packet.startPdf = entry.up ? 0 : entry.pdf;
      packet.endPdf = entry.pdf;
      packet.bytes = entry.bytes;
      const std::size_t fault = entry.text.find("fault=");
      if (fault != std::string::npos) packet.comment = std::string_view(entry.text).substr(fault);
      writer_.Write(interface, packet);
    });
  }
}

void Capture::Comment(const LiveEvent& event) {
  const auto named = std::find(names_.begin(), names_.end(), event.where);
  const auto interface = named == names_.end() ? 0 : static_cast<std::uint32_t>(named - names_.begin());
  const std::string where = event.where.empty() ? "" : event.where + ": ";
  writer_.Comment(interface, event.when, where + event.event + " " + event.effect);
}

}  // namespace lab
