// The capture instance: everything one open record module owns, handed back by the host with every call.
#pragma once

#include <stdint.h>

#include <atomic>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "Core/Event.h"
#include "Core/Lockable.h"
#include "Core/SegmentLock.h"
#include "DeviceAPI/VeldranAPI.h"
#include "DeviceAPI/VeldranObject.h"
#include "HostAPI/HostInterface.h"
#include "Movie/MovieStamp.h"
#include "Record/HandOverSegment.h"
#include "Record/TakeTimecodeRuns.h"
#include "Settings/CaptureSettings.h"
#include "Util/TimeCode.h"

namespace KTN {

class APICapture;
class Previewer;
class QTRecordClient;

// Queued device frames and packets, each entry holding one reference. A null entry in the
// video queue is a frame slot whose picture was given up (see FrameArrivedCallback).
typedef std::deque<IVeldranVideoInputFrame*> video_deque_t;
typedef std::deque<IVeldranAudioInputPacket*> audio_deque_t;

constexpr uint32_t kCapPrivMagic = 0x200F1;

// How long the queues can hold frames the server has not taken (a stall of the server or
// of the disk beyond the server's own backlog), and a few pictures more: pictures beyond
// it are given up, their slots kept. Sound is given up only beyond kSoundQueueSeconds, far past the point where a
// server that takes nothing is given up as hung.
constexpr double kVideoQueueSeconds = 2.5;
constexpr size_t kVideoQueueSpare = 4;
constexpr double kSoundQueueSeconds = 15.0;

// One service call hands over for about kServiceWorkMillis, then reports, so that the host
// can act on the frame limit and on its Stop however fast frames arrive; the server's
// answer to the last hand-over is waited for until kServiceAnswerMillis into the call, and
// collected by the next call if it has not come by then.
constexpr int kServiceWorkMillis = 500;
constexpr int kServiceAnswerMillis = 900;
// A segment name that another process holds is waited for this long at most in one service
// call, which then goes on to report; the next call tries again.
constexpr int kSegmentNameWaitMillis = 20;

// What a recording that waits for its in-point has seen of the signal.
enum SignalState { kSignalUnseen = 0, kSignalTimecode = 1, kSignalNoTimecode = 2 };

// A hand-over whose answer a service call did not see come; the next one collects it.
struct PendingHandOver {
  const char* command = nullptr;       // null: none pending
  HandOverSegment segment;             // removed once answered (none for slots given up)
  VeldranRef<IVeldranUnknown> item;    // the picture or packet, released once answered
  int64_t slotCount = 0;               // frame slots it completes
};

// Lives in a block from the host's allocator (constructed there, zero-filled). Every field
// is used on the host's thread; those marked "device thread" are also touched by
// FrameArrivedCallback on the card's capture thread.
struct CapPriv {
  uint32_t interfaceVersion = 0;
  StatusFunc statusFunc = nullptr;
  PrerollFunc prerollFunc = nullptr;
  TimecodeFunc timecodeFunc = nullptr;
  const void* errorSuite = nullptr;            // "Premiere Error Suite" v2, borrowed from the host
  int64_t callbackID = 0;
  uint8_t videoEnabled = 0;
  uint8_t audioEnabled = 0;                    // device thread reads it, under recordingLock: sound is queued only when recorded
  int64_t frameLimit = 0;                      // device callbacks to record; 0: no limit
  std::atomic<int64_t> frameCount{0};          // device thread: callbacks queued this recording
  uint32_t magic = 0;                          // kCapPrivMagic while open
  IVeldranDeviceControl* deviceControl = nullptr;  // one reference
  APICapture* apiCapture = nullptr;            // owned (one reference)
  Previewer* previewer = nullptr;              // one reference
  QTRecordClient* recordClient = nullptr;      // owned
  bool active = false;
  std::atomic<bool> recording{false};          // device thread reads it
  video_deque_t* videoQueue = nullptr;         // owned; guarded by queueLock
  audio_deque_t* audioQueue = nullptr;         // owned; guarded by queueLock
  Core::Lockable* queueLock = nullptr;         // owned; guards only the two queues
  CaptureSettings settings = {};
  bool abortOnDroppedFrames = false;
  bool reportDroppedFrames = false;
  bool droppedFrames = false;
  Util::TimeCode inPoint = {};
  uint32_t inPointBCD = 0;
  std::atomic<bool> started{false};            // device thread: start condition met
  std::atomic<bool> deviceControlReady{false}; // device thread reads it
  Core::Event startEvent;                      // device thread signals the first accepted frame
  char startTimeCodeString[32] = {};           // device thread writes it before signalling

