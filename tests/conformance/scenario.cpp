#include "tests/conformance/scenario.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>

namespace erps::test {
namespace {

constexpr const char* kTitle = "Scenario: ";

class Reader {
 public:
  explicit Reader(const std::string& path) : file_(std::filesystem::path(path).stem()) {
    std::ifstream in(path);
    if (!in) {
      throw std::runtime_error(path + ": cannot be read");
    }
    for (std::string text; std::getline(in, text);) {
      ++line_;
      read(text);
    }
    close_scenario();
  }

  std::vector<Scenario> take() { return std::move(scenarios_); }

 private:
  [[noreturn]] void fail(const std::string& what) const {
    throw std::runtime_error(file_ + ", line " + std::to_string(line_) + ": " + what);
  }

  void read(const std::string& text) {
    const size_t begin = text.find_first_not_of(' ');
    if (begin == std::string::npos || text[begin] == '#') {
      return;
    }
    if (text.rfind(kTitle, 0) == 0) {
      close_scenario();
      const std::string title = text.substr(std::string(kTitle).size());
      if (!titles_.insert(title).second) {
        fail("a second scenario of this name");
      }
      scenarios_.push_back({file_, title, line_, {}});
      keyword_.clear();
      return;
    }
    if (scenarios_.empty()) {
      fail("a line before the first scenario");
    }
    std::string rest = text.substr(begin);
    for (const char* keyword : {"given", "when", "then"}) {
      if (rest.rfind(std::string(keyword) + " ", 0) == 0) {
        rest = rest.substr(rest.find_first_not_of(' ', std::string(keyword).size()));
        keyword_ = keyword;
        add(rest, true);
        return;
      }
    }
    add(rest, false);
  }

  void add(const std::string& text, bool first) {
    std::vector<ScenarioPart>& parts = scenarios_.back().parts;
    if (keyword_ == "then") {
      if (parts.empty() || !parts.back().observed || (first && parts.back().then_line != 0)) {
        fail("then without when");
      }
      if (first) {
        parts.back().then_line = line_;
      }
      expect(&parts.back(), text);
    } else if (keyword_ == "given" || keyword_ == "when") {
      const bool observed = keyword_ == "when";
      if (parts.empty() || parts.back().then_line != 0 || parts.back().observed != observed) {
        close_part();
        parts.emplace_back().observed = observed;
      }
      parts.back().steps.push_back({line_, text});
    } else {
      fail("neither given, when nor then");
    }
  }

  void expect(ScenarioPart* part, const std::string& text) const {
    if (text.rfind("ring ", 0) == 0) {
      part->states.push_back(text);
    } else if (text == "every log line") {
      part->every_log_line = true;
    } else if (text != "nothing") {
      part->effects.push_back(text);
    }
  }

  void close_part() const {
    const std::vector<ScenarioPart>& parts = scenarios_.back().parts;
    if (!parts.empty() && parts.back().observed && parts.back().then_line == 0) {
      fail("when without then");
    }
  }

  void close_scenario() const {
    if (scenarios_.empty()) {
      return;
    }
    close_part();
    const std::vector<ScenarioPart>& parts = scenarios_.back().parts;
    if (std::none_of(parts.begin(), parts.end(),
                     [](const ScenarioPart& part) { return part.then_line != 0; })) {
      fail("a scenario that expects nothing ends here");
    }
  }

  std::string file_;
  int line_ = 0;
  std::string keyword_;
  std::set<std::string> titles_;
  std::vector<Scenario> scenarios_;
};

}  // namespace

std::vector<Scenario> read_scenarios(const std::string& path) {
  return Reader(path).take();
}

std::vector<Scenario> read_scenario_folder(const std::string& folder) {
  std::set<std::string> paths;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() == ".scenario") {
      paths.insert(entry.path());
    }
  }
  std::vector<Scenario> all;
  for (const std::string& path : paths) {
    for (Scenario& scenario : read_scenarios(path)) {
      all.push_back(std::move(scenario));
    }
  }
  return all;
}

}  // namespace erps::test
