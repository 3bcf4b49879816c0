// The domain as the driver holds it, copied into plain data: what the tree, the JSON document and the oracles look at.
#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lab/machine_config.h"

namespace lab {

// A register that was read, with the fields that the driver names.
struct RegisterView {
  std::string name;  // "ROUTER_CS_1"
  unsigned offset = 0;
  std::optional<std::uint32_t> word;  // none: the router did not answer
  std::vector<std::pair<std::string, std::uint32_t>> fields;
};

// An adapter somewhere else in the domain.
struct AdapterPlace {
  std::uint64_t route = 0;
  unsigned adapter = 0;
};

struct AdapterView {
  unsigned number = 0;
  std::uint32_t type = 0;
  bool disabled = false;
  bool bonded = false;
  bool secondLane = false;
  std::optional<unsigned> partner;     // the other lane of the same link
  std::optional<AdapterPlace> remote;  // the other end of the cable
  // Name and offset in adapter space, in dwords.
  std::vector<std::pair<std::string, unsigned>> capabilities;
  std::vector<RegisterView> registers;
};

struct LinkView {
  unsigned speedGbps = 0;
  unsigned lanes = 0;
  bool bonded = false;
};

struct RouterView {
  std::uint64_t route = 0;
  std::string name;  // "0-0": controller index and route
  std::optional<std::string> vendorName, deviceName, uid;
  unsigned generation = 0;  // 4 for USB4, 3 and less for what came before
  unsigned depth = 0;
  unsigned upstreamAdapter = 0;
  std::optional<std::string> tmu;  // "bi-directional, HiFi"; none for a router that keeps what its firmware has set
  std::string state;               // "ready" or "unplugged"
  std::vector<std::pair<std::string, unsigned>> capabilities;  // name and offset in router space
  std::vector<RegisterView> registers;
  std::vector<AdapterView> adapters;  // in number order, adapter 0 not among them
  std::optional<LinkView> link;       // towards the host; the host router has none
};

struct DomainView {
  std::string name;      // "host/H1"
  bool present = false;  // the driver has a domain
  std::vector<RouterView> routers;
};

// "lane", "PCIe downstream", ...; "unknown" for a type that no table names.
const char* AdapterTypeName(std::uint32_t type);

}  // namespace lab
