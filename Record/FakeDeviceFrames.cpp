// Test doubles: device frames, packets and timecodes.
#include "Record/FakeDeviceFrames.h"

#include <stdio.h>
#include <string.h>

namespace KTN {

uint32_t FakeTimecode::GetBCD() {
  auto bcd = [](int v) { return static_cast<uint32_t>((v / 10) << 4 | (v % 10)); };
  return bcd(mH) << 24 | bcd(mM) << 16 | bcd(mS) << 8 | bcd(mF);
}

VeldranResult FakeTimecode::GetComponents(uint8_t* h, uint8_t* m, uint8_t* s, uint8_t* f) {
  *h = static_cast<uint8_t>(mH), *m = static_cast<uint8_t>(mM), *s = static_cast<uint8_t>(mS), *f = static_cast<uint8_t>(mF);
  return kVeldranOK;
}

VeldranResult FakeTimecode::GetString(char** text) {
  if (!mText.empty()) {
    *text = strdup(mText.c_str());
    return kVeldranOK;
  }
  char buffer[16];
  snprintf(buffer, sizeof buffer, "%02d:%02d:%02d:%02d", mH, mM, mS, mF);
  *text = strdup(buffer);
  return kVeldranOK;
}

FakeVideoInputFrame::FakeVideoInputFrame(int width, int height, uint8_t fill, bool hasTimecode, int h, int m, int s, int f)
    : mWidth(width),
      mHeight(height),
      mBytes(static_cast<size_t>(width) * 2 * static_cast<size_t>(height), fill),
      mHasTimecode(hasTimecode),
      mH(h),
      mM(m),
      mS(s),
      mF(f) {}

VeldranResult FakeVideoInputFrame::GetBytes(void** buffer) {
  *buffer = mBytes.data();
  return kVeldranOK;
}

VeldranResult FakeVideoInputFrame::GetStreamTime(int64_t* time, int64_t* duration, int64_t) {
  *time = mTime;
  *duration = mDuration;
  return kVeldranOK;
}

std::vector<std::thread::id> FakeVideoInputFrame::TimecodeReaders() {
  std::lock_guard<std::mutex> lock(mReadersLock);
  return mReaders;
}

VeldranResult FakeVideoInputFrame::GetTimecode(uint32_t format, IVeldranTimecode** timecode) {
  {
    std::lock_guard<std::mutex> lock(mReadersLock);
    mReaders.push_back(std::this_thread::get_id());
  }
  *timecode = nullptr;
  if (mTimecodeFailure) return mTimecodeFailure;
  if (!mHasTimecode || format != ktnTimecodeRP188) return kVeldranNotFound;
  *timecode = new FakeTimecode(mH, mM, mS, mF, mTimecodeText);
  return kVeldranOK;
}

FakeAudioPacket::FakeAudioPacket(int sampleFrames, int channels, int bytesPerSample)
    : mSampleFrames(sampleFrames), mBytes(static_cast<size_t>(sampleFrames) * channels * bytesPerSample) {
  for (size_t i = 0; i < mBytes.size(); ++i) mBytes[i] = static_cast<uint8_t>(i * 7 + 1);
}

VeldranResult FakeAudioPacket::GetBytes(void** buffer) {
  *buffer = mBytes.data();
  return kVeldranOK;
}

VeldranResult FakeAudioPacket::GetPacketTime(int64_t* time, int64_t timeScale) {
  *time = mTime * timeScale / mTimeScale;
  return kVeldranOK;
}

}  // namespace KTN
