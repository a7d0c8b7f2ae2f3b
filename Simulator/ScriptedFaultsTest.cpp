// Tests of the simulated card's scripted signal faults: the lists it reads and refuses, and the frames they cover.
#include <gtest/gtest.h>

#include <string>

#include "Simulator/ScriptedFaults.h"

namespace KTN {
namespace Sim {
namespace {

TEST(ScriptedFaultsTest, ReadsEveryKindInOrder) {
  ScriptedFaults events;
  std::string why;
  ASSERT_TRUE(ScriptedFaults::Parse("black@10+5,freeze@0+3,silence@7+1,clip@1000000000+10000000,tcjump@4+25",
                                  &events, &why))
      << why;
  ASSERT_EQ(5u, events.Faults().size());
  const ScriptedFault expected[] = {{FaultKind::kBlack, 10, 5},
                                  {FaultKind::kFreeze, 0, 3},
                                  {FaultKind::kSilence, 7, 1},
                                  {FaultKind::kClip, 1000000000, 10000000},
                                  {FaultKind::kTimecodeJump, 4, 25}};
  for (size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(expected[i].kind, events.Faults()[i].kind) << i;
    EXPECT_EQ(expected[i].first, events.Faults()[i].first) << i;
    EXPECT_EQ(expected[i].count, events.Faults()[i].count) << i;
  }
}

TEST(ScriptedFaultsTest, EmptyTextIsNoEvents) {
  ScriptedFaults events;
  std::string why;
  EXPECT_TRUE(ScriptedFaults::Parse("", &events, &why));
  EXPECT_TRUE(events.Faults().empty());
}

TEST(ScriptedFaultsTest, SixtyFourEventsAreReadAndOneMoreRefused) {
  std::string list = "black@0+1";
  for (int i = 1; i < 64; ++i) list += ",silence@" + std::to_string(i) + "+1";
  ScriptedFaults events;
  std::string why;
  ASSERT_TRUE(ScriptedFaults::Parse(list, &events, &why)) << why;
  EXPECT_EQ(64u, events.Faults().size());
  EXPECT_FALSE(ScriptedFaults::Parse(list + ",clip@100+1", &events, &why));
  EXPECT_TRUE(events.Faults().empty());
  EXPECT_EQ("more than 64 events", why);
}

TEST(ScriptedFaultsTest, EachBadFormIsRefusedAndLeavesNoEvents) {
  const char* bad[] = {
      "grey@1+2",           // unknown kind
      "Black@1+2",          // kinds are lower case
      "black1+2",           // no @
      "black@1",            // no +
      "black+2@1",          // + before @
      "black@+2",           // no first frame
      "black@1+",           // no count
      "black@x+2",          // first not a number
      "black@1+two",        // count not a number
      "black@-1+2",         // signed
      "black@1+-2",         // signed
      "black@ 1+2",         // spaces
      "black@0x10+2",       // not decimal
      "black@1+0",          // nothing covered
      "black@1000000001+1", // first beyond the largest
      "black@1+10000001",   // count beyond the largest
      "black@1+2,",         // an empty entry
      ",black@1+2",
      "black@1+2,,clip@3+4",
      "black@1+2;clip@3+4",  // not comma-separated
  };
  for (const char* text : bad) {
    ScriptedFaults events;
    std::string why;
    ASSERT_TRUE(ScriptedFaults::Parse("black@5+5", &events, &why));
    EXPECT_FALSE(ScriptedFaults::Parse(text, &events, &why)) << text;
    EXPECT_TRUE(events.Faults().empty()) << text;
    EXPECT_FALSE(why.empty()) << text;
  }
}

TEST(ScriptedFaultsTest, ReasonNamesTheBadEntry) {
  ScriptedFaults events;
  std::string why;
  EXPECT_FALSE(ScriptedFaults::Parse("black@1+2,grey@3+4", &events, &why));
  EXPECT_EQ("\"grey\" is not black, freeze, silence, clip or tcjump", why);
  EXPECT_FALSE(ScriptedFaults::Parse("clip@3", &events, &why));
  EXPECT_EQ("\"clip@3\" is not KIND@FIRST+COUNT", why);
  EXPECT_FALSE(ScriptedFaults::Parse("clip@3+0", &events, &why));
  EXPECT_EQ("\"clip@3+0\" has no count of frames from 1 to 10000000", why);
}

TEST(ScriptedFaultsTest, EventsCoverTheirFramesOnly) {
  ScriptedFaults events;
  std::string why;
  ASSERT_TRUE(ScriptedFaults::Parse("black@10+3,silence@0+1", &events, &why)) << why;
  EXPECT_FALSE(events.Covers(FaultKind::kBlack, 9));
  EXPECT_TRUE(events.Covers(FaultKind::kBlack, 10));
  EXPECT_TRUE(events.Covers(FaultKind::kBlack, 12));
  EXPECT_FALSE(events.Covers(FaultKind::kBlack, 13));
  EXPECT_TRUE(events.Covers(FaultKind::kSilence, 0));
  EXPECT_FALSE(events.Covers(FaultKind::kSilence, 1));
  EXPECT_FALSE(events.Covers(FaultKind::kClip, 10));
}

TEST(ScriptedFaultsTest, AFrozenFrameShowsTheFirstFrameOfItsFreeze) {
  ScriptedFaults events;
  std::string why;
  // The second freeze starts inside the first, so it holds the first one's picture too.
  ASSERT_TRUE(ScriptedFaults::Parse("freeze@10+3,freeze@12+5,freeze@30+1", &events, &why)) << why;
  EXPECT_EQ(9, events.PictureOf(9));
  EXPECT_EQ(10, events.PictureOf(10));
  EXPECT_EQ(10, events.PictureOf(11));
  EXPECT_EQ(10, events.PictureOf(12));
  EXPECT_EQ(10, events.PictureOf(16));
  EXPECT_EQ(17, events.PictureOf(17));
  EXPECT_EQ(30, events.PictureOf(30));
  EXPECT_TRUE(events.FreezeStartsAt(10));
  EXPECT_TRUE(events.FreezeStartsAt(12));
  EXPECT_FALSE(events.FreezeStartsAt(11));
}

TEST(ScriptedFaultsTest, TimecodeJumpsAddUpAtTheirFrame) {
  ScriptedFaults events;
  std::string why;
  ASSERT_TRUE(ScriptedFaults::Parse("tcjump@5+10,tcjump@5+2,tcjump@8+1,black@5+7", &events, &why)) << why;
  EXPECT_EQ(0, events.TimecodeJumpAt(4));
  EXPECT_EQ(12, events.TimecodeJumpAt(5));
  EXPECT_EQ(0, events.TimecodeJumpAt(6));
  EXPECT_EQ(1, events.TimecodeJumpAt(8));
}

}  // namespace
}  // namespace Sim
}  // namespace KTN
