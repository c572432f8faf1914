// What is written down: history, journal, log, trace.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "linux/clock.h"
#include "linux/overwrite_ring.h"
#include "platform/log.h"
#include "platform/packet_buffer.h"
#include "platform/switch_adaptation.h"
#include "tests/linux/platform_fixture.h"

namespace erps::linux_platform::test {
namespace {

using nlohmann::json;

class HistoryTest : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    journal_ = ::testing::TempDir() + "erps-journal-XXXXXX";
    const UniqueFd file(mkstemp(journal_.data()));
    ASSERT_TRUE(file);
  }
  void TearDown() override {
    PlatformTest::TearDown();
    std::filesystem::remove(journal_);
  }

  Config with_journal() const {
    Config c = config();
    c.journal_path = journal_;
    return c;
  }

  // Every line of the journal; a line that is no JSON object fails the test.
  std::vector<json> lines() const {
    std::vector<json> result;
    std::ifstream file(journal_);
    std::string line;
    while (std::getline(file, line)) {
      result.push_back(json::parse(line));
    }
    return result;
  }

  static std::vector<json> of_kind(const std::vector<json>& all, const std::string& kind) {
    std::vector<json> result;
    std::copy_if(all.begin(), all.end(), std::back_inserter(result),
                 [&](const json& line) { return line.at("kind") == kind; });
    return result;
  }

  std::string journal_;
};

TEST_F(HistoryTest, JournalTellsWhatHappenedWhenAndWhy) {
  const int64_t mono_before = mono_now_ns();
  const int64_t wall_before = wall_now_ns();
  start_platform(with_journal());
  ASSERT_EQ(add_capture_rule(), 0);
  const Wire one("w1");
  ASSERT_TRUE(one.send(raps_frame(3, 100, 11, 9)));
  const auto packet = receive();
  ASSERT_TRUE(packet && packet->type == kPacketEvent);
  // What is asked for while this event is handled has the frame as its cause.
  const Bytes answer = raps_frame(3, 100, 0, 1);
  ASSERT_EQ(adp_set_port_erps_state(2, 4), 0);
  ASSERT_EQ(adp_del_mac_addr_by_intf(2, 2), 0);
  ASSERT_EQ(adp_transmit_frame(answer.data(), static_cast<uint16_t>(answer.size()), 0, 1, 3), 0);
  skpack_release(record_of(*packet));
  set_up("w1", false);
  ASSERT_TRUE(receive());
  stop();

  const auto all = lines();
  for (const json& line : all) {
    EXPECT_GE(line.at("mono_ns").get<int64_t>(), mono_before);
    EXPECT_LE(line.at("mono_ns").get<int64_t>(), mono_now_ns());
    EXPECT_GE(line.at("wall_ns").get<int64_t>(), wall_before);
    EXPECT_LE(line.at("wall_ns").get<int64_t>(), wall_now_ns());
  }
  const auto received = of_kind(all, "raps-rx");
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].at("port"), 1);
  EXPECT_EQ(received[0].at("ring"), 3);
  EXPECT_EQ(received[0].at("vlan"), 100);
  EXPECT_EQ(received[0].at("request"), "SF");
  EXPECT_EQ(received[0].at("rb"), 0);
  EXPECT_EQ(received[0].at("node_id"), "02:00:00:00:00:09");

  const std::string cause = "R-APS SF port 1 from 02:00:00:00:00:09";
  const auto sent = of_kind(all, "raps-tx");
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].at("request"), "NR");
  EXPECT_EQ(sent[0].at("node_id"), "02:00:00:00:00:01");
  EXPECT_EQ(sent[0].at("cause"), cause);

  std::vector<std::string> opening;
  for (const json& line : of_kind(all, "port-state")) {
    if (line.at("port") == 2 && line.at("state") == "forwarding") {
      opening.push_back(line.at("phase"));
      EXPECT_EQ(line.at("cause"), cause);
    }
  }
  EXPECT_EQ(opening, (std::vector<std::string>{"asked", "applied"}));
  const auto flushed = of_kind(all, "flush");
  ASSERT_FALSE(flushed.empty());
  EXPECT_EQ(flushed.back().at("cause"), cause);

  const auto link = of_kind(all, "link");
  ASSERT_EQ(link.size(), 1u);
  EXPECT_EQ(link[0].at("port"), 1);
  EXPECT_EQ(link[0].at("state"), "down");
  EXPECT_EQ(of_kind(all, "capture").size(), 2u);  // installed, removed
}

