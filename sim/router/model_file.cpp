// Model files: TOML to RouterModel, and the models that are built into the library.
#include <toml++/toml.h>

#include <algorithm>
#include <array>
#include <sstream>

#include "sim/router/embedded_models.h"
#include "sim/router/router_model.h"

namespace sim {
namespace {

struct NamedType {
  const char* name;
  std::uint32_t type;
};
constexpr NamedType kTypes[] = {
    {"inactive", kTypeInactive}, {"lane", kTypeLane},          {"host-interface", kTypeHostInterface},
    {"dp-in", kTypeDpIn},        {"dp-out", kTypeDpOut},       {"pcie-down", kTypePcieDown},
    {"pcie-up", kTypePcieUp},    {"usb3-down", kTypeUsb3Down}, {"usb3-up", kTypeUsb3Up},
};

// Reads one table and complains about what it does not know.
class Reader {
 public:
  Reader(const toml::table& table, const std::string& origin) : table_(table), origin_(origin) {}

  [[noreturn]] void Fail(const toml::node& node, const std::string& what) const {
    throw ModelError(origin_ + ":" + std::to_string(node.source().begin.line) + ":" +
                     std::to_string(node.source().begin.column) + ": " + what);
  }
  const toml::node* Get(const char* key) {
    known_.emplace_back(key);
    return table_.get(key);
  }
  std::uint64_t Number(const char* key, std::uint64_t fallback, std::uint64_t limit) {
    const toml::node* node = Get(key);
    if (node == nullptr) return fallback;
    return Number(*node, key, limit);
  }
  std::uint64_t Number(const toml::node& node, const char* key, std::uint64_t limit) const {
    const auto value = node.value<std::int64_t>();
    if (!value || (limit != ~0ull && (*value < 0 || static_cast<std::uint64_t>(*value) > limit))) {
      Fail(node, std::string(key) + " must be a number of at most " + std::to_string(limit));
    }
    return static_cast<std::uint64_t>(*value);
  }
  bool Flag(const char* key) {
    const toml::node* node = Get(key);
    if (node == nullptr) return false;
    if (!node->is_boolean()) Fail(*node, std::string(key) + " must be true or false");
    return **node->as_boolean();
  }
  std::string Text(const char* key, std::string fallback) {
    const toml::node* node = Get(key);
    if (node == nullptr) return fallback;
    if (!node->is_string()) Fail(*node, std::string(key) + " must be a text");
    return **node->as_string();
  }
  // A number, or an array with one number for each lane of a port.
  std::array<std::uint32_t, 2> PerLane(const char* key, std::uint64_t limit) {
    const toml::node* node = Get(key);
    if (node == nullptr) return {0, 0};
    const toml::array* array = node->as_array();
    if (array == nullptr) {
      const auto value = static_cast<std::uint32_t>(Number(*node, key, limit));
      return {value, value};
    }
    if (array->size() != 2) Fail(*node, std::string(key) + " needs one number for each lane");
    return {static_cast<std::uint32_t>(Number((*array)[0], key, limit)),
            static_cast<std::uint32_t>(Number((*array)[1], key, limit))};
  }
  std::vector<std::uint32_t> Numbers(const char* key) {
    std::vector<std::uint32_t> numbers;
    const toml::node* node = Get(key);
    if (node == nullptr) return numbers;
    if (!node->is_array()) Fail(*node, std::string(key) + " must be an array of numbers");
    for (const toml::node& each : *node->as_array()) {
      numbers.push_back(static_cast<std::uint32_t>(Number(each, key, 0xFFFFFFFF)));
    }
    return numbers;
  }
  std::vector<std::string> Texts(const char* key) {
    std::vector<std::string> texts;
    const toml::node* node = Get(key);
    if (node == nullptr) return texts;
    if (!node->is_array()) Fail(*node, std::string(key) + " must be an array of texts");
    for (const toml::node& each : *node->as_array()) {
      if (!each.is_string()) Fail(each, std::string(key) + " must be an array of texts");
      texts.push_back(**each.as_string());
    }
    return texts;
  }
  // "08 81 80": bytes in hexadecimal.
  std::vector<std::uint8_t> HexBytes(const std::string& text) const {
    std::vector<std::uint8_t> bytes;
    std::istringstream in(text);
    for (std::string word; in >> word;) {
      const bool hex = word.size() == 2 && word.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
      if (!hex) Fail(table_, "\"" + word + "\" is no byte");
      bytes.push_back(static_cast<std::uint8_t>(std::stoul(word, nullptr, 16)));
    }
    return bytes;
  }
  void RejectUnknown() const {
    for (const auto& [key, node] : table_) {
      if (std::find(known_.begin(), known_.end(), key.str()) == known_.end()) {
        Fail(node, "unknown key \"" + std::string(key.str()) + "\"");
      }
    }
  }
  const toml::table& table() const { return table_; }
  const std::string& origin() const { return origin_; }

