#include "lab/check/daemon_files.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <set>
#include <stdexcept>

#include "host/config_checks.h"
#include "lab/mac_address.h"

namespace erps::lab {

namespace {

namespace fs = std::filesystem;

std::string text_of(const host::Setting& setting) {
  if (setting.line == 0) {
    return setting.text;  // the preset
  }
  std::string text = setting.written;
  std::erase(text, '"');
  return text;
}

// "PATH:LINE: what" of the daemon's reader, taken apart.
void add_mistake(const std::string& path, const std::string& mistake, Findings& findings) {
  const char* at = mistake.data() + path.size() + 1;
  uint32_t line = 0;
  at = std::from_chars(at, mistake.data() + mistake.size(), line).ptr;
  findings.add({.rule = "erpsd-refuses", .file = path, .line = line, .why = at + 2});
}

void add_unreadable(const std::string& path, const std::string& why, Findings& findings) {
  findings.add({.rule = kUnreadable, .file = path, .why = why});
}

}  // namespace

std::optional<std::string> DaemonFile::address() const {
  const host::Setting* setting = settings.top.find("node_address");
  const auto parsed = setting == nullptr ? std::nullopt : parse_mac_address(setting->text);
  return parsed ? std::optional(to_text(*parsed)) : std::nullopt;
}

std::optional<std::string> RingEntry::value(const std::string& option) const {
  const host::Setting* setting = section->find(option);
  return setting == nullptr ? std::nullopt : std::optional(text_of(*setting));
}

std::optional<std::string> RingEntry::control_vlan() const {
  if (!is_end) {
    return value("control_vlan");
  }
  for (const host::Settings& ring : file->settings.rings) {
    const RingEntry major{file, &ring, false};
    if (major.value("id") && major.value("id") == value("major_ring")) {
      return major.value("control_vlan");
    }
  }
  return std::nullopt;
}

uint32_t RingEntry::line(const std::string& option) const {
  const host::Setting* setting = section->find(option);
  return static_cast<uint32_t>(setting == nullptr || setting->line == 0 ? section->line()
                                                                        : setting->line);
}

std::string RingEntry::place(const std::string& option) const {
  return file->path + ":" + std::to_string(line(option));
}

std::vector<std::string> daemon_paths(const std::vector<std::string>& arguments,
                                      Findings& findings) {
  std::vector<std::string> paths;
  std::set<fs::path> known;
  const auto take = [&](const std::string& path) {
    std::error_code error;
    if (known.insert(fs::weakly_canonical(path, error)).second) {
      paths.push_back(path);
    }
  };
  for (const std::string& argument : arguments) {
    std::error_code error;
    if (!fs::is_directory(argument, error)) {
      take(argument);
      continue;
    }
    std::vector<std::string> inside;
    for (fs::directory_iterator at(argument, error), end; !error && at != end;
         at.increment(error)) {
      if (at->path().extension() == ".toml") {
        inside.push_back(at->path().string());
      }
    }
    std::sort(inside.begin(), inside.end());
    std::for_each(inside.begin(), inside.end(), take);
    if (error) {
      add_unreadable(argument, "cannot be read: " + error.message(), findings);
    } else if (inside.empty()) {
      add_unreadable(argument, "no *.toml file is in it", findings);
    }
  }
  return paths;
}

std::vector<DaemonFile> read_daemon_files(const std::vector<std::string>& paths,
                                          Findings& findings) {
  std::vector<DaemonFile> files;
  for (const std::string& path : paths) {
    host::Mistakes mistakes(path);
    try {
      DaemonFile file{path, host::read_settings(path, mistakes)};
      file.settings.management = host::Settings("management", 1);
      if (file.settings.parsed) {
        host::check_settings(file.settings, mistakes);
      }
      files.push_back(std::move(file));
    } catch (const std::runtime_error& error) {
      const std::string text = error.what();
      const bool prefixed = text.rfind(path + ": ", 0) == 0;
      add_unreadable(path, "cannot be read: " + (prefixed ? text.substr(path.size() + 2) : text),
                     findings);
    }
    for (const std::string& mistake : mistakes.texts()) {
      add_mistake(path, mistake, findings);
    }
  }
  return files;
}

Rings rings_of(const std::vector<DaemonFile>& files) {
  Rings rings;
  const auto take = [&](const DaemonFile& file, const host::Settings& section, bool is_end) {
    if (const host::Setting* id = section.find("id")) {
      rings[id->number].push_back({&file, &section, is_end});
    }
  };
  for (const DaemonFile& file : files) {
    for (const host::Settings& ring : file.settings.rings) {
      take(file, ring, false);
    }
    for (const host::Settings& sub_ring : file.settings.sub_rings) {
      take(file, sub_ring, true);
    }
  }
  return rings;
}

}  // namespace erps::lab
