#include "lab/toml_table.h"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace erps::lab {

namespace {

constexpr size_t kLongestValue = 100;

uint32_t line_of_node(const toml::node& node) {
  return static_cast<uint32_t>(node.source().begin.line);
}

std::string number_text(double number) {
  std::ostringstream out;
  out << number;
  return out.str();
}

std::string shortened(std::string text) {
  if (text.size() > kLongestValue) {
    text.resize(kLongestValue);
    text += "...";
  }
  return text;
}

std::string allowed(const client::Range& range) {
  return "allowed: " + client::range_text(range);
}

}  // namespace

std::string value_text(const toml::node& node) {
  std::ostringstream out;
  node.visit([&](const auto& value) {
    if constexpr (toml::is_table<decltype(value)>) {
      out << "a table";
    } else {
      out << value;
    }
  });
  return shortened(out.str());
}

TomlTable::TomlTable(const toml::table& table, std::string what, Findings& findings)
    : table_(table), what_(std::move(what)), findings_(findings), line_(line_of_node(table)) {}

const toml::node* TomlTable::find(const char* key) {
  if (std::find(known_keys_.begin(), known_keys_.end(), key) == known_keys_.end()) {
    known_keys_.emplace_back(key);
  }
  return table_.get(key);
}

bool TomlTable::has(const char* key) {
  return find(key) != nullptr;
}

bool TomlTable::is_list(const char* key) {
  const toml::node* node = find(key);
  return node != nullptr && node->is_array();
}

bool TomlTable::is_integer(const char* key, int64_t value) {
  const toml::node* node = find(key);
  return node != nullptr && node->is_integer() && node->as_integer()->get() == value;
}

uint32_t TomlTable::line_of(const char* key) const {
  const toml::node* node = table_.get(key);
  return node == nullptr ? line_ : line_of_node(*node);
}

void TomlTable::missing(const char* key, const std::string& allowed, const char* rule) {
  findings_.add({.rule = rule,
                 .line = line_,
                 .where = what_,
                 .key = key,
                 .why = "missing",
                 .advice = "allowed: " + allowed});
}

void TomlTable::wrong(const char* rule, const char* key, const std::string& why,
                      const std::string& advice) {
  const toml::node* node = find(key);
  findings_.add({.rule = rule,
                 .line = line_of(key),
                 .where = what_,
                 .key = key,
                 .value = node == nullptr ? std::string() : value_text(*node),
                 .why = why,
                 .advice = advice});
}

void TomlTable::warn(const char* rule, const char* key, const std::string& value,
                     const std::string& why, const std::string& advice) {
  const toml::node* node = find(key);
  findings_.add({.severity = Severity::kWarning,
                 .rule = rule,
                 .line = line_of(key),
                 .where = what_,
                 .key = key,
                 .value = node == nullptr ? value : value_text(*node),
                 .why = why,
                 .advice = advice});
}

std::optional<Located<std::string>> TomlTable::text(const char* key) {
  const toml::node* node = find(key);
  if (node == nullptr) {
    return std::nullopt;
  }
  if (const auto* value = node->as_string()) {
    return Located<std::string>{value->get(), line_of_node(*node)};
  }
  wrong(kWrongType, key, {}, "allowed: a text in quotes");
  return std::nullopt;
}

std::optional<Located<int64_t>> TomlTable::integer(const char* key, const client::Range& range,
                                                   const char* rule) {
  const toml::node* node = find(key);
  if (node == nullptr) {
    return std::nullopt;
  }
  const auto* value = node->as_integer();
  if (value == nullptr || !range.contains(value->get())) {
    wrong(value == nullptr ? kWrongType : rule, key, {}, allowed(range));
    return std::nullopt;
  }
  return Located<int64_t>{value->get(), line_of_node(*node)};
}

std::optional<Located<double>> TomlTable::number(const char* key, double min, double max,
                                                 const char* unit) {
  const toml::node* node = find(key);
  if (node == nullptr) {
    return std::nullopt;
  }
  const std::optional<double> value = node->is_number() ? node->value<double>() : std::nullopt;
  if (!value || !std::isfinite(*value) || *value < min || *value > max) {
    wrong(kWrongValue, key, {},
          "allowed: " + number_text(min) + " to " + number_text(max) + " " + unit);
    return std::nullopt;
  }
  return Located<double>{*value, line_of_node(*node)};
}