 private:
  const toml::table& table_;
  const std::string& origin_;
  std::vector<std::string> known_;
};

template <class Action>
void ForEachTable(Reader& reader, const char* key, Action action) {
  const toml::node* node = reader.Get(key);
  if (node == nullptr) return;
  if (!node->is_array()) reader.Fail(*node, std::string(key) + " must be an array of tables");
  for (const toml::node& each : *node->as_array()) {
    if (!each.is_table()) reader.Fail(each, std::string(key) + " must be an array of tables");
    Reader entry(*each.as_table(), reader.origin());
    action(entry);
    entry.RejectUnknown();
  }
}

std::vector<CapabilityModel> ParseCapabilities(Reader& reader, const char* key) {
  std::vector<CapabilityModel> list;
  ForEachTable(reader, key, [&](Reader& entry) {
    CapabilityModel capability;
    capability.id = static_cast<unsigned>(entry.Number("id", 0, 0xFF));
    capability.offset = static_cast<unsigned>(entry.Number("offset", 0, 0x1FFF));
    capability.vsec = static_cast<unsigned>(entry.Number("vsec", 0, 0xFF));
    capability.length = static_cast<unsigned>(entry.Number("length", 0, 0x1000));
    capability.longForm = entry.Flag("long-form");
    if (entry.Get("next") != nullptr) capability.next = static_cast<unsigned>(entry.Number("next", 0, 0xFFFF));
    capability.words = entry.Numbers("words");
    list.push_back(std::move(capability));
  });
  return list;
}

std::uint32_t ParseType(Reader& entry) {
  const toml::node* node = entry.Get("type");
  if (node == nullptr) return kTypeInactive;
  if (node->is_integer()) return static_cast<std::uint32_t>(entry.Number(*node, "type", 0xFFFFFF));
  const auto name = node->value<std::string>();
  for (const NamedType& type : kTypes) {
    if (name == type.name) return type.type;
  }
  entry.Fail(*node, "unknown adapter type \"" + name.value_or("") + "\"");
}

const char* ChainName(std::uint32_t type) {
  switch (type) {
    case kTypeLane:
      return "lane";
    case kTypePcieDown:
    case kTypePcieUp:
      return "pcie";
    case kTypeUsb3Down:
    case kTypeUsb3Up:
      return "usb3";
    case kTypeDpIn:
    case kTypeDpOut:
      return "dp";
    default:
      return "other";
  }
}

using Chains = std::map<std::string, std::vector<CapabilityModel>>;

Chains ParseChains(Reader& reader) {
  Chains chains;
  const toml::node* node = reader.Get("chains");
  if (node == nullptr) return chains;
  if (!node->is_table()) reader.Fail(*node, "chains must be a table");
  Reader table(*node->as_table(), reader.origin());
  for (const char* name : {"lane", "pcie", "usb3", "dp", "other"}) chains[name] = ParseCapabilities(table, name);
  table.RejectUnknown();
  return chains;
}

// Host routers count USB3 bandwidth in units that hold the fastest link in 12 bits.
void ParseProtocol(Reader& entry, bool host, AdapterModel& adapter) {
  adapter.usb3Scale = static_cast<unsigned>(entry.Number("usb3-scale", host ? 1 : 0, 15));
  adapter.usb3RateMbps = static_cast<unsigned>(entry.Number("usb3-rate", adapter.usb3RateMbps, 20000));
  if (adapter.usb3RateMbps != 10000 && adapter.usb3RateMbps != 20000) {
    entry.Fail(entry.table(), "usb3-rate must be 10000 or 20000");
  }
  const std::vector<std::uint32_t> link = entry.Numbers("dp-link");
  if (link.empty()) return;
  if (link.size() == 2) adapter.dpLink = {link[0], link[1]};
  if (link.size() != 2 || !DpRateHasCode(adapter.dpLink)) {
    entry.Fail(entry.table(), "dp-link must be [1620, 2700, 5400 or 8100, 1, 2 or 4]");
  }
}

// Adapters of one entry share everything but their numbers; lanes pair up in the order of the numbers.
void ParseAdapters(Reader& reader, const Chains& chains, RouterModel& model) {
  ForEachTable(reader, "adapter", [&](Reader& entry) {
    AdapterModel shared;
    const std::vector<std::uint32_t> numbers = entry.Numbers("numbers");
    shared.type = ParseType(entry);
    shared.hop = static_cast<unsigned>(entry.Number("hop", 0, 0x7FF));
    const auto counters = entry.PerLane("counter-sets", 0x7FF);
    const auto buffers = entry.PerLane("buffer-word", 0xFFFFFFFF);
    shared.eventAtStart = entry.Flag("event-at-start");
    ParseProtocol(entry, model.host, shared);
    if (entry.Flag("disabled")) shared.presence = AdapterPresence::DisabledByDrom;
    const std::string chain = entry.Text("chain", ChainName(shared.type));
    auto found = chains.find(chain);
    if (found != chains.end()) shared.capabilities = found->second;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      if (numbers[i] == 0 || numbers[i] > model.maxAdapter) {
        entry.Fail(entry.table(), "adapter " + std::to_string(numbers[i]) + " is above the highest adapter");
      }
      AdapterModel adapter = shared;
      adapter.number = numbers[i];
      if (adapter.type == kTypeLane) {
        adapter.lane = i % 2;
        if ((i ^ 1) < numbers.size()) adapter.pair = numbers[i ^ 1];
      }
      adapter.counterSets = counters[i % 2];
      adapter.bufferWord = buffers[i % 2];
      model.adapters[numbers[i]] = adapter;
    }
  });
}

void ParseHostInterface(Reader& reader, RouterModel& model) {
  const toml::node* node = reader.Get("host-interface");
  if (node == nullptr) return;
  if (!node->is_table()) reader.Fail(*node, "host-interface must be a table");
  Reader entry(*node->as_table(), reader.origin());
  HostInterfaceConfig config;
  config.hopCount = static_cast<std::uint32_t>(entry.Number("hops", config.hopCount, 1023));
  config.barBytes = static_cast<std::uint32_t>(entry.Number("bar-bytes", config.barBytes, 0x1000000));
  config.messages = static_cast<unsigned>(entry.Number("messages", config.messages, 16));
  config.pci.vendor = static_cast<std::uint16_t>(entry.Number("pci-vendor", config.pci.vendor, 0xFFFF));
  config.pci.device = static_cast<std::uint16_t>(entry.Number("pci-device", config.pci.device, 0xFFFF));
  config.pci.powerOnSequence = config.pci.vendor == 0x8086 && config.pci.device == 0x9A1B;
  entry.RejectUnknown();
  model.hostInterface = config;
  model.host = true;
}

void ParseDrom(Reader& reader, RouterModel& model) {
  const toml::node* node = reader.Get("drom");
  if (node == nullptr) return;
  if (!node->is_table()) reader.Fail(*node, "drom must be a table");
  Reader entry(*node->as_table(), reader.origin());
  model.drom.present = true;
  model.drom.version = static_cast<unsigned>(entry.Number("version", 3, 255));
  model.drom.vendorId = static_cast<std::uint16_t>(entry.Number("vendor-id", 0, 0xFFFF));
  model.drom.modelId = static_cast<std::uint16_t>(entry.Number("model-id", 0, 0xFFFF));
  model.drom.vendorName = entry.Text("vendor-name", "");
  model.drom.deviceName = entry.Text("device-name", "");
  for (const std::string& text : entry.Texts("entries")) model.drom.entries.push_back(entry.HexBytes(text));
  model.drom.faults = entry.Texts("faults");
  entry.RejectUnknown();
}

RouterModel ParseTable(const toml::table& table, const std::string& origin) {
  Reader reader(table, origin);
  RouterModel model;
  model.name = reader.Text("name", "");
  model.vendor = static_cast<std::uint16_t>(reader.Number("vendor", model.vendor, 0xFFFF));
  model.device = static_cast<std::uint16_t>(reader.Number("device", 0, 0xFFFF));
  model.revision = static_cast<std::uint8_t>(reader.Number("revision", 0, 0xFF));
  model.usb4Version = static_cast<std::uint8_t>(reader.Number("usb4-version", 0, 0xFF));
  model.upstream = static_cast<unsigned>(reader.Number("upstream", 0, 63));
  model.maxAdapter = static_cast<unsigned>(reader.Number("max-adapter", 0, 63));
  model.notificationMs = static_cast<unsigned>(reader.Number("notification-ms", model.notificationMs, 0xFF));
  model.uid = reader.Number("uid", 0, ~0ull);
  model.laneSpeeds = static_cast<std::uint32_t>(reader.Number("lane-speeds", model.laneSpeeds, 0xF));
  model.laneWidths = static_cast<std::uint32_t>(reader.Number("lane-widths", model.laneWidths, 0x3F));
  model.dpInResources = static_cast<unsigned>(reader.Number("display-sources", model.dpInResources, 64));
  model.enumerateWithinMs = static_cast<unsigned>(reader.Number("enumerate-within-ms", 0, 100000));
  model.capabilities = ParseCapabilities(reader, "capability");
  model.adapters.resize(model.maxAdapter + 1);
  for (unsigned n = 0; n <= model.maxAdapter; ++n) {
    model.adapters[n].number = n;
    model.adapters[n].presence = AdapterPresence::NotImplemented;
  }
  const Chains chains = ParseChains(reader);
  ParseHostInterface(reader, model);
  ParseAdapters(reader, chains, model);
  ParseDrom(reader, model);
  reader.RejectUnknown();
  return model;
}

const std::map<std::string, RouterModel, std::less<>>& BuiltIn() {
  static const auto models = [] {
    std::map<std::string, RouterModel, std::less<>> parsed;
    for (const EmbeddedModel& file : EmbeddedModels()) {
      RouterModel model = ParseModel(file.text, std::string(file.name) + ".toml");
      const std::string name = model.name;
      parsed.emplace(name, std::move(model));
    }
    return parsed;
  }();
  return models;
}

}  // namespace

RouterModel ParseModel(std::string_view text, const std::string& origin) {
  try {
    return ParseTable(toml::parse(text), origin);
  } catch (const toml::parse_error& error) {
    throw ModelError(origin + ":" + std::to_string(error.source().begin.line) + ":" +
                     std::to_string(error.source().begin.column) + ": " + std::string(error.description()));
  }
}

const RouterModel* FindModel(std::string_view name) {
  auto found = BuiltIn().find(name);
  return found == BuiltIn().end() ? nullptr : &found->second;
}

std::vector<std::string> ModelNames() {
  std::vector<std::string> names;
  for (const auto& [name, model] : BuiltIn()) names.push_back(name);
  return names;
}

}  // namespace sim
