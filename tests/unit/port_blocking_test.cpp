#include "erps/fsm/port_blocking.h"

#include <functional>

#include "tests/unit/protocol_fixture.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;

constexpr int32_t kNothingToOpen = 24;
constexpr uint32_t kOtherPort = 9;  // of no ring

// A ring in any condition: both ports in one of the link and block states, and what the helpers
// compare with.
struct Condition {
  uint16_t links[2];
  uint16_t states[2];
  uint32_t rpl;  // index of the port with role 1; 2 none
  uint32_t node_role;
  uint32_t ring_role;
  uint32_t request_port;
  int32_t event_port;
};

std::string describe(const Condition& c) {
  return "links " + std::to_string(c.links[0]) + std::to_string(c.links[1]) + ", states " +
         std::to_string(c.states[0]) + std::to_string(c.states[1]) + ", RPL port " +
         std::to_string(c.rpl) + ", node role " + std::to_string(c.node_role) + ", ring role " +
         std::to_string(c.ring_role) + ", request port " + std::to_string(c.request_port) +
         ", event port " + std::to_string(c.event_port);
}

class PortBlockingTest : public ProtocolTest {
 protected:
  void apply(ERPSM_T* ring, const Condition& c) {
    ring->node_role = c.node_role;
    ring->ring_role = c.ring_role;
    ring->request_port = c.request_port;
    ring->event_port = c.event_port;
    port0(ring)->port_role = c.rpl == 0 ? 1 : 0;
    port1(ring)->port_role = c.rpl == 1 ? 1 : 0;
    set_port(port0(ring), c.links[0], c.states[0]);
    set_port(port1(ring), c.links[1], c.states[1]);
    platform.clear_journal();
  }

  // Every condition, on one ring with ports 1 and 2.
  void for_each_condition(const std::function<void(ERPSM_T*, const Condition&)>& check) {
    ERPSM_T* ring = idle_ring();
    constexpr uint16_t kStates[] = {kDiscarding, kForwarding};
    for (uint32_t bits = 0; bits < 36; ++bits) {
      const auto link0 = static_cast<uint16_t>(bits % 3);  // 2: neither up nor down
      const auto link1 = static_cast<uint16_t>(bits / 3 % 3);
      const uint16_t state0 = kStates[bits / 9 % 2];
      const uint16_t state1 = kStates[bits / 18 % 2];
      for (const uint32_t rpl : {0U, 1U, 2U}) {
        for (const uint32_t node_role : {0U, 1U, 2U, 3U, 4U, 5U, 6U}) {
          for (const uint32_t ring_role : {kMajorRing, kOpenChannelRing, kSubRing}) {
            for (const uint32_t request_port : {1U, 2U, kOtherPort}) {
              const Condition c{{link0, link1}, {state0, state1}, rpl,    node_role,
                                ring_role,      request_port,     kNoPort};
              apply(ring, c);
              check(ring, c);
              if (HasFailure()) {
                FAIL() << describe(c);
              }
            }
          }
        }
      }
    }
  }
};

// --- Setters: which ports each one changes, and to what.

struct Setter {
  const char* name;
  int32_t (*run)(ERPSM_T* ring);
  uint16_t (*value)(const Condition& c, uint32_t port);  // new state of a port; 0 left alone
};

bool plain_node(const Condition& c) {
  return (c.node_role & 4) != 0;
}
bool sub_ring(const Condition& c) {
  return c.ring_role == 2;
}

