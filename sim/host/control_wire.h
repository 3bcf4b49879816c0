// Between a host interface's ring 0 and its host router: logs every control packet, breaks some on demand, injects
// others.
#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "platform/host/simulation.h"
#include "sim/host/complaints.h"
#include "sim/host/frame.h"
#include "sim/host/host_device.h"
#include "sim/host/timing.h"
#include "sim/host/wire_log.h"
#include "sim/host/wire_packet.h"

namespace sim {

// Where packets from the host go on: the fabric.
class PacketSink {
 public:
  virtual ~PacketSink() = default;
  // `damaged`: a fault broke it on the way, so it is nobody's mistake.
  virtual void PacketFromHost(const DecodedPacket& packet, bool damaged) = 0;
  // An inter-domain request of a peer stands in the host's memory.
  virtual void RequestHanded(const ControlPacket& request, bool damaged) = 0;
  virtual void FrameFromNetworkRing(unsigned hop, Frame frame) = 0;
  virtual platform::Time NetworkRoomAfter(unsigned hop) = 0;
  virtual void HostPowerChanged(platform::FunctionPower power) = 0;
};

// Who manages a domain in the place of a host interface with a driver.
class PacketReceiver {
 public:
  virtual ~PacketReceiver() = default;
  virtual void PacketArrived(const ControlPacket& packet) = 0;
};

// A packet that no router sent.
struct RawPacket {
  std::uint8_t pdf = 0;
  std::vector<std::uint8_t> bytes;  // with its CRC, if any
  std::uint8_t startPdf = 0;        // what the descriptor says; zero for control packets
  WriteBackForgery forgery;
};

// Fault sites, asked once for each packet: in both directions "wire.lose", "wire.delay", "wire.duplicate",
// "wire.reorder", "wire.corrupt"; towards the host also "wire.late" (after the request's time-out),
// "wire.wrong-sequence", "wire.wrong-route", "wire.error-packet", "wire.truncate", "wire.unsolicited" and "wire.storm".
class ControlWire final : public FramePort {
 public:
  ControlWire(platform::Simulation& simulation, HostInterface& host, PacketSink& sink, ProtocolErrors& errors);

  WireLog& log() { return log_; }
  // A router's packet arrives at the host interface.
  void PacketToHost(const ControlPacket& packet);
  // From now on packets for the host go to `manager`, which sends its own here.
  void AttachManager(PacketReceiver* manager) { manager_ = manager; }
  void SendFromManager(const ControlPacket& packet);
  bool Quiet() const { return inFlight_ == 0; }
  // Requests with this sequence number and their answers pass whole from now on, so that an access that is repeated
  // gets through; and so does one try of everything in the discovery protocol. "wire.corrupt" and "wire.delay" leave
  // events alone: nobody checks their CRC, so a damaged one is another event, and a delayed one may be overtaken by the
  // next. A lost one comes again. "wire.corrupt" leaves responses of peers alone as well: they are taken with a bad
  // CRC.
  void LetRepeatsThrough(std::uint32_t lastSequence) { spared_ = lastSequence; }

  // --- scripted hardware
  // Runs `action` just before packet `number` (as the log counts, both directions) is passed on, or lost.
  void AtPacket(std::uint64_t number, std::function<void()> action);
  // Replaces the n-th answer from now on (1: the next read or write response or error packet); none: it is lost.
  using Replacement = std::function<std::optional<RawPacket>(const ControlPacket& answer)>;
  void ReplaceAnswer(std::uint64_t n, Replacement replacement);
  // Sends any packet to the host, now.
  void Inject(const RawPacket& packet);
  static RawPacket Raw(const ControlPacket& packet);  // a proper packet, to be bent

  // FramePort
  void FrameFromHost(unsigned hop, Frame frame) override;
  platform::Time RoomAfter(unsigned hop) override { return hop == 0 ? 0 : sink_.NetworkRoomAfter(hop); }
  void HostPowerChanged(platform::FunctionPower power) override { sink_.HostPowerChanged(power); }

 private:
  void Misuse(Complaint rule, ComplaintArguments arguments);
  struct Passage {
    bool up = false;
    RawPacket packet;
    bool damaged = false;
    std::string note;  // " fault=..." of the log line
  };
  void Pass(Passage passage);
  std::uint64_t NextPacket();
  void Forward(Passage passage);
  void ForwardLater(platform::Time delay, Passage passage);
  bool Spared(const Passage& passage) const;
  static bool SparedDiscovery(const Passage& passage);
  bool EventThatMayOnlyBeLost(const Passage& passage) const;
  bool TakenDamaged(const Passage& passage) const;
  bool BendAnswer(Passage& passage);
  void HandToHost(Passage& passage);
  void BreakBoth(Passage& passage, bool& lost);
  void Log(const Passage& passage, std::uint64_t number);
  void Unsolicited();
  void Storm();

  platform::Simulation& simulation_;
  HostInterface& host_;
  PacketReceiver* manager_ = nullptr;
  PacketSink& sink_;
  ProtocolErrors& errors_;
  Timing timing_;
  WireLog log_;
  std::multimap<std::uint64_t, std::function<void()>> atPacket_;
  std::map<std::uint64_t, Replacement> replacements_;  // by answer number
  std::uint64_t answers_ = 0;
  std::optional<Passage> held_[2];  // by direction: waiting to be overtaken
  unsigned inFlight_ = 0;
  std::optional<std::uint32_t> spared_;
};

}  // namespace sim
