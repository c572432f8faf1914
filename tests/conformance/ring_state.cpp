// What management reads of a ring, in the words of a scenario.
#include <map>
#include <sstream>
#include <stdexcept>

#include "erps/ring/ring_config.h"
#include "tests/conformance/stage.h"
#include "tests/unit/steps.h"

namespace erps::test {
namespace {

constexpr std::array<const char*, 6> kStates = {"init",   "idle",   "protection",
                                                "manual", "forced", "pending"};

class RingState {
 public:
  explicit RingState(uint32_t ring_id) {
    uint32_t length = 0;
    exists_ = erps_get_ring_conf(ring_id, data_.data(), &length) == 0;
  }

  bool exists() const { return exists_; }

  // The value that a word of a scenario asks for.
  std::string value(const std::string& what) const {
    static const std::map<std::string, uint32_t> kNumbers = {
        {"local", 15}, {"current", 21}, {"role", 4},     {"ring-role", 12},
        {"vlan", 11},  {"mode", 13},    {"partner", 16}, {"inter", 20},
        {"id0", 5},    {"id1", 8},      {"link0", 7},    {"link1", 10}};
    if (what == "state") {
      return word(1) < kStates.size() ? kStates.at(word(1)) : "state " + std::to_string(word(1));
    }
    if (what == "port0" || what == "port1") {
      const uint32_t state = word(what == "port0" ? 6 : 9);
      return state == 4 ? "open" : state == 1 ? "blocked" : std::to_string(state);
    }
    if (what == "node") {
      return hex_of(data_.data() + 88, 6);
    }
    if (what == "started" || what == "held") {  // seconds since the scenario began
      return std::to_string(static_cast<int32_t>(word(what == "started" ? 2 : 3) - kStartSeconds));
    }
    return std::to_string(word(kNumbers.at(what)));
  }

  // Words that stand alone.
  bool is(const std::string& what) const {
    static const std::map<std::string, std::pair<uint32_t, uint32_t>> kFlags = {
        {"sending", {14, 1}},   {"silent", {14, 0}},   {"guarded", {18, 1}},
        {"unguarded", {18, 0}}, {"held-off", {19, 1}}, {"not-held-off", {19, 0}},
        {"enabled", {17, 1}},   {"disabled", {17, 0}}};
    const auto [index, wanted] = kFlags.at(what);
    return word(index) == wanted;
  }

 private:
  uint32_t word(uint32_t index) const {
    const uint8_t* bytes = data_.data() + size_t{index} * 4;
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
  }

  std::array<uint8_t, 96> data_{};
  bool exists_ = false;
};

}  // namespace

std::string Stage::mismatch(const std::string& state) const {
  const std::vector<std::string> parts = split(state, ", ");
  std::istringstream head(parts.at(0));
  std::string ring;
  std::string is;
  std::string first;
  uint32_t id = 0;
  head >> ring >> id >> is >> first;
  const RingState actual(id);
  platform_.clear_journal();
  if (first == "gone") {
    return actual.exists() ? "ring " + std::to_string(id) + " is there" : "";
  }
  if (!actual.exists()) {
    return "there is no ring " + std::to_string(id);
  }
  if (actual.value("state") != first) {
    return "state is " + actual.value("state");
  }
  for (size_t i = 1; i < parts.size(); ++i) {
    const std::vector<std::string> words = split(parts[i], " ");
    try {
      if (words.size() == 1 ? !actual.is(words[0]) : actual.value(words[0]) != words.at(1)) {
        return words.size() == 1 ? "not " + words[0] : words[0] + " is " + actual.value(words[0]);
      }
    } catch (const std::out_of_range&) {
      return "\"" + parts[i] + "\" means nothing";
    }
  }
  return "";
}

}  // namespace erps::test
