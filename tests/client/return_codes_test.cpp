#include "client/return_codes.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace erps::client {
namespace {

TEST(ReturnCodes, EveryCodeThatTheModuleGivesHasASentence) {
  for (const uint32_t code :
       {0u, 1u, 2u, 3u, 4u, 9u, 11u, 12u, 14u, 18u, 22u, 23u, 24u, 25u, 27u, 28u}) {
    EXPECT_NE(return_code_sentence(code), nullptr) << "code " << code;
  }
}

TEST(ReturnCodes, NoOtherCodeHasOne) {
  const std::set<uint32_t> known{0, 1, 2, 3, 4, 9, 11, 12, 14, 18, 22, 23, 24, 25, 27, 28};
  for (uint32_t code = 0; code < 256; ++code) {
    EXPECT_EQ(return_code_sentence(code) != nullptr, known.count(code) == 1) << "code " << code;
  }
}

TEST(ReturnCodes, SentencesTellTheCodesApart) {
  std::set<std::string> sentences;
  for (const ReturnCode& row : kReturnCodes) {
    EXPECT_TRUE(sentences.insert(row.sentence).second) << row.sentence;
  }
}

TEST(ReturnCodes, ByteOfAReplyIsTheNegatedCode) {
  EXPECT_EQ(code_of_ret_code(0x00), 0u);
  EXPECT_EQ(code_of_ret_code(0xFF), 1u);
  EXPECT_EQ(code_of_ret_code(0xFE), 2u);
  EXPECT_EQ(code_of_ret_code(0xFD), 3u);
  EXPECT_EQ(code_of_ret_code(0xE9), 23u);
  EXPECT_EQ(code_of_ret_code(0xE4), 28u);
}

}  // namespace
}  // namespace erps::client
