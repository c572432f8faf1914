#include "host/options.h"

#include <sstream>

namespace erps::host {

namespace {

const char* type_name(OptionType type) {
  switch (type) {
    case OptionType::kText:
    case OptionType::kInterface:
    case OptionType::kChoice:
    case OptionType::kAddress:
      return "text";
    case OptionType::kNumber:
      return "number";
    case OptionType::kFlag:
      return "true or false";
    case OptionType::kPortPair:
      return "two numbers";
  }
  return "";
}

bool quoted(OptionType type) {
  return type == OptionType::kText || type == OptionType::kInterface ||
         type == OptionType::kChoice || type == OptionType::kAddress;
}

}  // namespace

std::vector<std::string> words_of(const char* choices) {
  std::vector<std::string> words;
  std::istringstream stream(choices);
  for (std::string word; stream >> word;) {
    words.push_back(word);
  }
  return words;
}

std::string allowed_text(const Option& option) {
  switch (option.type) {
    case OptionType::kText:
      return "must be text";
    case OptionType::kInterface:
      return "must be the name of a network interface, 1 to 15 characters";
    case OptionType::kNumber:
      return "must be a whole number, " + client::range_text(option.range);
    case OptionType::kFlag:
      return "must be true or false";
    case OptionType::kPortPair:
      return "must be two different ports such as [1, 2], each " + client::range_text(option.range);
    case OptionType::kAddress:
      return "must be a unicast MAC address such as \"02:00:00:00:00:01\"";
    case OptionType::kChoice:
      break;
  }
  const std::vector<std::string> words = words_of(option.choices);
  std::string text = "must be ";
  for (size_t i = 0; i < words.size(); ++i) {
    text += i == 0 ? "" : i + 1 == words.size() ? " or " : ", ";
    text += '"' + words[i] + '"';
  }
  return text;
}

std::string help_config() {
  std::ostringstream out;
  for (const Section& section : kSections) {
    out << (*section.name == '\0' ? std::string("top of the file")
            : section.repeated    ? "[[" + std::string(section.name) + "]]"
                                  : "[" + std::string(section.name) + "]")
        << "  " << section.text << '\n';
    for (const Option& option : kOptions) {
      if (std::string_view(option.section) != section.name) {
        continue;
      }
      out << "  " << option.name << " (" << type_name(option.type) << ", ";
      if (option.required) {
        out << "required";
      } else if (*option.preset != '\0') {
        out << "default " << (quoted(option.type) ? "\"" : "") << option.preset
            << (quoted(option.type) ? "\"" : "");
      } else {
        out << "optional";
      }
      out << ")\n      " << option.text << '\n';
      if (option.type != OptionType::kText && option.type != OptionType::kFlag) {
        out << "      It " << allowed_text(option) << ".\n";
      }
    }
    out << '\n';
  }
  return out.str();
}

}  // namespace erps::host
