// What is found wrong with a machine at rest, as data: a rule with its message, and what the message names.
#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sim {

// Numbers and names as their rule's message needs them; an empty text prints as "none".
struct FindingArguments {
  std::string router = {}, adapter = {};  // by the names of the hardware: "D1", "D1:3"
  std::string path = {}, why = {};
  std::string tunnel = {};  // by the names of a manager: "PCIe 0:3 -> 1:9"
  std::string kind = {};
  std::string held = {}, used = {};  // by one side and by the other
  std::optional<std::uint64_t> route = {};
  std::optional<unsigned> hop = {};
  std::optional<std::int64_t> found = {}, expected = {};
};

std::string FillFinding(std::string_view message, const FindingArguments& arguments);

}  // namespace sim