const Setter kSetters[] = {
    {"block RPL", erps_block_RPL_port,
     [](const Condition& c, uint32_t port) -> uint16_t {
       return sub_ring(c) || (c.rpl == port && !plain_node(c)) ? 1 : 0;
     }},
    {"unblock non-RPL", erps_unblock_non_RPL_port,
     [](const Condition& c, uint32_t port) -> uint16_t {
       return plain_node(c) || (!sub_ring(c) && c.rpl != port) ? 4 : 0;
     }},
    {"block requested", erps_block_requested_ring_port,
     [](const Condition& c, uint32_t port) -> uint16_t {
       return c.request_port == port + 1 ? 1 : 0;
     }},
    {"unblock non-requested", erps_unblock_non_requested_ring_port,
     [](const Condition& c, uint32_t port) -> uint16_t {
       return c.request_port != port + 1 && c.links[port] == 1 ? 4 : 0;
     }},
    {"block failed", erps_block_failed_ring_port,
     [](const Condition& c, uint32_t port) -> uint16_t {
       return c.links[port] == 0 && c.states[port] == 4 ? 1 : 0;
     }},
    {"unblock non-failed", erps_unblock_non_failed_ring_port,
     [](const Condition& c, uint32_t port) -> uint16_t {
       return c.links[port] == 1 && c.states[port] == 1 ? 4 : 0;
     }},
    {"unblock ring ports", erps_unblock_ring_port,
     [](const Condition& c, uint32_t port) -> uint16_t { return c.links[port] == 1 ? 4 : 0; }},
    {"block port 1", [](ERPSM_T* ring) { return erps_block_indicate_ring_port(ring, 1); },
     [](const Condition&, uint32_t port) -> uint16_t { return port == 0 ? 1 : 0; }},
    {"block port 2", [](ERPSM_T* ring) { return erps_block_indicate_ring_port(ring, 2); },
     [](const Condition&, uint32_t port) -> uint16_t { return port == 1 ? 1 : 0; }},
    {"unblock port 1", [](ERPSM_T* ring) { return erps_unblock_indicate_ring_port(ring, 1); },
     [](const Condition&, uint32_t port) -> uint16_t { return port == 0 ? 4 : 0; }},
    {"unblock port 2", [](ERPSM_T* ring) { return erps_unblock_indicate_ring_port(ring, 2); },
     [](const Condition&, uint32_t port) -> uint16_t { return port == 1 ? 4 : 0; }},
    {"unblock a foreign port",
     [](ERPSM_T* ring) { return erps_unblock_indicate_ring_port(ring, kOtherPort); },
     [](const Condition&, uint32_t) -> uint16_t { return 0; }},
    {"block one, unblock other", erps_block_one_and_Unblock_other,
     [](const Condition&, uint32_t port) -> uint16_t { return port == 0 ? 4 : 1; }},
};

void PrintTo(const Setter& setter, std::ostream* out) {
  *out << setter.name;
}

class PortSetterTest : public PortBlockingTest, public ::testing::WithParamInterface<Setter> {};

TEST_P(PortSetterTest, changes_the_ports_of_its_rule_in_list_order_and_no_other) {
  const Setter& setter = GetParam();
  for_each_condition([&](ERPSM_T* ring, const Condition& c) {
    std::vector<std::string> expected;
    uint16_t states[2] = {c.states[0], c.states[1]};
    for (uint32_t port = 0; port < (sub_ring(c) ? 1U : 2U); ++port) {
      const uint16_t value = setter.value(c, port);
      if (value != 0) {
        states[port] = value;
        expected.push_back((value == 4 ? "unblock " : "block ") + std::to_string(port + 1));
      }
    }
    const bool nothing_to_open = expected.empty() && setter.run == erps_unblock_non_RPL_port;
    EXPECT_EQ(setter.run(ring), nothing_to_open ? kNothingToOpen : 0);
    EXPECT_EQ(steps_of(platform), join(expected, "; "));
    EXPECT_EQ(port0(ring)->port_state, states[0]);
    EXPECT_EQ(port1(ring)->port_state, states[1]);
  });
}

TEST_P(PortSetterTest, a_port_that_the_switch_refuses_keeps_the_new_state_in_its_record) {
  const Setter& setter = GetParam();
  platform.set_port_state_result(1, -1);
  platform.set_port_state_result(2, -1);
  for_each_condition([&](ERPSM_T* ring, const Condition& c) {
    setter.run(ring);
    for (uint32_t port = 0; port < (sub_ring(c) ? 1U : 2U); ++port) {
      const uint16_t value = setter.value(c, port);
      EXPECT_EQ((port == 0 ? port0(ring) : port1(ring))->port_state,
                value != 0 ? value : c.states[port]);
    }
  });
}

