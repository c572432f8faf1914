#include "host/settings.h"

namespace erps::host {

const Setting* Settings::find(const std::string& name) const {
  const auto found = values_.find(name);
  return found == values_.end() ? nullptr : &found->second;
}

void Mistakes::add(int line, const std::string& subject, const std::string& what) {
  mistakes_.emplace(line, path_ + ":" + std::to_string(line) + ": " + subject + ": " + what);
}

void Mistakes::add(const Settings& section, const std::string& name, const std::string& what) {
  const std::string key = section.section().empty() ? name : section.section() + "." + name;
  const Setting* setting = section.find(name);
  if (setting == nullptr || setting->line == 0) {
    add(section.line(), key, what);
  } else {
    add(setting->line, key + " = " + setting->written, what);
  }
}

std::vector<std::string> Mistakes::texts() const {
  std::vector<std::string> texts;
  for (const auto& [line, text] : mistakes_) {
    texts.push_back(text);
  }
  return texts;
}

}  // namespace erps::host
