#include "erps/runtime/log.h"

#include <string>

#include "tests/unit/fixture.h"

namespace erps::test {
namespace {

using ::testing::IsEmpty;
using ::testing::MatchesRegex;

class LogTest : public ModuleTest {
 protected:
  static void say_something(int value) { ERPS_DEBUG_AT("value = %d \n", value); }
};

TEST_F(LogTest, ErrorAndDebugCarryTheirLevelFacilityAndLabel) {
  ERPS_ERROR("broken %s", "port");
  ERPS_DEBUG("seen %d", 5);
  ERPS_LOG(kLogNotice, "notice");
  const std::vector<LogLine> lines = platform.log();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0].level, 3);
  EXPECT_EQ(lines[0].text, "broken port");
  EXPECT_EQ(lines[1].level, 7);
  EXPECT_EQ(lines[1].text, "seen 5");
  EXPECT_EQ(lines[2].level, 5);
  for (const LogLine& line : lines) {
    EXPECT_EQ(line.facility, 30);
    EXPECT_EQ(line.label, "erps");
  }
}

TEST_F(LogTest, TaskLinesUseTheirOwnFacilityAndLabel) {
  ERPS_TASK_ENTRY("Task entry begin process!~\n");
  const std::vector<LogLine> lines = platform.log();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].level, 7);
  EXPECT_EQ(lines[0].facility, 7);
  EXPECT_EQ(lines[0].label, "Task entry");
  EXPECT_EQ(lines[0].text, "Task entry begin process!~\n");
}

TEST_F(LogTest, DebugLinesNameFunctionAndLine) {
  say_something(3);
  ASSERT_EQ(platform.log().size(), 1U);
  EXPECT_THAT(platform.log()[0].text, MatchesRegex("\\[say_something:[0-9]+\\]value = 3 \n"));
  EXPECT_EQ(logged_at("say_something", "value = 3 \n"), 1);
}

TEST_F(LogTest, NothingIsTracedWhileTracingIsOff) {
  ERPS_DEBUG("quiet");
  EXPECT_THAT(platform.trace(), IsEmpty());
}

TEST_F(LogTest, TraceGetsTheSameTextWithItsPlace) {
  platform.set_trace(1);
  say_something(9);
  ASSERT_EQ(platform.trace().size(), 1U);
  EXPECT_THAT(platform.trace()[0].location, MatchesRegex("say_something\\(\\):[0-9]+"));
  EXPECT_EQ(platform.trace()[0].text, platform.log().at(0).text);
}

TEST_F(LogTest, AnyNonZeroTraceSwitchTraces) {
  platform.set_trace(-3);
  ERPS_TASK_ENTRY("Task entry end   process!~\n");
  ASSERT_EQ(platform.trace().size(), 1U);
  EXPECT_EQ(platform.trace()[0].text, "Task entry end   process!~\n");
}

TEST_F(LogTest, TraceTextEndsAt1023Characters) {
  platform.set_trace(1);
  const std::string exact(1023, 'x');
  const std::string longer(3000, 'y');
  ERPS_DEBUG("%s", exact.c_str());
  ERPS_DEBUG("%s", longer.c_str());
  ASSERT_EQ(platform.trace().size(), 2U);
  EXPECT_EQ(platform.trace()[0].text, exact);
  EXPECT_EQ(platform.trace()[1].text, std::string(1023, 'y'));
  EXPECT_EQ(platform.log().at(1).text, longer);
}

TEST_F(LogTest, PercentSignsInArgumentsStayText) {
  platform.set_trace(1);
  ERPS_DEBUG("%s", "100%s%n");
  EXPECT_EQ(platform.log().at(0).text, "100%s%n");
  EXPECT_EQ(platform.trace().at(0).text, "100%s%n");
}

}  // namespace
}  // namespace erps::test