std::optional<Located<bool>> TomlTable::boolean(const char* key) {
  const toml::node* node = find(key);
  if (node == nullptr) {
    return std::nullopt;
  }
  if (const auto* value = node->as_boolean()) {
    return Located<bool>{value->get(), line_of_node(*node)};
  }
  wrong(kWrongType, key, {}, "allowed: true, false");
  return std::nullopt;
}

std::optional<Located<std::vector<std::string>>> TomlTable::texts(const char* key) {
  const toml::node* node = find(key);
  if (node == nullptr) {
    return std::nullopt;
  }
  std::vector<std::string> values;
  if (const auto* array = node->as_array()) {
    for (const toml::node& element : *array) {
      if (const auto* value = element.as_string()) {
        values.push_back(value->get());
      } else {
        wrong(kWrongType, key, {}, "allowed: a list of texts");
        return std::nullopt;
      }
    }
    return Located<std::vector<std::string>>{std::move(values), line_of_node(*node)};
  }
  wrong(kWrongType, key, {}, "allowed: a list of texts");
  return std::nullopt;
}

std::optional<Located<std::vector<std::string>>> TomlTable::text_or_texts(const char* key) {
  const toml::node* node = find(key);
  if (node != nullptr && node->is_string()) {
    return Located<std::vector<std::string>>{{text(key)->value}, line_of_node(*node)};
  }
  return texts(key);
}

std::optional<Located<std::vector<int64_t>>> TomlTable::integers(const char* key,
                                                                 const client::Range& range,
                                                                 const char* rule) {
  const toml::node* node = find(key);
  if (node == nullptr) {
    return std::nullopt;
  }
  std::vector<int64_t> values;
  const auto* array = node->as_array();
  if (array != nullptr) {
    for (const toml::node& element : *array) {
      const auto* value = element.as_integer();
      if (value == nullptr || !range.contains(value->get())) {
        array = nullptr;
        break;
      }
      values.push_back(value->get());
    }
  }
  if (array == nullptr) {
    wrong(rule, key, {}, "allowed: a list of numbers from " + client::range_text(range));
    return std::nullopt;
  }
  return Located<std::vector<int64_t>>{std::move(values), line_of_node(*node)};
}

std::optional<Located<std::array<int64_t, 2>>> TomlTable::range(const char* key,
                                                                const client::Range& range) {
  const toml::node* node = find(key);
  if (node == nullptr) {
    return std::nullopt;
  }
  std::vector<int64_t> values;
  if (const auto* single = node->as_integer()) {
    values = {single->get(), single->get()};
  } else if (const toml::array* array = node->as_array()) {
    for (const toml::node& element : *array) {
      const auto* value = element.as_integer();
      values.push_back(value == nullptr ? range.min - 1 : value->get());
    }
  }
  if (values.size() != 2 || values[0] < range.min || values[1] > range.max ||
      values[0] > values[1]) {
    wrong(kWrongValue, key, {}, allowed(range) + ", as a number or as [shortest, longest]");
    return std::nullopt;
  }
  return Located<std::array<int64_t, 2>>{{values[0], values[1]}, line_of_node(*node)};
}

const toml::table* TomlTable::table(const char* key) {
  const toml::node* node = find(key);
  if (node == nullptr) {
    return nullptr;
  }
  if (const toml::table* value = node->as_table()) {
    return value;
  }
  wrong(kWrongType, key, {}, std::string("allowed: a table [") + key + "]");
  return nullptr;
}

std::vector<const toml::table*> TomlTable::tables(const char* key) {
  const toml::node* node = find(key);
  std::vector<const toml::table*> found;
  if (node == nullptr) {
    return found;
  }
  const toml::array* array = node->as_array();
  if (array == nullptr || !array->is_homogeneous(toml::node_type::table)) {
    wrong(kWrongType, key, {}, std::string("allowed: tables that begin with [[") + key + "]]");
    return found;
  }
  for (const toml::node& element : *array) {
    found.push_back(element.as_table());
  }
  return found;
}

void TomlTable::refuse_the_rest() {
  std::string allowed;
  for (const std::string& key : known_keys_) {
    allowed += (allowed.empty() ? "" : ", ") + key;
  }
  for (const auto& [key, node] : table_) {
    if (std::find(known_keys_.begin(), known_keys_.end(), key.str()) == known_keys_.end()) {
      findings_.add({.rule = "unknown-key",
                     .line = static_cast<uint32_t>(key.source().begin.line),
                     .where = what_,
                     .key = shortened(std::string(key.str())),
                     .why = "unknown key",
                     .advice = "allowed: " + allowed});
    }
  }
}

}  // namespace erps::lab
