// The daemon from start to stop, on a stand-in for the platform and one for the module: what it
// does in which order, and that nothing of it is left whatever goes wrong.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <mqueue.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "client/client.h"
#include "client/error.h"
#include "client/hazards.h"
#include "client/words.h"
#include "tests/client/ipc_namespace.h"
#include "tests/client/run_program.h"
#include "tests/host/temporary_file.h"

namespace erps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds kLimit{10};

constexpr const char* kConfig = R"(
bridge = "br0"
node_address = "02:00:00:00:00:01"
[timers]
guard_ms = 600
wtr_ms = 120000
holdoff_ms = 100
[[port]]
id = 1
interface = "eth1"
[[port]]
id = 2
interface = "eth2"
[[port]]
id = 3
interface = "eth3"
[[ring]]
id = 1
ports = [1, 2]
control_vlan = 100
node_role = "owner"
rpl_port = 1
revertive = false
[[sub_ring]]
id = 2
major_ring = 1
port = 3
interconnection = "watching"
)";

// An environment variable for the programs that a test starts.
class Environment {
 public:
  Environment(const char* name, const std::string& value) : name_(name) {
    setenv(name, value.c_str(), 1);
  }
  ~Environment() { unsetenv(name_); }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  const char* name_;
};

class DaemonLife : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_IPC_NAMESPACE(); }
  void TearDown() override { EXPECT_EQ(left_behind(), ""); }

  std::vector<std::string> command(std::vector<std::string> more = {}) const {
    std::vector<std::string> all{ERPSD_STAND_IN, "--config", config_.path(), "--module",
                                 STAND_IN_MODULE};
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }

  static std::string left_behind() {
    std::string left;
    if (msgget(mgmt::kQueueKey, 0) >= 0) {
      left += "management queue ";
    }
    const mqd_t door = mq_open(mgmt::kEventQueueName, O_RDONLY);
    if (door != static_cast<mqd_t>(-1)) {
      mq_close(door);
      left += "event queue ";
    }
    if (semget(mgmt::kQueueKey + 1, 0, 0) >= 0) {
      left += "instance lock ";
    }
    return left;
  }

  TemporaryFile config_{kConfig};
};

// The lines of a program's log that start with "module" or "platform", their first two words.
std::vector<std::string> steps_in(const std::string& log) {
  std::vector<std::string> steps;
  std::istringstream lines(log);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string who;
    std::string what;
    words >> who >> what;
    if (who == "platform" && what == "stop") {
      std::string how;
      words >> how;
      what += " " + how;
    }
    if (who == "module" || who == "platform") {
      steps.emplace_back(who).append(" ").append(what);
    }
  }
  return steps;
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST_F(DaemonLife, StartsAndStopsInOrderAndKeepsThePortsBlocked) {
  for (const int number : {SIGTERM, SIGINT}) {
    Running daemon(command());
    ASSERT_TRUE(daemon.err_contains("log5 ready: ", kLimit)) << daemon.err();
    daemon.signal(number);
    ASSERT_TRUE(daemon.wait(kLimit)) << daemon.err();
    EXPECT_EQ(daemon.status(), 0);
    const std::vector<std::string> expected{"platform start", "module init", "module start",
                                            "module stop",    "module exit", "platform stop keep"};
    EXPECT_EQ(steps_in(daemon.err()), expected) << daemon.err();
    EXPECT_EQ(left_behind(), "");
  }
}

TEST_F(DaemonLife, ConfigurationReachesPlatformAndModule) {
  Running daemon(command({"--journal", "/dev/null"}));
  ASSERT_TRUE(daemon.err_contains("log5 ready: bridge br0, node 02:00:00:00:00:01", kLimit))
      << daemon.err();
  EXPECT_TRUE(contains(daemon.err(),
                       "platform start bridge=br0 ports=1:eth1 2:eth2 3:eth3 journal=/dev/null "
                       "poll=5 priority=0 door_group=-1 level=5\n"))
      << daemon.err();
  client::Client client;
  EXPECT_EQ(client.guard_ms(), 600u);
  EXPECT_EQ(client.wtr_minutes(), 2u);
  EXPECT_EQ(client.holdoff_ms(), 100u);
  const std::optional<client::RingStatus> ring = client.read_ring(1);
  ASSERT_TRUE(ring);
  EXPECT_TRUE(ring->enabled);
  EXPECT_FALSE(ring->revertive);
  EXPECT_EQ(ring->control_vlan, 100u);
  EXPECT_EQ(ring->node_role, client::kOwner);
  EXPECT_EQ(ring->rpl_port(), 1u);
  EXPECT_EQ(ring->partner_ring, 2u);
  EXPECT_EQ(ring->interconnection_role, client::kWatching);
  const std::optional<client::RingStatus> sub_ring = client.read_ring(2);
  ASSERT_TRUE(sub_ring);
  EXPECT_TRUE(sub_ring->enabled);
  EXPECT_EQ(sub_ring->port0.port, 3u);
  EXPECT_EQ(client.read_rings().size(), 2u);
  daemon.signal(SIGTERM);
  ASSERT_TRUE(daemon.wait(kLimit));
}

