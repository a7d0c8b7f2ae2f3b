// Timecodes given as text: only HH:MM:SS:FF and HH:MM:SS;FF, ranges checked for the rate, ';' only at drop frame.
#include "Util/TimecodeText.h"

#include <gtest/gtest.h>

namespace KTN {
namespace Util {
namespace {

TEST(TimecodeTextTest, ReadsBothSeparatorsAtTheirRates) {
  TimeCode tc = {};
  tc.timeScale = 25;
  tc.frameDuration = 1;
  std::string problem;
  ASSERT_TRUE(TimecodeText::Parse("01:02:03:04", 25, false, tc, &problem)) << problem;
  EXPECT_EQ(1, tc.hours);
  EXPECT_EQ(2, tc.minutes);
  EXPECT_EQ(3, tc.seconds);
  EXPECT_EQ(4, tc.frames);
  EXPECT_EQ(25, tc.framesPerSecond);
  EXPECT_FALSE(tc.dropFrame);
  EXPECT_EQ(25u, tc.timeScale) << "the picture rate is left as it was";
  EXPECT_EQ(1u, tc.frameDuration);
  ASSERT_TRUE(TimecodeText::Parse("01:00:00;00", 30, true, tc, &problem)) << problem;
  EXPECT_TRUE(tc.dropFrame);
  // At drop frame the colon is still understood.
  EXPECT_TRUE(TimecodeText::Parse("01:10:00:00", 30, true, tc, &problem)) << problem;
}

TEST(TimecodeTextTest, ARefusedTextLeavesTheTimecodeAsItWas) {
  TimeCode tc = {};
  tc.hours = 7;
  std::string problem;
  EXPECT_FALSE(TimecodeText::Parse("01:00:00:30", 30, false, tc, &problem));
  EXPECT_EQ(7, tc.hours);
  EXPECT_EQ(0, tc.framesPerSecond);
}

TEST(TimecodeTextTest, ASemicolonAtANonDropRateIsRefusedNotReadAsNonDrop) {
  TimeCode tc = {};
  std::string problem;
  EXPECT_FALSE(TimecodeText::Parse("01:00:00;00", 25, false, tc, &problem));
  EXPECT_NE(std::string::npos, problem.find("drop-frame")) << problem;
  EXPECT_NE(std::string::npos, problem.find("01:00:00:00")) << problem;
}

TEST(TimecodeTextTest, AnythingButTheTwoShapesIsRefused) {
  TimeCode tc = {};
  std::string problem;
  for (const char* text : {"1:00:00:00", "01:00:00:0", " 1:00:00:00", "+1:00:00:00", "01:00:00:00 ", "01.00.00.00",
                           "01:00:00;0x", "01:00:00", "", "01:00:00:000", "01;00:00:00", "aa:bb:cc:dd"}) {
    EXPECT_FALSE(TimecodeText::Parse(text, 25, false, tc, &problem)) << text;
    EXPECT_FALSE(TimecodeText::IsTimecode(text)) << text;
  }
  EXPECT_FALSE(TimecodeText::Parse("24:00:00:00", 25, false, tc, &problem));
  EXPECT_FALSE(TimecodeText::Parse("00:60:00:00", 25, false, tc, &problem));
  EXPECT_FALSE(TimecodeText::Parse("00:00:60:00", 25, false, tc, &problem));
  EXPECT_FALSE(TimecodeText::Parse("00:00:00:25", 25, false, tc, &problem));
  EXPECT_NE(std::string::npos, problem.find("25 frames a second")) << problem;
  EXPECT_TRUE(TimecodeText::IsTimecode("23:59:59;59"));
  EXPECT_TRUE(TimecodeText::IsTimecode("23:59:59:59"));
}

TEST(TimecodeTextTest, DropFrameLabelsTheCountSkipsAreRefused) {
  TimeCode tc = {};
  std::string problem;
  EXPECT_FALSE(TimecodeText::Parse("01:01:00;00", 30, true, tc, &problem));
  EXPECT_NE(std::string::npos, problem.find("starts at frame 02")) << problem;
  EXPECT_FALSE(TimecodeText::Parse("01:01:00;03", 60, true, tc, &problem));
  EXPECT_TRUE(TimecodeText::Parse("01:01:00;02", 30, true, tc, &problem)) << problem;
  EXPECT_TRUE(TimecodeText::Parse("01:10:00;00", 30, true, tc, &problem)) << problem;
}

// The simulated card's settings took any character between the fields, a field of one digit
// with the frames' last character anything, and frames up to 99.
TEST(TimecodeTextTest, WhatTheSimulatedCardsOwnCheckTookIsRefused) {
  for (const char* text : {"01.00.00.00", "01;00;00;00", "1:00:00:000", "01:00:00:0x", "01:00:00:99", "01: 0:00:00"}) {
    EXPECT_FALSE(TimecodeText::IsTimecode(text)) << text;
  }
}

// The host's check before the rate was known took ';' as ':', so it let through drop-frame
// labels that no drop-frame count has.
TEST(TimecodeTextTest, ADropFrameLabelNoCountHasIsNotATimecodeAtAnyRate) {
  EXPECT_FALSE(TimecodeText::IsTimecode("00:01:00;00"));
  EXPECT_FALSE(TimecodeText::IsTimecode("00:01:00;01"));
  EXPECT_TRUE(TimecodeText::IsTimecode("00:01:00;02")) << "a label of the count at 30";
  EXPECT_TRUE(TimecodeText::IsTimecode("00:01:00;45")) << "a label of the count at 60";
  EXPECT_TRUE(TimecodeText::IsTimecode("00:10:00;00")) << "each tenth minute keeps its first labels";
}

// The host program worked out the counting of its standard's picture rate itself.
TEST(TimecodeTextTest, ThePictureRateGivesTheCountingAndTheDrop) {
  struct Case {
    uint32_t frameDuration, timeScale;
    unsigned framesPerSecond;
    bool dropFrame;
  };
  for (const Case& c : {Case{1001, 30000, 30, true}, Case{1001, 60000, 60, true}, Case{1001, 24000, 24, false},
                        Case{1, 25, 25, false}, Case{1, 50, 50, false}, Case{100, 3000, 30, false}}) {
    SCOPED_TRACE(std::to_string(c.timeScale) + "/" + std::to_string(c.frameDuration));
    TimeCode tc = {};
    std::string problem;
    ASSERT_TRUE(TimecodeText::ParseAtPictureRate("01:00:00:00", c.frameDuration, c.timeScale, tc, &problem)) << problem;
    EXPECT_EQ(c.framesPerSecond, tc.framesPerSecond);
    EXPECT_EQ(c.dropFrame, static_cast<bool>(tc.dropFrame));
    const std::string last = "01:00:00:" + std::to_string(c.framesPerSecond - 1);
    EXPECT_TRUE(TimecodeText::ParseAtPictureRate(last, c.frameDuration, c.timeScale, tc, &problem)) << problem;
    const std::string beyond = "01:00:00:" + std::to_string(c.framesPerSecond);
    EXPECT_FALSE(TimecodeText::ParseAtPictureRate(beyond, c.frameDuration, c.timeScale, tc, &problem));
    EXPECT_EQ(c.dropFrame, TimecodeText::ParseAtPictureRate("01:00:00;00", c.frameDuration, c.timeScale, tc, &problem));
  }
  TimeCode tc = {};
  std::string problem;
  EXPECT_FALSE(TimecodeText::ParseAtPictureRate("01:00:00:00", 0, 25, tc, &problem));
  EXPECT_FALSE(problem.empty());
}

// A timecode's frame number at a format: from midnight, counting the labels drop frame skips
// as skipped, and -1 for what Parse refuses there.
TEST(TimecodeTextTest, FrameAtCountsFromMidnightAtTheFormat) {
  EXPECT_EQ(0, TimecodeText::FrameAt("00:00:00:00", tcf25));
  EXPECT_EQ(90000 + 25 + 3, TimecodeText::FrameAt("01:00:01:03", tcf25));
  EXPECT_EQ(1800, TimecodeText::FrameAt("00:01:00;02", tcf2997Drop));
  EXPECT_EQ(1802, TimecodeText::FrameAt("00:01:00:02", tcf2997));
  EXPECT_EQ(-1, TimecodeText::FrameAt("00:01:00;00", tcf2997Drop)) << "a label drop frame skips";
  EXPECT_EQ(-1, TimecodeText::FrameAt("00:00:00;00", tcf25)) << "drop frame at a rate that does not drop";
  EXPECT_EQ(-1, TimecodeText::FrameAt("00:00:00:25", tcf25));
  EXPECT_EQ(-1, TimecodeText::FrameAt("00:00:00:00", tcfUnknown));
  EXPECT_EQ(-1, TimecodeText::FrameAt("junk", tcf25));
}

}  // namespace
}  // namespace Util
}  // namespace KTN