TEST_P(PortSetterTest, the_record_is_written_before_the_switch_is_told) {
  const Setter& setter = GetParam();
  ERPSM_T* ring = idle_ring();
  // Ports 1 discarding and 2 failed, but forwarding: every rule that finds a port changes it.
  apply(ring, {{1, 0}, {1, 4}, 1, 1, kMajorRing, 2, kNoPort});
  bool agreed = true;
  platform.on_call("adp_set_port_erps_state", [&] {
    const std::string last = platform.journal().back().arguments;
    const ERPS_PORT_T* port = last[0] == '1' ? port0(ring) : port1(ring);
    agreed = agreed &&
             last == std::to_string(port->port_id) + ", " + std::to_string(port->port_state.get());
  });
  setter.run(ring);
  EXPECT_TRUE(agreed);
}

TEST_P(PortSetterTest, a_ring_without_ports_gives_0_and_changes_nothing) {
  ERPSM_T ring{};
  for (const uint32_t ring_role : {kMajorRing, kSubRing}) {
    ring.ring_role = ring_role;
    EXPECT_EQ(GetParam().run(&ring), 0);
  }
  EXPECT_EQ(steps(), "");
}

INSTANTIATE_TEST_SUITE_P(All, PortSetterTest, ::testing::ValuesIn(kSetters), param_name<Setter>);

// --- Queries.

// What the switch says when asked about a port.
enum class Answer { kDiscards, kForwards, kFails };

struct Query {
  const char* name;
  uint32_t (*ask)(const ERPSM_T* ring);
  bool (*candidate)(const Condition& c, uint32_t port);  // by the record
  bool asks_switch;
};

const Query kQueries[] = {
    {"RPL blocked", RPL_port_is_block,
     [](const Condition& c, uint32_t port) {
       return !plain_node(c) && !sub_ring(c) && c.rpl == port && c.states[port] == 1;
     },
     true},
    {"any blocked", erps_any_ring_port_blocked,
     [](const Condition& c, uint32_t port) { return c.links[port] == 1 && c.states[port] == 1; },
     true},
    {"requested blocked", erps_requested_ring_port_is_block,
     [](const Condition& c, uint32_t port) {
       return c.request_port == port + 1 && c.states[port] == 1;
     },
     false},
    {"failed blocked", erps_failed_ring_port_is_already_blocked,
     [](const Condition& c, uint32_t port) {
       return c.event_port != kNoPort && c.links[port] == 0 && c.states[port] == 1;
     },
     true},
};

void PrintTo(const Query& query, std::ostream* out) {
  *out << query.name;
}

class PortQueryTest : public PortBlockingTest, public ::testing::WithParamInterface<Query> {
 protected:
  void answer(uint32_t port, Answer answer) {
    platform.set_port_state_read_result(port, answer == Answer::kFails ? -1 : 0);
    platform.set_port_state_answer(port, answer == Answer::kDiscards ? 1 : 4);
  }
};

TEST_P(PortQueryTest, trusts_the_record_first_and_the_switch_second) {
  const Query& query = GetParam();
  constexpr Answer kAnswers[] = {Answer::kDiscards, Answer::kForwards, Answer::kFails};
  for (const Answer answer0 : kAnswers) {
    for (const Answer answer1 : kAnswers) {
      const Answer answers[] = {answer0, answer1};
      answer(1, answer0);
      answer(2, answer1);
      if (HasFailure()) {
        return;
      }
      for_each_condition([&](ERPSM_T* ring, Condition c) {
        for (const int32_t event_port : {kNoPort, 1, 2, int32_t{kOtherPort}}) {
          c.event_port = event_port;
          ring->event_port = event_port;
          platform.clear_journal();
          uint32_t expected = 0;
          std::vector<std::string> asked;
          for (uint32_t port = 0; port < (sub_ring(c) ? 1U : 2U) && expected == 0; ++port) {
            if (!query.candidate(c, port)) {
              continue;
            }
            if (query.asks_switch) {
              asked.push_back("adp_get_port_erps_state(" + std::to_string(port + 1) + ")");
            }
            expected = !query.asks_switch || answers[port] == Answer::kDiscards ? 1 : 0;
          }
          EXPECT_EQ(query.ask(ring), expected) << "event port " << event_port;
          EXPECT_EQ(platform.calls(), asked) << "event port " << event_port;
        }
      });
    }
  }
}