TEST_F(DaemonLife, HangupChangesNothing) {
  Running daemon(command());
  ASSERT_TRUE(daemon.err_contains("log5 ready: ", kLimit));
  daemon.signal(SIGHUP);
  ASSERT_TRUE(daemon.err_contains("SIGHUP ignored", kLimit)) << daemon.err();
  EXPECT_TRUE(client::Client().any_ring_enabled());
  daemon.signal(SIGTERM);
  ASSERT_TRUE(daemon.wait(kLimit));
  EXPECT_EQ(daemon.status(), 0);
}

TEST_F(DaemonLife, ReadinessIsToldOnTheDescriptorOnceTheRingsRun) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  Running daemon(command({"--ready-fd", std::to_string(ends[1])}));
  close(ends[1]);
  char line[64];
  ssize_t length = -1;
  ASSERT_TRUE(eventually(
      [&] {
        length = read(ends[0], line, sizeof line);
        return length >= 0;
      },
      kLimit))
      << daemon.err();
  EXPECT_EQ(std::string(line, static_cast<size_t>(length)), "READY\n");
  EXPECT_TRUE(client::Client().read_ring(1)->enabled);
  EXPECT_TRUE(eventually([&] { return read(ends[0], line, sizeof line) == 0; }, kLimit))
      << "the descriptor stays open";
  close(ends[0]);
  daemon.signal(SIGTERM);
  ASSERT_TRUE(daemon.wait(kLimit));
}

TEST_F(DaemonLife, ServiceManagerHearsReadyAndStopping) {
  const std::string name = "erps-test-" + std::to_string(getpid());
  const int receiver = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  name.copy(address.sun_path + 1, name.size());
  ASSERT_EQ(bind(receiver, reinterpret_cast<const sockaddr*>(&address),
                 static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size())),
            0);
  const timeval limit{kLimit.count(), 0};
  setsockopt(receiver, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  const Environment environment("NOTIFY_SOCKET", "@" + name);
  const auto next = [&] {
    char text[256];
    const ssize_t length = recv(receiver, text, sizeof text, 0);
    return length < 0 ? std::string("nothing") : std::string(text, static_cast<size_t>(length));
  };
  Running daemon(command());
  EXPECT_EQ(next(), "READY=1");
  daemon.signal(SIGTERM);
  EXPECT_EQ(next(), "STOPPING=1");
  ASSERT_TRUE(daemon.wait(kLimit));
  close(receiver);
}

TEST_F(DaemonLife, SecondDaemonIsRefusedAndTheFirstGoesOn) {
  Running first(command());
  ASSERT_TRUE(first.err_contains("log5 ready: ", kLimit));
  const Outcome second = run_program(command());
  EXPECT_EQ(second.status, 3);
  EXPECT_EQ(second.err, "log5 " + config_.path() +
                            ":23: warning: non-revertive: the ring does not return to idle by "
                            "itself, and after a failed link has returned both of its ends keep "
                            "repeating R-APS(SF); if two repeats cross on the ring, both ends "
                            "unblock and the ring is a loop until an operator acts\n"
                            "log5 " +
                            config_.path() + ":28: warning: interconnection = \"watching\": " +
                            client::kWatchingNeedsMarking +
                            "\n"
                            "log3 erpsd is already running in this IPC namespace (process " +
                            std::to_string(first.pid()) + ")\n");
  EXPECT_TRUE(client::Client().any_ring_enabled());
  first.signal(SIGTERM);
  ASSERT_TRUE(first.wait(kLimit));
}

TEST_F(DaemonLife, KilledDaemonIsFollowedByAnotherThatCleansUp) {
  {
    Running killed(command());
    ASSERT_TRUE(killed.err_contains("log5 ready: ", kLimit));
    killed.signal(SIGKILL);
    ASSERT_TRUE(killed.wait(kLimit));
  }
  ASSERT_NE(left_behind(), "") << "nothing to clean up";
  mq_unlink(mgmt::kEventQueueName);  // the stand-in module wants to create it
  Running daemon(command());
  ASSERT_TRUE(daemon.err_contains("log5 ready: ", kLimit)) << daemon.err();
  EXPECT_TRUE(
      contains(daemon.err(), "replaced a management queue that was left behind with 0 messages"))
      << daemon.err();
  daemon.signal(SIGTERM);
  ASSERT_TRUE(daemon.wait(kLimit));
}

