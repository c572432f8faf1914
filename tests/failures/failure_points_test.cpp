// Every call that a node's module makes of its platform fails, the first, the second and so on
// until a whole life of the node has no more such calls: once, and from then on.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/failures/failure_run.h"

namespace erps::failures {
namespace {

// What one failure does that passes by itself.
enum class Afterwards {
  kHeals,          // the ring protects as before, without anybody's doing
  kNeedsNewStart,  // at some points the node goes on with what it did not get
};

// Whose line tells an operator of the failure.
enum class Told {
  kByTheModule,  // in its log
  // In the platform's log alone: the module takes these calls for done, or uses what it has, and
  // says nothing. linux/failed_calls_test shows the lines of the platform for Linux.
  kByThePlatform,
  kToWhoeverAsked,  // by a refusal, or in the module's log
};

struct Call {
  const char* name;
  Afterwards afterwards;
  Told told;
  std::vector<const char*> texts;  // of which one is in the line
};

const std::array<Call, 23> kCalls{{
    // The module takes its word for done: an RPL that was not blocked stays open, and a node that
    // believes its link to be down stays in protection.
    {"adp_set_port_erps_state", Afterwards::kNeedsNewStart, Told::kByThePlatform, {}},
    {"adp_get_port_erps_state", Afterwards::kHeals, Told::kByThePlatform, {}},
    {"adp_get_phy_port_attr", Afterwards::kNeedsNewStart, Told::kByThePlatform, {}},
    {"adp_del_mac_addr_by_intf", Afterwards::kHeals, Told::kByTheModule, {"MAC FLASH ERROR"}},
    {"adp_transmit_frame", Afterwards::kHeals, Told::kByThePlatform, {}},
    {"adp_receive_frame", Afterwards::kHeals, Told::kByThePlatform, {}},
    {"get_nic_address", Afterwards::kHeals, Told::kByThePlatform, {}},
    {"adp_fp_add_entity_action", Afterwards::kHeals, Told::kByThePlatform, {}},
    {"adp_fp_add_entity_qualify", Afterwards::kHeals, Told::kByThePlatform, {}},
    // Only the first ring to start asks for the rule.
    {"adp_fp_add_entity_rule", Afterwards::kNeedsNewStart, Told::kByThePlatform, {}},
    {"equeue_make_extend", Afterwards::kHeals, Told::kByTheModule, {"routine process exit!"}},
    {"equeue_open", Afterwards::kHeals, Told::kByTheModule, {"Erps timer error exit"}},
    // The protocol task ends.
    {"equeue_recv", Afterwards::kNeedsNewStart, Told::kByTheModule, {"equeue_recv error"}},
    // An expired WTR is gone: the ring protects on, but does not revert.
    {"equeue_send_ucast",
     Afterwards::kNeedsNewStart,
     Told::kByTheModule,
     {"equeue error", "erps timer tick send FAILED!"}},
    {"equeue_close", Afterwards::kHeals, Told::kByThePlatform, {}},
    {"stask_start", Afterwards::kHeals, Told::kByTheModule, {"bridge shut down"}},
    {"stask_stop", Afterwards::kHeals, Told::kByThePlatform, {}},
    {"stask_notify_creater", Afterwards::kHeals, Told::kByThePlatform, {}},
    {"new", Afterwards::kHeals, Told::kToWhoeverAsked, {"no memory"}},
    {"select", Afterwards::kHeals, Told::kByTheModule, {"erps timer select error!"}},
    {"msgget", Afterwards::kHeals, Told::kByTheModule, {"routine process exit!"}},
    {"msgrcv", Afterwards::kHeals, Told::kByTheModule, {"msgrcv srv"}},
    {"msgsnd", Afterwards::kHeals, Told::kByTheModule, {"msgsnd user srv"}},
}};

struct Point {
  const Call* call;
  uint64_t times;
};

void PrintTo(const Point& point, std::ostream* out) {
  *out << point.call->name << (point.times == kOnce ? " once" : " from then on");
}

std::vector<Point> all_points() {
  std::vector<Point> points;
  for (const Call& call : kCalls) {
    points.push_back({&call, kOnce});
    points.push_back({&call, kFromThenOn});
  }
  return points;
}

std::string name_of(const testing::TestParamInfo<Point>& point) {
  return std::string(point.param.call->name) +
         (point.param.times == kOnce ? "_Once" : "_FromThenOn");
}

constexpr std::string_view kOfThePlatform = "platform: ";

bool has(const std::string& text, std::string_view part) {
  return text.find(part) != std::string::npos;
}

bool says_one_of(const std::string& text, const std::vector<const char*>& parts) {
  return std::any_of(parts.begin(), parts.end(), [&](const char* part) { return has(text, part); });
}

bool is_told(const Call& call, const Outcome& outcome) {
  const auto in_log = [&](auto matches) {
    return std::any_of(outcome.log.begin(), outcome.log.end(), matches);
  };
  const auto by_the_module = [&](const std::string& line) {
    return line.rfind(kOfThePlatform, 0) != 0 && says_one_of(line, call.texts);
  };
  switch (call.told) {
    case Told::kByTheModule:
      return in_log(by_the_module);
    case Told::kByThePlatform:
      return in_log([&](const std::string& line) {
        return line == std::string(kOfThePlatform) + call.name + " failed";
      });
    case Told::kToWhoeverAsked:
      return !outcome.started || in_log(by_the_module);
  }
  return false;
}

class FailurePoint : public testing::TestWithParam<Point> {
 protected:
  // Until a life has no nth call of this kind.
  void fail_every_call(const Place& place) {
    constexpr uint64_t kMostCalls = 100'000;
    const Point& point = GetParam();
    for (uint64_t nth = 1; nth < kMostCalls; ++nth) {
      const Outcome outcome = live_through(place, {point.call->name, nth, point.times});
      for (const std::string& mistake : outcome.mistakes) {
        ADD_FAILURE() << place.name << ", call " << nth << ": " << mistake;
      }
      if (outcome.failed == 0 || HasFailure()) {
        return;
      }
      ++points_;
      unhealed_ += outcome.unhealed.empty() ? 0 : 1;
      if (point.call->afterwards == Afterwards::kHeals && !outcome.unhealed.empty()) {
        ADD_FAILURE() << place.name << ", call " << nth << ": " << outcome.unhealed.front();
      }
      if (!is_told(*point.call, outcome)) {
        ADD_FAILURE() << place.name << ", call " << nth << ": nobody is told";
      }
    }
    FAIL() << "a life has no end of " << point.call->name;
  }

  uint64_t points_ = 0;
  uint64_t unhealed_ = 0;
};

TEST_P(FailurePoint, LosesNothingAndANewStartMendsIt) {
  fail_every_call(at_the_owner());
  fail_every_call(at_the_interconnection_node());
  EXPECT_GT(points_, 0U) << "this call is never made";
  if (GetParam().times == kOnce && GetParam().call->afterwards == Afterwards::kNeedsNewStart) {
    EXPECT_GT(unhealed_, 0U) << "every failure heals by now";
  }
  RecordProperty("points", std::to_string(points_));
}

INSTANTIATE_TEST_SUITE_P(Calls, FailurePoint, testing::ValuesIn(all_points()), name_of);

}  // namespace
}  // namespace erps::failures
