#include "platform/kernel/registry.h"

#include <algorithm>
#include <cstring>

#include "platform/include/wdm.h"

namespace platform {
namespace {

char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// The part before the next '\\'; `path` keeps what follows.
std::string_view TakePart(std::string_view& path) {
  const std::size_t end = std::min(path.find('\\'), path.size());
  const std::string_view part = path.substr(0, end);
  path.remove_prefix(std::min(end + 1, path.size()));
  return part;
}

std::string_view BelowRoot(std::string_view fullPath) {
  if (fullPath.starts_with('\\')) fullPath.remove_prefix(1);
  return fullPath;
}

}  // namespace

bool NameLess::operator()(std::string_view first, std::string_view second) const {
  return std::lexicographical_compare(first.begin(), first.end(), second.begin(), second.end(),
                                      [](char a, char b) { return Lower(a) < Lower(b); });
}

RegistryKey& RegistryKey::Create(std::string_view path) {
  if (path.empty()) return *this;
  const std::string_view part = TakePart(path);
  auto it = subkeys_.find(part);
  if (it == subkeys_.end()) {
    auto key = std::make_unique<RegistryKey>(path_ + "\\" + std::string(part));
    it = subkeys_.emplace(std::string(part), std::move(key)).first;
  }
  return it->second->Create(path);
}

RegistryKey* RegistryKey::Find(std::string_view path) {
  if (path.empty()) return this;
  const std::string_view part = TakePart(path);
  const auto it = subkeys_.find(part);
  return it == subkeys_.end() ? nullptr : it->second->Find(path);
}

// Stored as the registry does: UTF-16 with its terminator. The text is ASCII.
void RegistryKey::SetText(std::string_view name, std::string_view text) {
  RegistryValue value{REG_SZ, std::vector<std::byte>((text.size() + 1) * sizeof(WCHAR))};
  for (std::size_t i = 0; i < text.size(); ++i) value.data[2 * i] = static_cast<std::byte>(text[i]);
  values_.insert_or_assign(std::string(name), std::move(value));
}

void RegistryKey::SetNumber(std::string_view name, std::uint32_t number) {
  RegistryValue value{REG_DWORD, std::vector<std::byte>(sizeof number)};
  std::memcpy(value.data.data(), &number, sizeof number);
  values_.insert_or_assign(std::string(name), std::move(value));
}

const RegistryValue* RegistryKey::Value(std::string_view name) const {
  const auto it = values_.find(name);
  return it == values_.end() ? nullptr : &it->second;
}

void RegistryKey::RemoveSubkey(std::string_view name) {
  if (const auto it = subkeys_.find(name); it != subkeys_.end()) subkeys_.erase(it);
}

RegistryKey& Registry::Create(std::string_view fullPath) {
  return root_.Create(BelowRoot(fullPath));
}

RegistryKey* Registry::Find(std::string_view fullPath) {
  return root_.Find(BelowRoot(fullPath));
}

std::uint64_t Registry::Open(RegistryKey& key) {
  const std::uint64_t handle = nextHandle_;
  nextHandle_ += 4;
  open_.emplace(handle, &key);
  return handle;
}

RegistryKey* Registry::FromHandle(std::uint64_t handle) const {
  const auto it = open_.find(handle);
  return it == open_.end() ? nullptr : it->second;
}

bool Registry::Close(std::uint64_t handle) {
  return open_.erase(handle) != 0;
}

void Registry::ReportLeaks() {
  if (open_.empty()) return;
  simulation_.Report(Rule::HandleLeak, std::to_string(open_.size()) +
                                           " key handle(s) still open, first: " + open_.begin()->second->path());
}

}  // namespace platform
