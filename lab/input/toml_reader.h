// Typed reading of a TOML table: every key is asked for once, what was not asked for is a mistake, and every mistake
// knows its line and column. Reading goes on after a mistake, with the value that stands for a key that is not there,
// so that a file tells all its mistakes at once.
#pragma once
#include <toml++/toml.h>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lab/input/input_file.h"
#include "platform/host/time.h"

namespace lab {

// Parses a text; what is no TOML, has a key of more than 32 parts or too many bytes throws InputError. Errors call the
// text `name`.
toml::table ReadTomlText(const std::string& text, const std::string& name);
// The same for a file, or for standard input where it is called "-".
toml::table ReadTomlFile(const std::string& file);

class TableReader {
 public:
  TableReader(InputProblems& problems, const toml::table& table) : problems_(&problems), table_(&table) {}

  bool Has(std::string_view key);
  std::string Text(std::string_view key, std::string fallback);
  // None when the key is missing or no text, which is a mistake.
  std::optional<std::string> RequiredText(std::string_view key);
  bool Flag(std::string_view key, bool fallback);
  // A number in low .. high, written as an integer or as text "0x...".
  std::int64_t Number(std::string_view key, std::int64_t fallback, std::int64_t low, std::int64_t high);
  platform::Time Duration(std::string_view key, platform::Time fallback);
  // One of the names.
  std::string Choice(std::string_view key, const std::vector<std::string>& names, std::string fallback);
  // Which of the names it is; none when the key is absent, or wrong, which is a mistake.
  std::optional<std::size_t> Index(std::string_view key, const std::vector<std::string>& names);
  std::vector<std::string> TextList(std::string_view key);
  // The tables of an array of tables ([[key]]); none when the key is absent. More than `most` are a mistake, and the
  // rest is not read.
  std::vector<TableReader> Tables(std::string_view key, std::size_t most = std::string::npos);
  // The sub-table [key]; an empty one when absent.
  TableReader Table(std::string_view key);
  // Every key with its number, for tables whose keys are data.
  std::vector<std::pair<std::string, std::uint32_t>> NumbersByKey();

  // Where the table begins in its file.
  InputPosition source() const;
  // A mistake in the value of `key` (in the table itself when it has no such key).
  void Fail(std::string_view key, std::string_view message) const;
  // The key should be there.
  void Missing(std::string_view key) { missing_.emplace_back(key); }
  // Reports the keys that nothing has asked for, then those that are missing; a key that an unknown one was meant to be
  // is not missing.
  void Finish();
  // Of the whole file so far.
  std::size_t Mistakes() const { return problems_->Count(); }

 private:
  const toml::node* Find(std::string_view key);
  void WrongType(std::string_view key, const toml::node& node, std::string_view wanted) const;
  std::optional<std::int64_t> NumberOf(std::string_view key, const toml::node& node, std::int64_t low,
                                       std::int64_t high) const;

  InputProblems* problems_;
  const toml::table* table_;
  std::vector<std::string> known_, missing_;
};

}  // namespace lab
