// SMPTE timecodes: the plain TimeCode record, its formats and conversions, and CTimeCode.
#pragma once

#include <stdint.h>

#include <string>

namespace KTN {
namespace Util {

// A timecode with its rate. Fields are plain numbers, not BCD.
struct TimeCode {
  uint8_t hours;
  uint8_t minutes;
  uint8_t seconds;
  uint8_t frames;
  uint32_t timeScale;       // time units per second of the rate (e.g. 30000)
  uint32_t frameDuration;   // one frame in timeScale units (e.g. 1001)
  uint8_t framesPerSecond;  // integer counting base of the frames field (24, 25, 30, 50, 60)
  uint8_t dropFrame;        // drop-frame counting
};

// Timecode rates. The values are stored and compared; every other value behaves as
// tcfUnknown, and a format is drop-frame exactly when its value is above 49.
enum TimeCodeFormat : int32_t {
  tcfUnknown = 0,
  tcf2398 = 1,
  tcf24 = 2,
  tcf25 = 3,
  tcf2997 = 4,
  tcf30 = 5,
  tcf50 = 6,
  tcf5994 = 7,
  tcf60 = 8,
  tcf2997Drop = 50,
  tcf5994Drop = 51,
};

// All functions are pure apart from writing the record passed in, and may be called from
// any thread. Values are not range checked: a framesPerSecond or rate of 0 divides by zero,
// and a rate that fits no known format ends the program with an assertion line.

// Packed BCD of 0..99; any larger value gives 0.
unsigned char GetBCD(unsigned char value);
// Low nibble plus ten times the high nibble; digits are not checked.
unsigned GetDecimal(unsigned char bcd);

uint32_t ConvertTimeCodeToFrameCount(const TimeCode* tc);
// hours << 24 | minutes << 16 | seconds << 8 | frames, each as BCD.
uint32_t ConvertTimeCodeToFrameCountBCD(const TimeCode* tc);
// Fills the four fields of tc from a count at tc's framesPerSecond and dropFrame. Hours
// are not wrapped at 24.
void ConvertFrameCountToTimeCode(unsigned frameCount, TimeCode* tc);
// Fills the four fields from a BCD word; the rate fields are untouched.
void ConvertFrameCountBCDToTimeCode(unsigned bcd, TimeCode* tc);
// Writes "HH:MM:SS:FF" (';' before the frames when drop-frame) and a NUL: 12 bytes.
void ConvertTimeCodeToString(const TimeCode* tc, char* text);
// Reads the fields at fixed positions 0, 3, 6 and 9; fields the text is too short for are
// 0. Separators and digits are not checked; the rate fields are untouched.
void ConvertStringToTimeCode(const char* text, TimeCode* tc);
// a minus b in frames of a's rate.
int32_t CalculateFramesBetweenTimecodes(const TimeCode* a, const TimeCode* b);
// Frames in 24 hours at tc's rate and counting.
uint32_t LargestFrameCountBeforeTimeCodeWraps(const TimeCode* tc);
// frameCount folded into 0 .. one day - 1.
int32_t NormaliseFrameCount(int frameCount, const TimeCode* tc);
// Sets the four fields from loose numbers, carrying excess minutes and seconds into the
// higher fields and wrapping at a day.
void SetTimeCodeTimeWithInts(TimeCode* tc, unsigned hours, unsigned minutes, unsigned seconds, unsigned frames);
// Signed difference a - b, 0 when equal; wrap takes the shorter way round midnight.
int32_t CompareTimeCodes(const TimeCode* a, const TimeCode* b, bool wrap);
// Frames needed to cover duration units of movieTimeScale at tc's rate, rounded up: 0 for a
// duration before zero, UINT32_MAX for one beyond what the count holds.
uint32_t ConvertMovieDurationToFrameCount(int duration, int movieTimeScale, const TimeCode* tc);

// Integer frames per second of a format (24, 25, 30, 50, 60); 0 when unknown.
int tcfToTps(TimeCodeFormat format);
// The format's rate pair; 0 and 0 when unknown.
void tcfToDuration(TimeCodeFormat format, unsigned& frameDuration, unsigned& timeScale);
bool tcfIsDrop(TimeCodeFormat format);
// True when the rate is below 31 frames per second.
bool tcfIsSerialTcf(TimeCodeFormat format);
// The format of the same picture rate counted at 30 frames per second or below.
TimeCodeFormat tcfToSerialTcf(TimeCodeFormat format);
// The format with the drop flag changed where the rate has a drop-frame variant.
TimeCodeFormat tcfChangeDrop(TimeCodeFormat format, bool drop);
// The format of a rate; a rate outside every known range fails an assertion.
TimeCodeFormat tcfFromFps(double fps, bool drop);
// The format of a rate pair; serialTps (-1 for none) asks for the serial format when the
// rate counts twice as fast.
TimeCodeFormat tcfFromDuration(unsigned frameDuration, unsigned timeScale, bool drop, int serialTps);
// A frame count in from's counting converted to to's; a result beyond int's range is held
// at INT_MAX or INT_MIN.
int tcfConvertFrameCount(int frameCount, TimeCodeFormat from, TimeCodeFormat to, bool roundUp);

// A timecode that carries its own format and does its arithmetic through frame counts in
// that format. A value type: copied freely, returned by value.
class CTimeCode {
 public:
  uint8_t hours = 0;
  uint8_t minutes = 0;
  uint8_t seconds = 0;
  uint8_t frames = 0;
  TimeCodeFormat format = tcfUnknown;

