// The simulated card's input: modes and formats, and frames delivered on a capture thread.
#pragma once

#include <stdint.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "Simulator/FramePool.h"
#include "Simulator/SimulatedModes.h"
#include "DeviceAPI/VeldranObject.h"
#include "Simulator/SimulatorSettings.h"
#include "Simulator/SourceMovie.h"
#include "Simulator/TestSignal.h"

namespace KTN {
namespace Sim {

// After StartStreams a capture thread calls the input callback once per frame period with
// the frame and its sound, scheduled on absolute time (it never drifts); a preview thread
// hands the latest frame to the screen-preview callback. Pictures live in a fixed ring of
// buffers made when the streams start (two and a half seconds of them, and a few more). A frame slot whose
// picture cannot be delivered (the host holds every buffer, or the machine was too busy to
// capture it in time) is dropped at the source and counted: its callback carries the sound
// alone, so that the host sees the slot and the sound never breaks. Every operation is
// safe from any thread; StopStreams waits until no callback runs any more. The settings'
// scripted faults (black, frozen or silent frames, a clipped first channel, timecode jumps)
// are played over each stream's frames, counted from 0 when it starts.
class SimulatedInput : public VeldranObject<IVeldranInput> {
 public:
  explicit SimulatedInput(const SimulatorSettings& settings);

  // ktnSupportNative for '2vuy' and 'v210' (not above SD when the hardware flags say so) and
  // 'r210' (when the flags allow it), ktnSupportWithConversion for 8-bit ARGB and BGRA.
  static uint32_t Support(const SimulatedMode& mode, uint32_t pixelFormat, uint32_t hardwareFlags);

  VeldranResult DoesSupportVideoMode(uint32_t mode, uint32_t pixelFormat, uint32_t flags, uint32_t* support,
                                     IVeldranDisplayMode** resultMode) override;
  VeldranResult GetDisplayModeIterator(IVeldranDisplayModeIterator** iterator) override;
  VeldranResult SetScreenPreviewCallback(IVeldranScreenPreviewCallback* callback) override;
  VeldranResult EnableVideoInput(uint32_t mode, uint32_t pixelFormat, uint32_t flags) override;
  VeldranResult DisableVideoInput() override;
  VeldranResult GetAvailableVideoFrameCount(uint32_t* count) override;
  VeldranResult EnableAudioInput(uint32_t sampleRate, uint32_t sampleType, uint32_t channelCount) override;
  VeldranResult DisableAudioInput() override;
  VeldranResult GetAvailableAudioSampleFrameCount(uint32_t* count) override;
  VeldranResult StartStreams() override;
  VeldranResult StopStreams() override;
  VeldranResult PauseStreams() override;
  VeldranResult FlushStreams() override;
  VeldranResult SetCallback(IVeldranInputCallback* callback) override;

  // The mode video input is enabled in, or null.
  const SimulatedMode* EnabledMode();

 protected:
  // Stops the streams and lets go of the callbacks.
  ~SimulatedInput() override;

 private:
  void CaptureLoop();
  void PreviewLoop();
  // Picture and sound number n of the stream; either may come back null (the picture when
  // withPicture is false or no buffer is free).
  void MakeFrame(int64_t n, bool withPicture, IVeldranVideoInputFrame** video, IVeldranAudioInputPacket** audio);
  // Hands one slot to the input callback and the preview, then lets go of it.
  void Deliver(IVeldranVideoInputFrame* video, IVeldranAudioInputPacket* audio);
  void StopThreads();

  const SimulatorSettings mSettings;

  // Protects everything down to mStreaming.
  std::mutex mLock;
  const SimulatedMode* mMode = nullptr;  // null: video input disabled
  uint32_t mPixelFormat = 0;
  bool mAudioEnabled = false;
  int mAudioChannels = 0;
  int mAudioBits = 0;
  IVeldranInputCallback* mCallback = nullptr;                // one reference
  IVeldranScreenPreviewCallback* mPreviewCallback = nullptr; // one reference
  bool mStreaming = false;

  // Made by EnableVideoInput (the signal) and StartStreams (the ring); used by the capture
  // thread only while streaming.
  std::shared_ptr<FramePool> mPool;
  std::unique_ptr<TestSignal> mSignal;
  std::unique_ptr<SourceMovie> mSource;
  // The source movie's picture a freeze repeats (made when the streams start, when the
  // settings hold a freeze), and the frame it is the picture of (-1: none yet).
  std::vector<uint8_t> mFrozen;
  int64_t mFrozenPicture = -1;
  int64_t mTimecodeStart = 0;  // frame count of the first frame's timecode
  int64_t mTimecodeFrame = 0;  // runs on across stream restarts, as a house clock would

  // Pictures dropped at the source during the current stream, by the capture thread.
  int64_t mDroppedHeld = 0;  // the host held every buffer
  int64_t mDroppedLate = 0;  // the machine did not let the card capture them in time

  std::atomic<bool> mStopRequested{false};
  std::thread mCaptureThread;
  std::thread mPreviewThread;

  // Protects mPreviewFrame and mPreviewStop: the capture thread leaves the latest frame
  // there for the preview thread.
  std::mutex mPreviewLock;
  std::condition_variable mPreviewChanged;
  IVeldranVideoFrame* mPreviewFrame = nullptr;  // one reference
  bool mPreviewStop = false;
};

}  // namespace Sim
}  // namespace KTN
