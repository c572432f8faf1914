// The event queue: what comes first, what a stranger may say, how a task leaves.
#include <fcntl.h>
#include <mqueue.h>
#include <pthread.h>
#include <sys/stat.h>

#include <atomic>
#include <cstring>

#include "platform/packet_buffer.h"
#include "platform/switch_adaptation.h"
#include "tests/linux/platform_fixture.h"

namespace erps::linux_platform::test {
namespace {

constexpr const char* kName = "/erps_event_queue";
constexpr auto kShortWhile = std::chrono::milliseconds(50);

// The client's side of the outside door.
class Stranger {
 public:
  Stranger() : door_(mq_open(kName, O_WRONLY | O_NONBLOCK | O_CLOEXEC)) {}
  ~Stranger() { mq_close(door_); }
  Stranger(const Stranger&) = delete;
  Stranger& operator=(const Stranger&) = delete;

  bool post(const void* message, size_t length) const {
    return mq_send(door_, static_cast<const char*>(message), length, 0) == 0;
  }
  bool post(uintptr_t event_class, uintptr_t type, uintptr_t payload) const {
    ERPS_EVENT_MSG_T event{};
    event.event_class = event_class;
    event.type = type;
    event.payload = payload;
    return post(&event, sizeof event);
  }
  mqd_t door() const { return door_; }

