#include "lab/toml_table.h"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace erps::lab {

namespace {

uint32_t line_of_node(const toml::node& node) {
  return static_cast<uint32_t>(node.source().begin.line);
}

std::string number_text(double number) {
  std::ostringstream out;
  out << number;
  return out.str();
}

std::string with_unit(const std::string& min, const std::string& max, const char* unit) {
  std::string text = "allowed: " + min + " to " + max;
  if (*unit != '\0') {
    text += std::string(" ") + unit;
  }
  return text;
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
  return out.str();
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

uint32_t TomlTable::line_of(const char* key) const {
  const toml::node* node = table_.get(key);
  return node == nullptr ? line_ : line_of_node(*node);
}

void TomlTable::missing(const char* key, const std::string& allowed) {
  findings_.error(line_, what_ + ": " + key + " is missing; allowed: " + allowed);
}

void TomlTable::wrong(const char* key, const std::string& why) {
  const toml::node* node = find(key);
  if (node == nullptr) {
    findings_.error(line_, what_ + ": " + key + ": " + why);
    return;
  }
  findings_.error(line_of_node(*node), what_ + ": " + key + " = " + value_text(*node) + ": " + why);
}

void TomlTable::wrong_kind(const char* key, const toml::node& node, const std::string& allowed) {
  findings_.error(line_of_node(node),
                  what_ + ": " + key + " = " + value_text(node) + ": allowed: " + allowed);
}

std::optional<Located<std::string>> TomlTable::text(const char* key) {
  const toml::node* node = find(key);
  if (node == nullptr) {
    return std::nullopt;
  }
  if (const auto* value = node->as_string()) {
    return Located<std::string>{value->get(), line_of_node(*node)};
  }
  wrong_kind(key, *node, "a text in quotes");
  return std::nullopt;
}

std::optional<Located<int64_t>> TomlTable::integer(const char* key, int64_t min, int64_t max,
                                                   const char* unit) {
  const toml::node* node = find(key);
  if (node == nullptr) {
    return std::nullopt;
  }
  const auto* value = node->as_integer();
  if (value == nullptr || value->get() < min || value->get() > max) {
    wrong(key, with_unit(std::to_string(min), std::to_string(max), unit));
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
    wrong(key, with_unit(number_text(min), number_text(max), unit));
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
  wrong_kind(key, *node, "true, false");
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
        wrong_kind(key, *node, "a list of texts");
        return std::nullopt;
      }
    }
    return Located<std::vector<std::string>>{std::move(values), line_of_node(*node)};
  }
  wrong_kind(key, *node, "a list of texts");
  return std::nullopt;
}

std::optional<Located<std::vector<std::string>>> TomlTable::text_or_texts(const char* key) {
  const toml::node* node = find(key);
  if (node != nullptr && node->is_string()) {
    return Located<std::vector<std::string>>{{text(key)->value}, line_of_node(*node)};
  }
  return texts(key);
}

std::optional<Located<std::vector<int64_t>>> TomlTable::integers(const char* key, int64_t min,
                                                                 int64_t max) {
  const toml::node* node = find(key);
  if (node == nullptr) {
    return std::nullopt;
  }
  std::vector<int64_t> values;
  const auto* array = node->as_array();
  if (array != nullptr) {
    for (const toml::node& element : *array) {
      const auto* value = element.as_integer();
      if (value == nullptr || value->get() < min || value->get() > max) {
        array = nullptr;
        break;
      }
      values.push_back(value->get());
    }
  }
  if (array == nullptr) {
    wrong_kind(key, *node,
               "a list of numbers from " + std::to_string(min) + " to " + std::to_string(max));
    return std::nullopt;
  }
  return Located<std::vector<int64_t>>{std::move(values), line_of_node(*node)};
}

std::optional<Located<std::array<int64_t, 2>>> TomlTable::range(const char* key, int64_t min,
                                                                int64_t max, const char* unit) {
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
      values.push_back(value == nullptr ? min - 1 : value->get());
    }
  }
  if (values.size() != 2 || values[0] < min || values[1] > max || values[0] > values[1]) {
    wrong(key, with_unit(std::to_string(min), std::to_string(max), unit) +
                   ", as a number or as [shortest, longest]");
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
  wrong_kind(key, *node, std::string("a table [") + key + "]");
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
    wrong_kind(key, *node, std::string("tables that begin with [[") + key + "]]");
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
      findings_.error(static_cast<uint32_t>(key.source().begin.line),
                      what_ + ": " + std::string(key.str()) + ": unknown key; allowed: " + allowed);
    }
  }
}

}  // namespace erps::lab
