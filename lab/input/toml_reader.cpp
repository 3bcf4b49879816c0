// What a scenario file may hold wrong, said once: unknown key, wrong type, out of range.
#include "lab/input/toml_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <filesystem>

#include "lab/input/duration.h"
#include "lab/input/suggest.h"

namespace lab {
namespace {

const toml::table kNoTable;

std::string_view TypeName(const toml::node& node) {
  switch (node.type()) {
    case toml::node_type::string:
      return "text";
    case toml::node_type::integer:
      return "a number";
    case toml::node_type::floating_point:
      return "a number with a point";
    case toml::node_type::boolean:
      return "true or false";
    case toml::node_type::array:
      return "a list";
    case toml::node_type::table:
      return "a table";
    default:
      return "a date or time";
  }
}

std::string OneLine(std::string_view text) {
  return std::string(text.substr(0, text.find('\n')));
}

}  // namespace

InputError::InputError(std::string_view file, toml::source_position at, std::string_view message)
    : std::runtime_error(
          fmt::format("{}:{}:{}: {}", file, std::max(at.line, 1u), std::max(at.column, 1u), OneLine(message))) {}

toml::table ReadTomlFile(const std::string& file) {
  if (!std::filesystem::is_regular_file(file)) throw InputError(file, {1, 1}, "no such file");
  try {
    return toml::parse_file(file);
  } catch (const toml::parse_error& error) {
    throw InputError(file, error.source().begin, error.description());
  }
}

toml::table ReadTomlText(const std::string& text, const std::string& name) {
  try {
    return toml::parse(text, name);
  } catch (const toml::parse_error& error) {
    throw InputError(name, error.source().begin, error.description());
  }
}

const toml::node* TableReader::Find(std::string_view key) {
  known_.emplace_back(key);
  return table_->get(key);
}

bool TableReader::Has(std::string_view key) {
  return Find(key) != nullptr;
}

void TableReader::WrongType(std::string_view key, const toml::node& node, std::string_view wanted) const {
  throw InputError(file_, node.source().begin, fmt::format("{} must be {}, not {}", key, wanted, TypeName(node)));
}

void TableReader::Fail(std::string_view key, std::string_view message) const {
  const toml::node* node = table_->get(key);
  throw InputError(file_, node ? node->source().begin : table_->source().begin, message);
}

std::string TableReader::Text(std::string_view key, std::string fallback) {
  const toml::node* node = Find(key);
  if (!node) return fallback;
  if (!node->is_string()) WrongType(key, *node, "text");
  return node->as_string()->get();
}

std::string TableReader::RequiredText(std::string_view key) {
  if (!Has(key)) Fail(key, fmt::format("{} is missing", key));
  return Text(key, "");
}

bool TableReader::Flag(std::string_view key, bool fallback) {
  const toml::node* node = Find(key);
  if (!node) return fallback;
  if (!node->is_boolean()) WrongType(key, *node, "true or false");
  return node->as_boolean()->get();
}

std::int64_t TableReader::NumberOf(std::string_view key, const toml::node& node, std::int64_t low,
                                   std::int64_t high) const {
  std::int64_t value = 0;
  if (node.is_integer()) {
    value = node.as_integer()->get();
  } else if (node.is_string() && node.as_string()->get().starts_with("0x")) {
    const std::string& text = node.as_string()->get();
    const auto [end, error] = std::from_chars(text.data() + 2, text.data() + text.size(), value, 16);
    if (error != std::errc() || end != text.data() + text.size()) WrongType(key, node, "a number");
  } else {
    WrongType(key, node, "a number");
  }
  if (value < low || value > high)
    throw InputError(file_, node.source().begin, fmt::format("{} must be in {} to {}", key, low, high));
  return value;
}

std::int64_t TableReader::Number(std::string_view key, std::int64_t fallback, std::int64_t low, std::int64_t high) {
  const toml::node* node = Find(key);
  return node ? NumberOf(key, *node, low, high) : fallback;
}

platform::Time TableReader::Duration(std::string_view key, platform::Time fallback) {
  const toml::node* node = Find(key);
  if (!node) return fallback;
  if (!node->is_string()) WrongType(key, *node, "a time such as \"250 ms\"");
  const auto time = ParseDuration(node->as_string()->get());
  if (!time) Fail(key, fmt::format("{} must be a time such as \"250 ms\", \"1.5 s\" or \"20 us\"", key));
  return *time;
}

std::string TableReader::Choice(std::string_view key, const std::vector<std::string>& names, std::string fallback) {
  const std::string text = Text(key, std::move(fallback));
  if (std::find(names.begin(), names.end(), text) == names.end())
    Fail(key, fmt::format("unknown {} \"{}\"{}", key, text, Suggestion(text, names)));
  return text;
}

std::vector<std::string> TableReader::TextList(std::string_view key) {
  const toml::node* node = Find(key);
  std::vector<std::string> list;
  if (!node) return list;
  if (!node->is_array()) WrongType(key, *node, "a list of texts");
  for (const toml::node& item : *node->as_array()) {
    if (!item.is_string()) WrongType(key, item, "a list of texts");
    list.push_back(item.as_string()->get());
  }
  return list;
}

std::vector<TableReader> TableReader::Tables(std::string_view key) {
  const toml::node* node = Find(key);
  std::vector<TableReader> list;
  if (!node) return list;
  if (!node->is_array()) WrongType(key, *node, fmt::format("a list of tables, each written [[{}]]", key));
  for (const toml::node& item : *node->as_array()) {
    if (!item.is_table()) WrongType(key, item, fmt::format("a list of tables, each written [[{}]]", key));
    list.emplace_back(file_, *item.as_table());
  }
  return list;
}

TableReader TableReader::Table(std::string_view key) {
  const toml::node* node = Find(key);
  if (!node) return TableReader(file_, kNoTable);
  if (!node->is_table()) WrongType(key, *node, "a table");
  return TableReader(file_, *node->as_table());
}

std::vector<std::pair<std::string, std::uint32_t>> TableReader::NumbersByKey() {
  std::vector<std::pair<std::string, std::uint32_t>> numbers;
  for (const auto& [key, node] : *table_) {
    known_.emplace_back(key.str());
    numbers.emplace_back(key.str(), static_cast<std::uint32_t>(NumberOf(key.str(), node, 0, 0xFFFFFFFF)));
  }
  return numbers;
}

void TableReader::RejectUnknownKeys() const {
  for (const auto& [key, node] : *table_) {
    if (std::find(known_.begin(), known_.end(), key.str()) == known_.end())
      throw InputError(file_, key.source().begin,
                       fmt::format("unknown key \"{}\"{}", key.str(), Suggestion(key.str(), known_)));
  }
}

}  // namespace lab
