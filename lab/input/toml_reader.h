// Typed reading of a TOML table: every key is asked for once, what was not asked for is an error, and every error knows
// its line and column.
#pragma once
#include <toml++/toml.h>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/time.h"

namespace lab {

// A mistake of whoever wrote the file; what() is the whole line `file:line:column: message`.
class InputError : public std::runtime_error {
 public:
  InputError(std::string_view file, toml::source_position at, std::string_view message);
};

// Reads and parses a file; a file that is missing or no TOML throws InputError.
toml::table ReadTomlFile(const std::string& file);
// Parses a text that stands in no file; errors call it `name`.
toml::table ReadTomlText(const std::string& text, const std::string& name);

class TableReader {
 public:
  TableReader(std::string file, const toml::table& table) : file_(std::move(file)), table_(&table) {}

  bool Has(std::string_view key);
  std::string Text(std::string_view key, std::string fallback);
  std::string RequiredText(std::string_view key);
  bool Flag(std::string_view key, bool fallback);
  // A number in low .. high, written as an integer or as text "0x...".
  std::int64_t Number(std::string_view key, std::int64_t fallback, std::int64_t low, std::int64_t high);
  platform::Time Duration(std::string_view key, platform::Time fallback);
  // One of the names.
  std::string Choice(std::string_view key, const std::vector<std::string>& names, std::string fallback);
  std::vector<std::string> TextList(std::string_view key);
  // The tables of an array of tables ([[key]]); none when the key is absent.
  std::vector<TableReader> Tables(std::string_view key);
  // The sub-table [key]; an empty one when absent.
  TableReader Table(std::string_view key);
  // Every key with its number, for tables whose keys are data.
  std::vector<std::pair<std::string, std::uint32_t>> NumbersByKey();

  // Where the table begins in its file.
  toml::source_position source() const { return table_->source().begin; }
  // An error about the value of `key` (about the table itself when it has no such key).
  [[noreturn]] void Fail(std::string_view key, std::string_view message) const;
  // Throws for the first key that nothing asked for.
  void RejectUnknownKeys() const;

 private:
  const toml::node* Find(std::string_view key);
  [[noreturn]] void WrongType(std::string_view key, const toml::node& node, std::string_view wanted) const;
  std::int64_t NumberOf(std::string_view key, const toml::node& node, std::int64_t low, std::int64_t high) const;

  std::string file_;
  const toml::table* table_;
  std::vector<std::string> known_;
};

}  // namespace lab
