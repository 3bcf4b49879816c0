// What a scenario file may hold wrong, said once: unknown key, wrong type, out of range.
#include "lab/input/toml_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "lab/input/duration.h"
#include "lab/input/suggest.h"

namespace lab {
namespace {

const toml::table kNoTable;
constexpr std::size_t kMostBytes = 1024 * 1024;
constexpr unsigned kMostKeyParts = 32;

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

InputPosition PositionOf(const toml::source_position& at) {
  return {at.line, at.column};
}

InputPosition PositionOf(const toml::node& node) {
  return PositionOf(node.source().begin);
}

// Where the string that begins at `at` ends: behind its closing quotes, at the end of its line, or of the text.
std::size_t EndOfString(std::string_view text, std::size_t at) {
  const std::string_view quote = text.substr(at, 1), threefold = text.substr(at, 3);
  const bool lines = threefold == "\"\"\"" || threefold == "'''";
  const std::string_view closing = lines ? threefold : quote;
  for (at += closing.size(); at < text.size(); ++at) {
    if (text[at] == '\\' && quote == "\"") {
      ++at;
    } else if (text.substr(at, closing.size()) == closing) {
      return at + closing.size();
    } else if (text[at] == '\n' && !lines) {
      return at;
    }
  }
  return text.size();
}

// The parser makes one table of each part of a dotted key, and calls itself for each.
void RequireShortKeys(std::string_view text, const std::string& name) {
  unsigned parts = 1, line = 1;
  std::size_t lineStart = 0, keyStart = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    if (c == '#') at = std::min(text.find('\n', at), text.size()) - 1;
    if (c == '"' || c == '\'') {
      const std::size_t end = EndOfString(text, at);
      for (; at < end; ++at) {
        if (text[at] == '\n') ++line, lineStart = at + 1;
      }
      --at;
    }
    if (c == '\n') ++line, lineStart = at + 1;
    if (std::string_view("\n=,[]{}").find(c) != std::string_view::npos) parts = 1, keyStart = at + 1;
    if (c == '.' && ++parts > kMostKeyParts) {
      throw InputError(name, {line, static_cast<unsigned>(keyStart - lineStart + 1)},
                       fmt::format("a key has at most {} parts, this one has more", kMostKeyParts));
    }
  }
}

}  // namespace

toml::table ReadTomlText(const std::string& text, const std::string& name) {
  if (text.size() > kMostBytes) {
    throw InputError(name, {}, fmt::format("has more than {} bytes, which is the limit", kMostBytes));
  }
  RequireShortKeys(text, name);
  try {
    return toml::parse(text, name);
  } catch (const toml::parse_error& error) {
    throw InputError(name, PositionOf(error.source().begin), error.description());
  }
}

toml::table ReadTomlFile(const std::string& file) {
  return ReadTomlText(ReadInput(file, kMostBytes), InputName(file));
}

const toml::node* TableReader::Find(std::string_view key) {
  known_.emplace_back(key);
  return table_->get(key);
}

bool TableReader::Has(std::string_view key) {
  return Find(key) != nullptr;
}

void TableReader::WrongType(std::string_view key, const toml::node& node, std::string_view wanted) const {
  problems_->Add(PositionOf(node), fmt::format("{} must be {}, not {}", key, wanted, TypeName(node)));
}

InputPosition TableReader::source() const {
  return PositionOf(*table_);
}

void TableReader::Fail(std::string_view key, std::string_view message) const {
  const toml::node* node = table_->get(key);
  problems_->Add(node ? PositionOf(*node) : source(), message);
}

std::string TableReader::Text(std::string_view key, std::string fallback) {
  const toml::node* node = Find(key);
  if (!node) return fallback;
  if (node->is_string()) return node->as_string()->get();
  WrongType(key, *node, "text");
  return fallback;
}

std::optional<std::string> TableReader::RequiredText(std::string_view key) {
  const toml::node* node = Find(key);
  if (!node) Missing(key);
  const std::string text = Text(key, "");
  return node && node->is_string() ? std::optional(text) : std::nullopt;
}

bool TableReader::Flag(std::string_view key, bool fallback) {
  const toml::node* node = Find(key);
  if (!node) return fallback;
  if (node->is_boolean()) return node->as_boolean()->get();
  WrongType(key, *node, "true or false");
  return fallback;
}

