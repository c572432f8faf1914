// Checked reading of one TOML table: every mistake becomes a finding with line, key, value and what
// is allowed, and reading goes on. A key that nobody asked for is a mistake, too.
#pragma once

#include <toml++/toml.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/limits.h"
#include "lab/findings.h"

namespace erps::lab {

// The rules of values that have none of their own.
inline constexpr const char* kWrongValue = "wrong-value";
inline constexpr const char* kWrongType = "wrong-type";

// A value with the line that it stands in.
template <typename T>
struct Located {
  T value;
  uint32_t line;
};

class TomlTable {
 public:
  // `what` names the table in findings: "ring 1", "node \"n1\"". Both references must outlive this.
  TomlTable(const toml::table& table, std::string what, Findings& findings);

  uint32_t line() const { return line_; }
  const std::string& what() const { return what_; }
  void rename(std::string what) { what_ = std::move(what); }

  // Whether the key is there, of whatever kind.
  bool has(const char* key);
  bool is_list(const char* key);
  bool is_integer(const char* key, int64_t value);
  uint32_t line_of(const char* key) const;

  // Empty when the key is absent or wrong; wrong values have been reported.
  std::optional<Located<std::string>> text(const char* key);
  // `rule` is the one that a value out of range breaks.
  std::optional<Located<int64_t>> integer(const char* key, const client::Range& range,
                                          const char* rule = kWrongValue);
  std::optional<Located<double>> number(const char* key, double min, double max, const char* unit);
  std::optional<Located<bool>> boolean(const char* key);
  std::optional<Located<std::vector<std::string>>> texts(const char* key);
  // A text or a list of texts.
  std::optional<Located<std::vector<std::string>>> text_or_texts(const char* key);
  std::optional<Located<std::vector<int64_t>>> integers(const char* key, const client::Range& range,
                                                        const char* rule);
  // A number, or a list of two in ascending order.
  std::optional<Located<std::array<int64_t, 2>>> range(const char* key, const client::Range& range);
  const toml::table* table(const char* key);
  // The tables of [[key]]; empty when there are none.
  std::vector<const toml::table*> tables(const char* key);

  // Reports the absence of a key that must be there.
  void missing(const char* key, const std::string& allowed, const char* rule = "missing-key");
  // An error in the value of a key: why, and what is allowed or to be done; either may be empty.
  void wrong(const char* rule, const char* key, const std::string& why,
             const std::string& advice = {});
  // Likewise for what is accepted. `value` stands for a key that is absent.
  void warn(const char* rule, const char* key, const std::string& value, const std::string& why,
            const std::string& advice);
  // Reports every key that nobody asked for. Called last.
  void refuse_the_rest();

 private:
  const toml::node* find(const char* key);

  const toml::table& table_;
  std::string what_;
  Findings& findings_;
  uint32_t line_;
  std::vector<std::string> known_keys_;
};

// A value as it would stand in the file, for messages; a long one is cut off.
std::string value_text(const toml::node& node);

}  // namespace erps::lab