TEST_F(HistoryTest, JournalIsWrittenWhileThePlatformRuns) {
  start_platform(with_journal());
  EXPECT_TRUE(eventually([this] { return of_kind(lines(), "port-state").size() == 2; },
                         std::chrono::milliseconds(500)));
}

TEST_F(HistoryTest, JournalIsContinuedNotReplaced) {
  start_platform(with_journal());
  stop();
  const size_t first = lines().size();
  ASSERT_GT(first, 0u);
  start_platform(with_journal());
  stop();
  EXPECT_EQ(lines().size(), 2 * first);
}

TEST_F(HistoryTest, FrameTooShortToReadIsWrittenDownAndStillDelivered) {
  start_platform(with_journal());
  ASSERT_EQ(add_capture_rule(), 0);
  const Wire one("w1");
  Bytes frame = raps_frame(1, 0, 11);
  frame.resize(20);
  ASSERT_TRUE(one.send(frame));
  const auto event = receive();
  ASSERT_TRUE(event);
  EXPECT_EQ(take_frame(*event), frame);
  stop();
  EXPECT_EQ(of_kind(lines(), "raps-malformed").size(), 1u);
}

TEST_F(HistoryTest, HistoryKeepsTheLatest) {
  start_platform();
  const Bytes frame = raps_frame(1, 100, 11);
  for (int i = 0; i < 5000; ++i) {
    adp_transmit_frame(frame.data(), static_cast<uint16_t>(frame.size()), 0, 1, 3);
  }
  const auto all = history();
  ASSERT_EQ(all.size(), 4096u);
  for (size_t i = 1; i < all.size(); ++i) {
    ASSERT_EQ(all[i].sequence, all[i - 1].sequence + 1);
  }
  const auto few = history(10);
  ASSERT_EQ(few.size(), 10u);
  EXPECT_EQ(few.back().sequence, all.back().sequence);
}

struct Pattern {
  std::array<uint64_t, 12> words;
};

// Writers never wait, so a reader must recognise what was overwritten under its hands.
TEST(OverwriteRing, ReadersSeeWholeRecordsOrNone) {
  OverwriteRing<Pattern, 16> ring;
  constexpr uint64_t kRecords = 20000;
  std::vector<std::thread> writers;
  for (uint64_t writer = 1; writer <= 2; ++writer) {
    writers.emplace_back([&ring, writer] {
      for (uint64_t i = 0; i < kRecords; ++i) {
        Pattern pattern;
        pattern.words.fill(writer << 32 | i);
        ring.push(pattern);
      }
    });
  }
  size_t whole = 0;
  const auto read_all = [&] {
    Pattern pattern;
    const uint64_t end = ring.next();
    for (uint64_t i = end > 16 ? end - 16 : 0; i < end; ++i) {
      if (ring.read(i, pattern) == decltype(ring)::Read::kDone) {
        ++whole;
        for (const uint64_t word : pattern.words) {
          ASSERT_EQ(word, pattern.words[0]);
        }
      }
    }
  };
  while (ring.next() < 2 * kRecords) {
    read_all();
  }
  for (std::thread& writer : writers) {
    writer.join();
  }
  read_all();
  EXPECT_GT(whole, 0u);
}

TEST(OverwriteRing, TellsWhatIsNotThereYetAndWhatIsGone) {
  OverwriteRing<Pattern, 4> ring;
  Pattern pattern{};
  EXPECT_EQ(ring.read(0, pattern), decltype(ring)::Read::kNotYet);
  for (uint64_t i = 0; i < 6; ++i) {
    pattern.words.fill(i);
    EXPECT_EQ(ring.push(pattern), i);
  }
  EXPECT_EQ(ring.read(1, pattern), decltype(ring)::Read::kOverwritten);
  ASSERT_EQ(ring.read(2, pattern), decltype(ring)::Read::kDone);
  EXPECT_EQ(pattern.words[0], 2u);
  EXPECT_EQ(ring.read(6, pattern), decltype(ring)::Read::kNotYet);
}

class LogTest : public PlatformTest {
 protected:
  // What `speak` makes the log say.
  static std::string heard(const LogConfig& log_config, const std::function<void()>& speak) {
    configure_log(log_config);
    ::testing::internal::CaptureStderr();
    speak();
    return ::testing::internal::GetCapturedStderr();
  }
};

