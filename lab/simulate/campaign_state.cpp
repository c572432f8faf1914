#include "lab/simulate/campaign_state.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>

#include "lab/lab_error.h"

namespace erps::lab {

using nlohmann::json;

void NumberSet::add(uint64_t number) {
  if (has(number)) {
    return;
  }
  uint64_t first = number;
  uint64_t last = number;
  const auto above = ranges_.find(number + 1);
  if (above != ranges_.end()) {
    last = above->second;
    ranges_.erase(above);
  }
  auto below = ranges_.lower_bound(number);
  if (below != ranges_.begin() && (--below)->second + 1 == number) {
    first = below->first;
  }
  ranges_[first] = last;
}

bool NumberSet::has(uint64_t number) const {
  const auto above = ranges_.upper_bound(number);
  return above != ranges_.begin() && std::prev(above)->second >= number;
}

std::vector<uint64_t> NumberSet::all() const {
  std::vector<uint64_t> numbers;
  for (const auto& [first, last] : ranges_) {
    for (uint64_t number = first; number <= last; ++number) {
      numbers.push_back(number);
    }
  }
  return numbers;
}

CampaignState load_state(const std::string& path, const std::string& key) {
  CampaignState state;
  std::ifstream in(path);
  if (!in.is_open()) {
    if (errno == ENOENT) {
      return state;
    }
    throw system_error(path);
  }
  try {
    const json from = json::parse(in);
    if (from.at("campaign") != key) {
      throw LabError(path + " is the state of another campaign (" +
                     from["campaign"].get<std::string>() + "); this one is: " + key +
                     ". Name another file");
    }
    state.tally = tally_of(from.at("tally"));
    for (const json& result : from.at("results")) {
      state.results.push_back(case_result_of(result));
    }
    for (const json& range : from.at("done")) {
      for (uint64_t number = range.at(0); number <= range.at(1).get<uint64_t>(); ++number) {
        state.done.add(number);
      }
    }
  } catch (const json::exception& error) {
    throw LabError(path + " is no state of a campaign: " + error.what());
  }
  return state;
}

void save_state(const std::string& path, const std::string& key, const CampaignState& state) {
  json results = json::array();
  for (const CaseResult& result : state.results) {
    results.push_back(to_json(result));
  }
  json done = json::array();
  for (const auto& [first, last] : state.done.ranges()) {
    done.push_back({first, last});
  }
  const json to = {
      {"campaign", key}, {"tally", to_json(state.tally)}, {"results", results}, {"done", done}};
  // In place of the old one at once, so that there is a whole one at every moment.
  const std::string fresh = path + ".new";
  std::ofstream out(fresh, std::ios::trunc);
  out << to.dump() << "\n";
  out.close();
  if (!out || std::rename(fresh.c_str(), path.c_str()) != 0) {
    throw system_error(path);
  }
}

}  // namespace erps::lab