  explicit CTimeCode(TimeCodeFormat timeCodeFormat = tcfUnknown) : format(timeCodeFormat) {}

  // Set: fill the fields; the format is kept unless stated.
  // From a frame count in format from (converted to this format).
  void Set(TimeCodeFormat from, int frameCount, bool roundUp);
  // From loose numbers, with carries and wrap at a day.
  void Set(unsigned h, unsigned m, unsigned s, unsigned f);
  // From text read at fixed positions (see ConvertStringToTimeCode).
  void Set(const char* text);
  void Set(const std::string& text);
  // From another timecode: with convert and a different format, its frame count in this
  // format; otherwise a copy of it, format included.
  void Set(const CTimeCode& other, bool convert, bool roundUp);
  void SetBCD(unsigned bcd);
  // SetBCD, with frames doubled when this format counts above 30 frames per second.
  void SetSerialBCD(unsigned bcd);
  // From a plain record; a timecode without format adopts the record's.
  void SetSerialTc(const TimeCode& tc, bool convert);
  void SetZero();

  // From: a zero timecode of the given format, then the matching Set.
  static CTimeCode FromFrame(TimeCodeFormat format, int frameCount, TimeCodeFormat from);
  static CTimeCode FromNumbers(TimeCodeFormat format, unsigned h, unsigned m, unsigned s, unsigned f);
  static CTimeCode FromStr(TimeCodeFormat format, const char* text);
  static CTimeCode FromStr(TimeCodeFormat format, const std::string& text);
  static CTimeCode FromBCD(TimeCodeFormat format, unsigned bcd);
  static CTimeCode FromSerialBCD(TimeCodeFormat format, unsigned bcd);
  static CTimeCode FromTc(TimeCodeFormat format, const CTimeCode& other, bool convert, bool roundUp);
  static CTimeCode FromSerialTc(TimeCodeFormat format, const TimeCode& tc);

  // To: read out.
  int ToFrame(TimeCodeFormat to, bool roundUp = false) const;
  unsigned ToBCD() const;
  unsigned ToSerialBCD(bool roundUp) const;
  TimeCode ToSerialTc(bool roundUp) const;
  // "HH:MM:SS:FF", ';' before the frames for drop-frame unless colonOnly; two characters
  // a field, as ConvertTimeCodeToString writes them, also for fields above 99.
  std::string ToString(bool colonOnly) const;

  // Arithmetic in this timecode's format. Subtract never goes below zero.
  CTimeCode& Add(const CTimeCode& other, bool roundUp);
  CTimeCode& Subtract(const CTimeCode& other, bool roundUp);
  // a - b in frames, both counted in a's format.
  static int CalculateFramesBetweenTimecodes(const CTimeCode& a, CTimeCode b);
  // out - this, plus one frame when inclusive.
  CTimeCode CalculateDuration(const CTimeCode& out, bool inclusive) const;
  // this + duration, minus one frame when inclusive and duration is not zero.
  CTimeCode CalculateOutTimeCode(const CTimeCode& duration, bool roundUp, bool inclusive) const;
  int CompareTimeCodes(const CTimeCode& other, bool wrap) const;

  // Frames per second of this format, or of its serial format.
  int tps(bool serial) const;
  int NormaliseFrameCount(int frameCount) const;
  static int LargestFrameCountBeforeTimeCodeWraps(TimeCodeFormat format);
  bool IsZero() const;
  // Reads text, absolute or "+"/"-" relative to base, as a frame count in base's format.
  // False for malformed text.
  bool RelativeTCToAbsoluteTC(CTimeCode base, std::string text, int& frameCount) const;
  // The same relative to this timecode, which takes the result on success.
  bool RelativeTCToAbsoluteTC(std::string text);

 private:
  // Copies the four fields of a plain record; the format is kept.
  void SetFields(const TimeCode& record);
  // Copies the four fields into a plain record; its other fields are untouched.
  void CopyFieldsTo(TimeCode& record) const;
  // hours << 24 | minutes << 16 | seconds << 8 | frameByte.
  uint32_t Packed(uint8_t frameByte) const;
};

// Removes whitespace; a text of 3 to 8 digits gets ':' before every pair from the right
// (1234 becomes 12:34). Other texts are left as they are after the whitespace went.
void cleanTimeCode(std::string& text);

// Reads text, absolute or "+"/"-" relative to base, as a frame count at base's rate.
// False (frameCount 0) for more than four fields or a field that is not all digits.
bool relativeTCToAbsoluteTC(TimeCode base, std::string text, int& frameCount);

}  // namespace Util
}  // namespace KTN
