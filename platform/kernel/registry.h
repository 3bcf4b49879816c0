// The registry of one host: a tree of keys with values, and the handles to keys that calls hold open.
// Names are compared without regard to case. Paths and names are plain text; a value of type REG_SZ holds UTF-16.
#pragma once
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/simulation.h"

namespace platform {

struct NameLess {
  using is_transparent = void;
  bool operator()(std::string_view first, std::string_view second) const;
};

struct RegistryValue {
  std::uint32_t type = 0;  // REG_SZ, REG_DWORD, ...
  std::vector<std::byte> data;
};

class RegistryKey {
 public:
  explicit RegistryKey(std::string path) : path_(std::move(path)) {}

  const std::string& path() const { return path_; }
  // Path below this key, parts separated by '\\'; an empty path is the key itself.
  RegistryKey& Create(std::string_view path);
  RegistryKey* Find(std::string_view path);
  void SetText(std::string_view name, std::string_view text);
  void SetNumber(std::string_view name, std::uint32_t number);
  const RegistryValue* Value(std::string_view name) const;
  void RemoveSubkey(std::string_view name);

 private:
  std::string path_;
  std::map<std::string, std::unique_ptr<RegistryKey>, NameLess> subkeys_;
  std::map<std::string, RegistryValue, NameLess> values_;
};

class Registry {
 public:
  explicit Registry(Simulation& simulation) : root_(""), simulation_(simulation) {}

  // The root: full paths begin with "\\Registry\\Machine\\"; the leading '\\' is left out below the root.
  RegistryKey& Create(std::string_view fullPath);
  RegistryKey* Find(std::string_view fullPath);

  // Kernel handles. Numbers, never used twice, so that a stale one is known.
  std::uint64_t Open(RegistryKey& key);
  RegistryKey* FromHandle(std::uint64_t handle) const;
  bool Close(std::uint64_t handle);
  std::size_t OpenHandles() const { return open_.size(); }
  void ReportLeaks();  // rule handle-leak

 private:
  RegistryKey root_;
  Simulation& simulation_;
  std::map<std::uint64_t, RegistryKey*> open_;
  std::uint64_t nextHandle_ = 0x80000004;
};

}  // namespace platform
