// The device interfaces that companion drivers of a host offer.
#pragma once
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/companion.h"

namespace platform {

class Companions {
 public:
  void Offer(Companion companion);
  // Targets that are open on it find nobody from then on.
  void Withdraw(std::string_view symbolicLink);
  // Null when nobody offers the link. The record outlives its withdrawal as long as somebody holds it.
  std::shared_ptr<const Companion> Find(std::string_view symbolicLink) const;
  // In the order in which they were offered.
  std::vector<std::string> LinksOf(std::string_view interfaceClass) const;

 private:
  std::vector<std::shared_ptr<const Companion>> offered_;
};

}  // namespace platform
