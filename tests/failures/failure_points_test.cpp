// Every call that a node's module makes of its platform fails, the first, the second and so on
// until a whole life of the node has no more such calls: once, and from then on.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <ostream>
#include <string>

#include "tests/failures/failure_run.h"

namespace erps::failures {
namespace {

// What one failure does that passes by itself.
enum class Afterwards {
  kHeals,          // the ring protects as before, without anybody's doing
  kNeedsNewStart,  // at some points the node goes on with what it did not get
};

struct Call {
  const char* name;
  Afterwards afterwards = Afterwards::kHeals;
  // Texts of which one is in the module's log when the call fails; without any, the module passes
  // the failure over or answers with an error, and it is the platform's to log.
  std::vector<const char*> log;
};

const std::array<Call, 23> kCalls{{
    // The module takes its word for done: an RPL that was not blocked stays open, and a node that
    // believes its link to be down stays in protection.
    {"adp_set_port_erps_state", Afterwards::kNeedsNewStart, {}},
    {"adp_get_port_erps_state", Afterwards::kHeals, {}},
    {"adp_get_phy_port_attr", Afterwards::kNeedsNewStart, {}},
    {"adp_del_mac_addr_by_intf", Afterwards::kHeals, {"MAC FLASH ERROR"}},
    {"adp_transmit_frame", Afterwards::kHeals, {}},
    {"adp_receive_frame", Afterwards::kHeals, {}},
    {"get_nic_address", Afterwards::kHeals, {}},
    {"adp_fp_add_entity_action", Afterwards::kHeals, {}},
    {"adp_fp_add_entity_qualify", Afterwards::kHeals, {}},
    // Only the first ring to start asks for the rule.
    {"adp_fp_add_entity_rule", Afterwards::kNeedsNewStart, {}},
    {"equeue_make_extend", Afterwards::kHeals, {"routine process exit!"}},
    {"equeue_open", Afterwards::kHeals, {"Erps timer error exit"}},
    // The protocol task ends.
    {"equeue_recv", Afterwards::kNeedsNewStart, {"equeue_recv error"}},
    // An expired WTR is gone: the ring protects on, but does not revert.
    {"equeue_send_ucast",
     Afterwards::kNeedsNewStart,
     {"equeue error", "erps timer tick send FAILED!"}},
    {"equeue_close", Afterwards::kHeals, {}},
    {"stask_start", Afterwards::kHeals, {"bridge shut down"}},
    {"stask_stop", Afterwards::kHeals, {}},
    {"stask_notify_creater", Afterwards::kHeals, {}},
    {"new", Afterwards::kHeals, {}},
    {"select", Afterwards::kHeals, {"erps timer select error!"}},
    {"msgget", Afterwards::kHeals, {"routine process exit!"}},
    {"msgrcv", Afterwards::kHeals, {}},
    {"msgsnd", Afterwards::kHeals, {}},
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

bool is_logged(const Call& call, const std::vector<std::string>& log) {
  return std::any_of(log.begin(), log.end(), [&](const std::string& line) {
    return std::any_of(call.log.begin(), call.log.end(),
                       [&](const char* text) { return line.find(text) != std::string::npos; });
  });
}

class FailurePoint : public testing::TestWithParam<Point> {
 protected:
  // Until a life has no nth call of this kind.
  void fail_every_call(const Place& place) {
    constexpr uint64_t kMostCalls = 100'000;
    const Point& point = GetParam();
    for (uint64_t nth = 1; nth < kMostCalls; ++nth) {
      const Outcome outcome =
          live_through(place, {point.call->name, nth, point.times}, !point.call->log.empty());
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
      if (!point.call->log.empty() && !is_logged(*point.call, outcome.log)) {
        ADD_FAILURE() << place.name << ", call " << nth << ": nothing in the log";
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

// Without memory a ring is refused with an error, or an event of the module's own is not posted,
// which the log tells.
TEST(MemoryFailure, IsReportedWhereverItHappens) {
  for (const Place& place : {at_the_owner(), at_the_interconnection_node()}) {
    for (uint64_t nth = 1;; ++nth) {
      const Outcome outcome = live_through(place, {"new", nth, kOnce}, true);
      if (outcome.failed == 0) {
        EXPECT_GE(nth, 4U);
        break;
      }
      const bool logged = std::any_of(
          outcome.log.begin(), outcome.log.end(),
          [](const std::string& line) { return line.find("no memory") != std::string::npos; });
      EXPECT_TRUE(!outcome.started || logged) << place.name << ", allocation " << nth;
    }
  }
}

}  // namespace
}  // namespace erps::failures