TEST_F(LogTest, LevelDecidesBeforeAnythingIsFormatted) {
  const auto speak = [] {
    Log_logging_func(3, 30, "erps", "an error %d\r\n", 1);
    Log_logging_func(5, 30, "erps", "a notice %d\n", 2);
    Log_logging_func(7, 30, "erps", "for debugging %d\n", 3);
  };
  const std::string errors =
      heard({.level = LogLevel::kError, .target = LogTarget::kPlain, .trace = false}, speak);
  EXPECT_NE(errors.find("error erps: an error 1\n"), std::string::npos) << errors;
  EXPECT_EQ(errors.find("a notice"), std::string::npos);
  const std::string all =
      heard({.level = LogLevel::kDebug, .target = LogTarget::kPlain, .trace = false}, speak);
  EXPECT_NE(all.find("notice erps: a notice 2\n"), std::string::npos);
  EXPECT_NE(all.find("debug erps: for debugging 3\n"), std::string::npos);
}

TEST_F(LogTest, JournalLinesCarryTheirSeverity) {
  const std::string text =
      heard({.level = LogLevel::kDebug, .target = LogTarget::kJournal, .trace = false}, [] {
        Log_logging_func(3, 7, "Task entry", "one\ntwo\r\n");
        log(LogLevel::kNotice, "the host speaks");
      });
  EXPECT_EQ(text, "<3>Task entry: one two\n<5>host: the host speaks\n");
}

TEST_F(LogTest, OverlongMessagesAreCutOffVisibly) {
  const std::string text =
      heard({.level = LogLevel::kDebug, .target = LogTarget::kJournal, .trace = false},
            [] { Log_logging_func(5, 30, "erps", "%s", std::string(5000, 'x').c_str()); });
  EXPECT_LT(text.size(), 600u);
  EXPECT_NE(text.find("xxx...\n"), std::string::npos);
}

TEST_F(LogTest, LinesOfARunningPlatformAreAllWrittenByItsStop) {
  configure_log({});
  ::testing::internal::CaptureStderr();
  Config c = config();
  c.log.level = LogLevel::kNotice;
  start(c);
  for (int i = 0; i < 200; ++i) {
    Log_logging_func(5, 30, "erps", "line %d.\n", i);
  }
  stop();
  const std::string text = ::testing::internal::GetCapturedStderr();
  for (int i = 0; i < 200; ++i) {
    EXPECT_NE(text.find("line " + std::to_string(i) + "."), std::string::npos);
  }
}

TEST_F(LogTest, TraceIsOffUntilAskedForAndKeepsTheLatestTexts) {
  configure_log({});
  EXPECT_EQ(sys_trace_get(), 0);
  set_trace(true);
  EXPECT_NE(sys_trace_get(), 0);
  for (int i = 0; i < 2000; ++i) {
    sys_trace_add_log("somewhere():12", ("text " + std::to_string(i) + "\r\n").c_str());
  }
  const auto texts = trace();
  EXPECT_EQ(texts.size(), 1024u);
  EXPECT_EQ(texts.back(), "somewhere():12 text 1999");
  set_trace(false);
  EXPECT_EQ(sys_trace_get(), 0);
}

// A console that does not read must not hold up whoever logs.
TEST_F(LogTest, BlockedConsoleHoldsUpNobody) {
  int pipe_ends[2];
  ASSERT_EQ(pipe(pipe_ends), 0);
  const int saved = dup(STDERR_FILENO);
  ASSERT_NO_THROW(start(config()));
  dup2(pipe_ends[1], STDERR_FILENO);
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 5000; ++i) {
    Log_logging_func(3, 30, "erps", "%s\n", std::string(200, 'y').c_str());
  }
  const auto took = std::chrono::steady_clock::now() - begin;
  dup2(saved, STDERR_FILENO);
  close(pipe_ends[1]);
  // Read until the recorder, too, has let go of the pipe.
  std::array<char, 4096> sink;
  std::thread reader([&] {
    while (read(pipe_ends[0], sink.data(), sink.size()) > 0) {
    }
  });
  stop();
  reader.join();
  close(pipe_ends[0]);
  close(saved);
  EXPECT_LT(took, std::chrono::seconds(2));
}

}  // namespace
}  // namespace erps::linux_platform::test
