#include "platform/kernel/companions.h"

#include <utility>

namespace platform {

void Companions::Offer(Companion companion) {
  offered_.push_back(std::make_shared<const Companion>(std::move(companion)));
}

void Companions::Withdraw(std::string_view symbolicLink) {
  std::erase_if(offered_, [symbolicLink](const auto& companion) { return companion->symbolicLink == symbolicLink; });
}

std::shared_ptr<const Companion> Companions::Find(std::string_view symbolicLink) const {
  for (const auto& companion : offered_) {
    if (companion->symbolicLink == symbolicLink) return companion;
  }
  return nullptr;
}

std::vector<std::string> Companions::LinksOf(std::string_view interfaceClass) const {
  std::vector<std::string> links;
  for (const auto& companion : offered_) {
    if (companion->interfaceClass == interfaceClass) links.push_back(companion->symbolicLink);
  }
  return links;
}

}  // namespace platform
