// Tests of CTimeCode and the relative-timecode parsers, table-driven where the cases repeat.
#include <gtest/gtest.h>

#include <stdio.h>

#include <string>
#include <vector>

#include "Util/TimeCode.h"

namespace KTN {
namespace Util {
namespace {

struct FormatCase {
  TimeCodeFormat format;
  int tps;
  bool drop;
  int tenMinutes;
  int day;
};

const FormatCase kFormatCases[] = {
    {tcf2398, 24, false, 14400, 2073600}, {tcf24, 24, false, 14400, 2073600},
    {tcf25, 25, false, 15000, 2160000},   {tcf2997, 30, false, 18000, 2592000},
    {tcf30, 30, false, 18000, 2592000},   {tcf50, 50, false, 30000, 4320000},
    {tcf5994, 60, false, 36000, 5184000}, {tcf60, 60, false, 36000, 5184000},
    {tcf2997Drop, 30, true, 17982, 2589408}, {tcf5994Drop, 60, true, 35964, 5178816},
};

struct Point {
  unsigned h, m, s, f;
  int count;
};

// The first and last frame of the day, every ten-minute boundary and the frames around the
// first dropped minute.
std::vector<Point> BoundaryPoints(const FormatCase& c) {
  std::vector<Point> points;
  unsigned last = static_cast<unsigned>(c.tps - 1);
  points.push_back({0, 0, 0, 0, 0});
  points.push_back({23, 59, 59, last, c.day - 1});
  for (unsigned k = 1; k < 144; ++k) points.push_back({k / 6, (k % 6) * 10, 0, 0, static_cast<int>(k) * c.tenMinutes});
  int minute = 60 * c.tps;  // frames 0 .. 60 * tps - 1 make up the first minute, drop-frame or not
  points.push_back({0, 0, 59, last, minute - 1});
  points.push_back({0, 1, 0, c.drop ? static_cast<unsigned>(c.tps / 15) : 0u, minute});
  points.push_back({0, 9, 59, last, c.tenMinutes - 1});
  return points;
}

std::string Fields(const CTimeCode& tc) {
  return std::to_string(tc.hours) + ":" + std::to_string(tc.minutes) + ":" + std::to_string(tc.seconds) + ":" +
         std::to_string(tc.frames);
}

std::string Fields(const Point& p) {
  return std::to_string(p.h) + ":" + std::to_string(p.m) + ":" + std::to_string(p.s) + ":" + std::to_string(p.f);
}

TEST(CTimeCodeTableTest, FrameCountsBothWaysAtEveryFormat) {
  for (const FormatCase& c : kFormatCases) {
    EXPECT_EQ(c.day, CTimeCode::LargestFrameCountBeforeTimeCodeWraps(c.format)) << c.format;
    for (const Point& p : BoundaryPoints(c)) {
      CTimeCode fromCount = CTimeCode::FromFrame(c.format, p.count, tcfUnknown);
      EXPECT_EQ(Fields(p), Fields(fromCount)) << c.format << " count " << p.count;
      CTimeCode fromNumbers = CTimeCode::FromNumbers(c.format, p.h, p.m, p.s, p.f);
      EXPECT_EQ(p.count, fromNumbers.ToFrame(c.format)) << c.format << " " << Fields(p);
      EXPECT_EQ(Fields(p), Fields(fromNumbers));
    }
  }
}

TEST(CTimeCodeTableTest, BcdAndTextRoundTripsAtEveryFormat) {
  for (const FormatCase& c : kFormatCases) {
    for (const Point& p : BoundaryPoints(c)) {
      CTimeCode tc = CTimeCode::FromNumbers(c.format, p.h, p.m, p.s, p.f);
      EXPECT_EQ(Fields(p), Fields(CTimeCode::FromBCD(c.format, tc.ToBCD())));
      std::string text = tc.ToString(false);
      char expected[16];
      snprintf(expected, sizeof expected, "%02u:%02u:%02u%c%02u", p.h, p.m, p.s, c.drop ? ';' : ':', p.f);
      EXPECT_EQ(expected, text);
      EXPECT_EQ(Fields(p), Fields(CTimeCode::FromStr(c.format, text)));
      EXPECT_EQ(std::string::npos, tc.ToString(true).find(';')) << "colon only";
    }
  }
}

struct WideFieldCase {
  TimeCodeFormat format;
  unsigned bcd;  // each byte decodes as its low nibble plus ten times its high nibble
  bool colonOnly;
  const char* text;
};

// Fields above 99 (from BCD bytes beyond 0x99) keep two characters each, as the record's
// text form does: the tens character is '0' plus the value / 10.
const WideFieldCase kWideFieldCases[] = {
    {tcf25, 0xA0000000, false, ":0:00:00:00"},
    {tcf25, 0x000000C3, false, "00:00:00:<3"},
    {tcf2997Drop, 0xFFFFFFFF, false, "@5:@5:@5;@5"},
    {tcf2997Drop, 0xFFFFFFFF, true, "@5:@5:@5:@5"},
};

TEST(CTimeCodeTest, TextKeepsTwoCharactersAFieldAboveNinetyNine) {
  for (const WideFieldCase& c : kWideFieldCases) {
    CTimeCode tc = CTimeCode::FromBCD(c.format, c.bcd);
    EXPECT_EQ(c.text, tc.ToString(c.colonOnly)) << std::hex << c.bcd;
    TimeCode record = {tc.hours, tc.minutes, tc.seconds, tc.frames, 0, 0, 0,
                       static_cast<uint8_t>(tcfIsDrop(c.format) && !c.colonOnly)};
    char text[12];
    ConvertTimeCodeToString(&record, text);
    EXPECT_EQ(text, tc.ToString(c.colonOnly)) << "the same text as the record's";
  }
}

TEST(CTimeCodeTest, ConstructedZeroWithItsFormat) {
  CTimeCode tc(tcf25);
  EXPECT_TRUE(tc.IsZero());
  EXPECT_EQ(tcf25, tc.format);
  tc.Set(1u, 2u, 3u, 4u);
  EXPECT_FALSE(tc.IsZero());
  tc.SetZero();
  EXPECT_TRUE(tc.IsZero());
  EXPECT_EQ(tcf25, tc.format);
}

TEST(CTimeCodeTest, SubtractingALargerTimecodeGivesZero) {
  CTimeCode small = CTimeCode::FromNumbers(tcf25, 0, 0, 1, 0);
  CTimeCode large = CTimeCode::FromNumbers(tcf25, 1, 0, 0, 0);
  small.Subtract(large, false);
  EXPECT_EQ("00:00:00:00", small.ToString(false));
  CTimeCode equal = CTimeCode::FromNumbers(tcf25, 1, 0, 0, 0);
  equal.Subtract(large, false);
  EXPECT_TRUE(equal.IsZero());
}

TEST(CTimeCodeTest, AddingWrapsAtTheDay) {
  CTimeCode tc = CTimeCode::FromNumbers(tcf25, 23, 59, 59, 0);
  tc.Add(CTimeCode::FromNumbers(tcf25, 0, 0, 2, 0), false);
  EXPECT_EQ("00:00:01:00", tc.ToString(false));
  CTimeCode drop = CTimeCode::FromNumbers(tcf2997Drop, 0, 0, 59, 29);
  drop.Add(CTimeCode::FromFrame(tcf2997Drop, 1, tcfUnknown), false);
  EXPECT_EQ("00:01:00;02", drop.ToString(false)) << "frames 0 and 1 of minute 1 are dropped";
}

TEST(CTimeCodeTest, SerialBcdAtFiftyDoublesTheFrames) {
  CTimeCode tc(tcf50);
  tc.SetSerialBCD(0x00000112);
  EXPECT_EQ("0:0:1:24", Fields(tc));
  CTimeCode pal(tcf25);
  pal.SetSerialBCD(0x00000112);
  EXPECT_EQ("0:0:1:12", Fields(pal)) << "serial formats are taken as they are";
  EXPECT_EQ(0x00000112u, tc.ToSerialBCD(false));
  EXPECT_EQ("0:0:1:24", Fields(CTimeCode::FromSerialBCD(tcf50, 0x00000112)));
}

TEST(CTimeCodeTest, SerialRecordReadsAtItsOwnCountingBase) {
  TimeCode record = {0, 0, 1, 12, 25000, 1000, 25, 0};
  CTimeCode fifty(tcf50);
  fifty.SetSerialTc(record, true);
  EXPECT_EQ(tcf50, fifty.format);
  EXPECT_EQ("0:0:1:24", Fields(fifty)) << "frames rescaled to 50";
  CTimeCode adopting(tcf50);
  adopting.SetSerialTc(record, false);
  EXPECT_EQ(tcf25, adopting.format) << "without conversion the record's format is adopted";
  EXPECT_EQ("0:0:1:12", Fields(adopting));
  CTimeCode unknown = CTimeCode::FromSerialTc(tcfUnknown, record);
  EXPECT_EQ(tcf25, unknown.format);
  EXPECT_EQ("0:0:1:12", Fields(unknown));
  // A 59.94 rate counted at 30 frames per second reads as the serial 29.97 format.
  TimeCode serial = {0, 0, 2, 20, 60000, 1001, 30, 1};
  CTimeCode fromSerial = CTimeCode::FromSerialTc(tcfUnknown, serial);
  EXPECT_EQ(tcf2997Drop, fromSerial.format);
}

TEST(CTimeCodeTest, ToSerialRecordCountsAtThirtyOrBelow) {
  CTimeCode tc = CTimeCode::FromNumbers(tcf50, 0, 0, 1, 24);
  TimeCode record = tc.ToSerialTc(false);
  EXPECT_EQ(25, record.framesPerSecond);
  EXPECT_EQ(0, record.dropFrame);
  EXPECT_EQ(50000u, record.timeScale);
  EXPECT_EQ(1000u, record.frameDuration);
  EXPECT_EQ(1, record.seconds);
  EXPECT_EQ(12, record.frames);
}

TEST(CTimeCodeDeathTest, SerialRecordWithImpossibleCountingBaseEndsInTheAssertion) {
  TimeCode record = {0, 0, 1, 12, 25000, 1000, 30, 0};
  CTimeCode tc(tcf25);
  EXPECT_DEATH(tc.SetSerialTc(record, true),
               "^Assertion failed: \\(tcfToTps\\(srcFormat\\) == srcSerial\\.framesPerSecond\\), function "
               "SetSerialTc, file Util/TimeCode, line [0-9]+\\.\n$");
}

TEST(CTimeCodeTest, DurationAndOutPoint) {
  CTimeCode in = CTimeCode::FromNumbers(tcf25, 1, 0, 0, 0);
  CTimeCode out = CTimeCode::FromNumbers(tcf25, 1, 0, 10, 0);
  EXPECT_EQ("00:00:10:00", in.CalculateDuration(out, false).ToString(false));
  EXPECT_EQ("00:00:10:01", in.CalculateDuration(out, true).ToString(false));
  CTimeCode duration = CTimeCode::FromNumbers(tcf25, 0, 0, 10, 0);
  EXPECT_EQ("01:00:10:00", in.CalculateOutTimeCode(duration, false, false).ToString(false));
  EXPECT_EQ("01:00:09:24", in.CalculateOutTimeCode(duration, false, true).ToString(false));
  EXPECT_EQ("01:00:00:00", in.CalculateOutTimeCode(CTimeCode(tcf25), false, true).ToString(false))
      << "a zero duration is not shortened";
  EXPECT_EQ(250, CTimeCode::CalculateFramesBetweenTimecodes(out, in));
  EXPECT_EQ(500, CTimeCode::CalculateFramesBetweenTimecodes(CTimeCode::FromNumbers(tcf50, 1, 0, 10, 0), in))
      << "counted in the first timecode's format";
}

TEST(CTimeCodeTest, Comparing) {
  CTimeCode a = CTimeCode::FromNumbers(tcf25, 0, 0, 1, 0);
  CTimeCode b = CTimeCode::FromNumbers(tcf25, 0, 0, 0, 24);
  EXPECT_EQ(0x100 - 24, a.CompareTimeCodes(b, false));
  EXPECT_EQ(1, a.CompareTimeCodes(b, true));
  EXPECT_EQ(-1, b.CompareTimeCodes(a, true));
  CTimeCode pal = CTimeCode::FromNumbers(tcf25, 0, 0, 1, 12);
  CTimeCode fifty = CTimeCode::FromNumbers(tcf50, 0, 0, 1, 25);
  EXPECT_EQ(0, pal.CompareTimeCodes(fifty, false)) << "1:25 at 50 falls inside 1:12 at 25";
  CTimeCode later = CTimeCode::FromNumbers(tcf50, 0, 0, 1, 30);
  EXPECT_EQ(24 - 30, pal.CompareTimeCodes(later, false));
  EXPECT_EQ(74 - 80, pal.CompareTimeCodes(later, true));
}

TEST(CTimeCodeTest, CopyingAndConvertingFromAnotherTimecode) {
  CTimeCode pal = CTimeCode::FromNumbers(tcf25, 0, 0, 1, 12);
  CTimeCode fifty(tcf50);
  fifty.Set(pal, true, false);
  EXPECT_EQ(tcf50, fifty.format);
  EXPECT_EQ("0:0:1:24", Fields(fifty));
  CTimeCode copy(tcf50);
  copy.Set(pal, false, false);
  EXPECT_EQ(tcf25, copy.format);
  EXPECT_EQ("0:0:1:12", Fields(copy));
  EXPECT_EQ("0:0:1:24", Fields(CTimeCode::FromTc(tcf50, pal, true, false)));
}

TEST(CTimeCodeTest, FromFrameCountsInTheSourceFormat) {
  EXPECT_EQ("0:0:1:24", Fields(CTimeCode::FromFrame(tcf50, 37, tcf25)));
  EXPECT_EQ("0:0:1:12", Fields(CTimeCode::FromFrame(tcf25, 37, tcfUnknown)));
}

// ---- Relative timecodes ----

struct RelativeCase {
  const char* text;
  bool ok;
  int frameCount;
};

// On the base 01:00:00:00 at 25 frames per second (90000 frames).
const RelativeCase kRelativeCases[] = {
    {"+10", true, 90010},          {"-1:00", true, 89975},    {"12.34", true, 334},
    {"1.2.3.4.5", false, 0},       {"1:2:3:4:5", true, 93079}, {"", true, 0},
    {"+1:00:00:00", true, 180000}, {"-02:00:00:00", true, 2070000}, {"12:x4", false, 0},
    {"1234", true, 334},           {" 1 2 3 4 ", true, 334},  {"1;2", true, 27},
    {"+", true, 90000},            {"1..2", true, 27},
};

TEST(RelativeTimeCodeTest, PlainRecordBase) {
  TimeCode base = {1, 0, 0, 0, 25000, 1000, 25, 0};
  for (const RelativeCase& c : kRelativeCases) {
    int frameCount = -7;
    EXPECT_EQ(c.ok, relativeTCToAbsoluteTC(base, c.text, frameCount)) << c.text;
    EXPECT_EQ(c.frameCount, frameCount) << c.text;
  }
}

TEST(RelativeTimeCodeTest, ClassBase) {
  CTimeCode base = CTimeCode::FromNumbers(tcf25, 1, 0, 0, 0);
  ASSERT_EQ(90000, base.ToFrame(tcf25));
  for (const RelativeCase& c : kRelativeCases) {
    int frameCount = -7;
    EXPECT_EQ(c.ok, base.RelativeTCToAbsoluteTC(base, c.text, frameCount)) << c.text;
    EXPECT_EQ(c.frameCount, frameCount) << c.text;
  }
}

TEST(RelativeTimeCodeTest, ClassSetsItselfOnSuccessOnly) {
  CTimeCode tc = CTimeCode::FromNumbers(tcf25, 1, 0, 0, 0);
  EXPECT_TRUE(tc.RelativeTCToAbsoluteTC("+10"));
  EXPECT_EQ("01:00:00:10", tc.ToString(false));
  EXPECT_FALSE(tc.RelativeTCToAbsoluteTC("1.2.3.4.5"));
  EXPECT_EQ("01:00:00:10", tc.ToString(false)) << "unchanged on failure";
  EXPECT_TRUE(tc.RelativeTCToAbsoluteTC("-2:00:00:00"));
  EXPECT_EQ("23:00:00:10", tc.ToString(false)) << "wraps back through midnight";
}

struct CleanCase {
  const char* text;
  const char* cleaned;
};

const CleanCase kCleanCases[] = {
    {"12", "12"},           {"12:34", "12:34"},           {"1234", "12:34"},
    {"123", "1:23"},        {"1234567", "1:23:45:67"},    {"12345678", "12:34:56:78"},
    {"123456789", "123456789"}, {" 12 3\t4 ", "12:34"},   {"12a4", "12a4"},
    {"", ""},
};

TEST(RelativeTimeCodeTest, CleaningTypedText) {
  for (const CleanCase& c : kCleanCases) {
    std::string text = c.text;
    cleanTimeCode(text);
    EXPECT_EQ(c.cleaned, text) << '"' << c.text << '"';
  }
}

}  // namespace
}  // namespace Util
}  // namespace KTN
