#include "erps/runtime/event_queue.h"

#include <pthread.h>

#include <algorithm>

#include "tests/unit/fixture.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class EventQueueTest : public ModuleTest {
 protected:
  // The one event posted, with its message buffer, which the test releases.
  struct Posted {
    ERPS_EVENT_MSG_T event{};
    ERPS_MSG_T* buffer = nullptr;

    Posted() = default;
    Posted(const Posted&) = delete;
    Posted& operator=(const Posted&) = delete;
    ~Posted() { erps_pkt_buf_free(buffer); }
  };

  void take(Posted& posted) {
    const std::vector<ERPS_EVENT_MSG_T> events = platform.take_events();
    ASSERT_EQ(events.size(), 1U);
    posted.event = events[0];
    posted.buffer = static_cast<ERPS_MSG_T*>(payload_of(events[0]));
    ASSERT_NE(posted.buffer, nullptr);
  }
};

TEST_F(EventQueueTest, EventHasEightWordsWithTypeAndPayloadInTheirPlaces) {
  EXPECT_EQ(sizeof(ERPS_EVENT_MSG_T), 8 * sizeof(uintptr_t));
  EXPECT_EQ(offsetof(ERPS_EVENT_MSG_T, sender), 1 * sizeof(uintptr_t));
  EXPECT_EQ(offsetof(ERPS_EVENT_MSG_T, type), 2 * sizeof(uintptr_t));
  EXPECT_EQ(offsetof(ERPS_EVENT_MSG_T, payload), 7 * sizeof(uintptr_t));
}

TEST_F(EventQueueTest, MessageBufferIs536ZeroBytes) {
  ERPS_MSG_T* buffer = erps_msg_malloc();
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(sizeof *buffer, 536U);
  EXPECT_TRUE(std::all_of(std::begin(buffer->word), std::end(buffer->word),
                          [](uint32_t word) { return word == 0; }));
  erps_pkt_buf_free(buffer);
}

TEST_F(EventQueueTest, MessageBufferIsNullWithoutMemory) {
  platform.fail_allocation(1);
  EXPECT_EQ(erps_msg_malloc(), nullptr);
}

TEST_F(EventQueueTest, FreeingNoBufferIsHarmless) {
  erps_pkt_buf_free(nullptr);
}

TEST_F(EventQueueTest, TopologyChangeCarriesTheRingOnly) {
  EXPECT_EQ(erps_equeue_msg_send(7, 12, 99), 0);
  EXPECT_THAT(platform.calls(), ElementsAre("equeue_send_ucast(receiver, type 7, -1)"));
  Posted posted;
  take(posted);
  EXPECT_EQ(posted.event.event_class, 3U);
  EXPECT_EQ(posted.event.sender, static_cast<uintptr_t>(pthread_self()));
  EXPECT_EQ(posted.event.type, 7U);
  EXPECT_EQ(posted.buffer->word[2], 12U);
  EXPECT_EQ(posted.buffer->word[3], 0U);
}

TEST_F(EventQueueTest, SubRingNotificationCarriesRingAndIndication) {
  EXPECT_EQ(erps_equeue_msg_send(10, 12, 2), 0);
  Posted posted;
  take(posted);
  EXPECT_EQ(posted.event.event_class, 3U);
  EXPECT_EQ(posted.event.type, 10U);
  EXPECT_EQ(posted.buffer->word[2], 12U);
  EXPECT_EQ(posted.buffer->word[3], 2U);
  EXPECT_EQ(posted.buffer->ring_id(), 12U);
  EXPECT_EQ(posted.buffer->value(), 2U);
}

TEST_F(EventQueueTest, CommandsAreSentTheSameWay) {
  EXPECT_EQ(erps_send_cmd(10, 300, 1), 0);
  Posted posted;
  take(posted);
  EXPECT_EQ(posted.event.type, 10U);
  EXPECT_EQ(posted.buffer->ring_id(), 300U);
  EXPECT_EQ(posted.buffer->value(), 1U);
}

TEST_F(EventQueueTest, NothingIsSentWithoutMemory) {
  platform.fail_allocation(1);
  EXPECT_EQ(erps_equeue_msg_send(7, 1, 0), -1);
  platform.fail_allocation(1);
  EXPECT_EQ(erps_send_cmd(10, 1, 1), -1);
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(EventQueueTest, RefusalByTheQueueIsLoggedAndReported) {
  for (const int result : {0, -1}) {
    platform.clear_journal();
    platform.set_send_result(result);
    EXPECT_EQ(erps_equeue_msg_send(7, 1, 0), -1);
    EXPECT_EQ(logged(3, "equeue error\n"), 1);
    EXPECT_EQ(erps_send_cmd(10, 1, 1), -1);
    EXPECT_EQ(logged(3, "equeue error\n"), 2);
  }
}

TEST_F(EventQueueTest, AnyPositiveSendResultIsSuccess) {
  platform.set_send_result(64);
  EXPECT_EQ(erps_equeue_msg_send(7, 1, 0), 0);
  EXPECT_EQ(logged_part("equeue error"), 0);
}

}  // namespace
}  // namespace erps::test
