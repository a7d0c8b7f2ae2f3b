// Timecodes typed on the command line: only HH:MM:SS:FF and HH:MM:SS;FF, and ';' only at drop frame.
#include "Host/TimecodeText.h"

#include <gtest/gtest.h>

namespace KTN {
namespace {

TEST(TimecodeTextTest, ReadsBothSeparatorsAtTheirRates) {
  Util::TimeCode tc = {};
  std::string problem;
  ASSERT_TRUE(ParseTimecodeText("01:02:03:04", 25, false, tc, &problem)) << problem;
  EXPECT_EQ(1, tc.hours);
  EXPECT_EQ(2, tc.minutes);
  EXPECT_EQ(3, tc.seconds);
  EXPECT_EQ(4, tc.frames);
  EXPECT_EQ(25, tc.framesPerSecond);
  EXPECT_FALSE(tc.dropFrame);
  ASSERT_TRUE(ParseTimecodeText("01:00:00;00", 30, true, tc, &problem)) << problem;
  EXPECT_TRUE(tc.dropFrame);
  // At drop frame the colon is still understood.
  EXPECT_TRUE(ParseTimecodeText("01:10:00:00", 30, true, tc, &problem)) << problem;
}

TEST(TimecodeTextTest, ASemicolonAtANonDropRateIsRefusedNotReadAsNonDrop) {
  Util::TimeCode tc = {};
  std::string problem;
  EXPECT_FALSE(ParseTimecodeText("01:00:00;00", 25, false, tc, &problem));
  EXPECT_NE(std::string::npos, problem.find("drop-frame")) << problem;
  EXPECT_NE(std::string::npos, problem.find("01:00:00:00")) << problem;
}

TEST(TimecodeTextTest, AnythingButTheTwoShapesIsRefused) {
  Util::TimeCode tc = {};
  std::string problem;
  for (const char* text : {"1:00:00:00", "01:00:00:0", " 1:00:00:00", "+1:00:00:00", "01:00:00:00 ", "01.00.00.00",
                           "01:00:00;0x", "01:00:00", "", "01:00:00:000", "01;00:00:00", "aa:bb:cc:dd"}) {
    EXPECT_FALSE(ParseTimecodeText(text, 25, false, tc, &problem)) << text;
    EXPECT_FALSE(IsTimecodeText(text)) << text;
  }
  EXPECT_FALSE(ParseTimecodeText("24:00:00:00", 25, false, tc, &problem));
  EXPECT_FALSE(ParseTimecodeText("00:60:00:00", 25, false, tc, &problem));
  EXPECT_FALSE(ParseTimecodeText("00:00:60:00", 25, false, tc, &problem));
  EXPECT_FALSE(ParseTimecodeText("00:00:00:25", 25, false, tc, &problem));
  EXPECT_NE(std::string::npos, problem.find("25 frames a second")) << problem;
  EXPECT_TRUE(IsTimecodeText("23:59:59;59"));
}

TEST(TimecodeTextTest, DropFrameLabelsTheCountSkipsAreRefused) {
  Util::TimeCode tc = {};
  std::string problem;
  EXPECT_FALSE(ParseTimecodeText("01:01:00;00", 30, true, tc, &problem));
  EXPECT_NE(std::string::npos, problem.find("starts at frame 02")) << problem;
  EXPECT_FALSE(ParseTimecodeText("01:01:00;03", 60, true, tc, &problem));
  EXPECT_TRUE(ParseTimecodeText("01:01:00;02", 30, true, tc, &problem)) << problem;
  EXPECT_TRUE(ParseTimecodeText("01:10:00;00", 30, true, tc, &problem)) << problem;
}

}  // namespace
}  // namespace KTN