TEST_P(PortQueryTest, a_ring_without_ports_gives_0) {
  ERPSM_T ring{};
  EXPECT_EQ(GetParam().ask(&ring), 0U);
  EXPECT_THAT(platform.calls(), ElementsAre());
}

INSTANTIATE_TEST_SUITE_P(All, PortQueryTest, ::testing::ValuesIn(kQueries), param_name<Query>);

// --- Single cases that the rules above are made of.

TEST_F(PortBlockingTest, a_plain_node_on_a_major_ring_blocks_no_rpl_and_opens_both_ports) {
  ERPSM_T* ring = idle_ring({.node_role = kNoRplNode});
  set_port(port0(ring), kLinkUp, kDiscarding);
  set_port(port1(ring), kLinkUp, kDiscarding);
  EXPECT_EQ(RPL_port_is_block(ring), 0U);
  erps_block_RPL_port(ring);
  EXPECT_EQ(steps(), "");
  erps_unblock_non_RPL_port(ring);
  EXPECT_EQ(steps(), "unblock 1; unblock 2");
}

TEST_F(PortBlockingTest, on_a_sub_ring_no_rpl_counts_as_blocked) {
  ERPSM_T* ring = idle_ring(kSubRingSpec);
  ring->node_role = kRplOwner;
  erps_block_RPL_port(ring);
  EXPECT_EQ(RPL_port_is_block(ring), 0U);
  port0(ring)->port_role = 1;
  EXPECT_EQ(RPL_port_is_block(ring), 0U) << "not even with the mark on its own port";
}

TEST_F(PortBlockingTest, a_sub_ring_blocks_its_port_at_any_node_and_opens_it_at_a_plain_one_only) {
  ERPSM_T* ring = idle_ring(kSubRingSpec);
  for (const uint32_t node_role : {kRplOwner, kRplNeighbour, kNoRplNode}) {
    ring->node_role = node_role;
    erps_block_RPL_port(ring);
    EXPECT_EQ(steps(), "block 3");
    EXPECT_EQ(erps_unblock_non_RPL_port(ring), node_role == kNoRplNode ? 0 : kNothingToOpen);
    EXPECT_EQ(steps(), node_role == kNoRplNode ? "unblock 3" : "");
  }
}

TEST_F(PortBlockingTest, opening_non_failed_ports_leaves_forwarding_and_failed_ones_alone) {
  ERPSM_T* ring = idle_ring();
  set_port(port0(ring), kLinkUp, kForwarding);
  set_port(port1(ring), kLinkDown, kDiscarding);
  erps_unblock_non_failed_ring_port(ring);
  EXPECT_EQ(steps(), "");
}

TEST_F(PortBlockingTest, opening_the_non_requested_port_waits_for_its_link) {
  ERPSM_T* ring = idle_ring();
  ring->request_port = 1;
  set_port(port1(ring), kLinkDown, kDiscarding);
  erps_unblock_non_requested_ring_port(ring);
  EXPECT_EQ(steps(), "");
}

TEST_F(PortBlockingTest, without_an_event_port_no_failed_port_counts_as_blocked) {
  ERPSM_T* ring = idle_ring();
  set_port(port0(ring), kLinkDown, kDiscarding);
  EXPECT_EQ(erps_failed_ring_port_is_already_blocked(ring), 0U);
  ring->event_port = 2;  // any port will do
  EXPECT_EQ(erps_failed_ring_port_is_already_blocked(ring), 1U);
}

