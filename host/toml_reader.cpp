// From a TOML file to settings: syntax, unknown keys, types and ranges.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <toml++/toml.h>

#include <fstream>
#include <sstream>

#include "client/ring_status.h"
#include "client/toml_depth.h"
#include "host/settings.h"

namespace erps::host {

namespace {

constexpr size_t kLongestInterface = 15;

int line_of(const toml::node& node) {
  return static_cast<int>(node.source().begin.line);
}

std::string written(const toml::node& node) {
  if (node.is_table() || node.is_array_of_tables()) {
    return node.is_table() ? "{...}" : "[{...}]";
  }
  std::ostringstream out;
  if (const auto* text = node.as_string()) {
    out << '"' << text->get() << '"';
  } else if (const auto* array = node.as_array()) {
    out << '[';
    for (size_t i = 0; i < array->size(); ++i) {
      out << (i == 0 ? "" : ", ") << written((*array)[i]);
    }
    out << ']';
  } else {
    node.visit([&out](const auto& value) {
      if constexpr (toml::is_value<decltype(value)>) {
        out << value;
      }
    });
  }
  return out.str();
}

bool is_interface_name(const std::string& name) {
  if (name.empty() || name.size() > kLongestInterface || name == "." || name == "..") {
    return false;
  }
  return name.find_first_of("/: \t\r\n") == std::string::npos;
}

bool is_unicast(const std::string& text) {
  const std::optional<client::MacAddress> mac = client::mac_of(text);
  return mac && ((*mac)[0] & 1) == 0 && *mac != client::MacAddress{};
}

bool read_text(const Option& option, const std::string& text, Setting* setting) {
  setting->text = text;
  switch (option.type) {
    case OptionType::kText:
      return !text.empty();
    case OptionType::kInterface:
      return is_interface_name(text);
    case OptionType::kAddress:
      return is_unicast(text);
    case OptionType::kChoice:
      for (const std::string& word : words_of(option.choices)) {
        if (word == text) {
          return true;
        }
      }
      return false;
    default:
      return false;
  }
}

bool read_pair(const Option& option, const toml::array& array, Setting* setting) {
  if (array.size() != 2) {
    return false;
  }
  for (size_t i = 0; i < 2; ++i) {
    const auto* number = array[i].as_integer();
    if (number == nullptr || !option.range.contains(number->get())) {
      return false;
    }
    setting->pair[i] = number->get();
  }
  return setting->pair[0] != setting->pair[1];
}

// Whether the value is one that the option accepts; it is stored then.
bool read_value(const Option& option, const toml::node& node, Setting* setting) {
  if (const auto* text = node.as_string()) {
    return read_text(option, text->get(), setting);
  }
  if (const auto* number = node.as_integer()) {
    setting->number = number->get();
    return option.type == OptionType::kNumber && option.range.contains(number->get());
  }
  if (const auto* flag = node.as_boolean()) {
    setting->flag = flag->get();
    return option.type == OptionType::kFlag;
  }
  const auto* array = node.as_array();
  return array != nullptr && option.type == OptionType::kPortPair &&
         read_pair(option, *array, setting);
}

Setting preset_of(const Option& option) {
  Setting setting;
  setting.text = option.preset;
  setting.number = strtoll(option.preset, nullptr, 10);
  setting.flag = setting.text == "true";
  return setting;
}

std::string key_of(const std::string& section, const std::string& name) {
  return section.empty() ? name : section + "." + name;
}

const Section* section_named(std::string_view name) {
  for (const Section& section : kSections) {
    if (!name.empty() && name == section.name) {
      return &section;
    }
  }
  return nullptr;
}

std::string join(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : ", ") + word;
  }
  return text;
}

void report_unknown(const std::string& section, const toml::key& key, const toml::node& node,
                    Mistakes& mistakes) {
  std::vector<std::string> known;
  for (const Option& option : kOptions) {
    if (section == option.section) {
      known.emplace_back(option.name);
    }
  }
  if (section.empty()) {
    for (const Section& row : kSections) {
      if (*row.name != '\0') {
        known.emplace_back(row.name);
      }
    }
  }
  const std::string name(key.str());
  const std::string near = nearest(name, known);
  mistakes.add(static_cast<int>(key.source().begin.line),
               key_of(section, name) + " = " + written(node),
               near.empty() ? "unknown key; known here are " + join(known)
                            : "unknown key; did you mean " + near + "?");
}

