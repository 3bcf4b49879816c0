// The fabric's own accounts.
#include "sim/fabric/fabric_books.h"

#include <algorithm>
#include <map>
#include <utility>

#include "sim/dataplane/path_probe.h"
#include "sim/dataplane/protocol_adapters.h"
#include "sim/dataplane/usb3_function.h"
#include "sim/fabric/fabric.h"

namespace sim {
namespace {

template <class Action>
void ForEachAdapter(const Fabric& fabric, Action action) {
  for (const auto& router : fabric.routers()) {
    for (unsigned n = 1; n <= router->maxAdapter(); ++n) {
      if (router->adapter(n)->implemented()) action(*router->adapter(n));
    }
  }
}

BufferBook BookOf(const Adapter& adapter) {
  BufferBook book{adapter.Name(),
                  adapter.totalBuffers(),
                  adapter.setAsideBuffers(),
                  adapter.model().bufferWord & 0x3FF,
                  adapter.allocatedBuffers(),
                  0,
                  0};
  for (unsigned hop = 0; hop < adapter.pathEntries(); ++hop) {
    const PathEntry entry = adapter.pathEntry(hop);
    if (!entry.valid() || adapter.isControlEntry(hop)) continue;
    if (entry.ingressFlowControl()) {
      book.pathCredits += entry.credits();
    } else {
      ++book.openEntries;
    }
  }
  return book;
}

// Routers that drive any number of displays, and Thunderbolt 3 routers without a link controller, know no reservation.
bool KeepsReservations(const Router& router) {
  return router.model().usb4() ? router.model().dpInResources != 0 : router.services().linkControllerCapability != 0;
}

bool Reserved(const Adapter& dpIn) {
  const Router& router = dpIn.router();
  if (router.model().usb4()) return router.operations().dpReservations().contains(dpIn.number());
  unsigned first = 1;
  while (router.adapter(first)->type() != kTypeDpIn) ++first;
  return router.services().sinkState(dpIn.number() == first ? 0 : 1) == 1;
}

class Audit {
 public:
  explicit Audit(const Fabric& fabric) : fabric_(fabric), found_(TracePaths(fabric)) {}

  std::vector<BookFinding> Go() {
    Paths();
    ForEachAdapter(fabric_, [this](Adapter& adapter) {
      Entries(adapter);
      Protocol(adapter);
      Buffers(adapter);
    });
    for (const auto& [place, entries] : targets_) {
      if (entries > 1) Say(Contradiction::HopShared, {.adapter = place.first, .hop = place.second, .found = entries});
    }
    return std::move(findings_);
  }

 private:
  void Say(Contradiction rule, FindingArguments arguments) { findings_.push_back({rule, std::move(arguments)}); }

  bool Has(PathKind kind, const Adapter* from, const Adapter* to) const {
    return std::any_of(found_.paths.begin(), found_.paths.end(),
                       [&](const LivePath& path) { return path.kind == kind && path.from == from && path.to == to; });
  }
  bool Touches(const Adapter& adapter) const {
    return std::any_of(found_.paths.begin(), found_.paths.end(),
                       [&](const LivePath& path) { return path.from == &adapter || path.to == &adapter; });
  }

  // Every path works, and has its like in the other direction; of video that is the AUX channel.
  void Paths() {
    for (const LivePath& path : found_.paths) {
      if (!path.lost.empty()) {
        Say(Contradiction::PathLost, {.path = path.Way(), .why = path.lost});
        continue;
      }
      const PathKind back = path.kind == PathKind::DpVideo ? PathKind::DpAux : path.kind;
      if (path.kind != PathKind::Network && !Has(back, path.to, path.from)) {
        Say(Contradiction::PathOneWay, {.path = path.Way()});
      }
    }
    for (const DanglingEntry& entry : found_.dangling) {
      Say(Contradiction::DanglingEntry, {.adapter = entry.adapter->Name(), .hop = entry.hop});
    }
  }

  void Entries(const Adapter& adapter) {
    for (unsigned hop = 0; hop < adapter.pathEntries(); ++hop) {
      const PathEntry entry = adapter.pathEntry(hop);
      if (adapter.pathPending(hop)) Say(Contradiction::PacketsPending, {.adapter = adapter.Name(), .hop = hop});
      const Adapter* out = adapter.router().adapter(entry.outAdapter());
      if (entry.valid() && !adapter.isControlEntry(hop) && out != nullptr) ++targets_[{out->Name(), entry.outHop()}];
    }
  }

  void Protocol(const Adapter& adapter) {
    if (adapter.protocolCapability == 0 || adapter.isLane()) return;
    const bool known = adapter.isPcie() || adapter.isUsb3() || adapter.isDisplayPort();
    if (known && SwitchedOn(adapter) && !Touches(adapter)) {
      Say(Contradiction::OnWithoutPath, {.adapter = adapter.Name()});
    }
    if (adapter.isUsb3() && ReadUsb3(adapter).requested) Say(Contradiction::OpenRequest, {.adapter = adapter.Name()});
    if (adapter.type() != kTypeDpIn || !KeepsReservations(adapter.router())) return;
    const bool video = std::any_of(found_.paths.begin(), found_.paths.end(), [&](const LivePath& path) {
      return path.kind == PathKind::DpVideo && path.from == &adapter;
    });
    if (video && !Reserved(adapter)) Say(Contradiction::VideoUnreserved, {.adapter = adapter.Name()});
    if (!video && Reserved(adapter)) Say(Contradiction::ReservedWithoutVideo, {.adapter = adapter.Name()});
  }

  // Set-aside buffers belong to entries without flow control.
  void Buffers(const Adapter& adapter) {
    const BufferBook book = BookOf(adapter);
    if (book.openEntries == 0 && book.setAside != book.setAsideReset) {
      Say(Contradiction::SetAsideBuffers,
          {.adapter = book.adapter, .found = book.setAside, .expected = book.setAsideReset});
    }
  }

  const Fabric& fabric_;
  const FabricPaths found_;
  std::map<std::pair<std::string, unsigned>, unsigned> targets_;  // adapter and hop ID, and how many entries lead there
  std::vector<BookFinding> findings_;
};

}  // namespace

std::vector<BufferBook> BufferBooks(const Fabric& fabric) {
  std::vector<BufferBook> books;
  ForEachAdapter(fabric, [&](const Adapter& adapter) {
    BufferBook book = BookOf(adapter);
    const bool used = book.pathCredits != 0 || book.openEntries != 0 || book.setAside != book.setAsideReset;
    if (adapter.isLane() || used) books.push_back(std::move(book));
  });
  return books;
}

std::vector<std::string> DpReservations(const Fabric& fabric) {
  std::vector<std::string> reserved;
  ForEachAdapter(fabric, [&](const Adapter& adapter) {
    if (adapter.type() == kTypeDpIn && KeepsReservations(adapter.router()) && Reserved(adapter)) {
      reserved.push_back(adapter.Name());
    }
  });
  return reserved;
}

std::string BookFinding::Text() const {
  constexpr std::pair<const char*, const char*> kRules[] = {
#define X(enumerator, name, message) {name, message},
      SIM_CONTRADICTIONS(X)
#undef X
  };
  const auto& [name, message] = kRules[static_cast<unsigned>(rule)];
  return FillFinding(message, arguments) + " [" + name + "]";
}

std::vector<BookFinding> CheckBooks(const Fabric& fabric) {
  return Audit(fabric).Go();
}

}  // namespace sim
