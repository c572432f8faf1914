// The capture file, byte by byte and as an independent dissector reads it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <sstream>

#include "erps/raps/frame.h"
#include "lab/capture.h"
#include "lab/pcapng_file.h"

namespace erps::lab {
namespace {

class Pcapng : public ::testing::Test {
 protected:
  void SetUp() override {
    close(mkstemp(path_));
    file_.emplace(UniqueFd(open(path_, O_WRONLY | O_TRUNC | O_CLOEXEC)), "test",
                  std::vector<std::string>{"p1", "p22"});
  }
  void TearDown() override { unlink(path_); }

  std::string content() const {
    std::ifstream in(path_, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
  }

  static uint32_t word(const std::string& bytes, size_t at) {
    uint32_t value = 0;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
  }

  // Offsets of all blocks; empty when their lengths do not fit.
  static std::vector<size_t> blocks(const std::string& bytes) {
    std::vector<size_t> found;
    for (size_t at = 0; at < bytes.size();) {
      const uint32_t length = word(bytes, at + 4);
      if (length < 12 || length % 4 != 0 || at + length > bytes.size() ||
          word(bytes, at + length - 4) != length) {
        return {};
      }
      found.push_back(at);
      at += length;
    }
    return found;
  }

  char path_[32] = "/tmp/lab-test-pcapng-XXXXXX";
  std::optional<PcapngFile> file_;
};

TEST_F(Pcapng, AnEmptyCaptureHasItsSectionAndItsInterfaces) {
  const std::string bytes = content();
  const auto at = blocks(bytes);
  ASSERT_EQ(at.size(), 3U);
  EXPECT_EQ(word(bytes, at[0]), 0x0A0D0D0AU);
  EXPECT_EQ(word(bytes, at[0] + 8), 0x1A2B3C4DU);
  EXPECT_EQ(word(bytes, at[1]), 1U);
  EXPECT_EQ(word(bytes, at[2]), 1U);
  EXPECT_NE(bytes.find("p22"), std::string::npos);
}

TEST_F(Pcapng, AFrameKeepsItsBytesItsMomentItsPortAndItsDirection) {
  const std::vector<uint8_t> frame = {1, 2, 3, 4, 5};
  constexpr int64_t kStamp = 1234567890123456789;
  file_->write({1, kStamp, true, frame});
  const std::string bytes = content();
  const auto at = blocks(bytes);
  ASSERT_EQ(at.size(), 4U);
  EXPECT_EQ(word(bytes, at[3]), 6U);
  EXPECT_EQ(word(bytes, at[3] + 8), 1U);
  EXPECT_EQ(word(bytes, at[3] + 12), static_cast<uint32_t>(kStamp >> 32));
  EXPECT_EQ(word(bytes, at[3] + 16), static_cast<uint32_t>(kStamp));
  EXPECT_EQ(word(bytes, at[3] + 20), 5U);
  EXPECT_EQ(word(bytes, at[3] + 24), 5U);
  EXPECT_EQ(bytes.substr(at[3] + 28, 5), std::string("\1\2\3\4\5"));
  EXPECT_EQ(word(bytes, at[3] + 36), 2U | 4U << 16) << "the flags option";
  EXPECT_EQ(word(bytes, at[3] + 40), 2U) << "outbound";
}

TEST_F(Pcapng, TheDissectorReadsMessagesOfEveryRequest) {
  const uint8_t node[6] = {2, 0, 0, 0, 0, 9};
  for (const uint8_t request : {raps::kNr, raps::kMs, raps::kSf, raps::kFs, raps::kEvent}) {
    uint8_t bytes[raps::kTaggedLength];
    const uint32_t length = raps::build({7, 300, request, 1, 0, 1, node, node}, bytes);
    file_->write({0, 1000000000LL * request, false, {bytes, bytes + length}});
  }
  FILE* pipe = popen((std::string("tshark -r ") + path_ +
                      " -T fields -e frame.interface_name -e vlan.id -e cfm.opcode -e cfm.version"
                      " -e cfm.raps.req.st -e cfm.raps.flags -e cfm.raps.node.id 2>/dev/null")
                         .c_str(),
                     "r");
  std::string text;
  char buffer[512];
  while (fgets(buffer, sizeof buffer, pipe) != nullptr) {
    text += buffer;
  }
  EXPECT_EQ(pclose(pipe), 0);
  EXPECT_EQ(text,
            "p1\t300\t40\t1\t0x00\t0xa0\t02:00:00:00:00:09\n"
            "p1\t300\t40\t1\t0x07\t0xa0\t02:00:00:00:00:09\n"
            "p1\t300\t40\t1\t0x0b\t0xa0\t02:00:00:00:00:09\n"
            "p1\t300\t40\t1\t0x0d\t0xa0\t02:00:00:00:00:09\n"
            "p1\t300\t40\t1\t0x0e\t0xa0\t02:00:00:00:00:09\n");
}

TEST(CapturedFrame, GetsBackTheTagThatTheKernelTookOff) {
  const std::vector<uint8_t> stripped = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 0x89, 0x02, 42};
  const ReceivedFrame tagged{stripped.data(), stripped.size(), 0, false, true, 0xE064};
  EXPECT_EQ(with_tag(tagged), (std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 0x81,
                                                    0x00, 0xE0, 0x64, 0x89, 0x02, 42}));
  const ReceivedFrame untagged{stripped.data(), stripped.size(), 0, false, false, 0};
  EXPECT_EQ(with_tag(untagged), stripped);
}

}  // namespace
}  // namespace erps::lab
