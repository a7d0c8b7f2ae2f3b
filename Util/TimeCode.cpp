// SMPTE timecode records, formats, conversions and the CTimeCode class.
// Depends on nothing but the standard library: it is shared by every program of the system.
#include "Util/TimeCode.h"

#include <limits.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>

namespace KTN {
namespace Util {

namespace {

// A broken precondition (a rate that fits no format) is a programming error: one line
// naming the expression, the function and this source, then abort.
[[noreturn]] void AssertionFailed(const char* expression, const char* function, int line) {
  char text[512];
  int length = snprintf(text, sizeof text, "Assertion failed: (%s), function %s, file %s, line %d.\n",
                        expression, function, "Util/TimeCode", line);
  if (length > 0) {
    ssize_t ignored = write(STDERR_FILENO, text, std::min(static_cast<size_t>(length), sizeof text - 1));
    (void)ignored;
  }
  abort();
}

#define TIMECODE_ASSERT(expression) \
  ((expression) ? static_cast<void>(0) : AssertionFailed(#expression, __func__, __LINE__))

// The formats' rates and counting bases.
struct FormatRow {
  TimeCodeFormat format;
  unsigned timeScale;
  unsigned frameDuration;
  int tps;  // ceiling of timeScale / frameDuration
};

const FormatRow kFormats[] = {
    {tcf2398, 24000, 1001, 24},     {tcf24, 24000, 1000, 24},   {tcf25, 25000, 1000, 25},
    {tcf2997, 30000, 1001, 30},     {tcf30, 30000, 1000, 30},   {tcf50, 50000, 1000, 50},
    {tcf5994, 60000, 1001, 60},     {tcf60, 60000, 1000, 60},   {tcf2997Drop, 30000, 1001, 30},
    {tcf5994Drop, 60000, 1001, 60},
};

const FormatRow* FindFormat(TimeCodeFormat format) {
  for (const FormatRow& row : kFormats) {
    if (row.format == format) return &row;
  }
  return nullptr;
}

// Open ranges of frame rates and the formats they name, tested in this order.
struct RateRange {
  double low;
  double high;
  TimeCodeFormat nonDrop;
  TimeCodeFormat drop;
};

const RateRange kRateRanges[] = {
    {23.966, 23.986, tcf2398, tcf2398}, {23.99, 24.01, tcf24, tcf24},
    {24.99, 25.01, tcf25, tcf25},       {29.96, 29.98, tcf2997, tcf2997Drop},
    {29.99, 30.01, tcf30, tcf30},       {49.99, 50.01, tcf50, tcf50},
    {59.93, 59.95, tcf5994, tcf5994Drop}, {59.99, 60.01, tcf60, tcf60},
};

// Frames dropped at each dropped minute: 2 up to 30 frames per second, 4 above.
unsigned DropConstant(unsigned framesPerSecond) {
  return framesPerSecond < 31 ? 2 : 4;
}

// The drop-frame rule applied to a raw (non-drop) count at tps frames per second.
int fcFromDropRawFc(int raw, int tps) {
  int minutes = raw / (tps * 60);
  return raw - (minutes - minutes / 10) * (tps / 15);
}

// A count held within int's range.
int ClampToInt(int64_t count) {
  return static_cast<int>(std::clamp<int64_t>(count, INT_MIN, INT_MAX));
}

// A whole count in a double held within int's range.
int ClampToInt(double count) {
  if (count >= static_cast<double>(INT_MAX)) return INT_MAX;
  if (count <= static_cast<double>(INT_MIN)) return INT_MIN;
  return static_cast<int>(count);
}

uint32_t PackedWord(unsigned hours, unsigned minutes, unsigned seconds, uint32_t frames) {
  return ((hours << 24) | (minutes << 16) | (seconds << 8)) + frames;
}

// The signed difference of two counts, chosen the short way round a day of 2 * half frames.
int32_t ChooseWrapped(int64_t a, int64_t b, int64_t half) {
  int64_t difference = a - b;
  if (difference > half) return static_cast<int32_t>(b - a);
  if (difference >= -half) return static_cast<int32_t>(difference);
  return static_cast<int32_t>(b - a);
}

// A typed timecode text, absolute or relative, read into four loose fields.
enum class Relation { kAbsolute, kAdd, kSubtract };

struct ParsedTimeCode {
  Relation relation = Relation::kAbsolute;
  unsigned hours = 0, minutes = 0, seconds = 0, frames = 0;
};

// Reads "[+|-]text": four numbers "h:m:s:f" (anything after them is ignored), or at most
// four all-digit fields split at '.', ';' and ':', filled from the right (frames last).
bool ParseTimeCodeText(std::string text, ParsedTimeCode& parsed) {
  if (!text.empty() && (text[0] == '+' || text[0] == '-')) {
    parsed.relation = text[0] == '+' ? Relation::kAdd : Relation::kSubtract;
    text[0] = ' ';
  }
  cleanTimeCode(text);
  if (sscanf(text.c_str(), "%u:%u:%u:%u", &parsed.hours, &parsed.minutes, &parsed.seconds,
             &parsed.frames) == 4) {
    return true;
  }
  parsed.hours = parsed.minutes = parsed.seconds = parsed.frames = 0;
  unsigned tokens[4];
  size_t count = 0;
  size_t position = 0;
  while (position < text.size()) {
    size_t end = text.find_first_of(".;:", position);
    if (end == std::string::npos) end = text.size();
    if (end > position) {  // consecutive separators make no empty field
      if (count == 4) return false;
      for (size_t i = position; i < end; ++i) {
        if (!isdigit(static_cast<unsigned char>(text[i]))) return false;
      }
      tokens[count++] = static_cast<unsigned>(strtoul(text.c_str() + position, nullptr, 10));
    }
    position = end + 1;
  }
  unsigned* fields[4] = {&parsed.frames, &parsed.seconds, &parsed.minutes, &parsed.hours};
  for (size_t i = 0; i < count; ++i) *fields[i] = tokens[count - 1 - i];
  return true;
}

}  // namespace

// ---- Plain record functions ----

unsigned char GetBCD(unsigned char value) {
  if (value > 99) return 0;
  return static_cast<unsigned char>(((value / 10) << 4) | (value % 10));
}

unsigned GetDecimal(unsigned char bcd) {
  return (bcd & 0x0f) + 10u * (bcd >> 4);
}

uint32_t ConvertTimeCodeToFrameCount(const TimeCode* tc) {
  uint32_t fps = tc->framesPerSecond;
  uint32_t count = ((tc->hours * 60u + tc->minutes) * 60u + tc->seconds) * fps + tc->frames;
  if (tc->dropFrame) {
    uint32_t nominalMinutes = count / (fps * 60u);
    count -= DropConstant(fps) * (nominalMinutes - nominalMinutes / 10);
  }
  return count;
}

uint32_t ConvertTimeCodeToFrameCountBCD(const TimeCode* tc) {
  return (static_cast<uint32_t>(GetBCD(tc->hours)) << 24) | (static_cast<uint32_t>(GetBCD(tc->minutes)) << 16) |
         (static_cast<uint32_t>(GetBCD(tc->seconds)) << 8) | GetBCD(tc->frames);
}

void ConvertFrameCountToTimeCode(unsigned frameCount, TimeCode* tc) {
  unsigned count = frameCount;
  if (tc->dropFrame) {
    // 17982 frames in ten drop-frame minutes and 1798 in a dropped minute are those of 30
    // frames per second; they are used at every drop-frame rate.
    unsigned drop = DropConstant(tc->framesPerSecond);
    unsigned rest = frameCount % 17982;
    count = frameCount + (frameCount / 17982) * 9 * drop + ((std::max(drop, rest) - drop) / 1798) * drop;
  }
  unsigned fps = tc->framesPerSecond;
  tc->frames = static_cast<uint8_t>(count % fps);
  tc->seconds = static_cast<uint8_t>((count / fps) % 60);
  tc->minutes = static_cast<uint8_t>((count / fps / 60) % 60);
  tc->hours = static_cast<uint8_t>(count / fps / 3600);
}

void ConvertFrameCountBCDToTimeCode(unsigned bcd, TimeCode* tc) {
  tc->hours = static_cast<uint8_t>(GetDecimal(static_cast<unsigned char>(bcd >> 24)));
  tc->minutes = static_cast<uint8_t>(GetDecimal(static_cast<unsigned char>(bcd >> 16)));
  tc->seconds = static_cast<uint8_t>(GetDecimal(static_cast<unsigned char>(bcd >> 8)));
  tc->frames = static_cast<uint8_t>(GetDecimal(static_cast<unsigned char>(bcd)));
}

void ConvertTimeCodeToString(const TimeCode* tc, char* text) {
  const uint8_t fields[4] = {tc->hours, tc->minutes, tc->seconds, tc->frames};
  for (int i = 0; i < 4; ++i) {
    text[i * 3] = static_cast<char>('0' + fields[i] / 10);
    text[i * 3 + 1] = static_cast<char>('0' + fields[i] % 10);
    if (i < 3) text[i * 3 + 2] = (i == 2 && tc->dropFrame) ? ';' : ':';
  }
  text[11] = '\0';
}

void ConvertStringToTimeCode(const char* text, TimeCode* tc) {
  size_t length = strlen(text);
  uint8_t* fields[4] = {&tc->hours, &tc->minutes, &tc->seconds, &tc->frames};
  for (size_t i = 0; i < 4; ++i) {
    size_t at = i * 3;
    // Two ASCII digits: 10 * '0' + '0' is 528. Computed in 8 bits, digits unchecked.
    *fields[i] = length >= at + 2 ? static_cast<uint8_t>(10 * text[at] + text[at + 1] - 528) : 0;
  }
}

int32_t CalculateFramesBetweenTimecodes(const TimeCode* a, const TimeCode* b) {
  uint32_t countA = ConvertTimeCodeToFrameCount(a);
  uint32_t countB;
  if (a->framesPerSecond != b->framesPerSecond) {
    TimeCode rescaled = *a;
    rescaled.hours = b->hours;
    rescaled.minutes = b->minutes;
    rescaled.seconds = b->seconds;
    rescaled.frames = static_cast<uint8_t>(a->framesPerSecond * b->frames / b->framesPerSecond);
    countB = ConvertTimeCodeToFrameCount(&rescaled);
  } else {
    countB = ConvertTimeCodeToFrameCount(b);
  }
  return static_cast<int32_t>(countA - countB);
}

uint32_t LargestFrameCountBeforeTimeCodeWraps(const TimeCode* tc) {
  TimeCode day = *tc;
  day.hours = 24;
  day.minutes = day.seconds = day.frames = 0;
  return ConvertTimeCodeToFrameCount(&day);
}

int32_t NormaliseFrameCount(int frameCount, const TimeCode* tc) {
  int32_t day = static_cast<int32_t>(LargestFrameCountBeforeTimeCodeWraps(tc));
  int32_t rest = frameCount % day;
  if (rest < 0) rest += day;
  return rest;
}

void SetTimeCodeTimeWithInts(TimeCode* tc, unsigned hours, unsigned minutes, unsigned seconds, unsigned frames) {
  // Minutes and seconds are reduced by a day's worth, not by 60, so that excess minutes and
  // seconds carry into the higher fields.
  unsigned fps = tc->framesPerSecond;
  int total = static_cast<int>((((hours % 24) * 60 + (minutes % 1440)) * 60 + (seconds % 86400)) * fps) +
              NormaliseFrameCount(static_cast<int>(frames), tc);
  if (tc->dropFrame) {
    int nominalMinutes = total / static_cast<int>(fps * 60);
    total -= static_cast<int>(DropConstant(fps)) * (nominalMinutes - nominalMinutes / 10);
  }
  ConvertFrameCountToTimeCode(static_cast<unsigned>(NormaliseFrameCount(total, tc)), tc);
}

int32_t CompareTimeCodes(const TimeCode* a, const TimeCode* b, bool wrap) {
  uint32_t packedB = PackedWord(b->hours, b->minutes, b->seconds, b->frames);
  int64_t half = LargestFrameCountBeforeTimeCodeWraps(a) / 2;
  if (a->timeScale == b->timeScale && a->frameDuration == b->frameDuration && a->dropFrame == b->dropFrame) {
    if (!wrap) return static_cast<int32_t>(PackedWord(a->hours, a->minutes, a->seconds, a->frames) - packedB);
    return ChooseWrapped(ConvertTimeCodeToFrameCount(a), ConvertTimeCodeToFrameCount(b), half);
  }
  // Different rates: a's frame field rescaled to b's rate.
  uint64_t numerator = static_cast<uint64_t>(b->timeScale) * a->frameDuration;
  uint64_t denominator = static_cast<uint64_t>(a->timeScale) * b->frameDuration;
  uint32_t packedA = PackedWord(a->hours, a->minutes, a->seconds,
                                static_cast<uint8_t>(a->frames * numerator / denominator));
  uint32_t packedNext = PackedWord(a->hours, a->minutes, a->seconds,
                                   static_cast<uint32_t>((a->frames + 1u) * numerator / denominator));
  if (packedA <= packedB && packedB < packedNext) return 0;  // b falls inside a's frame
  if (!wrap) return static_cast<int32_t>(packedA - packedB);
  int64_t countA = static_cast<int64_t>(static_cast<uint64_t>(ConvertTimeCodeToFrameCount(a)) * numerator / denominator);
  return ChooseWrapped(countA, ConvertTimeCodeToFrameCount(b), half);
}

uint32_t ConvertMovieDurationToFrameCount(int duration, int movieTimeScale, const TimeCode* tc) {
  // Counted in 64 bits, where every quotient of two ints fits (INT_MIN / -1 included).
  int64_t whole = static_cast<int64_t>(duration) / movieTimeScale;
  int64_t rest = duration - whole * movieTimeScale;
  // The partial second in the record's time units, rounded up: below zero only when the
  // duration is, and smaller than the time scale in magnitude.
  double scale = static_cast<double>(tc->timeScale) / movieTimeScale;
  int64_t units = static_cast<int64_t>(ceil(static_cast<double>(rest) * scale));
  // The partial second is rounded up to whole frames.
  int64_t frameDuration = tc->frameDuration;
  int64_t frames = whole * tc->framesPerSecond + (frameDuration - 1 + units) / frameDuration;
  // A duration before zero needs no frames; one beyond what the count holds needs them all.
  return static_cast<uint32_t>(std::clamp<int64_t>(frames, 0, UINT32_MAX));
}

// ---- Format functions ----

int tcfToTps(TimeCodeFormat format) {
  const FormatRow* row = FindFormat(format);
  return row ? row->tps : 0;
}

void tcfToDuration(TimeCodeFormat format, unsigned& frameDuration, unsigned& timeScale) {
  const FormatRow* row = FindFormat(format);
  frameDuration = row ? row->frameDuration : 0;
  timeScale = row ? row->timeScale : 0;
}

bool tcfIsDrop(TimeCodeFormat format) {
  return format > 49;
}

bool tcfIsSerialTcf(TimeCodeFormat format) {
  const FormatRow* row = FindFormat(format);
  return row && static_cast<double>(row->timeScale) / row->frameDuration < 31.0;
}

TimeCodeFormat tcfToSerialTcf(TimeCodeFormat format) {
  bool drop = format >= 50;
  switch (format) {
    case tcf2398:
    case tcf24:
    case tcf25:
    case tcf2997:
    case tcf30:
    case tcf2997Drop:
      return format;
    case tcf50:
      return tcfFromDuration(2000, 50000, drop, -1);
    case tcf5994:
    case tcf5994Drop:
      return tcfFromDuration(2002, 60000, drop, -1);
    case tcf60:
      return tcfFromDuration(2000, 60000, drop, -1);
    default:
      return tcfFromDuration(0, 0, drop, -1);  // fails the rate assertion
  }
}

TimeCodeFormat tcfChangeDrop(TimeCodeFormat format, bool drop) {
  unsigned frameDuration, timeScale;
  tcfToDuration(format, frameDuration, timeScale);
  return tcfFromDuration(frameDuration, timeScale, drop, -1);
}

TimeCodeFormat tcfFromFps(double fps, bool drop) {
  for (const RateRange& range : kRateRanges) {
    if (range.low < fps && fps < range.high) return drop ? range.drop : range.nonDrop;
  }
  TIMECODE_ASSERT(false);
}

TimeCodeFormat tcfFromDuration(unsigned frameDuration, unsigned timeScale, bool drop, int serialTps) {
  int srcTps = serialTps;
  if (srcTps == 29) srcTps = 30;
  if (srcTps == 23) srcTps = 24;
  if (srcTps == 59) srcTps = 60;
  TimeCodeFormat format = tcfFromFps(static_cast<double>(timeScale) / static_cast<double>(frameDuration), drop);
  int dstTps = tcfToTps(format);
  if (srcTps == -1 || srcTps == dstTps) return format;
  TIMECODE_ASSERT(dstTps == 2*srcTps);
  return tcfToSerialTcf(format);
}

int tcfConvertFrameCount(int frameCount, TimeCodeFormat from, TimeCodeFormat to, bool roundUp) {
  if (from == to) return frameCount;
  int source = tcfToTps(from);
  int destination = tcfToTps(to);
  // Counted in 64 bits: a count that fits int keeps its exact value (rounding INT_MAX up
  // included), and one that does not is held at INT_MAX or INT_MIN.
  int64_t count = frameCount;
  if (destination % source == 0) return ClampToInt(count * (destination / source));
  if (source % destination == 0) {
    if (roundUp && count % 2 != 0) ++count;
    return ClampToInt(count / (source / destination));
  }
  double scaled = static_cast<double>(frameCount) * destination / source;
  return ClampToInt(roundUp ? ceil(scaled) : trunc(scaled));
}

// ---- CTimeCode ----

int CTimeCode::tps(bool serial) const {
  return tcfToTps(serial ? tcfToSerialTcf(format) : format);
}

int CTimeCode::LargestFrameCountBeforeTimeCodeWraps(TimeCodeFormat timeCodeFormat) {
  int t = tcfToTps(timeCodeFormat);
  int day = t * 86400;
  return tcfIsDrop(timeCodeFormat) ? fcFromDropRawFc(day, t) : day;
}

int CTimeCode::NormaliseFrameCount(int frameCount) const {
  if (frameCount >= 0 && frameCount < tps(false)) return frameCount;
  int day = LargestFrameCountBeforeTimeCodeWraps(format);
  int rest = frameCount % day;
  return rest < 0 ? rest + day : rest;
}

bool CTimeCode::IsZero() const {
  return hours == 0 && minutes == 0 && seconds == 0 && frames == 0;
}

uint32_t CTimeCode::Packed(uint8_t frameByte) const {
  return PackedWord(hours, minutes, seconds, frameByte);
}

void CTimeCode::Set(TimeCodeFormat from, int frameCount, bool roundUp) {
  int count = tcfConvertFrameCount(NormaliseFrameCount(frameCount), from, format, roundUp);
  int t = tps(false);
  if (tcfIsDrop(format)) {
    // The drop-frame split scaled with the rate: d frames dropped a minute, P frames in ten
    // minutes (17982 at 30, 35964 at 60).
    int d = t / 15;
    int period = t * 600 - (t * 9) / 15;
    count = count + 9 * d * (count / period) + ((std::max(count % period, d) - d) / (period / 10)) * d;
  }
  frames = static_cast<uint8_t>(count % t);
  seconds = static_cast<uint8_t>((count / t) % 60);
  minutes = static_cast<uint8_t>((count / t / 60) % 60);
  hours = static_cast<uint8_t>(count / t / 3600);
}

void CTimeCode::Set(unsigned h, unsigned m, unsigned s, unsigned f) {
  int t = tps(false);
  int total = t * static_cast<int>(((h % 24) * 60 + (m % 1440)) * 60 + (s % 86400)) +
              NormaliseFrameCount(static_cast<int>(f));
  if (tcfIsDrop(format)) total = fcFromDropRawFc(total, t);
  Set(format, NormaliseFrameCount(total), false);
}

void CTimeCode::SetFields(const TimeCode& record) {
  hours = record.hours;
  minutes = record.minutes;
  seconds = record.seconds;
  frames = record.frames;
}

void CTimeCode::CopyFieldsTo(TimeCode& record) const {
  record.hours = hours;
  record.minutes = minutes;
  record.seconds = seconds;
  record.frames = frames;
}

void CTimeCode::Set(const char* text) {
  TimeCode record = {};
  ConvertStringToTimeCode(text, &record);
  SetFields(record);
}

void CTimeCode::Set(const std::string& text) {
  Set(text.c_str());
}

void CTimeCode::Set(const CTimeCode& other, bool convert, bool roundUp) {
  if (convert && other.format != format) {
    Set(format, other.ToFrame(format, roundUp), false);
  } else {
    *this = other;
  }
}

void CTimeCode::SetBCD(unsigned bcd) {
  TimeCode record = {};
  ConvertFrameCountBCDToTimeCode(bcd, &record);
  SetFields(record);
}

void CTimeCode::SetSerialBCD(unsigned bcd) {
  SetBCD(bcd);
  // Serial (deck) timecode counts at most 30 frames a second.
  if (!tcfIsSerialTcf(format)) frames = static_cast<uint8_t>(frames * 2);
}

void CTimeCode::SetSerialTc(const TimeCode& srcSerial, bool convert) {
  SetFields(srcSerial);
  TimeCodeFormat srcFormat = tcfFromDuration(srcSerial.frameDuration, srcSerial.timeScale, srcSerial.dropFrame, -1);
  if (tcfToTps(srcFormat) != srcSerial.framesPerSecond) srcFormat = tcfToSerialTcf(srcFormat);
  TIMECODE_ASSERT(tcfToTps(srcFormat) == srcSerial.framesPerSecond);
  if (format == tcfUnknown) format = srcFormat;
  if (tps(false) != srcSerial.framesPerSecond) {
    if (convert) {
      frames = static_cast<uint8_t>(tcfConvertFrameCount(frames, srcFormat, format, false));
    } else {
      format = srcFormat;
    }
  }
}

void CTimeCode::SetZero() {
  hours = minutes = seconds = frames = 0;
}

CTimeCode CTimeCode::FromFrame(TimeCodeFormat timeCodeFormat, int frameCount, TimeCodeFormat from) {
  CTimeCode tc(timeCodeFormat);
  tc.Set(from != tcfUnknown ? from : timeCodeFormat, frameCount, false);
  return tc;
}

CTimeCode CTimeCode::FromNumbers(TimeCodeFormat timeCodeFormat, unsigned h, unsigned m, unsigned s, unsigned f) {
  CTimeCode tc(timeCodeFormat);
  tc.Set(h, m, s, f);
  return tc;
}

CTimeCode CTimeCode::FromStr(TimeCodeFormat timeCodeFormat, const char* text) {
  CTimeCode tc(timeCodeFormat);
  tc.Set(text);
  return tc;
}

CTimeCode CTimeCode::FromStr(TimeCodeFormat timeCodeFormat, const std::string& text) {
  return FromStr(timeCodeFormat, text.c_str());
}

CTimeCode CTimeCode::FromBCD(TimeCodeFormat timeCodeFormat, unsigned bcd) {
  CTimeCode tc(timeCodeFormat);
  tc.SetBCD(bcd);
  return tc;
}

CTimeCode CTimeCode::FromSerialBCD(TimeCodeFormat timeCodeFormat, unsigned bcd) {
  CTimeCode tc(timeCodeFormat);
  tc.SetSerialBCD(bcd);
  return tc;
}

CTimeCode CTimeCode::FromTc(TimeCodeFormat timeCodeFormat, const CTimeCode& other, bool convert, bool roundUp) {
  CTimeCode tc(timeCodeFormat);
  tc.Set(other, convert, roundUp);
  return tc;
}

CTimeCode CTimeCode::FromSerialTc(TimeCodeFormat timeCodeFormat, const TimeCode& record) {
  CTimeCode tc(timeCodeFormat);
  tc.SetSerialTc(record, true);
  return tc;
}

int CTimeCode::ToFrame(TimeCodeFormat to, bool roundUp) const {
  int t = tps(false);
  int count = t * ((hours * 60 + minutes) * 60 + seconds) + frames;
  if (tcfIsDrop(format)) count = fcFromDropRawFc(count, t);
  return tcfConvertFrameCount(count, format, to, roundUp);
}

unsigned CTimeCode::ToBCD() const {
  return (static_cast<unsigned>(GetBCD(hours)) << 24) | (static_cast<unsigned>(GetBCD(minutes)) << 16) |
         (static_cast<unsigned>(GetBCD(seconds)) << 8) | GetBCD(frames);
}

unsigned CTimeCode::ToSerialBCD(bool roundUp) const {
  TimeCodeFormat serial = tcfToSerialTcf(format);
  CTimeCode tc(serial);
  tc.Set(serial, ToFrame(serial, roundUp), false);
  return tc.ToBCD();
}

TimeCode CTimeCode::ToSerialTc(bool roundUp) const {
  TimeCode record = {};
  record.dropFrame = format >= 50;
  record.framesPerSecond = static_cast<uint8_t>(tps(true));
  tcfToDuration(format, record.frameDuration, record.timeScale);
  ConvertFrameCountToTimeCode(static_cast<unsigned>(ToFrame(tcfToSerialTcf(format), roundUp)), &record);
  return record;
}

std::string CTimeCode::ToString(bool colonOnly) const {
  // The record's text form: two characters a field whatever the value, so the text is
  // always eleven characters long.
  TimeCode record = {};
  CopyFieldsTo(record);
  record.dropFrame = tcfIsDrop(format) && !colonOnly;
  char text[12];
  ConvertTimeCodeToString(&record, text);
  return text;
}

CTimeCode& CTimeCode::Add(const CTimeCode& other, bool roundUp) {
  Set(format, ToFrame(format) + other.ToFrame(format, roundUp), false);
  return *this;
}

CTimeCode& CTimeCode::Subtract(const CTimeCode& other, bool roundUp) {
  int a = ToFrame(format);
  int b = other.ToFrame(format, roundUp);
  Set(format, b < a ? a - b : 0, false);
  return *this;
}

int CTimeCode::CalculateFramesBetweenTimecodes(const CTimeCode& a, CTimeCode b) {
  return a.ToFrame(a.format) - b.ToFrame(a.format);
}

CTimeCode CTimeCode::CalculateDuration(const CTimeCode& out, bool inclusive) const {
  CTimeCode duration = out;
  duration.Subtract(*this, false);
  if (inclusive) duration.Add(FromFrame(duration.format, 1, duration.format), false);
  return duration;
}

CTimeCode CTimeCode::CalculateOutTimeCode(const CTimeCode& duration, bool roundUp, bool inclusive) const {
  CTimeCode out = *this;
  out.Add(duration, roundUp);
  if (inclusive && !duration.IsZero()) out.Subtract(FromFrame(out.format, 1, out.format), false);
  return out;
}

int CTimeCode::CompareTimeCodes(const CTimeCode& other, bool wrap) const {
  if (format == other.format) {
    if (!wrap) return static_cast<int>(Packed(frames) - other.Packed(other.frames));
    return ChooseWrapped(ToFrame(format), other.ToFrame(format), LargestFrameCountBeforeTimeCodeWraps(format) / 2);
  }
  // Different formats: this frame field rescaled to the other's counting base.
  int ownTps = tps(false);
  int otherTps = other.tps(false);
  uint32_t packedThis = Packed(static_cast<uint8_t>(otherTps * frames / ownTps));
  uint32_t packedOther = other.Packed(other.frames);
  uint32_t packedNext = PackedWord(hours, minutes, seconds, static_cast<uint32_t>(otherTps * (frames + 1) / ownTps));
  if (packedThis <= packedOther && packedOther < packedNext) return 0;  // other falls inside this frame
  if (!wrap) return static_cast<int>(packedThis - packedOther);
  return ChooseWrapped(ToFrame(other.format), other.ToFrame(other.format),
                       LargestFrameCountBeforeTimeCodeWraps(other.format) / 2);
}

bool CTimeCode::RelativeTCToAbsoluteTC(CTimeCode base, std::string text, int& frameCount) const {
  frameCount = 0;
  ParsedTimeCode parsed;
  if (!ParseTimeCodeText(std::move(text), parsed)) return false;
  int b = base.ToFrame(base.format);
  CTimeCode offset = base;
  offset.Set(parsed.hours, parsed.minutes, parsed.seconds, parsed.frames);
  int n = offset.ToFrame(base.format);
  switch (parsed.relation) {
    case Relation::kAdd: frameCount = base.NormaliseFrameCount(b + n); break;
    case Relation::kSubtract: frameCount = base.NormaliseFrameCount(b - n); break;
    case Relation::kAbsolute: frameCount = n; break;
  }
  return true;
}

bool CTimeCode::RelativeTCToAbsoluteTC(std::string text) {
  int frameCount = 0;
  if (!RelativeTCToAbsoluteTC(*this, std::move(text), frameCount)) return false;
  Set(format, frameCount, false);
  return true;
}

// ---- Free text functions ----

void cleanTimeCode(std::string& text) {
  text.erase(std::remove_if(text.begin(), text.end(), [](char c) { return isspace(static_cast<unsigned char>(c)); }),
             text.end());
  if (text.size() < 3 || text.size() > 8) return;
  for (auto it = text.rbegin(); it != text.rend(); ++it) {
    if (!isdigit(static_cast<unsigned char>(*it))) return;
  }
  std::string grouped;
  size_t lead = text.size() % 2;  // an odd count leaves one digit before the first pair
  grouped.append(text, 0, lead);
  for (size_t i = lead; i < text.size(); i += 2) {
    if (!grouped.empty()) grouped.push_back(':');
    grouped.append(text, i, 2);
  }
  text = grouped;
}

bool relativeTCToAbsoluteTC(TimeCode base, std::string text, int& frameCount) {
  frameCount = 0;
  ParsedTimeCode parsed;
  if (!ParseTimeCodeText(std::move(text), parsed)) return false;
  int b = static_cast<int>(ConvertTimeCodeToFrameCount(&base));
  TimeCode offset = base;
  SetTimeCodeTimeWithInts(&offset, parsed.hours, parsed.minutes, parsed.seconds, parsed.frames);
  int n = static_cast<int>(ConvertTimeCodeToFrameCount(&offset));
  switch (parsed.relation) {
    case Relation::kAdd: frameCount = NormaliseFrameCount(b + n, &base); break;
    case Relation::kSubtract: frameCount = NormaliseFrameCount(b - n, &base); break;
    case Relation::kAbsolute: frameCount = n; break;
  }
  return true;
}

}  // namespace Util
}  // namespace KTN
