// Hosts with a kernel and a driver each, and what they know of one another.
#pragma once
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "include/peer_record.h"
#include "tests/support/world.h"

namespace tests {

// To 10 ms: requests and register accesses take their own small time.
std::uint64_t RoundedMs(platform::Time time);

// Hosts go by their number, in order of mention. A peer goes by its record's name, of all hosts but the first behind
// the host's number: "0-1" is behind adapter 1 of the first host, "1/0-1" behind that of the second.
class Meeting : public World, public platform::TraceSink {
 public:
  explicit Meeting(const std::string& topology = "a/H1:1 - b/H3:1", WorldOptions options = {});
  ~Meeting() override;

  // All start side by side.
  void StartAll();
  // What the device knows of its peer: "none", or
  // "ENUMERATED 20G x2 vendor 1f3a Kiverra Systems Inc. device 2 LAB-b hops 22 31".
  std::string Peer(std::size_t host);
  // `look` sees the peer in use; the test fails when there is none.
  void WithPeer(std::size_t host, const std::function<void(USB4_XDOMAIN& peer)>& look);
  // State changes since the last call, one a line, with the milliseconds since the one before of the same peer:
  // "0-1 INIT +0\n0-1 UUID +100".
  std::string States();
  // Since the last call, transfers of blocks and steps that failed: "0-1 block -7\n0-1 PROPERTIES -11\n".
  std::string Failures() { return std::exchange(failures_, ""); }
  // Of those that States has returned.
  platform::Time LastChange(const std::string& peer) { return last_[peer]; }

  void OnTrace(const platform::TraceRecord& record) override;

 private:
  struct Change {
    std::string peer, state;
    platform::Time when;
  };
  std::string NameOf(const platform::HostKernel& host, const std::string& peer);

  std::vector<Change> changes_;
  std::string failures_;
  std::map<std::string, platform::Time> last_;
};

}  // namespace tests