TEST_F(PortBlockingTest, block_one_and_unblock_other_opens_the_first_and_closes_the_second) {
  ERPSM_T* ring = idle_ring();
  erps_block_one_and_Unblock_other(ring);
  EXPECT_EQ(steps(), "unblock 1; block 2");
}

TEST_F(PortBlockingTest, the_walk_goes_on_behind_a_port_that_the_switch_cannot_tell_about) {
  ERPSM_T* ring = idle_ring();
  set_port(port0(ring), kLinkUp, kDiscarding);
  set_port(port1(ring), kLinkUp, kDiscarding);
  platform.set_port_state_read_result(1, -1);
  EXPECT_EQ(erps_any_ring_port_blocked(ring), 1U);
  platform.set_port_state_read_result(2, -1);
  EXPECT_EQ(erps_any_ring_port_blocked(ring), 0U);
}

TEST_F(PortBlockingTest, the_output_passes_port_and_state_on_and_gives_0_whatever_the_switch_says) {
  ERPSM_T* ring = idle_ring();
  platform.set_port_state_result(7, -1);
  EXPECT_EQ(ERPS_OUT_set_port_state(ring, 7, 100, kDiscarding), 0);
  EXPECT_THAT(platform.calls(), ElementsAre("adp_set_port_erps_state(7, 1)"));
  EXPECT_EQ(logged(7, "ERPS_OUT_set_port_state ~!\n"), 1);
}

TEST_F(PortBlockingTest, each_setter_names_its_ring) {
  const std::pair<const char*, int32_t (*)(ERPSM_T*)> setters[] = {
      {"erps_block_RPL_port", erps_block_RPL_port},
      {"erps_unblock_non_RPL_port", erps_unblock_non_RPL_port},
      {"erps_block_requested_ring_port", erps_block_requested_ring_port},
      {"erps_unblock_non_requested_ring_port", erps_unblock_non_requested_ring_port},
      {"erps_block_failed_ring_port", erps_block_failed_ring_port},
      {"erps_unblock_non_failed_ring_port", erps_unblock_non_failed_ring_port},
      {"erps_unblock_ring_port", erps_unblock_ring_port},
      {"erps_block_indicate_ring_port",
       [](ERPSM_T* ring) { return erps_block_indicate_ring_port(ring, 1); }},
      {"erps_unblock_indicate_ring_port",
       [](ERPSM_T* ring) { return erps_unblock_indicate_ring_port(ring, 1); }},
      {"erps_block_one_and_Unblock_other", erps_block_one_and_Unblock_other},
  };
  ERPSM_T* ring = idle_ring({.id = 42});
  for (const auto& [name, run] : setters) {
    run(ring);
    EXPECT_EQ(logged_at(name, "ring 42 enter \n"), 1) << name;
  }
}

TEST_F(PortBlockingTest, rpl_setters_name_port_and_role) {
  ERPSM_T* ring = idle_ring({.node_role = kRplOwner});  // port 2 is the RPL port
  erps_block_RPL_port(ring);
  EXPECT_EQ(logged_at("erps_block_RPL_port", "block rpl port = 2 port_role = 1 \n"), 1);
  erps_unblock_non_RPL_port(ring);
  EXPECT_EQ(logged_at("erps_unblock_non_RPL_port", "UNBLOCK non port 1 port_role 0\n"), 1);
  EXPECT_EQ(logged(7, "UNBLOCK non port 1 port_role 0\n"), 1);

  ERPSM_T* sub = idle_ring(kSubRingSpec);
  erps_unblock_non_RPL_port(sub);
  EXPECT_EQ(logged_at("erps_unblock_non_RPL_port", "UNBLOCK port 3 port_role 0\n"), 1);
}

}  // namespace
}  // namespace erps::test