msqid_ds queue_state() {
  msqid_ds state{};
  const int id = msgget(mgmt::kQueueKey, 0);
  EXPECT_GE(id, 0);
  EXPECT_EQ(msgctl(id, IPC_STAT, &state), 0);
  return state;
}

TEST_F(DaemonLife, QueueIsForTheOwnerOnlyAlthoughTheModuleAsksForEverybody) {
  Running daemon(command());
  ASSERT_TRUE(daemon.err_contains("log5 ready: ", kLimit));
  const msqid_ds state = queue_state();
  EXPECT_EQ(state.msg_perm.mode & 0777, 0600);
  EXPECT_EQ(state.msg_perm.uid, geteuid());
  daemon.signal(SIGTERM);
  ASSERT_TRUE(daemon.wait(kLimit));
}

TEST_F(DaemonLife, ConfiguredGroupMayUseTheQueues) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "NOT TESTED: needs root to give a queue to another group";
  }
  const TemporaryFile config(std::string(kConfig) + "[management]\ngroup = \"daemon\"\n");
  Running daemon({ERPSD_STAND_IN, "--config", config.path(), "--module", STAND_IN_MODULE});
  ASSERT_TRUE(daemon.err_contains("log5 ready: ", kLimit)) << daemon.err();
  constexpr gid_t kDaemonGroup = 1;  // on every Debian
  const msqid_ds state = queue_state();
  EXPECT_EQ(state.msg_perm.mode & 0777, 0660);
  EXPECT_EQ(state.msg_perm.gid, kDaemonGroup);
  EXPECT_TRUE(contains(daemon.err(), "door_group=1 ")) << daemon.err();
  daemon.signal(SIGTERM);
  ASSERT_TRUE(daemon.wait(kLimit));
}

TEST_F(DaemonLife, QueueThatSomebodyLeftOpenForAllIsReplaced) {
  const int id = msgget(mgmt::kQueueKey, IPC_CREAT | IPC_EXCL | 0666);
  ASSERT_GE(id, 0);
  const struct {
    long type;
    char text[8];
  } message{5, "stale"};
  ASSERT_EQ(msgsnd(id, &message, sizeof message.text, 0), 0);
  Running daemon(command());
  ASSERT_TRUE(daemon.err_contains("log5 ready: ", kLimit)) << daemon.err();
  EXPECT_TRUE(contains(daemon.err(), "left behind with 1 messages")) << daemon.err();
  const msqid_ds state = queue_state();
  EXPECT_EQ(state.msg_perm.mode & 0777, 0600);
  EXPECT_EQ(state.msg_qnum, 0u);
  daemon.signal(SIGTERM);
  ASSERT_TRUE(daemon.wait(kLimit));
}

TEST_F(DaemonLife, RefusedRingIsNamedWithItsReasonAndEverythingUndone) {
  const Environment environment("STAND_IN_MODULE_REFUSES", "2:9");
  const Outcome daemon = run_program(command());
  EXPECT_EQ(daemon.status, 4);
  EXPECT_TRUE(contains(daemon.err,
                       "log3 ring 1 could not be configured: add ring 1: the control VLAN is used "
                       "by another ring (code 9)\n"))
      << daemon.err;
  EXPECT_FALSE(contains(daemon.err, "ready")) << daemon.err;
  const std::vector<std::string> expected{"platform start", "module init", "module start",
                                          "module stop",    "module exit", "platform stop release"};
  EXPECT_EQ(steps_in(daemon.err), expected);
}

TEST_F(DaemonLife, RefusedSubRingIsNamed) {
  const Environment environment("STAND_IN_MODULE_REFUSES", "30:18");
  const Outcome daemon = run_program(command());
  EXPECT_EQ(daemon.status, 4);
  EXPECT_TRUE(
      contains(daemon.err, "log3 ring 2 could not be configured: attach sub-ring 2 to ring 1: "))
      << daemon.err;
}

TEST_F(DaemonLife, PlatformThatDoesNotStartEndsEverythingBeforeTheModule) {
  const Environment environment("STAND_IN_PLATFORM_FAILS", "br0: no such bridge");
  const Outcome daemon = run_program(command());
  EXPECT_EQ(daemon.status, 1);
  EXPECT_TRUE(contains(daemon.err, "log3 br0: no such bridge\n")) << daemon.err;
  EXPECT_EQ(steps_in(daemon.err), std::vector<std::string>{});
}

