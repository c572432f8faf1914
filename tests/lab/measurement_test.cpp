// The measurement itself, on a chain of bridges without any ring: what is done to the traffic is
// known and has to be found again.
#include <gtest/gtest.h>
#include <linux/if_ether.h>
#include <sys/wait.h>
#include <unistd.h>

#include "lab/clock.h"
#include "lab/network.h"
#include "lab/sandbox.h"
#include "lab/topology_file.h"
#include "lab/traffic.h"

namespace erps::lab {
namespace {

constexpr const char* kChain = R"(
[[node]]
name = "a"
[[node]]
name = "b"
[[node]]
name = "c"
[[link]]
between = ["a", "b"]
[[link]]
between = ["b", "c"]
[[host]]
name = "h1"
node = "a"
[[host]]
name = "h2"
node = "c"
[[stream]]
between = ["h1", "h2"]
frames_per_s = 10000
)";
constexpr int64_t kLearningMs = 200;
// What is measured while the machine itself stands still is measured again, as in a step of a run.
constexpr int64_t kStallNs = 2'000'000;
constexpr int64_t kPatienceMs = 100000;
constexpr int64_t kCalmMs = 300;

// Runs the function in a sandbox of its own process; failures in there are told by its status.
class Measurement : public ::testing::Test {
 protected:
  using Experiment = std::function<void(Network&, Traffic&)>;

  static bool is_calm(const TrafficResult& result) { return result.machine_stall_ns < kStallNs; }

  // Done with the network between the begin and the end of a measurement.
  static void measure(const Experiment& experiment,
                      const std::function<void(const TrafficResult&)>& judge) {
    const pid_t child = fork();
    if (child == 0) {
      _exit(run_in_sandbox(
          [&] {
            const TopologyFile file = parse_topology(kChain);
            Network network(file.topology);
            Traffic traffic(file.topology, network);
            traffic.start();
            TrafficResult result;
            const int64_t deadline_ns = mono_ns() + kPatienceMs * kNsPerMs;
            for (;;) {
              network.restore(0);
              network.restore(1);
              sleep_ms(kLearningMs);  // until the bridges know both hosts
              traffic.begin_measurement();
              experiment(network, traffic);
              result = traffic.end_measurement();
              const int64_t left_ms = (deadline_ns - mono_ns()) / kNsPerMs;
              if (is_calm(result) || left_ms < 0) {
                break;
              }
              traffic.wait_for_calm(kStallNs, kCalmMs, left_ms);
            }
            judge(result);
            return ::testing::Test::HasFailure() ? 1 : 0;
          },
          {}));
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "see above";
  }
};

TEST_F(Measurement, CalmTrafficLosesNothing) {
  measure([](Network&, Traffic&) { sleep_ms(300); },
          [](const TrafficResult& result) {
            EXPECT_TRUE(result.is_sound());
            for (const DirectionResult& direction : result.streams[0].directions) {
              EXPECT_GE(direction.sent, 2500U);
              EXPECT_LE(direction.sent, 4000U);
              EXPECT_EQ(direction.lost, 0U);
              EXPECT_EQ(direction.duplicates, 0U);
              EXPECT_EQ(direction.reordered, 0U);
              EXPECT_FALSE(direction.still_out);
            }
          });
}

TEST_F(Measurement, ALinkThatIsAwayForAWhileReadsAsThatWhile) {
  measure(
      [](Network& network, Traffic&) {
        sleep_ms(50);
        network.cut(0);
        sleep_ms(100);
        network.restore(0);
        sleep_ms(100);
      },
      [](const TrafficResult& result) {
        for (const DirectionResult& direction : result.streams[0].directions) {
          EXPECT_GE(to_ms(direction.outage_ns), 99);
          EXPECT_LE(to_ms(direction.outage_ns), 100 + 30 + to_ms(result.machine_stall_ns));
          EXPECT_GE(direction.lost, 900U);
          EXPECT_FALSE(direction.still_out);
        }
      });
}

TEST_F(Measurement, ALinkThatStaysAwayIsStillOut) {
  measure(
      [](Network& network, Traffic&) {
        network.cut(1);
        sleep_ms(60);
      },
      [](const TrafficResult& result) {
        for (const DirectionResult& direction : result.streams[0].directions) {
          EXPECT_TRUE(direction.still_out);
          EXPECT_GE(to_ms(direction.outage_ns), 60);
          EXPECT_GE(direction.lost, 500U);
        }
      });
}

TEST_F(Measurement, ACopyOfAFrameIsFound) {
  measure(
      [](Network& network, Traffic&) {
        // Frame 10 of the first host, which it sent long ago, three times more.
        network.host(0).run([&] {
          PacketSocket socket({network.host_interface(0), 0, false, {}, 0});
          auto frame = make_traffic_frame(network.host_address(1), network.host_address(0));
          stamp_traffic_frame(frame, {0, 10, mono_ns()});
          for (int i = 0; i < 3; ++i) {
            EXPECT_TRUE(socket.send(frame.data(), frame.size()));
          }
        });
        sleep_ms(20);
      },
      [](const TrafficResult& result) {
        EXPECT_EQ(result.streams[0].directions[0].duplicates, 3U);
        EXPECT_EQ(result.streams[0].directions[1].duplicates, 0U);
        EXPECT_EQ(result.streams[0].directions[0].lost, 0U);
      });
}

}  // namespace
}  // namespace erps::lab
