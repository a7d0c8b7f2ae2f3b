// Tests of the plain TimeCode record functions and the format functions, table-driven.
#include <gtest/gtest.h>

#include <limits.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "Util/TimeCode.h"

namespace KTN {
namespace Util {
namespace {

// Every format with its counting base and the frames in ten minutes and in a day.
struct FormatCase {
  TimeCodeFormat format;
  uint32_t timeScale;
  uint32_t frameDuration;
  int tps;
  bool drop;
  uint32_t tenMinutes;
  uint32_t day;
};

const FormatCase kFormatCases[] = {
    {tcf2398, 24000, 1001, 24, false, 14400, 2073600},
    {tcf24, 24000, 1000, 24, false, 14400, 2073600},
    {tcf25, 25000, 1000, 25, false, 15000, 2160000},
    {tcf2997, 30000, 1001, 30, false, 18000, 2592000},
    {tcf30, 30000, 1000, 30, false, 18000, 2592000},
    {tcf50, 50000, 1000, 50, false, 30000, 4320000},
    {tcf5994, 60000, 1001, 60, false, 36000, 5184000},
    {tcf60, 60000, 1000, 60, false, 36000, 5184000},
    {tcf2997Drop, 30000, 1001, 30, true, 17982, 2589408},
    {tcf5994Drop, 60000, 1001, 60, true, 35964, 5178816},
};

TimeCode Record(const FormatCase& c, unsigned h, unsigned m, unsigned s, unsigned f) {
  TimeCode tc = {};
  tc.hours = static_cast<uint8_t>(h);
  tc.minutes = static_cast<uint8_t>(m);
  tc.seconds = static_cast<uint8_t>(s);
  tc.frames = static_cast<uint8_t>(f);
  tc.timeScale = c.timeScale;
  tc.frameDuration = c.frameDuration;
  tc.framesPerSecond = static_cast<uint8_t>(c.tps);
  tc.dropFrame = c.drop;
  return tc;
}

std::string Fields(const TimeCode& tc) {
  char text[32];
  snprintf(text, sizeof text, "%u:%u:%u:%u", tc.hours, tc.minutes, tc.seconds, tc.frames);
  return text;
}

// One timecode and its frame count at one format.
struct Point {
  unsigned h, m, s, f;
  uint32_t count;
};

// The first and last frame of the day, every ten-minute boundary and, for drop-frame
// formats, the frames around the first dropped minute.
std::vector<Point> BoundaryPoints(const FormatCase& c) {
  std::vector<Point> points;
  points.push_back({0, 0, 0, 0, 0});
  points.push_back({23, 59, 59, static_cast<unsigned>(c.tps - 1), c.day - 1});
  for (unsigned k = 1; k < 144; ++k) points.push_back({k / 6, (k % 6) * 10, 0, 0, k * c.tenMinutes});
  if (c.drop) {
    unsigned dropped = static_cast<unsigned>(c.tps / 15);
    uint32_t minute = static_cast<uint32_t>(60 * c.tps);
    points.push_back({0, 0, 59, static_cast<unsigned>(c.tps - 1), minute - 1});
    points.push_back({0, 1, 0, dropped, minute});
    points.push_back({0, 9, 59, static_cast<unsigned>(c.tps - 1), c.tenMinutes - 1});
  } else {
    points.push_back({0, 1, 0, 0, static_cast<uint32_t>(60 * c.tps)});
  }
  return points;
}

TEST(TimeCodeTableTest, TimeCodeToFrameCountAtEveryFormat) {
  for (const FormatCase& c : kFormatCases) {
    for (const Point& p : BoundaryPoints(c)) {
      TimeCode tc = Record(c, p.h, p.m, p.s, p.f);
      EXPECT_EQ(p.count, ConvertTimeCodeToFrameCount(&tc)) << c.format << " " << Fields(tc);
    }
  }
}

TEST(TimeCodeTableTest, FrameCountToTimeCodeAtEveryFormat) {
  for (const FormatCase& c : kFormatCases) {
    // The free conversion keeps the 30 frames-per-second drop constants at every rate, so
    // at 59.94 drop-frame it is not the inverse (see FrameCountAt5994DropUsesThirtyFrameConstants).
    if (c.format == tcf5994Drop) continue;
    for (const Point& p : BoundaryPoints(c)) {
      TimeCode tc = Record(c, 99, 99, 99, 99);
      ConvertFrameCountToTimeCode(p.count, &tc);
      EXPECT_EQ(Fields(Record(c, p.h, p.m, p.s, p.f)), Fields(tc)) << c.format << " count " << p.count;
    }
  }
}

TEST(TimeCodeTableTest, FrameCountAt5994DropUsesThirtyFrameConstants) {
  const FormatCase& c = kFormatCases[9];
  ASSERT_EQ(tcf5994Drop, c.format);
  TimeCode tc = Record(c, 0, 0, 0, 0);
  ConvertFrameCountToTimeCode(35964, &tc);  // 00:10:00;00 counted at 59.94 drop
  // 35964 + 2 * 9 * 4 = 36036 frames at 60: 10 minutes, 0 seconds and 36 frames.
  EXPECT_EQ("0:10:0:36", Fields(tc));
}

TEST(TimeCodeTableTest, BcdRoundTripAtEveryFormat) {
  for (const FormatCase& c : kFormatCases) {
    for (const Point& p : BoundaryPoints(c)) {
      TimeCode tc = Record(c, p.h, p.m, p.s, p.f);
      uint32_t bcd = ConvertTimeCodeToFrameCountBCD(&tc);
      EXPECT_EQ(((p.h / 10) << 28) | ((p.h % 10) << 24) | ((p.m / 10) << 20) | ((p.m % 10) << 16) |
                    ((p.s / 10) << 12) | ((p.s % 10) << 8) | ((p.f / 10) << 4) | (p.f % 10),
                bcd);
      TimeCode back = Record(c, 0, 0, 0, 0);
      ConvertFrameCountBCDToTimeCode(bcd, &back);
      EXPECT_EQ(Fields(tc), Fields(back));
    }
  }
}

TEST(TimeCodeTableTest, TextRoundTripAtEveryFormat) {
  for (const FormatCase& c : kFormatCases) {
    for (const Point& p : BoundaryPoints(c)) {
      TimeCode tc = Record(c, p.h, p.m, p.s, p.f);
      char text[12];
      ConvertTimeCodeToString(&tc, text);
      char expected[16];
      snprintf(expected, sizeof expected, "%02u:%02u:%02u%c%02u", p.h, p.m, p.s, c.drop ? ';' : ':', p.f);
      EXPECT_STREQ(expected, text);
      TimeCode back = Record(c, 0, 0, 0, 0);
      ConvertStringToTimeCode(text, &back);
      EXPECT_EQ(Fields(tc), Fields(back));
    }
  }
}

TEST(TimeCodeTableTest, FormatFunctionsAtEveryFormat) {
  for (const FormatCase& c : kFormatCases) {
    EXPECT_EQ(c.tps, tcfToTps(c.format));
    unsigned frameDuration = 9, timeScale = 9;
    tcfToDuration(c.format, frameDuration, timeScale);
    EXPECT_EQ(c.frameDuration, frameDuration);
    EXPECT_EQ(c.timeScale, timeScale);
    EXPECT_EQ(c.drop, tcfIsDrop(c.format));
    EXPECT_EQ(c.tps <= 30, tcfIsSerialTcf(c.format)) << c.format;
    EXPECT_EQ(c.format, tcfFromDuration(c.frameDuration, c.timeScale, c.drop, -1));
    TimeCode tc = Record(c, 0, 0, 0, 0);
    EXPECT_EQ(c.day, LargestFrameCountBeforeTimeCodeWraps(&tc));
  }
}

TEST(TimeCodeTest, UnknownFormatsLookUpAsZero) {
  for (int value : {0, 9, 49, 52, -1}) {
    unsigned frameDuration = 9, timeScale = 9;
    tcfToDuration(static_cast<TimeCodeFormat>(value), frameDuration, timeScale);
    EXPECT_EQ(0, tcfToTps(static_cast<TimeCodeFormat>(value)));
    EXPECT_EQ(0u, frameDuration);
    EXPECT_EQ(0u, timeScale);
    EXPECT_FALSE(tcfIsSerialTcf(static_cast<TimeCodeFormat>(value)));
  }
  EXPECT_TRUE(tcfIsDrop(static_cast<TimeCodeFormat>(52))) << "drop-frame is any value above 49";
}

// ---- The listed edge cases ----

TEST(TimeCodeTest, OneHourAtThirtyDropFrame) {
  const FormatCase& c = kFormatCases[8];
  TimeCode tc = Record(c, 1, 0, 0, 0);
  EXPECT_EQ(107892u, ConvertTimeCodeToFrameCount(&tc));
  TimeCode back = Record(c, 0, 0, 0, 0);
  ConvertFrameCountToTimeCode(107892, &back);
  EXPECT_EQ("1:0:0:0", Fields(back));
  ConvertFrameCountToTimeCode(1800, &back);
  EXPECT_EQ("0:1:0:2", Fields(back));
}

TEST(TimeCodeTest, DayAtTwentyFiveAndNormalising) {
  const FormatCase& c = kFormatCases[2];
  TimeCode tc = Record(c, 24, 0, 0, 0);
  EXPECT_EQ(2160000u, ConvertTimeCodeToFrameCount(&tc));
  EXPECT_EQ(2159999, NormaliseFrameCount(-1, &tc));
  EXPECT_EQ(0, NormaliseFrameCount(2160000, &tc));
  EXPECT_EQ(5, NormaliseFrameCount(2160005, &tc));
}

TEST(TimeCodeTest, Bcd) {
  EXPECT_EQ(0, GetBCD(100));
  EXPECT_EQ(0x99, GetBCD(99));
  EXPECT_EQ(0x42, GetBCD(42));
  EXPECT_EQ(42u, GetDecimal(0x42));
  EXPECT_EQ(15u, GetDecimal(0x0f)) << "digits are not checked";
  TimeCode tc = Record(kFormatCases[2], 23, 59, 59, 24);
  EXPECT_EQ(0x23595924u, ConvertTimeCodeToFrameCountBCD(&tc));
  TimeCode back = Record(kFormatCases[2], 0, 0, 0, 0);
  ConvertFrameCountBCDToTimeCode(0x10593012, &back);
  EXPECT_EQ("10:59:30:12", Fields(back));
  EXPECT_EQ(25000u, back.timeScale) << "rate fields untouched";
}

TEST(TimeCodeTest, DropFrameTextUsesSemicolon) {
  TimeCode tc = Record(kFormatCases[8], 0, 0, 10, 5);
  char text[12];
  memset(text, 'x', sizeof text);
  ConvertTimeCodeToString(&tc, text);
  EXPECT_STREQ("00:00:10;05", text);
}

TEST(TimeCodeTest, ShortTextFillsOnlyTheFieldsItHas) {
  TimeCode tc = Record(kFormatCases[2], 9, 9, 9, 9);
  ConvertStringToTimeCode("12:34", &tc);
  EXPECT_EQ("12:34:0:0", Fields(tc));
  EXPECT_EQ(25, tc.framesPerSecond);
  ConvertStringToTimeCode("1", &tc);
  EXPECT_EQ("0:0:0:0", Fields(tc));
}

TEST(TimeCodeTest, FormatFromRate) {
  EXPECT_EQ(tcf2997Drop, tcfFromFps(29.97, true));
  EXPECT_EQ(tcf2997, tcfFromFps(29.97, false));
  EXPECT_EQ(tcf25, tcfFromFps(25.0, true)) << "drop is ignored where the rate has no drop variant";
  EXPECT_EQ(tcf2398, tcfFromFps(23.976, false));
  EXPECT_EQ(tcf5994Drop, tcfFromFps(59.94, true));
  EXPECT_EQ(tcf60, tcfFromFps(60.0, false));
}

TEST(TimeCodeDeathTest, RateOutsideEveryRangeEndsInTheAssertion) {
  EXPECT_DEATH(tcfFromFps(29.985, false),
               "^Assertion failed: \\(false\\), function tcfFromFps, file Util/TimeCode, line [0-9]+\\.\n$");
}

TEST(TimeCodeDeathTest, SerialHintThatIsNotHalfTheRateEndsInTheAssertion) {
  EXPECT_EQ(tcf2997, tcfFromDuration(1001, 30000, false, 29));
  EXPECT_EQ(tcf2997Drop, tcfFromDuration(2002, 120000, true, 30)) << "twice the hint: the serial format";
  EXPECT_DEATH(tcfFromDuration(1000, 30000, false, 25),
               "^Assertion failed: \\(dstTps == 2\\*srcTps\\), function tcfFromDuration, file Util/TimeCode, "
               "line [0-9]+\\.\n$");
}

TEST(TimeCodeDeathTest, UnknownFormatHasNoSerialFormat) {
  EXPECT_DEATH(tcfToSerialTcf(tcfUnknown), "function tcfFromFps, file Util/TimeCode");
  EXPECT_DEATH(tcfChangeDrop(static_cast<TimeCodeFormat>(9), true), "function tcfFromFps, file Util/TimeCode");
}

TEST(TimeCodeTest, SerialFormats) {
  EXPECT_EQ(tcf25, tcfToSerialTcf(tcf50));
  EXPECT_EQ(tcf2997Drop, tcfToSerialTcf(tcf5994Drop));
  EXPECT_EQ(tcf2997, tcfToSerialTcf(tcf5994));
  EXPECT_EQ(tcf30, tcfToSerialTcf(tcf60));
  for (TimeCodeFormat f : {tcf2398, tcf24, tcf25, tcf2997, tcf30, tcf2997Drop}) EXPECT_EQ(f, tcfToSerialTcf(f));
}

TEST(TimeCodeTest, ChangingTheDropFlag) {
  EXPECT_EQ(tcf2997Drop, tcfChangeDrop(tcf2997, true));
  EXPECT_EQ(tcf2997, tcfChangeDrop(tcf2997Drop, false));
  EXPECT_EQ(tcf5994Drop, tcfChangeDrop(tcf5994, true));
  EXPECT_EQ(tcf5994, tcfChangeDrop(tcf5994Drop, false));
  EXPECT_EQ(tcf25, tcfChangeDrop(tcf25, true));
  EXPECT_EQ(tcf2398, tcfChangeDrop(tcf2398, true));
}

struct ConvertCase {
  int count;
  TimeCodeFormat from;
  TimeCodeFormat to;
  bool roundUp;
  int expected;
};

const ConvertCase kConvertCases[] = {
    {7, tcf2997, tcf5994, false, 14}, {7, tcf5994, tcf2997, true, 4}, {7, tcf5994, tcf2997, false, 3},
    {7, tcf25, tcf25, true, 7},       {10, tcf25, tcf30, false, 12},  {11, tcf25, tcf30, false, 13},
    {11, tcf25, tcf30, true, 14},     {6, tcf50, tcf25, true, 3},     {5, tcf24, tcf25, false, 5},
};

TEST(TimeCodeTest, ConvertingFrameCountsBetweenFormats) {
  for (const ConvertCase& c : kConvertCases) {
    EXPECT_EQ(c.expected, tcfConvertFrameCount(c.count, c.from, c.to, c.roundUp))
        << c.count << " " << c.from << "->" << c.to << " " << c.roundUp;
  }
}

// Counts whose conversion leaves the range of int: the result is held at INT_MAX or INT_MIN.
// A count that fits keeps its exact value, also when rounding up would pass INT_MAX first.
const ConvertCase kExtremeConvertCases[] = {
    {INT_MAX, tcf25, tcf50, false, INT_MAX},      {INT_MIN, tcf25, tcf50, false, INT_MIN},
    {INT_MAX - 1, tcf2997, tcf5994, true, INT_MAX}, {INT_MAX, tcf50, tcf25, true, 1073741824},
    {INT_MAX, tcf50, tcf25, false, 1073741823},   {INT_MIN, tcf5994, tcf2997, true, -1073741824},
    {INT_MAX, tcf24, tcf25, false, INT_MAX},      {INT_MAX, tcf24, tcf25, true, INT_MAX},
    {INT_MIN, tcf24, tcf25, false, INT_MIN},      {INT_MAX, tcf30, tcf25, false, 1789569705},
    {INT_MIN, tcf30, tcf25, true, -1789569706},
};

TEST(TimeCodeTest, ConvertingExtremeFrameCountsStaysInRange) {
  for (const ConvertCase& c : kExtremeConvertCases) {
    EXPECT_EQ(c.expected, tcfConvertFrameCount(c.count, c.from, c.to, c.roundUp))
        << c.count << " " << c.from << "->" << c.to << " " << c.roundUp;
  }
}

TEST(TimeCodeTest, LooseNumbersCarryAndWrap) {
  const FormatCase& pal = kFormatCases[2];
  TimeCode tc = Record(pal, 0, 0, 0, 0);
  SetTimeCodeTimeWithInts(&tc, 0, 0, 61, 30);
  EXPECT_EQ("0:1:2:5", Fields(tc));
  SetTimeCodeTimeWithInts(&tc, 25, 61, 0, 0);
  EXPECT_EQ("2:1:0:0", Fields(tc));
  SetTimeCodeTimeWithInts(&tc, 23, 59, 59, 25);
  EXPECT_EQ("0:0:0:0", Fields(tc)) << "wraps at a day";
  TimeCode drop = Record(kFormatCases[8], 0, 0, 0, 0);
  SetTimeCodeTimeWithInts(&drop, 0, 1, 0, 2);
  EXPECT_EQ("0:1:0:2", Fields(drop));
}

TEST(TimeCodeTest, FramesBetweenTimecodes) {
  const FormatCase& pal = kFormatCases[2];
  const FormatCase& fifty = kFormatCases[5];
  TimeCode a = Record(pal, 0, 0, 2, 0), b = Record(pal, 0, 0, 1, 0);
  EXPECT_EQ(25, CalculateFramesBetweenTimecodes(&a, &b));
  EXPECT_EQ(-25, CalculateFramesBetweenTimecodes(&b, &a));
  TimeCode a50 = Record(fifty, 0, 0, 2, 0), b25 = Record(pal, 0, 0, 1, 12);
  EXPECT_EQ(26, CalculateFramesBetweenTimecodes(&a50, &b25)) << "b's 12 frames are 24 at 50";
}

TEST(TimeCodeTest, ComparingAtOneRate) {
  const FormatCase& pal = kFormatCases[2];
  TimeCode a = Record(pal, 0, 0, 1, 0), b = Record(pal, 0, 0, 0, 24);
  EXPECT_EQ(0x100 - 24, CompareTimeCodes(&a, &b, false)) << "difference of the packed words";
  EXPECT_EQ(1, CompareTimeCodes(&a, &b, true)) << "difference of the frame counts";
  EXPECT_EQ(0, CompareTimeCodes(&a, &a, true));
  TimeCode late = Record(pal, 23, 59, 59, 24), midnight = Record(pal, 0, 0, 0, 0);
  EXPECT_EQ(-2159999, CompareTimeCodes(&late, &midnight, true)) << "beyond half a day: count(b) - count(a)";
  EXPECT_EQ(2159999, CompareTimeCodes(&midnight, &late, true)) << "below minus half a day: count(b) - count(a)";
}

TEST(TimeCodeTest, ComparingAcrossRates) {
  const FormatCase& pal = kFormatCases[2];
  const FormatCase& thirty = kFormatCases[4];
  TimeCode a = Record(pal, 0, 0, 1, 12), inside = Record(thirty, 0, 0, 1, 14), later = Record(thirty, 0, 0, 1, 20);
  EXPECT_EQ(0, CompareTimeCodes(&a, &inside, false)) << "1:14 at 30 falls inside 1:12 at 25";
  EXPECT_EQ(14 - 20, CompareTimeCodes(&a, &later, false));
  EXPECT_EQ((37 * 30 / 25) - 50, CompareTimeCodes(&a, &later, true));
}

TEST(TimeCodeTest, MovieDurationRoundsUpToWholeFrames) {
  TimeCode tc = Record(kFormatCases[2], 0, 0, 0, 0);  // 25000/1000
  EXPECT_EQ(25u, ConvertMovieDurationToFrameCount(600, 600, &tc));
  EXPECT_EQ(26u, ConvertMovieDurationToFrameCount(601, 600, &tc));
  EXPECT_EQ(75u, ConvertMovieDurationToFrameCount(1800, 600, &tc));
  EXPECT_EQ(13u, ConvertMovieDurationToFrameCount(300, 600, &tc));
}

struct MovieDurationCase {
  int duration;
  int movieTimeScale;
  uint32_t frames;
};

// At 25000/1000: a duration before zero needs no frames, and one beyond what 32 bits count
// needs them all.
const MovieDurationCase kExtremeMovieDurations[] = {
    {-1, 600, 0},          {-300, 600, 0},           {-600, 600, 0},         {-601, 600, 0},
    {600, -600, 0},        {-600, -600, 25},         {-601, -600, 26},       {INT_MIN, 600, 0},
    {INT_MIN, -1, UINT32_MAX}, {INT_MAX, 1, UINT32_MAX}, {INT_MAX, INT_MAX, 25}, {0, 600, 0},
};

TEST(TimeCodeTest, MovieDurationsOutsideTheCountsRange) {
  TimeCode tc = Record(kFormatCases[2], 0, 0, 0, 0);
  for (const MovieDurationCase& c : kExtremeMovieDurations) {
    EXPECT_EQ(c.frames, ConvertMovieDurationToFrameCount(c.duration, c.movieTimeScale, &tc))
        << c.duration << " / " << c.movieTimeScale;
  }
}

}  // namespace
}  // namespace Util
}  // namespace KTN
