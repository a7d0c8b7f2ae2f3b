// Test doubles: device frames, packets and timecodes with chosen contents.
#pragma once

#include <stdint.h>

#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "DeviceAPI/VeldranObject.h"

namespace KTN {

// A timecode of four fields (BCD and text derived from them, or the text given).
class FakeTimecode : public VeldranObject<IVeldranTimecode> {
 public:
  FakeTimecode(int h, int m, int s, int f, std::string text = std::string())
      : mH(h), mM(m), mS(s), mF(f), mText(std::move(text)) {}
  uint32_t GetBCD() override;
  VeldranResult GetComponents(uint8_t* h, uint8_t* m, uint8_t* s, uint8_t* f) override;
  VeldranResult GetString(char** text) override;
  uint32_t GetFlags() override { return 0; }

 private:
  int mH, mM, mS, mF;
  std::string mText;
};

// A 2vuy picture of width x height filled with one byte, with an RP188 timecode or none.
// Its references are counted so a test can see what the module still holds.
class FakeVideoInputFrame : public VeldranObject<IVeldranVideoInputFrame> {
 public:
  FakeVideoInputFrame(int width, int height, uint8_t fill, bool hasTimecode = false, int h = 0, int m = 0, int s = 0,
                      int f = 0);
  int32_t References() { AddRef(); return Release(); }
  // Its place on the card's clock, in whatever timescale the caller asks (0 and 0 at first:
  // no time known).
  void SetStreamTime(int64_t time, int64_t duration) {
    mTime = time;
    mDuration = duration;
  }
  // The text of its timecode, instead of the one made from the four fields.
  void SetTimecodeText(const std::string& text) { mTimecodeText = text; }
  // GetTimecode answers failure for every kind, as a card that cannot read the timecode.
  void SetTimecodeFailure(VeldranResult failure) { mTimecodeFailure = failure; }
  // The threads that asked for its timecode, one entry a call, in order (any thread).
  std::vector<std::thread::id> TimecodeReaders();

  int32_t GetWidth() override { return mWidth; }
  int32_t GetHeight() override { return mHeight; }
  int32_t GetRowBytes() override { return mWidth * 2; }
  uint32_t GetPixelFormat() override { return VeldranCode("2vuy"); }
  uint32_t GetFlags() override { return 0; }
  VeldranResult GetBytes(void** buffer) override;
  VeldranResult GetStreamTime(int64_t* time, int64_t* duration, int64_t) override;
  VeldranResult GetTimecode(uint32_t format, IVeldranTimecode** timecode) override;

 private:
  int mWidth, mHeight;
  std::vector<uint8_t> mBytes;
  bool mHasTimecode;
  int mH, mM, mS, mF;
  int64_t mTime = 0;
  int64_t mDuration = 0;
  std::string mTimecodeText;
  VeldranResult mTimecodeFailure = kVeldranOK;
  std::mutex mReadersLock;
  std::vector<std::thread::id> mReaders;  // guarded by mReadersLock
};

// Interleaved 32-bit samples (as the card delivers 24-bit sound), each sample's bytes
// counting up from a start value.
class FakeAudioPacket : public VeldranObject<IVeldranAudioInputPacket> {
 public:
  FakeAudioPacket(int sampleFrames, int channels, int bytesPerSample);
  int32_t References() { AddRef(); return Release(); }
  const std::vector<uint8_t>& Bytes() const { return mBytes; }
  // Its start on the card's clock: time in units of timeScale (0 at first: the clock's start).
  void SetPacketTime(int64_t time, int64_t timeScale) {
    mTime = time;
    mTimeScale = timeScale;
  }

  int32_t GetSampleFrameCount() override { return mSampleFrames; }
  VeldranResult GetBytes(void** buffer) override;
  VeldranResult GetPacketTime(int64_t* time, int64_t) override;

 private:
  int mSampleFrames;
  std::vector<uint8_t> mBytes;
  int64_t mTime = 0;
  int64_t mTimeScale = 1;
};

}  // namespace KTN
