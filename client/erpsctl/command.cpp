#include "client/erpsctl/command.h"

#include <charconv>
#include <iostream>

#include "client/error.h"

namespace erps::erpsctl {

namespace {

constexpr client::Range kAnyRingRange{1, UINT32_MAX, ""};

std::string range_problem(const std::string& text, const client::Range& range) {
  int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error == std::errc::invalid_argument || end != text.data() + text.size()) {
    return "\"" + text + "\" is not a whole number; allowed is " + client::range_text(range);
  }
  if (error != std::errc() || !range.contains(value)) {
    return text + " is out of range; allowed is " + client::range_text(range);
  }
  return "";
}

}  // namespace

CLI::Option* add_number(CLI::App& command, const std::string& name, uint32_t& value,
                        const client::Range& range, const std::string& text) {
  return command.add_option(name, value, text)
      ->type_name(name.front() == '-' ? "N" : "")
      ->check(CLI::Validator([range](std::string& input) { return range_problem(input, range); },
                             client::range_text(range), "range"));
}

CLI::Option* add_ring_argument(CLI::App& command, uint32_t& ring) {
  return add_number(command, "RING", ring, client::kRingIdRange, "Ring ID")->required();
}

CLI::Option* add_any_ring_argument(CLI::App& command, uint32_t& ring) {
  return add_number(command, "RING", ring, kAnyRingRange, "Ring ID");
}

void warn(const std::string& text) {
  std::cerr << "warning: " << text << '\n';
}

client::RingStatus existing_ring(client::Client& client, uint32_t ring, const std::string& what) {
  const std::optional<client::RingStatus> status = client.read_ring(ring);
  if (!status) {
    throw client::Refused(what, mgmt::kNoSuchRing);
  }
  return *status;
}

}  // namespace erps::erpsctl
