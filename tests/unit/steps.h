// What the module did, read off the recording platform as short steps in the words of the standard:
//
//   block 2, unblock 1           a port state given to the switch
//   flush 1                      the learnt addresses of a port forgotten
//   NR,RB,DNF,BPR > 1            a message sent out of port 1, with the flags that are set
//   repeat                       the five-second repetition (re)started
//   start WTR, stop guard        a timer started or stopped
//   -> pending                   a node state entered
//   post 7                       an event posted to the own queue
//   error: text                  an error logged
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/unit/recording_platform.h"

namespace erps::test {

// Values of the request/state field.
inline constexpr uint8_t kNr = 0;
inline constexpr uint8_t kMs = 7;
inline constexpr uint8_t kSf = 11;
inline constexpr uint8_t kFs = 13;
inline constexpr uint8_t kEvent = 14;

// The steps since the journal was cleared, joined with "; ".
std::string steps_of(const RecordingPlatform& platform);

// "SF,DNF" and the like; "marked" is added for an interconnection mark.
std::string message_text(const std::vector<uint8_t>& frame);

std::string join(const std::vector<std::string>& parts, const std::string& separator);
std::vector<std::string> split(const std::string& text, const std::string& separator);

}  // namespace erps::test