std::optional<std::int64_t> TableReader::NumberOf(std::string_view key, const toml::node& node, std::int64_t low,
                                                  std::int64_t high) const {
  std::int64_t value = 0;
  bool number = node.is_integer();
  if (number) {
    value = node.as_integer()->get();
  } else if (node.is_string() && node.as_string()->get().starts_with("0x")) {
    const std::string& text = node.as_string()->get();
    const auto [end, error] = std::from_chars(text.data() + 2, text.data() + text.size(), value, 16);
    number = error == std::errc() && end == text.data() + text.size();
  }
  if (number && value >= low && value <= high) return value;
  if (number) {
    problems_->Add(PositionOf(node), fmt::format("{} must be in {} to {}", key, low, high));
  } else {
    WrongType(key, node, "a number");
  }
  return std::nullopt;
}

std::int64_t TableReader::Number(std::string_view key, std::int64_t fallback, std::int64_t low, std::int64_t high) {
  const toml::node* node = Find(key);
  return node ? NumberOf(key, *node, low, high).value_or(fallback) : fallback;
}

platform::Time TableReader::Duration(std::string_view key, platform::Time fallback) {
  const toml::node* node = Find(key);
  if (!node) return fallback;
  if (!node->is_string()) {
    WrongType(key, *node, "a time such as \"250 ms\"");
    return fallback;
  }
  const auto time = ParseDuration(node->as_string()->get());
  if (!time) Fail(key, fmt::format("{} must be a time such as \"250 ms\", \"1.5 s\" or \"20 us\"", key));
  return time.value_or(fallback);
}

std::optional<std::size_t> TableReader::Index(std::string_view key, const std::vector<std::string>& names) {
  const toml::node* node = Find(key);
  const std::string text = Text(key, "");
  if (!node || !node->is_string()) return std::nullopt;
  const auto found = std::find(names.begin(), names.end(), text);
  if (found != names.end()) return static_cast<std::size_t>(found - names.begin());
  Fail(key, fmt::format("unknown {} \"{}\"{}", key, text, Suggestion(text, names)));
  return std::nullopt;
}

std::string TableReader::Choice(std::string_view key, const std::vector<std::string>& names, std::string fallback) {
  const auto index = Index(key, names);
  return index ? names[*index] : fallback;
}

std::vector<std::string> TableReader::TextList(std::string_view key) {
  const toml::node* node = Find(key);
  std::vector<std::string> list;
  if (!node) return list;
  if (!node->is_array()) WrongType(key, *node, "a list of texts");
  if (!node->is_array()) return list;
  for (const toml::node& item : *node->as_array()) {
    if (item.is_string()) {
      list.push_back(item.as_string()->get());
    } else {
      WrongType(key, item, "a list of texts");
    }
  }
  return list;
}

std::vector<TableReader> TableReader::Tables(std::string_view key, std::size_t most) {
  const toml::node* node = Find(key);
  std::vector<TableReader> list;
  if (!node) return list;
  const std::string wanted = fmt::format("a list of tables, each written [[{}]]", key);
  if (!node->is_array()) WrongType(key, *node, wanted);
  if (!node->is_array()) return list;
  for (const toml::node& item : *node->as_array()) {
    if (list.size() == most) {
      problems_->Add(PositionOf(item),
                     fmt::format("at most {} of [[{}]], here are {}", most, key, node->as_array()->size()));
      return list;
    }
    if (item.is_table()) {
      list.emplace_back(*problems_, *item.as_table());
    } else {
      WrongType(key, item, wanted);
    }
  }
  return list;
}

TableReader TableReader::Table(std::string_view key) {
  const toml::node* node = Find(key);
  if (node && !node->is_table()) WrongType(key, *node, "a table");
  return TableReader(*problems_, node && node->is_table() ? *node->as_table() : kNoTable);
}

std::vector<std::pair<std::string, std::uint32_t>> TableReader::NumbersByKey() {
  std::vector<std::pair<std::string, std::uint32_t>> numbers;
  for (const auto& [key, node] : *table_) {
    known_.emplace_back(key.str());
    const auto number = NumberOf(key.str(), node, 0, 0xFFFFFFFF);
    if (number) numbers.emplace_back(key.str(), static_cast<std::uint32_t>(*number));
  }
  return numbers;
}

void TableReader::Finish() {
  InputPosition last = source();
  for (const auto& [key, node] : *table_) {
    const InputPosition at = PositionOf(key.source().begin);
    last = std::max(last, PositionOf(node.source().end));
    if (std::find(known_.begin(), known_.end(), key.str()) != known_.end()) continue;
    problems_->Add(at, fmt::format("unknown key \"{}\"{}", key.str(), Suggestion(key.str(), known_)));
    std::erase(missing_, Nearest(key.str(), known_));
  }
  for (const std::string& key : missing_) problems_->Add(source(), last, fmt::format("{} is missing", key));
}

}  // namespace lab
