// Router operations of a USB4 router: opcode and metadata in, busy for a while, status and data out.
#pragma once
#include <cstdint>
#include <map>
#include <set>
#include <vector>

namespace sim {

class Router;

class RouterOperations {
 public:
  explicit RouterOperations(Router& router) : router_(router) {}

  // Defines the operation registers and starts listening; USB4 routers only.
  void Define();
  void Reset() { busy_ = false; }

  // DisplayPort inputs that are reserved now. Survives everything but hibernation and an unplug.
  std::set<unsigned>& dpReservations() { return dpReservations_; }
  const std::set<unsigned>& dpReservations() const { return dpReservations_; }
  const std::vector<std::uint8_t>& drom() const { return drom_; }
  void SetDrom(std::vector<std::uint8_t> image) { drom_ = std::move(image); }

  // Scripted hardware: every operation of this opcode comes back as not supported, or with this result.
  void RefuseOpcode(std::uint16_t opcode) { refused_.insert(opcode); }
  void SetResult(std::uint8_t result) { forcedResult_ = result; }
  void SetOpcodeResult(std::uint16_t opcode, std::uint8_t result) { opcodeResults_[opcode] = result; }

 private:
  struct Outcome {
    bool supported = true;
    std::uint8_t result = 0;
  };
  void Start(std::uint32_t control);
  Outcome Run(std::uint16_t opcode);
  Outcome ReadDrom();
  Outcome DisplayResource(std::uint16_t opcode);

  Router& router_;
  bool busy_ = false;
  std::uint16_t running_ = 0;
  std::uint32_t metadata_ = 0;  // of the operation that runs
  std::vector<std::uint8_t> drom_;
  std::set<unsigned> dpReservations_;
  std::set<std::uint16_t> refused_;
  std::map<std::uint16_t, std::uint8_t> opcodeResults_;  // 0: the operation runs
  std::uint8_t forcedResult_ = 0;
};

}  // namespace sim
