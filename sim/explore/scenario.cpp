#include "sim/explore/scenario.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <sstream>

#include "sim/explore/replay.h"
#include "sim/sim_error.h"

namespace erps::sim::explore {

namespace {

constexpr char kFirstLine[] = "erps-exploration 1";

struct Word {
  StepKind kind;
  SwitchCommand command;
  const char* text;
};
constexpr std::array<Word, 13> kWords{{
    {StepKind::kHalf, {}, "half"},
    {StepKind::kTick, {}, "tick"},
    {StepKind::kOwnEvent, {}, "own-event"},
    {StepKind::kFrame, {}, "frame"},
    {StepKind::kCarrier, {}, "carrier"},
    {StepKind::kCommand, SwitchCommand::kForced, "forced-switch"},
    {StepKind::kCommand, SwitchCommand::kManual, "manual-switch"},
    {StepKind::kCommand, SwitchCommand::kClear, "clear"},
    {StepKind::kCut, {}, "cut"},
    {StepKind::kFail, {}, "fail-away-from"},
    {StepKind::kRestore, {}, "restore"},
    {StepKind::kCrash, {}, "crash"},
    {StepKind::kRestart, {}, "restart"},
}};

bool names_port(StepKind kind) {
  return kind == StepKind::kFrame || kind == StepKind::kCarrier || kind == StepKind::kCommand;
}

bool names_link(StepKind kind) {
  return kind == StepKind::kCut || kind == StepKind::kFail || kind == StepKind::kRestore;
}

size_t kept_counts(StepKind kind) {
  return kind == StepKind::kFail ? 1 : kind == StepKind::kCut || kind == StepKind::kCrash ? 2 : 0;
}

std::string line_of(const Topology& topology, const Step& step) {
  const auto word = std::find_if(kWords.begin(), kWords.end(), [&](const Word& candidate) {
    return candidate.kind == step.kind &&
           (step.kind != StepKind::kCommand || candidate.command == step.command);
  });
  std::string line = std::string(word->text) + " ";
  if (names_link(step.kind)) {
    const LinkEnd& end = topology.links.at(step.link).ends.at(step.end);
    line += topology.nodes[end.node].name + ":" + std::to_string(end.port);
  } else {
    line += topology.nodes.at(step.node).name;
    line += names_port(step.kind) ? ":" + std::to_string(step.port) : "";
  }
  for (size_t i = 0; i < kept_counts(step.kind); ++i) {
    line += (i == 0 ? " kept " : " ") + std::to_string(step.kept[i]);
  }
  return line;
}

// Reads a scenario line by line and says where it stops to make sense.
class Reader {
 public:
  Reader(const std::string& text, const Topology& topology) : text_(text), topology_(topology) {}

  Trouble read() {
    while (next_line()) {
      if (words_.front() == "clocks" && began_ && trouble_.steps.empty()) {
        read_clocks();
      } else if (!began_) {
        began_ = true;
        if (line_ != kFirstLine) {
          fail("a scenario begins with \"" + std::string(kFirstLine) + "\"");
        }
      } else if (words_.front() == "repeat" && words_.size() == 1) {
        trouble_.repeats_from = trouble_.steps.size();
      } else {
        trouble_.steps.push_back(read_step());
      }
    }
    if (!began_) {
      fail("the file is empty");
    }
    return trouble_;
  }

 private:
  [[noreturn]] void fail(const std::string& why) const {
    throw SimError("line " + std::to_string(number_) + ": " + why);
  }

  bool next_line() {
    while (std::getline(text_, line_)) {
      ++number_;
      line_ = line_.substr(0, line_.find('#'));
      line_.erase(line_.find_last_not_of(" \t\r") + 1);
      std::istringstream parts(line_);
      words_.assign(std::istream_iterator<std::string>(parts), {});
      if (!words_.empty()) {
        return true;
      }
    }
    return false;
  }

  uint8_t read_node(const std::string& name) const {
    for (size_t node = 0; node < topology_.nodes.size(); ++node) {
      if (topology_.nodes[node].name == name) {
        return static_cast<uint8_t>(node);
      }
    }
    fail("there is no node \"" + name + "\"");
  }

