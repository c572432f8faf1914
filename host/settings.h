// The options that a configuration file sets, each checked against its row of the option table.
#pragma once

#include <stdint.h>

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "host/options.h"

namespace erps::host {

struct Setting {
  int line = 0;  // 0: not in the file, this is the preset
  std::string text;
  int64_t number = 0;
  bool flag = false;
  int64_t pair[2] = {};
  std::string written;  // the value as the file has it, for messages
};

// One section of the file. An option without a valid value is absent.
class Settings {
 public:
  Settings(std::string section, int line) : section_(std::move(section)), line_(line) {}

  const std::string& section() const { return section_; }
  int line() const { return line_; }
  void set(const std::string& name, Setting setting) { values_[name] = std::move(setting); }
  const Setting* find(const std::string& name) const;
  // Marks an option whose value in the file cannot be used.
  void refuse(const std::string& name) { refused_.insert(name); }
  bool refused(const std::string& name) const { return refused_.count(name) != 0; }
  // For an option that is known to be there.
  const Setting& at(const std::string& name) const { return values_.at(name); }

 private:
  std::string section_;
  int line_;
  std::map<std::string, Setting> values_;
  std::set<std::string> refused_;
};

// Collects what is wrong with a file.
class Mistakes {
 public:
  explicit Mistakes(std::string path) : path_(std::move(path)) {}

  // "PATH:LINE: subject: what"; subject is "ring.id = 300" or "ring.id".
  void add(int line, const std::string& subject, const std::string& what);
  void add(const Settings& section, const std::string& name, const std::string& what);
  bool any() const { return !mistakes_.empty(); }
  // In the order of the lines.
  std::vector<std::string> texts() const;

 private:
  std::string path_;
  std::multimap<int, std::string> mistakes_;
};

// The file, section by section in the order of the file; sections that appear once come first and
// are there even when the file leaves them out.
struct FileSettings {
  bool parsed = false;  // false: a mistake in the syntax, and nothing was read
  Settings top{"", 1}, log{"log", 1}, management{"management", 1}, platform{"platform", 1},
      timers{"timers", 1};
  std::vector<Settings> ports, rings, sub_rings;
};

// Reads a TOML file. What cannot be used is reported to `mistakes` and left out.
FileSettings read_settings(const std::string& path, Mistakes& mistakes);

// The known word nearest to a wrong one, or "" when none is near.
std::string nearest(std::string_view word, const std::vector<std::string>& known);

}  // namespace erps::host