TEST_F(DaemonLife, ModuleThatIsNotThereIsNamedAndThePortsLeftAlone) {
  const Outcome daemon =
      run_program({ERPSD_STAND_IN, "--config", config_.path(), "--module", "/nonexistent.so"});
  EXPECT_EQ(daemon.status, 1);
  EXPECT_TRUE(contains(daemon.err, "log3 loading the module: /nonexistent.so: cannot open shared"))
      << daemon.err;
  EXPECT_EQ(steps_in(daemon.err), std::vector<std::string>{});
}

TEST_F(DaemonLife, LibraryThatIsNoModuleIsRefused) {
  const Outcome daemon =
      run_program({ERPSD_STAND_IN, "--config", config_.path(), "--module", NOT_A_MODULE});
  EXPECT_EQ(daemon.status, 1);
  EXPECT_TRUE(
      contains(daemon.err, std::string("log3 ") + NOT_A_MODULE +
                               " is not the protection module: it has no erps_module_init\n"))
      << daemon.err;
  EXPECT_EQ(steps_in(daemon.err), std::vector<std::string>{});
}

TEST_F(DaemonLife, ModuleThatDoesNotStartIsToldAndNothingIsLeft) {
  for (const char* step : {"init", "start"}) {
    const Environment environment("STAND_IN_MODULE_FAILS", step);
    const Outcome daemon = run_program(command());
    EXPECT_EQ(daemon.status, 1);
    EXPECT_TRUE(contains(daemon.err, std::string("log3 the module")) &&
                !contains(daemon.err, "ready"))
        << daemon.err;
    EXPECT_EQ(steps_in(daemon.err).back(), "platform stop release");
    EXPECT_EQ(left_behind(), "");
  }
}

TEST_F(DaemonLife, CheckTouchesNothing) {
  const Outcome check = run_program({ERPSD_STAND_IN, "--check", "--config", config_.path()});
  EXPECT_EQ(check.status, 0);
  EXPECT_EQ(check.out, config_.path() + ": ok, 3 ports, 2 rings\n");
  EXPECT_TRUE(contains(check.err, ":23: warning: non-revertive")) << check.err;
  EXPECT_EQ(steps_in(check.err), std::vector<std::string>{});
}

TEST_F(DaemonLife, MistakesInTheFileEndTheStartBeforeAnythingIsTouched) {
  const TemporaryFile config("bridge = \"br0\"\n[[port]]\nid = 99\ninterface = \"eth1\"\n");
  for (const bool check : {true, false}) {
    std::vector<std::string> arguments{ERPSD_STAND_IN, "--config", config.path()};
    if (check) {
      arguments.emplace_back("--check");
    }
    const Outcome daemon = run_program(arguments);
    EXPECT_EQ(daemon.status, 2);
    EXPECT_EQ(daemon.err, config.path() + ":3: port.id = 99: must be a whole number, 1 to 63\n");
  }
}

struct Usage {
  const char* name;
  std::vector<std::string> arguments;
  const char* expected;
};

void PrintTo(const Usage& param, std::ostream* out) {
  *out << param.name;
}

class DaemonUsage : public testing::TestWithParam<Usage> {};

TEST_P(DaemonUsage, IsExplainedWithStatus2) {
  std::vector<std::string> arguments{ERPSD_STAND_IN};
  arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
  const Outcome outcome = run_program(arguments);
  EXPECT_EQ(outcome.status, 2);
  EXPECT_TRUE(contains(outcome.err, GetParam().expected)) << outcome.err;
}

INSTANTIATE_TEST_SUITE_P(
    All, DaemonUsage,
    testing::Values(
        Usage{"NoConfiguration", {}, "erpsd: --config FILE is needed"},
        Usage{
            "NoSuchFile", {"--config", "/nonexistent"}, "/nonexistent: No such file or directory"},
        Usage{"UnknownOption", {"--verbose"}, "--verbose"},
        Usage{"ClosedDescriptor", {"--ready-fd", "777"}, "777 is not an open file descriptor"},
        Usage{"DescriptorThatIsNoNumber", {"--ready-fd", "x"}, "x is not an open file descriptor"}),
    [](const testing::TestParamInfo<Usage>& param) { return param.param.name; });

TEST(DaemonHelp, VersionAndOptionsAreTold) {
  EXPECT_EQ(run_program({ERPSD_STAND_IN, "--version"}).out, "erpsd " ERPS_VERSION "\n");
  const Outcome help = run_program({ERPSD_STAND_IN, "--help-config"});
  EXPECT_EQ(help.status, 0);
  EXPECT_TRUE(contains(help.out,
                       "  control_vlan (number, required)\n"
                       "      VLAN of the R-APS messages, the same in all nodes of the "
                       "ring.\n      It must be a whole number, 1 to 4094.\n"))
      << help.out;
  EXPECT_TRUE(contains(help.out, "  wtr_ms (number, default 300000)\n")) << help.out;
}

}  // namespace
}  // namespace erps::test
