// What the oracle can find: the fabric's own contradictions, and where the driver's records differ from the fabric.
#pragma once
#include <string>
#include <vector>

#include "sim/fabric/fabric_books.h"
#include "sim/rules/findings.h"

namespace lab {

// X(enumerator, "name", "message"), as in SIM_CONTRADICTIONS.
#define LAB_FINDINGS(X)                                                                           \
  X(RouterGone, "router-gone", "router {route} is listed and not there")                          \
  X(RouterTwice, "router-twice", "{router} is listed twice")                                      \
  X(RouterMissing, "router-missing", "{router} at route {route} is not listed")                   \
  X(PeerGone, "peer-gone", "peer {route} is listed and nothing is connected to {adapter}")        \
  X(PeerMissing, "peer-missing", "another host at {adapter}, route {route}, is not listed")       \
  X(PathMissing, "path-missing", "{tunnel}: the fabric has no path {path}")                       \
  X(PathUnclaimed, "path-unclaimed", "no tunnel has the path {path}")                             \
  X(LostPathUnclaimed, "lost-path-unclaimed", "no tunnel has the path {path}, which ends: {why}") \
  X(Grant, "grant", "{tunnel}: allocated {held} Mb/s, its adapter has {used}")                    \
  X(TunnelCount, "tunnel-count", "{found} {kind} counted, {expected} listed")                     \
  X(HopIds, "hop-ids", "{adapter} has reserved {kind} hop IDs [{held}], tunnels use [{used}]")    \
  X(PathBuffers, "path-buffers", "{adapter} has {found} buffers set aside, its paths account for {expected}")

// Those of the fabric first, with the same numbers.
enum class FindingRule : unsigned {
#define X(enumerator, name, message) enumerator,
  SIM_CONTRADICTIONS(X) LAB_FINDINGS(X)
#undef X
      Count
};

const char* FindingName(FindingRule rule);

struct Finding {
  FindingRule rule = FindingRule::Count;
  std::string domain;  // "host/H1"; empty for what the fabric contradicts itself in
  sim::FindingArguments arguments;
  std::string Text() const;  // "host/H1: late at route 501 is not listed [router-missing]"
};

using Findings = std::vector<Finding>;

}  // namespace lab
