// The daemon's journal as the laboratory reads it.
#include "lab/journal.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>

namespace erps::lab {
namespace {

TEST(Journal, EachKindOfEventIsRead) {
  const auto events = parse_journal(
      R"({"mono_ns":10,"wall_ns":1,"sequence":0,"kind":"link","port":2,"state":"down"}
{"mono_ns":11,"kind":"port-state","port":2,"phase":"asked","state":"discarding"}
{"mono_ns":12,"kind":"port-state","port":2,"phase":"applied","state":"discarding","cause":"link down port 2"}
{"mono_ns":13,"kind":"port-state","port":1,"phase":"applied","state":"forwarding"}
{"mono_ns":14,"kind":"raps-tx","port":1,"ring":3,"request":"SF","rb":0,"dnf":1,"bpr":0,"node_id":"02:00:00:00:00:02"}
{"mono_ns":15,"kind":"raps-rx","port":1,"ring":3,"request":"NR","rb":1,"dnf":0,"bpr":0,"node_id":"02:00:00:00:00:01"}
{"mono_ns":16,"kind":"flush","port":1,"phase":"applied"}
{"mono_ns":17,"kind":"link","port":2,"state":"up"}
)");
  ASSERT_EQ(events.size(), 7U);
  EXPECT_EQ(events[0].kind, EventKind::kLinkDown);
  EXPECT_EQ(events[0].mono_ns, 10);
  EXPECT_EQ(events[0].port, 2U);
  EXPECT_EQ(events[1].kind, EventKind::kBlocked);
  EXPECT_EQ(events[1].cause, "link down port 2");
  EXPECT_EQ(events[2].kind, EventKind::kOpened);
  EXPECT_EQ(events[3].kind, EventKind::kSent);
  EXPECT_EQ(events[3].message, "SF,DNF");
  EXPECT_EQ(events[3].ring, 3U);
  EXPECT_EQ(events[4].kind, EventKind::kReceived);
  EXPECT_EQ(events[4].message, "NR,RB");
  EXPECT_EQ(events[5].kind, EventKind::kFlushed);
  EXPECT_EQ(events[6].kind, EventKind::kLinkUp);
}

TEST(Journal, LinesThatAreNoneOfItsOwnArePassedOver) {
  EXPECT_TRUE(parse_journal("not JSON\n[1,2]\n{\"kind\":7}\n{\"kind\":\"door-drop\"}\n\n").empty());
}

TEST(Journal, ReadingGoesOnWhereItStoppedAndWaitsForWholeLines) {
  char path[] = "/tmp/erpslab-journal-XXXXXX";
  close(mkstemp(path));
  JournalReader reader(path);
  const std::string down = R"({"mono_ns":1,"kind":"link","port":1,"state":"down"})";
  const std::string up = R"({"mono_ns":2,"kind":"link","port":1,"state":"up"})";
  EXPECT_TRUE(reader.read_on().empty());
  std::ofstream out(path, std::ios::app);
  out << down << "\n" << up.substr(0, 20) << std::flush;
  EXPECT_EQ(reader.read_on().size(), 1U);
  EXPECT_TRUE(reader.read_on().empty());
  out << up.substr(20) << "\n" << std::flush;
  const auto events = reader.read_on();
  unlink(path);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].kind, EventKind::kLinkUp);
}

TEST(Journal, AFileThatIsNotThereYetIsEmpty) {
  EXPECT_TRUE(JournalReader("/nonexistent/journal").read_on().empty());
}

}  // namespace
}  // namespace erps::lab