  uint8_t read_number(const std::string& text) const {
    uint8_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
      fail("\"" + text + "\" is no number from 0 to 255");
    }
    return number;
  }

  std::pair<std::string, std::string> split(const std::string& text) const {
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos) {
      fail("\"" + text + "\" is no port: write NODE:NUMBER");
    }
    return {text.substr(0, colon), text.substr(colon + 1)};
  }

  void read_clocks() {
    for (size_t i = 1; i < words_.size(); ++i) {
      const auto [name, half] = split(words_[i]);
      if (half != "first" && half != "second") {
        fail("\"" + words_[i] + "\": a clock is in the first or the second half");
      }
      if (half == "second") {
        trouble_.start.second_half |= static_cast<uint8_t>(1U << read_node(name));
      }
    }
  }

  Step read_step() const {
    const auto word = std::find_if(kWords.begin(), kWords.end(), [&](const Word& candidate) {
      return words_.front() == candidate.text;
    });
    if (word == kWords.end()) {
      fail("\"" + words_.front() + "\" is no step");
    }
    const size_t kept = kept_counts(word->kind);
    if (words_.size() != (kept == 0 ? 2 : 3 + kept) || (kept != 0 && words_[2] != "kept")) {
      fail("\"" + line_ + "\": write " + word->text +
           (names_link(word->kind) || names_port(word->kind) ? " NODE:PORT" : " NODE") +
           (kept == 0   ? ""
            : kept == 1 ? " kept FRAMES"
                        : " kept FRAMES FRAMES"));
    }
    Step step;
    step.kind = word->kind;
    step.command = word->command;
    if (names_link(step.kind)) {
      read_link(step);
    } else if (names_port(step.kind)) {
      const auto [name, port] = split(words_[1]);
      step.node = read_node(name);
      step.port = read_number(port);
    } else {
      step.node = read_node(words_[1]);
    }
    for (size_t i = 0; i < kept; ++i) {
      step.kept[i] = read_number(words_[3 + i]);
    }
    return step;
  }

  void read_link(Step& step) const {
    const auto [name, port] = split(words_[1]);
    const LinkEnd wanted{read_node(name), read_number(port)};
    for (size_t link = 0; link < topology_.links.size(); ++link) {
      for (size_t end = 0; end < 2; ++end) {
        if (topology_.links[link].ends[end] == wanted) {
          step.link = static_cast<uint8_t>(link);
          step.end = step.kind == StepKind::kFail ? static_cast<uint8_t>(end) : uint8_t{0};
          return;
        }
      }
    }
    fail("there is no link at " + words_[1]);
  }

  std::istringstream text_;
  const Topology& topology_;
  std::string line_;
  std::vector<std::string> words_;
  size_t number_ = 0;
  bool began_ = false;
  Trouble trouble_;
};

}  // namespace

std::string to_scenario(Model& model, const Trouble& trouble, const std::string& heading) {
  std::string text = std::string(kFirstLine) + "\n";
  std::istringstream lines(heading);
  for (std::string line; std::getline(lines, line);) {
    text += "# " + line + "\n";
  }
  text += "clocks";
  for (size_t node = 0; node < model.topology().nodes.size(); ++node) {
    text += " " + model.topology().nodes[node].name +
            ((trouble.start.second_half >> node & 1U) != 0 ? ":second" : ":first");
  }
  text += "\n";
  NetworkState state = trouble.start;
  for (size_t i = 0; i < trouble.steps.size(); ++i) {
    if (trouble.repeats_from == i) {
      text += "repeat\n";
    }
    const std::string line = line_of(model.topology(), trouble.steps[i]);
    const size_t width = std::max<size_t>(line.size(), 26);
    text += line + std::string(width - line.size(), ' ') + "  # " +
            model.step_text(state, trouble.steps[i]) + "\n";
    if (const auto next = take(model, state, trouble.steps[i])) {
      state = next->state;
    }
  }
  return text;
}

Trouble parse_scenario(const std::string& text, const Topology& topology) {
  return Reader(text, topology).read();
}

}  // namespace erps::sim::explore