 private:
  mqd_t door_;
};

class QueueTest : public PlatformTest {};

TEST_F(QueueTest, LinkChangesComeFirstThenEventsOfTheNodeThenFrames) {
  start_platform();
  ASSERT_EQ(add_capture_rule(), 0);
  const Wire two("w2");
  const Bytes frame = raps_frame(1, 100, 11);
  ASSERT_TRUE(two.send(frame) && two.send(frame));
  ASSERT_TRUE(send(7, 70) && send(3, 30) && send(10, 100));
  set_up("w1", false);
  ASSERT_TRUE(eventually([] { return !device_carrier("p1"); }));

  std::vector<uintptr_t> types;
  std::vector<uintptr_t> payloads;
  for (int i = 0; i < 6; ++i) {
    const auto event = receive();
    ASSERT_TRUE(event);
    types.push_back(event->type);
    if (event->type == kPacketEvent) {
      EXPECT_EQ(take_frame(*event), frame);
    } else if (event->type != kLinkEvent) {
      payloads.push_back(event->payload);
    }
  }
  EXPECT_EQ(types, (std::vector<uintptr_t>{kLinkEvent, 7, 3, 10, kPacketEvent, kPacketEvent}));
  EXPECT_EQ(payloads, (std::vector<uintptr_t>{70, 30, 100}));
}

TEST_F(QueueTest, StormOfFramesDelaysNoLinkChange) {
  start_platform();
  ASSERT_EQ(add_capture_rule(), 0);
  const Wire two("w2");
  std::atomic<bool> stop{false};
  std::thread storm([&] {
    const Bytes frame = raps_frame(1, 100, 11);
    while (!stop) {
      two.send(frame);
    }
  });
  for (int i = 0; i < 100; ++i) {
    const auto event = receive();
    ASSERT_TRUE(event && event->type == kPacketEvent);
    skpack_release(record_of(*event));
  }
  set_up("w1", false);
  ASSERT_TRUE(eventually([] { return !device_carrier("p1"); }));
  const auto event = receive();
  EXPECT_TRUE(event && event->type == kLinkEvent);
  stop = true;
  storm.join();
}

TEST_F(QueueTest, CommandsGetThroughAStormOfFrames) {
  start_platform();
  ASSERT_EQ(add_capture_rule(), 0);
  const Wire two("w2");
  const Bytes frame = raps_frame(1, 100, 11);
  for (int i = 0; i < 200; ++i) {
    two.send(frame);
  }
  const Stranger client;
  ASSERT_TRUE(client.post(3, 4, 42));
  bool seen = false;
  for (int i = 0; i < 4 && !seen; ++i) {
    const auto event = receive();
    ASSERT_TRUE(event);
    seen = event->type == 4;
    if (event->type == kPacketEvent) {
      skpack_release(record_of(*event));
    }
  }
  EXPECT_TRUE(seen);
}

// A sender may hold a lock that the receiver needs, so it must never wait for the receiver.
TEST_F(QueueTest, SendersNeverWaitHoweverManyEventsThereAre) {
  start_platform();
  constexpr uintptr_t kEvents = 20000;
  for (uintptr_t i = 0; i < kEvents; ++i) {
    ASSERT_TRUE(send(7, i));
  }
  ERPS_EVENT_MSG_T event{};
  for (uintptr_t i = 0; i < kEvents; ++i) {
    ASSERT_EQ(equeue_recv(queue_, &event, 0), 0);
    ASSERT_EQ(event.payload, i);
  }
}

TEST_F(QueueTest, EventsOfSeveralSendersAllArriveAndEachSendersInOrder) {
  start_platform();
  constexpr uintptr_t kSenders = 3;
  constexpr uintptr_t kEvents = 2000;
  std::vector<std::thread> senders;
  for (uintptr_t sender = 0; sender < kSenders; ++sender) {
    senders.emplace_back([sender, this] {
      for (uintptr_t i = 0; i < kEvents; ++i) {
        ASSERT_TRUE(send(7, sender << 32 | i));
      }
    });
  }
  std::array<uintptr_t, kSenders> expected{};
  ERPS_EVENT_MSG_T event{};
  for (uintptr_t i = 0; i < kSenders * kEvents; ++i) {
    ASSERT_EQ(equeue_recv(queue_, &event, 0), 0);
    ASSERT_EQ(event.payload & 0xFFFFFFFF, expected[event.payload >> 32]++);
  }
  for (std::thread& sender : senders) {
    sender.join();
  }
}

TEST_F(QueueTest, AnnouncementFromOutsideArrives) {
  start_platform();
  const Stranger client;
  ASSERT_TRUE(client.post(3, 4, 4711));
  const auto event = receive();
  ASSERT_TRUE(event);
  EXPECT_EQ(event->event_class, 3u);
  EXPECT_EQ(event->type, 4u);
  EXPECT_EQ(event->payload, 4711u);
  EXPECT_EQ(status().counters.door_accepted, 1u);
}

TEST_F(QueueTest, PointersFromOutsideAreDroppedCountedAndLogged) {
  start_platform();
  ::testing::internal::CaptureStderr();
  const Stranger stranger;
  const uintptr_t wild = 0xDEADBEEF;
  size_t posted = 0;
  for (const uintptr_t type : {1, 2, 3, 7, 10, 0, 5, 11, 0x104}) {
    ASSERT_TRUE(stranger.post(3, type, wild));
    ++posted;
    EXPECT_FALSE(receive(std::chrono::milliseconds(10))) << "type " << type;
  }
  ASSERT_TRUE(stranger.post(4, 4, wild));  // another class
  ++posted;
  EXPECT_FALSE(receive(kShortWhile));
  EXPECT_EQ(status().counters.door_wrong_event, posted);
  EXPECT_EQ(status().counters.door_accepted, 0u);

  ASSERT_TRUE(stranger.post(3, 4, 5));  // the door still works
  const auto event = receive();
  EXPECT_TRUE(event && event->type == 4);
  size_t recorded = 0;
  for (const HistoryRecord& record : history()) {
    recorded += record.kind == HistoryKind::kDoorDrop ? 1 : 0;
  }
  EXPECT_EQ(recorded, posted);
  stop();
  EXPECT_NE(::testing::internal::GetCapturedStderr().find("outside door: dropped"),
            std::string::npos);
}

TEST_F(QueueTest, MessagesOfAnotherSizeAreDropped) {
  start_platform();
  const Stranger stranger;
  const std::array<char, 64> text{};
  ASSERT_TRUE(stranger.post(text.data(), 0));
  ASSERT_TRUE(stranger.post(text.data(), 8));
  ASSERT_TRUE(stranger.post(text.data(), 63));
  EXPECT_FALSE(stranger.post(text.data(), 65));
  EXPECT_FALSE(receive(kShortWhile));
  EXPECT_EQ(status().counters.door_wrong_size, 3u);
}

TEST_F(QueueTest, DoorIsItsOwnersAlone) {
  const mode_t old_mask = umask(0);
  start_platform();
  umask(old_mask);
  const Stranger owner;
  struct stat info {};
  ASSERT_EQ(fstat(owner.door(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0600u);
}

TEST_F(QueueTest, DoorOpensToTheConfiguredGroupForWriting) {
  Config c = config();
  c.door_group = 12345;
  start_platform(c);
  const Stranger member;
  struct stat info {};
  ASSERT_EQ(fstat(member.door(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0620u);
  EXPECT_EQ(info.st_gid, 12345u);
}

TEST_F(QueueTest, DoorLeftByAnotherIsMadeAnewEmpty) {
  mq_attr attributes{};
  attributes.mq_maxmsg = 4;
  attributes.mq_msgsize = 64;
  const mqd_t old = mq_open(kName, O_RDWR | O_CREAT | O_CLOEXEC, 0666, &attributes);
  ASSERT_GE(old, 0);
  ERPS_EVENT_MSG_T stale{};
  stale.event_class = 3;
  stale.type = 4;
  ASSERT_EQ(mq_send(old, reinterpret_cast<const char*>(&stale), sizeof stale, 0), 0);
  start_platform();
  EXPECT_FALSE(receive(kShortWhile));
  mq_close(old);
  stop();
  EXPECT_LT(mq_open(kName, O_WRONLY), 0);  // and stopping leaves none behind
}

TEST_F(QueueTest, SecondTaskOpensTheQueueByNameAndSends) {
  start_platform();
  EXPECT_EQ(equeue_open("/another", 0), nullptr);
  EXPECT_EQ(equeue_open(nullptr, 0), nullptr);
  void* second = equeue_open(kName, 0);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(second, queue_);
  ERPS_EVENT_MSG_T event{};
  event.event_class = 3;
  event.type = 3;
  EXPECT_GT(equeue_send_ucast(second, &event, -1), 0);
  EXPECT_EQ(equeue_recv(second, &event, 0), -1);  // only the maker receives
  EXPECT_EQ(receive()->type, 3u);

  EXPECT_EQ(equeue_close(second), 0);
  EXPECT_LE(equeue_send_ucast(second, &event, -1), 0);
  EXPECT_TRUE(send(3));  // the maker's handle is another one
}

TEST_F(QueueTest, ClosedQueueTakesAndGivesNothing) {
  start_platform();
  void* second = equeue_open(kName, 0);
  ERPS_EVENT_MSG_T event{};
  EXPECT_EQ(equeue_close(queue_), 0);
  EXPECT_NE(equeue_close(queue_), 0);
  EXPECT_LE(equeue_send_ucast(queue_, &event, -1), 0);
  EXPECT_LE(equeue_send_ucast(second, &event, -1), 0);
  EXPECT_EQ(equeue_recv(queue_, &event, 0), -1);
  EXPECT_EQ(equeue_open(kName, 0), nullptr);
  EXPECT_LT(mq_open(kName, O_WRONLY), 0);
  make_queue();
  EXPECT_TRUE(send(3));
  EXPECT_EQ(receive()->type, 3u);
}

TEST_F(QueueTest, NullAndForeignHandlesAreRefused) {
  start_platform();
  ERPS_EVENT_MSG_T event{};
  for (void* handle : {static_cast<void*>(nullptr), static_cast<void*>(&event)}) {
    EXPECT_NE(equeue_close(handle), 0);
    EXPECT_LE(equeue_send_ucast(handle, &event, -1), 0);
    EXPECT_EQ(equeue_recv(handle, &event, 0), -1);
  }
}

TEST_F(QueueTest, ClosingWakesTheReceiver) {
  start_platform();
  std::atomic<int> result{1};
  std::thread task([&] {
    ERPS_EVENT_MSG_T event{};
    result = equeue_recv(queue_, &event, 0);
  });
  ASSERT_EQ(equeue_close(queue_), 0);
  task.join();
  EXPECT_EQ(result, -1);
}

// A task that waits for events, with a cleanup handler as the module has one.
struct WaitingTask {
  void* queue = nullptr;
  std::atomic<int> received{0};
  std::atomic<bool> cleaned_up{false};

  static void clean_up(void* argument) { static_cast<WaitingTask*>(argument)->cleaned_up = true; }

  static void* run(void* argument) {
    auto* task = static_cast<WaitingTask*>(argument);
    pthread_cleanup_push(clean_up, task);
    ERPS_EVENT_MSG_T event{};
    while (equeue_recv(task->queue, &event, 0) == 0) {
      ++task->received;
    }
    pthread_cleanup_pop(0);
    return nullptr;
  }
};

TEST_F(QueueTest, TaskThatWaitsIsCancelledAndTheQueueLivesOn) {
  start_platform();
  for (int round = 0; round < 20; ++round) {
    WaitingTask task;
    task.queue = queue_;
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, WaitingTask::run, &task), 0);
    ASSERT_TRUE(send(7));
    ASSERT_TRUE(eventually([&] { return task.received == 1; }));
    ASSERT_EQ(pthread_cancel(thread), 0);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_TRUE(task.cleaned_up);
  }
  ASSERT_TRUE(send(3));
  EXPECT_EQ(receive()->type, 3u);
}

// Even one that never has to wait.
TEST_F(QueueTest, BusyTaskIsCancelledToo) {
  start_platform();
  WaitingTask task;
  task.queue = queue_;
  std::atomic<bool> stop{false};
  std::thread feeder([&] {
    while (!stop) {
      send(7);
    }
  });
  pthread_t thread{};
  ASSERT_EQ(pthread_create(&thread, nullptr, WaitingTask::run, &task), 0);
  ASSERT_TRUE(eventually([&] { return task.received > 100; }));
  ASSERT_EQ(pthread_cancel(thread), 0);
  void* result = nullptr;
  ASSERT_EQ(pthread_join(thread, &result), 0);
  EXPECT_EQ(result, PTHREAD_CANCELED);
  stop = true;
  feeder.join();
}

}  // namespace
}  // namespace erps::linux_platform::test
