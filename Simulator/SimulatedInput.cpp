// The simulated card's input and its capture and preview threads.
#include "Simulator/SimulatedInput.h"

#include <string.h>
#include <time.h>

#include <chrono>
#include <thread>

#include "Simulator/SimulatedAudioPacket.h"
#include "Simulator/SimulatedDisplayMode.h"
#include "Simulator/SimulatedVideoFrame.h"
#include "Util/Log.h"

namespace KTN {
namespace Sim {

namespace {

int64_t MonotonicNanos() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

// The start of frame n in nanoseconds, exactly, for any rate (no overflow for years).
int64_t FrameStartNanos(int64_t n, const SimulatedMode& mode) {
  int64_t units = n * mode.frameDuration;
  return units / mode.timeScale * 1000000000 + units % mode.timeScale * 1000000000 / mode.timeScale;
}

// The ring holds about this many seconds of pictures, and a few more for the frame in
// delivery and the one the preview shows.
constexpr double kRingSeconds = 2.5;
constexpr size_t kRingSpare = 4;

void SleepUntil(int64_t deadline) {
  timespec until = {static_cast<time_t>(deadline / 1000000000), static_cast<long>(deadline % 1000000000)};
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
  }
}

}  // namespace

SimulatedInput::SimulatedInput(const SimulatorSettings& settings) : mSettings(settings) {}

SimulatedInput::~SimulatedInput() {
  StopThreads();
  if (mCallback) mCallback->Release();
  if (mPreviewCallback) mPreviewCallback->Release();
}

uint32_t SimulatedInput::Support(const SimulatedMode& mode, uint32_t pixelFormat, uint32_t hardwareFlags) {
  switch (pixelFormat) {
    case ktnFormat8BitYUV:
      return ktnSupportNative;
    case ktnFormat10BitYUV:
      return (hardwareFlags & ktnHardwareFlagNo10BitYUVInHD) && mode.width > 720 ? ktnSupportNone : ktnSupportNative;
    case ktnFormat10BitRGB:
      return hardwareFlags & ktnHardwareFlag10BitRGBCapture ? ktnSupportNative : ktnSupportNone;
    case ktnFormat8BitARGB:
    case ktnFormat8BitBGRA:
      return ktnSupportWithConversion;
    default:
      return ktnSupportNone;
  }
}

VeldranResult SimulatedInput::DoesSupportVideoMode(uint32_t mode, uint32_t pixelFormat, uint32_t, uint32_t* support,
                                                   IVeldranDisplayMode** resultMode) {
  if (VeldranResult rc = mSettings.Injected("DoesSupportVideoMode")) return rc;
  if (!support) return kVeldranInvalidArg;
  if (resultMode) *resultMode = nullptr;
  const SimulatedMode* found = FindSimulatedMode(mode);
  *support = found ? Support(*found, pixelFormat, mSettings.hardwareFlags) : ktnSupportNone;
  if (found && resultMode && *support != ktnSupportNone) *resultMode = new SimulatedDisplayMode(*found);
  return kVeldranOK;
}

VeldranResult SimulatedInput::GetDisplayModeIterator(IVeldranDisplayModeIterator** iterator) {
  if (VeldranResult rc = mSettings.Injected("GetDisplayModeIterator")) return rc;
  if (!iterator) return kVeldranInvalidArg;
  *iterator = new SimulatedDisplayModeIterator;
  return kVeldranOK;
}

VeldranResult SimulatedInput::SetScreenPreviewCallback(IVeldranScreenPreviewCallback* callback) {
  if (VeldranResult rc = mSettings.Injected("SetScreenPreviewCallback")) return rc;
  ExchangeReference(mLock, mPreviewCallback, callback);
  return kVeldranOK;
}

VeldranResult SimulatedInput::EnableVideoInput(uint32_t mode, uint32_t pixelFormat, uint32_t flags) {
  if (VeldranResult rc = mSettings.Injected("EnableVideoInput")) return rc;
  if ((flags & ktnInputFlagEnableFormatDetection) && !mSettings.formatDetection) return kVeldranInvalidArg;
  const SimulatedMode* found = FindSimulatedMode(mode);
  if (!found || Support(*found, pixelFormat, mSettings.hardwareFlags) == ktnSupportNone) return kVeldranInvalidArg;
  std::lock_guard<std::mutex> guard(mLock);
  if (mStreaming) return kVeldranBusy;
  mMode = found;
  mPixelFormat = pixelFormat;
  mSignal.reset(new TestSignal(*found, pixelFormat));
  mSource.reset();
  if (!mSettings.sourceMovie.empty()) {
    mSource.reset(new SourceMovie);
    if (!mSource->Open(mSettings.sourceMovie, found->width, found->height, pixelFormat, found->hd)) {
      KTN_LOG("Falling back to colour bars");
      mSource.reset();
    }
  }
  return kVeldranOK;
}

VeldranResult SimulatedInput::DisableVideoInput() {
  if (VeldranResult rc = mSettings.Injected("DisableVideoInput")) return rc;
  std::lock_guard<std::mutex> guard(mLock);
  if (mStreaming) return kVeldranBusy;
  mMode = nullptr;
  return kVeldranOK;
}

VeldranResult SimulatedInput::GetAvailableVideoFrameCount(uint32_t* count) {
  if (!count) return kVeldranInvalidArg;
  *count = 0;  // frames are delivered as they arrive, never buffered
  return kVeldranOK;
}

VeldranResult SimulatedInput::EnableAudioInput(uint32_t sampleRate, uint32_t sampleType, uint32_t channelCount) {
  if (VeldranResult rc = mSettings.Injected("EnableAudioInput")) return rc;
  if (sampleRate != ktnAudioSampleRate48kHz || (sampleType != 16 && sampleType != 32) ||
      (channelCount != 2 && channelCount != 8 && channelCount != 16)) {
    return kVeldranInvalidArg;
  }
  std::lock_guard<std::mutex> guard(mLock);
  if (mStreaming) return kVeldranBusy;
  mAudioEnabled = true;
  mAudioBits = static_cast<int>(sampleType);
  mAudioChannels = static_cast<int>(channelCount);
  return kVeldranOK;
}

VeldranResult SimulatedInput::DisableAudioInput() {
  if (VeldranResult rc = mSettings.Injected("DisableAudioInput")) return rc;
  std::lock_guard<std::mutex> guard(mLock);
  if (mStreaming) return kVeldranBusy;
  mAudioEnabled = false;
  return kVeldranOK;
}

VeldranResult SimulatedInput::GetAvailableAudioSampleFrameCount(uint32_t* count) {
  if (!count) return kVeldranInvalidArg;
  *count = 0;
  return kVeldranOK;
}

VeldranResult SimulatedInput::StartStreams() {
  if (VeldranResult rc = mSettings.Injected("StartStreams")) return rc;
  std::lock_guard<std::mutex> guard(mLock);
  if (mStreaming) return kVeldranBusy;
  if (!mMode) return kVeldranFail;  // the picture sets the pace: video must be enabled
  const size_t ringCount = static_cast<size_t>(kRingSeconds * mMode->timeScale / mMode->frameDuration + 0.999) + kRingSpare;
  if (!mPool || mPool->BufferBytes() != mSignal->FrameBytes() || mPool->Count() != ringCount) {
    // The card's memory for this mode, touched now rather than frame by frame. Frames still
    // held from an earlier stream keep the old ring alive until they go.
    mPool = std::make_shared<FramePool>(mSignal->FrameBytes(), ringCount);
    if (!mPool->Ok()) {
      mPool.reset();
      return kVeldranOutOfMemory;
    }
  }
  // The bars go into every buffer now, as the card's memory is prepared before a stream:
  // each picture then only paints its box.
  if (!mSource) mPool->PaintFree(mSignal->Id(), [this](uint8_t* buffer) { mSignal->Render(0, buffer); });
  if (mSource && mSettings.faults.Has(FaultKind::kFreeze)) mFrozen.resize(mSignal->FrameBytes());
  mFrozenPicture = -1;
  mDroppedHeld = mDroppedLate = 0;
  Util::CTimeCode start = Util::CTimeCode::FromStr(mMode->timecodeFormat, mSettings.timecodeStart);
  mTimecodeStart = start.ToFrame(mMode->timecodeFormat);
  mStopRequested = false;
  mPreviewStop = false;
  mStreaming = true;
  mCaptureThread = std::thread(&SimulatedInput::CaptureLoop, this);
  mPreviewThread = std::thread(&SimulatedInput::PreviewLoop, this);
  return kVeldranOK;
}

VeldranResult SimulatedInput::StopStreams() {
  if (VeldranResult rc = mSettings.Injected("StopStreams")) return rc;
  if (std::this_thread::get_id() == mCaptureThread.get_id()) return kVeldranBusy;  // cannot wait for itself
  StopThreads();
  return kVeldranOK;
}

void SimulatedInput::StopThreads() {
  {
    std::lock_guard<std::mutex> guard(mLock);
    if (!mStreaming) return;
  }
  mStopRequested = true;
  if (mCaptureThread.joinable()) mCaptureThread.join();
  {
    std::lock_guard<std::mutex> guard(mPreviewLock);
    mPreviewStop = true;
  }
  mPreviewChanged.notify_all();
  if (mPreviewThread.joinable()) mPreviewThread.join();
  std::lock_guard<std::mutex> guard(mLock);
  mStreaming = false;
  if (mDroppedHeld) {
    KTN_LOG("Dropped %lld pictures: the host held all %zu frame buffers", static_cast<long long>(mDroppedHeld),
            mPool ? mPool->Count() : static_cast<size_t>(0));
  }
  if (mDroppedLate) {
    KTN_LOG("Dropped %lld pictures the card was not given the time to capture", static_cast<long long>(mDroppedLate));
  }
}

VeldranResult SimulatedInput::PauseStreams() {
  return kVeldranNotImplemented;
}

VeldranResult SimulatedInput::FlushStreams() {
  return kVeldranOK;  // nothing is ever buffered
}

VeldranResult SimulatedInput::SetCallback(IVeldranInputCallback* callback) {
  if (VeldranResult rc = mSettings.Injected("SetCallback")) return rc;
  ExchangeReference(mLock, mCallback, callback);
  return kVeldranOK;
}

const SimulatedMode* SimulatedInput::EnabledMode() {
  std::lock_guard<std::mutex> guard(mLock);
  return mMode;
}

void SimulatedInput::MakeFrame(int64_t n, bool withPicture, IVeldranVideoInputFrame** video,
                               IVeldranAudioInputPacket** audio) {
  const SimulatedMode& mode = *mMode;
  const ScriptedFaults& faults = mSettings.faults;
  *video = nullptr;
  *audio = nullptr;
  if (withPicture) {
    if (uint8_t* buffer = mPool->Take()) {
      Util::CTimeCode timecode = Util::CTimeCode::FromFrame(
          mode.timecodeFormat, static_cast<int>(mTimecodeStart + mTimecodeFrame), Util::tcfUnknown);
      SimulatedVideoFrame* frame = new SimulatedVideoFrame(mPool, buffer, mode, mPixelFormat, n, timecode, mSettings);
      // While frozen, the frame shows the picture of the freeze's first frame.
      const int64_t picture = faults.PictureOf(n);
      bool painted = false;
      if (faults.Covers(FaultKind::kBlack, n) || faults.Covers(FaultKind::kBlack, picture)) {
        mSignal->RenderBlack(buffer);
        painted = true;
      } else if (mSource) {
        const bool keep = faults.FreezeStartsAt(picture) && mFrozen.size() == mSignal->FrameBytes();
        if (picture != n && picture == mFrozenPicture) {
          memcpy(buffer, mFrozen.data(), mFrozen.size());
          painted = true;
        } else if (mSource->Render(buffer)) {
          // The picture a freeze repeats (the movie's next one when the freeze's first
          // frame was dropped) is kept once.
          if (keep) {
            memcpy(mFrozen.data(), buffer, mFrozen.size());
            mFrozenPicture = picture;
          }
          painted = true;
        }
      }
      if (painted) {
        mPool->SetContentTag(buffer, 0);
      } else {
        // A buffer that held an earlier picture of this signal keeps its bars: only the
        // box is painted again, about a twelfth of the picture.
        mSignal->Render(picture, buffer, mPool->ContentTag(buffer) == mSignal->Id());
        mPool->SetContentTag(buffer, mSignal->Id());
      }
      *video = frame;
    } else {
      ++mDroppedHeld;
    }
  }
  if (mAudioEnabled) {
    int64_t first = TestTone::SamplesBefore(n, mode);
    int count = static_cast<int>(TestTone::SamplesBefore(n + 1, mode) - first);
    ToneFault fault = faults.Covers(FaultKind::kSilence, n)  ? ToneFault::kSilence
                      : faults.Covers(FaultKind::kClip, n) ? ToneFault::kClipFirstChannel
                                                                 : ToneFault::kNone;
    *audio = new SimulatedAudioPacket(first, count, mAudioChannels, mAudioBits, fault, mSettings.Injected("GetBytes"));
  }
}

void SimulatedInput::Deliver(IVeldranVideoInputFrame* video, IVeldranAudioInputPacket* audio) {
  IVeldranInputCallback* callback;
  {
    std::lock_guard<std::mutex> guard(mLock);
    callback = mCallback;
    if (callback) callback->AddRef();
  }
  if (callback) {
    callback->VideoInputFrameArrived(video, audio);
    callback->Release();
  }
  if (video) {
    // The preview shows the latest frame; one it has not drawn yet is replaced.
    {
      std::lock_guard<std::mutex> guard(mPreviewLock);
      if (mPreviewFrame) mPreviewFrame->Release();
      video->AddRef();
      mPreviewFrame = video;
    }
    mPreviewChanged.notify_one();
    video->Release();
  }
  if (audio) audio->Release();
}

void SimulatedInput::CaptureLoop() {
  const SimulatedMode& mode = *mMode;  // fixed while streaming
  const double speed = mSettings.speed;
  const int64_t start = MonotonicNanos();
  int64_t delivered = 0;
  for (int64_t n = 0; !mStopRequested; ++n, ++mTimecodeFrame) {
    if (mSettings.framesPerStream && delivered >= mSettings.framesPerStream) {
      // The signal has ended: wait to be stopped.
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      --n, --mTimecodeFrame;
      continue;
    }
    bool late = false;
    if (speed > 0) {
      int64_t deadline = start + static_cast<int64_t>(static_cast<double>(FrameStartNanos(n, mode)) / speed);
      int64_t period = static_cast<int64_t>(static_cast<double>(FrameStartNanos(1, mode)) / speed);
      // More than two periods behind (the machine was busy): like a card whose pictures
      // were not taken in time, lose them rather than deliver them in a burst; their sound
      // still comes, slot by slot, so that time and sync go on.
      late = period > 0 && MonotonicNanos() - deadline > 2 * period;
      if (!late) SleepUntil(deadline);
    }
    if (mStopRequested) break;
    // A jump moves the card's timecode for good, as a house clock that was reset would.
    mTimecodeFrame += mSettings.faults.TimecodeJumpAt(n);
    if (late) ++mDroppedLate;
    IVeldranVideoInputFrame* video = nullptr;
    IVeldranAudioInputPacket* audio = nullptr;
    MakeFrame(n, !late, &video, &audio);
    Deliver(video, audio);
    ++delivered;
  }
}

void SimulatedInput::PreviewLoop() {
  for (;;) {
    IVeldranVideoFrame* frame = nullptr;
    {
      std::unique_lock<std::mutex> guard(mPreviewLock);
      mPreviewChanged.wait(guard, [this] { return mPreviewStop || mPreviewFrame; });
      if (mPreviewStop) {
        if (mPreviewFrame) mPreviewFrame->Release();
        mPreviewFrame = nullptr;
        return;
      }
      frame = mPreviewFrame;
      mPreviewFrame = nullptr;
    }
    IVeldranScreenPreviewCallback* callback;
    {
      std::lock_guard<std::mutex> guard(mLock);
      callback = mPreviewCallback;
      if (callback) callback->AddRef();
    }
    if (callback) {
      callback->DrawFrame(frame);
      callback->Release();
    }
    frame->Release();
  }
}

}  // namespace Sim
}  // namespace KTN
