// The Linux platform library, as its host sees it: what to run the module on, start, stop, status.
//
// The library defines every call of platform/*.h for the ports of one Linux bridge. A process hosts
// one platform at a time:
//
//   start(config);            // validates, then guards every ring port (discarding)
//   dlopen("liberps.so") ...  // the module resolves the platform calls from the executable
//   ... run and stop the module's tasks ...
//   stop();
//
// start() and stop() are called from one thread, with no task of the module running. Everything
// else may be called from any thread at any time. Errors are PlatformError; their text names the
// value and says what to do.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "linux/history_record.h"

namespace erps::linux_platform {

inline constexpr uint32_t kMinPort = 1;
inline constexpr uint32_t kMaxPort = 63;

using MacAddress = std::array<uint8_t, 6>;

// A ring port: its number in the configuration and the bridge port that it is.
struct PortMapping {
  uint32_t id = 0;        // kMinPort to kMaxPort
  std::string interface;  // name of a port of the bridge
};

// Numbers are syslog severities, the ones that the module uses.
enum class LogLevel { kError = 3, kNotice = 5, kDebug = 7 };

enum class LogTarget {
  kAuto,     // kJournal when $JOURNAL_STREAM says that standard error is the journal, else kPlain
  kPlain,    // standard error, one readable line a message
  kJournal,  // standard error, each line with a severity prefix such as "<3>"
};

struct LogConfig {
  LogLevel level = LogLevel::kNotice;
  LogTarget target = LogTarget::kAuto;
  bool trace =
      false;  // keep a trace of the module's messages at debug level, whatever `level` says
};

struct Config {
  std::string bridge;
  std::vector<PortMapping> ports;
  std::optional<MacAddress> node_address;  // absent: the bridge's address
  LogConfig log;
  std::string journal_path;         // history as JSON lines, appended; empty: none
  int carrier_poll_ms = 5;          // 1 to 1000, 0 off: how often slow interfaces are asked
  int realtime_priority = 0;        // 1 to 99: SCHED_FIFO for the protocol task; 0: not
  std::optional<gid_t> door_group;  // group that may announce management requests besides the owner
};

class PlatformError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Checks everything, then makes every ring port discarding and opens sockets and journal. Throws
// PlatformError with nothing changed: what had been applied is taken back before it throws.
void start(const Config& config);

// What becomes of the bridge ports when the platform stops.
enum class PortsAtStop {
  kKeep,     // as last asked for: a blocked port stays blocked, so stopping cannot make a loop
  kRelease,  // as they were before start(): forwarding, or blocked by an earlier daemon
};

// Removes the capture rule, writes out log and journal, closes everything. Does nothing when the
// platform is not running.
void stop(PortsAtStop ports = PortsAtStop::kKeep) noexcept;

bool running() noexcept;

// What the kernel says about a bridge port.
struct KernelPortState {
  bool present = false;   // the interface exists
  bool enslaved = false;  // and is a port of the configured bridge
  std::string state;     // "disabled", "listening", "learning", "forwarding", "blocking", "unknown"
  bool guarded = false;  // all guard flags are set: nothing passes whatever the state says
  bool admin_up = false;
  bool carrier = false;
};

struct PortStatus {
  uint32_t id = 0;
  std::string interface;
  uint32_t ifindex = 0;       // 0 while the interface does not exist
  uint32_t wanted = 0;        // 4 forwarding, 1 discarding: what was last asked for
  bool opening = false;       // wanted 4, to be applied when the present event is finished
  bool link_up = false;       // as last told to the module
  bool slow_carrier = false;  // the kernel may tell a carrier loss late, so the device is asked
  KernelPortState kernel;     // read when the status was asked for
  std::string difference;     // what differs between wanted and kernel, "" when nothing does
  uint64_t frames_received = 0;
  uint64_t frames_sent = 0;
  uint64_t send_failures = 0;
  uint64_t frames_dropped = 0;  // by the kernel, for a full socket buffer
  // More of them than any node of a ring sends. Not counted is what the kernel drops of a flood: of
  // one that lasts, it lets one frame in 32 through.
  uint64_t frames_refused = 0;
  uint64_t link_changes = 0;
  uint64_t reapplied = 0;  // times the kernel had undone the wanted state
};

struct Counters {
  uint64_t in_process_events = 0;
  uint64_t link_events = 0;
  uint64_t frame_events = 0;
  uint64_t door_accepted = 0;
  uint64_t door_wrong_size = 0;
  uint64_t door_wrong_event = 0;
  uint64_t netlink_overruns = 0;
  uint64_t flushes_asked = 0;
  uint64_t flushes_done = 0;  // coalesced ones count once
  uint64_t flushes_failed = 0;
  uint64_t port_state_failures = 0;
  uint64_t openings_withdrawn = 0;  // opened and blocked again within one event
  uint64_t history_lost = 0;        // records that the journal could not take
  uint64_t log_lost = 0;            // messages that the log could not take
};

struct Status {
  std::string bridge;
  std::string stp;  // "off" or "user": who owns spanning tree on the bridge
  MacAddress node_address{};
  std::string capture;             // mechanism found usable: "nftables netdev ingress" or
                                   // "clsact BPF", behind "tc flower trap, " on switch hardware
  bool capture_installed = false;  // the module has asked for the rule and it is in force
  std::string capture_error;       // why the rule asked for is not in force, "" otherwise
  size_t door_depth = 0;           // messages the outside door holds, 0 while there is none
  std::vector<PortStatus> ports;   // in the order of the configuration
  Counters counters;
};

// Throws PlatformError when the platform is not running.
Status status();

// The latest records, oldest first; at most `limit`. Empty when the platform is not running.
std::vector<HistoryRecord> history(size_t limit = 4096);

// Text of the module's latest trace lines, oldest first; empty while tracing is off.
std::vector<std::string> trace();
void set_trace(bool on) noexcept;

// The host's own lines, to the same place in the same form. Works before start() and after stop()
// too, then written directly; never throws, never blocks while the platform runs.
void configure_log(const LogConfig& config) noexcept;
void log(LogLevel level, std::string_view message) noexcept;

}  // namespace erps::linux_platform