// Fills `settings` from the table of its section.
void read_section(const toml::table& table, Settings& settings, Mistakes& mistakes) {
  for (const Option& option : kOptions) {
    if (settings.section() != option.section) {
      continue;
    }
    const toml::node* node = table.get(option.name);
    if (node == nullptr) {
      if (option.required) {
        mistakes.add(settings.line(), key_of(settings.section(), option.name),
                     "missing; it " + allowed_text(option));
      } else if (*option.preset != '\0') {
        settings.set(option.name, preset_of(option));
      }
      continue;
    }
    Setting setting;
    setting.line = line_of(*node);
    setting.written = written(*node);
    if (read_value(option, *node, &setting)) {
      settings.set(option.name, std::move(setting));
    } else {
      settings.refuse(option.name);
      mistakes.add(setting.line, key_of(settings.section(), option.name) + " = " + setting.written,
                   allowed_text(option));
    }
  }
  for (const auto& [key, node] : table) {
    bool known = settings.section().empty() && section_named(key.str()) != nullptr;
    for (const Option& option : kOptions) {
      known = known || (settings.section() == option.section && key.str() == option.name);
    }
    if (!known) {
      report_unknown(settings.section(), key, node, mistakes);
    }
  }
}

// A section that appears once; one that is left out is read as an empty one.
void read_single(const toml::table& file, Settings& settings, Mistakes& mistakes) {
  const toml::node* node = file.get(settings.section());
  if (node == nullptr) {
    read_section(toml::table{}, settings, mistakes);
  } else if (const toml::table* table = node->as_table()) {
    settings = Settings(settings.section(), line_of(*node));
    read_section(*table, settings, mistakes);
  } else {
    mistakes.add(line_of(*node), settings.section() + " = " + written(*node),
                 "must be a section [" + settings.section() + "]");
  }
}

std::vector<Settings> read_repeated(const toml::table& file, const std::string& name, Settings& top,
                                    Mistakes& mistakes) {
  std::vector<Settings> all;
  const toml::node* node = file.get(name);
  if (node == nullptr) {
    return all;
  }
  const toml::array* array = node->as_array();
  if (array == nullptr || !array->is_array_of_tables()) {
    top.refuse(name);
    mistakes.add(line_of(*node), name + " = " + written(*node),
                 "must be sections [[" + name + "]], one each");
    return all;
  }
  for (const toml::node& element : *array) {
    all.emplace_back(name, line_of(element));
    read_section(*element.as_table(), all.back(), mistakes);
  }
  return all;
}

std::string read_file(const std::string& path) {
  std::ifstream stream(path);
  if (!stream) {
    throw std::runtime_error(path + ": " + strerror(errno));
  }
  std::ostringstream text;
  text << stream.rdbuf();
  if (!stream) {
    throw std::runtime_error(path + ": cannot be read");
  }
  return text.str();
}

}  // namespace

FileSettings read_settings(const std::string& path, Mistakes& mistakes) {
  FileSettings settings;
  const std::string text = read_file(path);
  if (const uint32_t line = client::too_deep_line(text)) {
    mistakes.add(static_cast<int>(line), "dots",
                 "too many in one line; at most " + std::to_string(client::kMostDotsInALine));
    return settings;
  }
  toml::table file;
  try {
    file = toml::parse(text, path);
  } catch (const toml::parse_error& error) {
    mistakes.add(static_cast<int>(error.source().begin.line),
                 "column " + std::to_string(error.source().begin.column),
                 std::string(error.description()));
    return settings;
  }
  settings.parsed = true;
  read_section(file, settings.top, mistakes);
  read_single(file, settings.log, mistakes);
  read_single(file, settings.management, mistakes);
  read_single(file, settings.platform, mistakes);
  read_single(file, settings.timers, mistakes);
  settings.ports = read_repeated(file, "port", settings.top, mistakes);
  settings.rings = read_repeated(file, "ring", settings.top, mistakes);
  settings.sub_rings = read_repeated(file, "sub_ring", settings.top, mistakes);
  return settings;
}

}  // namespace erps::host