  // Beyond the host-facing fields: the audio layout the card was enabled with at the last
  // activation, so that a packet is never read past its end when the settings have changed
  // since.
  uint32_t activeAudioChannels = 0;
  uint32_t activeAudioSampleType = 0;          // bits as delivered: 16 or 32

  // The bounded queues (set by recPrepRecord8; guarded by queueLock, like the queues).
  size_t videoQueueLimit = 0;                  // pictures held at most
  size_t soundQueueLimit = 0;                  // packets held at most
  size_t heldPictures = 0;                     // non-null entries of videoQueue
  bool soundGivenUp = false;                   // a packet was given up since the host thread last looked
  // Device thread only: where the next frame's stream time should be, in the settings'
  // timescale (-1: unknown), so that slots a card skipped without a callback are seen.
  int64_t nextFrameTime = -1;
  // While a recording waits for its in-point, what the device thread saw of the signal:
  // kSignalUnseen, kSignalTimecode (with the latest frame's BCD) or kSignalNoTimecode.
  std::atomic<int> signalState{0};
  std::atomic<uint32_t> signalTimecodeBCD{0};
  // Set by the device thread before `started`: an in-point recording started at once,
  // because the signal carries no timecode and no deck decides.
  bool startedWithoutTimecode = false;
  // Host thread only: the first report after such a start has said so.
  bool startNoteReported = false;
  // Host thread only.
  PendingHandOver pending;
  // The device thread's frameCount when the last service call looked: a call hands over
  // about as many slots as the card counted since (see SlotsThisCall).
  int64_t slotsSeen = 0;
  // Made at the first hand-over: each segment name's lock among the host processes of the
  // machine, held from a segment's creation to its removal.
  std::unique_ptr<Core::SegmentLock> videoSegmentLock;
  std::unique_ptr<Core::SegmentLock> audioSegmentLock;
  // The take to stamp once the server has finished it (set by recPrepRecord8, cleared once
  // stamped), and the field order of the card's mode for it.
  std::string takePath;
  MovieStamp::Fields takeFields = MovieStamp::Fields::kKeep;
  // Host thread only: the take's frame slots handed over so far (pictures and slots given
  // up alike), which is the movie slot of the next picture; the runs of the timecode its
  // pictures carry, read as each is handed over.
  int64_t takeSlots = 0;
  TakeTimecodeRuns takeTimecodes;
  // The log has said this recording that the card could not read a frame's timecode: by the
  // card's thread (the start) or the host's (the hand-over), whichever met it first. Reset
  // under recordingLock, so that the callback of the recording before cannot set it after.
  std::atomic<bool> timecodeFailureSaid{false};
  bool soundGiveUpReported = false;            // the log has said so for this recording
  // How long a service call hands over before it reports (at least one round); tests
  // shorten it to see one round a call.
  int serviceWorkMillis = kServiceWorkMillis;
  std::vector<uint8_t> packedSound;            // 24-bit sound packed for a segment, reused
  char statusText[160] = {};                   // a report's text made for this recording

  // Held by FrameArrivedCallback for the whole of each call, and by the host's thread while
  // it sets up the fields of a recording that the callback uses (recPrepRecord8) and while
  // it reads startTimeCodeString (selector 5, the stamp). It protects those fields: the
  // host's callback functions, the in-point, frameLimit, nextFrameTime,
  // startedWithoutTimecode, startTimecodeFailed, startTimecodeUnread,
  // startTimeCodeString and the resetting of startEvent and of timecodeFailureSaid. The
  // host's thread never waits for anything while it holds it. Initialised by recOpen.
  Core::Lockable recordingLock;
  // recPrepRecord8 configured the server for a recording (false until then, and after one
  // that failed): selector 5 starts nothing else. Host thread only.
  bool recordingPrepared = false;
  // The card could not read the timecode of a frame looked at for the start of this
  // recording. Device thread, under recordingLock.
  bool startTimecodeFailed = false;
  // The take started at the host's timecode because the card could not read the first
  // frame's: startTimeCodeString is the host's guess, and the movie is not stamped with it.
  // Device thread and the stamp, under recordingLock.
  bool startTimecodeUnread = false;
};

}  // namespace KTN
