// Every option of the configuration file, once: the reader, `erpsd --help-config` and the
// documentation follow from this table.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/limits.h"

namespace erps::host {

enum class OptionType {
  kText,       // any text
  kInterface,  // name of a network interface
  kNumber,     // whole number within range
  kFlag,       // true or false
  kChoice,     // one of the words in `choices`
  kPortPair,   // two port numbers within range
  kAddress,    // unicast MAC address
};

struct Option {
  const char* section;  // "" the top of the file
  const char* name;
  OptionType type;
  bool required;
  const char* preset;   // value when the option is absent; "" none
  client::Range range;  // kNumber, kPortPair
  const char* choices;  // kChoice: words with a space between them
  const char* text;     // what it does
};

struct Section {
  const char* name;  // "" the top of the file
  bool repeated;     // [[name]], any number of times
  const char* text;
};

inline constexpr client::Range kNoRange{0, 0, ""};

inline constexpr Section kSections[] = {
    {"", false, "The node."},
    {"log", false, "Messages, on standard error or in the journal."},
    {"management", false, "Who may ask and change things besides the owner of the daemon."},
    {"platform", false, "How the bridge is watched."},
    {"timers", false, "Times of the protocol, the same for all rings of this node."},
    {"port", true, "A ring port: a number for a port of the bridge."},
    {"ring", true, "A ring that this node is part of with two ports."},
    {"sub_ring", true, "A sub-ring that ends at this node: an interconnection node."},
};

inline constexpr Option kOptions[] = {
    {"", "bridge", OptionType::kInterface, true, "", kNoRange, "",
     "The bridge whose ports form the rings."},
    {"", "node_address", OptionType::kAddress, false, "", kNoRange, "",
     "Node ID and source address of every ring. Absent: the address of the bridge."},
    {"log", "level", OptionType::kChoice, false, "notice", kNoRange, "error notice debug",
     "Messages of this severity and above are written."},
    {"management", "group", OptionType::kText, false, "", kNoRange, "",
     "Group whose members may use erpsctl. Absent: the owner of the daemon only."},
    {"platform",
     "carrier_poll_ms",
     OptionType::kNumber,
     false,
     "5",
     {0, 1000, "ms"},
     "",
     "How often an interface is asked for its carrier whose loss the kernel may tell late. 0: "
     "never."},
    {"platform",
     "realtime_priority",
     OptionType::kNumber,
     false,
     "0",
     {0, 99, ""},
     "",
     "SCHED_FIFO priority of the protocol task. 0: ordinary scheduling."},
    {"timers", "guard_ms", OptionType::kNumber, false, "500", client::kGuardRange, "",
     "Guard time; up to a second more, for the module counts by the second. WTB is this and 5000 "
     "ms."},
    {"timers", "wtr_ms", OptionType::kNumber, false, "300000", client::kWtrRange, "",
     "Wait-to-restore time, in whole seconds."},
    {"timers", "holdoff_ms", OptionType::kNumber, false, "0", client::kHoldoffRange, "",
     "How long a link has to be down before it counts as failed; up to a second more. 0: at once."},
    {"port", "id", OptionType::kNumber, true, "", client::kPortRange, "",
     "The number that the ring sections use for it."},
    {"port", "interface", OptionType::kInterface, true, "", kNoRange, "",
     "Name of the bridge port."},
    {"ring", "id", OptionType::kNumber, true, "", client::kRingIdRange, "",
     "Ring ID, the same in all nodes of the ring."},
    {"ring", "ports", OptionType::kPortPair, true, "", client::kPortRange, "",
     "The two ring ports."},
    {"ring", "control_vlan", OptionType::kNumber, true, "", client::kVlanRange, "",
     "VLAN of the R-APS messages, the same in all nodes of the ring."},
    {"ring", "node_role", OptionType::kChoice, false, "none", kNoRange, "owner neighbour none",
     "What the node is to the ring protection link (RPL)."},
    {"ring", "rpl_port", OptionType::kNumber, false, "", client::kPortRange, "",
     "The one of `ports` at the RPL. Needed by owner and neighbour, and by them only."},
    {"ring", "ring_role", OptionType::kChoice, false, "major", kNoRange, "major sub-ring",
     "sub-ring: R-APS messages pass blocked ports."},
    {"ring", "revertive", OptionType::kFlag, false, "true", kNoRange, "",
     "Whether traffic returns to the healthy ring when WTR is over."},
    {"ring", "enable", OptionType::kFlag, false, "true", kNoRange, "",
     "Whether the protocol runs from the start."},
    {"sub_ring", "id", OptionType::kNumber, true, "", client::kRingIdRange, "",
     "Ring ID of the sub-ring."},
    {"sub_ring", "major_ring", OptionType::kNumber, true, "", client::kRingIdRange, "",
     "The ring of this file that the sub-ring is attached to. Its control VLAN serves both."},
    {"sub_ring", "port", OptionType::kNumber, true, "", client::kPortRange, "",
     "The port into the sub-ring."},
    {"sub_ring", "node_role", OptionType::kChoice, false, "none", kNoRange, "owner neighbour none",
     "What the node is to the RPL of the sub-ring."},
    {"sub_ring", "interconnection", OptionType::kChoice, true, "", kNoRange, "watching marking",
     "watching: the node opens the sub-ring when its major ring is cut on both sides. The other "
     "interconnection node has to be marking."},
    {"sub_ring", "enable", OptionType::kFlag, false, "true", kNoRange, "",
     "Whether the protocol runs from the start."},
};

// What the option accepts: "must be a whole number, 1 to 4094".
std::string allowed_text(const Option& option);

std::vector<std::string> words_of(const char* choices);

// The text of `erpsd --help-config`.
std::string help_config();

}  // namespace erps::host
