// While tracing is on, the trace gets what the log gets: here from the places that no ring's life
// comes by, the two tasks and what the command table does not reach.
#include "erps/mgmt/handlers.h"
#include "erps/mgmt/server.h"
#include "erps/raps/transmit.h"
#include "erps/runtime/event_loop.h"
#include "erps/timer/timer_task.h"
#include "tests/unit/fixture.h"
#include "tests/unit/management_client.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsSupersetOf;

class TraceTest : public ModuleTest {
 protected:
  TraceTest() { platform.set_trace(1); }
  ~TraceTest() override { platform.set_trace(0); }

  std::vector<std::string> logged_texts() const {
    std::vector<std::string> texts;
    for (const LogLine& line : platform.log()) {
      texts.push_back(line.text);
    }
    return texts;
  }

  std::vector<std::string> traced_texts() const {
    std::vector<std::string> texts;
    for (const TraceLine& line : platform.trace()) {
      texts.push_back(line.text);
    }
    return texts;
  }

  // Names of the functions that the trace lines come from.
  std::vector<std::string> places() const {
    std::vector<std::string> names;
    for (const TraceLine& line : platform.trace()) {
      names.push_back(line.location.substr(0, line.location.find("():")));
    }
    return names;
  }

  erps_task_desc task_{};
};

TEST_F(TraceTest, ProtocolTaskTracesItsEventsAndItsEnd) {
  const std::optional<std::string> refusal = enter_private_ipc_namespace();
  if (refusal) {
    GTEST_SKIP() << "TRACE OF THE PROTOCOL TASK NOT TESTED: " << *refusal;
  }
  ERPS_EVENT_MSG_T event{};
  event.type = 5;
  platform.post(event);
  platform.close_queue_for_receiver();
  EXPECT_EQ(erps_routine_process(&task_), -1);
  remove_management_queue();
  EXPECT_THAT(traced_texts(),
              ElementsAre("Task entry begin process!~\n", "Task entry end   process!~\n",
                          "erps_routine_process equeue_recv error\n", "routine process exit!\r\n"));
  EXPECT_EQ(traced_texts(), logged_texts());
  EXPECT_THAT(places(), ElementsAre("erps_routine_process", "erps_routine_process",
                                    "erps_routine_process", "erps_routine_cancel_process"));
}

TEST_F(TraceTest, TimerTaskTracesItsSleepAndItsEnd) {
  task_.name = "erps_timer";
  task_.init = erps_timer_task_init;
  task_.entry = erps_routine_timer;
  platform.run_tasks(true);
  platform.script_selects({-1});
  ASSERT_EQ(stask_start(&task_, 0), 0);
  EXPECT_TRUE(platform.wait_until_sleeper_idle());
  stask_stop(&task_);
  EXPECT_THAT(traced_texts(),
              IsSupersetOf({"erps timer select error!\n", "erps timer routine process exit!\r\n"}));
  EXPECT_EQ(traced_texts(), logged_texts());
  EXPECT_THAT(places(), ElementsAre("erps_routine_timer", "erps_routine_timer",
                                    "erps_timer_routine_cancel_process"));
}

TEST_F(TraceTest, TimerTaskTracesThatItCouldNotStart) {
  platform.set_queue_open_fails(true);
  EXPECT_EQ(erps_routine_timer(&task_), -1);
  EXPECT_EQ(traced_texts().size(), 2U);
  EXPECT_EQ(traced_texts(), logged_texts());
  EXPECT_THAT(places(), ElementsAre("erps_routine_timer", "erps_routine_timer"));
}

TEST_F(TraceTest, HandlerWithoutACommandTraces) {
  mgmt::RequestText request{};
  request.arg[0] = 9;
  request.arg[1] = 222;
  mgmt::ReplyText reply{};
  EXPECT_EQ(ium_srv_set_erps_control_vlan(&request, &reply), 0);
  EXPECT_EQ(traced_texts().size(), 2U);  // the handler's line and the operation's
  EXPECT_EQ(traced_texts(), logged_texts());
  EXPECT_THAT(places(), ElementsAre("ium_srv_set_erps_control_vlan", "erps_set_vlan_id"));
}

TEST_F(TraceTest, DumpOfAFrameTracesEachOfItsLines) {
  const uint8_t bytes[17] = {};
  erps_printf_packet(bytes, sizeof bytes);
  EXPECT_EQ(traced_texts().size(), 2U);
  EXPECT_EQ(traced_texts(), logged_texts());
}

}  // namespace
}  // namespace erps::test
