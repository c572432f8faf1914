// Plays every scenario, with the platform's trace off and on. The two must not differ but in what
// the trace gets.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <stdexcept>

#include "tests/conformance/scenario.h"
#include "tests/conformance/stage.h"

namespace erps::test {
namespace {

std::string listed(const std::vector<Effect>& effects) {
  std::string text;
  for (const Effect& effect : effects) {
    text += "\n         " + effect.text;
  }
  return text.empty() ? "\n         nothing" : text;
}

// "3x send 1: NR" means three of it.
std::vector<std::string> spread(const std::vector<std::string>& expected) {
  std::vector<std::string> result;
  for (const std::string& text : expected) {
    const size_t times = text.find("x ");
    const bool counted =
        times != std::string::npos && times > 0 && text.find_first_not_of("0123456789") == times;
    result.insert(result.end(), counted ? std::stoul(text) : 1,
                  counted ? text.substr(times + 2) : text);
  }
  return result;
}

// Debug lines that were not asked for are passed over.
bool agree(const std::vector<Effect>& actual, const std::vector<std::string>& expected,
           bool every_log_line) {
  size_t next = 0;
  for (const Effect& effect : actual) {
    if (next < expected.size() && effect.text == expected[next]) {
      ++next;
    } else if (!effect.debug || every_log_line) {
      return false;
    }
  }
  return next == expected.size();
}

class Play : public testing::Test {
 public:
  explicit Play(const Scenario& scenario) : scenario_(scenario) {}

  void TestBody() override {
    for (const bool traced : {false, true}) {
      SCOPED_TRACE(traced ? "with the trace on" : "with the trace off");
      play(traced);
      if (HasFailure()) {
        return;
      }
    }
  }

 private:
  void play(bool traced) const {
    Stage stage(traced);
    for (const ScenarioPart& part : scenario_.parts) {
      for (const ScenarioStep& step : part.steps) {
        try {
          stage.perform(step.text);
        } catch (const std::runtime_error& error) {
          ADD_FAILURE_AT(scenario_.file.c_str(), step.line) << error.what();
          return;
        }
      }
      compare(part, stage.take_effects());
      for (const std::string& state : part.states) {
        const std::string mismatch = stage.mismatch(state);
        if (!mismatch.empty()) {
          ADD_FAILURE_AT(scenario_.file.c_str(), part.then_line) << state << ": " << mismatch;
        }
      }
    }
  }

  void compare(const ScenarioPart& part, const std::vector<Effect>& effects) const {
    if (!part.observed || agree(effects, spread(part.effects), part.every_log_line)) {
      return;
    }
    std::vector<Effect> expected;
    for (const std::string& text : part.effects) {
      expected.push_back({text, false});
    }
    std::vector<Effect> seen;
    const bool log_matters =
        part.every_log_line ||
        std::any_of(part.effects.begin(), part.effects.end(), [](const std::string& text) {
          return text.rfind("log ", 0) == 0 || text.rfind("task ", 0) == 0;
        });
    std::copy_if(effects.begin(), effects.end(), std::back_inserter(seen),
                 [=](const Effect& effect) { return log_matters || !effect.debug; });
    ADD_FAILURE_AT(scenario_.file.c_str(), part.then_line)
        << scenario_.title << "\n    expected:" << listed(expected)
        << "\n    seen:" << listed(part.every_log_line ? seen : joined(seen));
  }

  Scenario scenario_;
};

std::string test_name(const std::string& title) {
  std::string name;
  for (const char c : title) {
    name += isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
  }
  return name;
}

}  // namespace
}  // namespace erps::test

int main(int argc, char** argv) {
  using erps::test::Play;
  using erps::test::Scenario;
  testing::InitGoogleTest(&argc, argv);
  try {
    for (const Scenario& scenario : erps::test::read_scenario_folder(ERPS_SCENARIO_FOLDER)) {
      testing::RegisterTest(scenario.file.c_str(), erps::test::test_name(scenario.title).c_str(),
                            nullptr, nullptr, scenario.file.c_str(), scenario.line,
                            [scenario]() -> testing::Test* { return new Play(scenario); });
    }
  } catch (const std::runtime_error& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
  return RUN_ALL_TESTS();
}
