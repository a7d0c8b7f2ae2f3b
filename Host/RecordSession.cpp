// One recording through the plug-in, in the order the editor drives it.
#include "Host/RecordSession.h"

#include <iconv.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <chrono>
#include <thread>

#include "Host/ProgressDisplay.h"

namespace KTN {

namespace {

// The editor services a recording at its idle rate.
constexpr auto kServiceInterval = std::chrono::milliseconds(10);

// UTF-8 to UTF-16 (little-endian, host order) with iconv.
bool Utf8ToUtf16(const std::string& utf8, std::u16string& utf16) {
  iconv_t converter = iconv_open("UTF-16LE", "UTF-8");
  if (converter == reinterpret_cast<iconv_t>(-1)) return false;
  std::u16string out(utf8.size() + 1, u'\0');
  char* in = const_cast<char*>(utf8.data());
  size_t inLeft = utf8.size();
  char* outPointer = reinterpret_cast<char*>(&out[0]);
  size_t outLeft = out.size() * 2;
  size_t rc = iconv(converter, &in, &inLeft, &outPointer, &outLeft);
  iconv_close(converter);
  if (rc == static_cast<size_t>(-1)) return false;
  out.resize(out.size() - outLeft / 2);
  utf16 = out;
  return true;
}

std::string Describe(int32_t rc) {
  switch (rc) {
    // 5 is both "no capture device" (open) and the server's end of stream (recording).
    case rmNoCaptureDevice: return "no capture card, or the recording server stopped answering (5)";
    case rmOutOfMemory: return "out of memory";
    case rmBadParameter: return "the plug-in refused the request (22: invalid parameter or instance not ready)";
    case rmPrerollFailed: return "preroll failed";
    case rmPrerollCancelled: return "preroll cancelled";
    case rmAborted: return "aborted: frames were dropped";
    case 28: return "the disk is full (28)";
    case 45: return "the card cannot capture this standard in this format (45)";
    default: return "error " + std::to_string(rc);
  }
}

}  // namespace

RecordSession::RecordSession(PluginHost& host, const CaptureSettings& settings, const std::atomic<bool>& stop,
                             bool showProgress)
    : mHost(host), mSettings(settings), mStop(stop), mShowProgress(showProgress) {}

int32_t RecordSession::Status(int64_t callbackID, const char* text, int64_t frameCount) {
  RecordSession* session = reinterpret_cast<RecordSession*>(callbackID);
  if (!text) return 0;  // the plug-in's closing call at stop carries no status and no count
  session->mStatusText = text;
  session->mFrames = frameCount;
  return 0;
}

int32_t RecordSession::Preroll(int64_t) {
  return 0;
}

int32_t RecordSession::Timecode(int64_t, int32_t* frameNumber, int32_t*, int32_t*) {
  *frameNumber = 0;  // no deck: the host has no timecode of its own
  return 0;
}

int32_t RecordSession::FormatReport(int64_t, int32_t, int32_t, int32_t, int32_t, int32_t, TimeRecord) {
  return 0;
}

RecordOutcome RecordSession::Run(const RecordRequest& request) {
  RecordOutcome outcome;
  auto fail = [&outcome](int code, const std::string& error) {
    outcome.exitCode = code;
    outcome.error = error;
  };

  recModuleInfo info;
  memset(&info, 0, sizeof info);
  mHost.Call(recmod_Startup, &info, 0);
  recSetupInfo setupInfo;
  memset(&setupInfo, 0, sizeof setupInfo);
  mHost.Call(recmod_GetSetupInfo, nullptr, reinterpret_cast<intptr_t>(&setupInfo));
  recAudioInfoRec audioInfo;
  memset(&audioInfo, 0, sizeof audioInfo);
  if (mHost.Call(recmod_GetAudioIndFormat, &audioInfo, 0) == rmNoErr) mHost.StdParms()->funcs->memoryFuncs->dispose(audioInfo.formatBuffer);

  // The editor keeps the blob and lends it at open.
  void* blob = mHost.StdParms()->funcs->memoryFuncs->allocate(sizeof mSettings);
  memcpy(blob, &mSettings, sizeof mSettings);
  recOpenParms openParms;
  memset(&openParms, 0, sizeof openParms);
  openParms.callbackID = reinterpret_cast<int64_t>(this);
  openParms.settings = blob;
  openParms.formatReport = FormatReport;
  void* instance = nullptr;  // the plug-in's capture instance, opaque to the host
  int32_t rc = mHost.Call(recmod_Open, &instance, reinterpret_cast<intptr_t>(&openParms));
  if (rc != rmNoErr) {
    fail(3, "cannot open the capture card: " + Describe(rc));
    if (instance) mHost.Call(recmod_Close, instance, 0);
    mHost.StdParms()->funcs->memoryFuncs->dispose(blob);
    return outcome;
  }

  bool activated = false;
  rc = mHost.Call(recmod_SetActive, instance, 1);
  if (rc != rmNoErr) {
    fail(4, "cannot start the capture input: " + Describe(rc));
  } else {
    activated = true;
  }

  bool prepared = false;
  if (!outcome.exitCode) {
    recCapParmsRec8 parms;
    memset(&parms, 0, sizeof parms);
    parms.videoEnabled = 1;
    parms.audioEnabled = request.audio ? 1 : 0;
    parms.abortOnDroppedFrames = request.abortOnDrop ? 1 : 0;
    parms.reportDroppedFrames = 1;
    parms.statusFunc = Status;
    parms.prerollFunc = Preroll;
    parms.timecodeFunc = Timecode;
    bool pluginCounts = request.hasInPoint || request.pluginCounts;
    parms.frameCount = pluginCounts ? request.frames : 0x7FFFFFFF;
    parms.timecodeRate = request.timecodeRate;
    parms.dropFrame = request.dropFrame ? 1 : 0;
    parms.startFrameCount = request.inPointFrames;
    // The path as UTF-16, as the editor hands it over.
    std::u16string path;
    if (!Utf8ToUtf16(request.moviePath, path)) {
      fail(2, "the movie path is not valid UTF-8: " + request.moviePath);
      path.assign(static_cast<size_t>(kRecordPathUnits), u'x');  // refused below
    }
    if (outcome.exitCode) {
      // reported above
    } else if (path.size() >= static_cast<size_t>(kRecordPathUnits)) {
      fail(2, "the movie path is longer than the host's " + std::to_string(kRecordPathUnits - 1) + " characters");
    } else {
      memcpy(parms.path, path.data(), path.size() * 2);
      rc = mHost.Call(recmod_PrepRecord8, instance, reinterpret_cast<intptr_t>(&parms));
      if (rc != rmNoErr) {
        fail(5, "cannot prepare the recording of " + request.moviePath + ": " + Describe(rc));
      } else {
        prepared = true;
      }
    }
  }

  bool recording = false;
  if (prepared) {
    recStartReply reply;
    memset(&reply, 0, sizeof reply);
    rc = mHost.Call(recmod_StartRecord, instance, reinterpret_cast<intptr_t>(&reply));
    if (rc != rmNoErr) {
      fail(6, "cannot start the recording: " + Describe(rc));
    } else {
      recording = true;
      outcome.startTimecode = reply.startTimecode;
    }
  }

  if (recording) {
    ProgressDisplay progress(stderr);
    double frameRate = mSettings.frameDuration ? static_cast<double>(mSettings.timeScale) / mSettings.frameDuration : 0;
    int64_t expected = request.frames == 0x7FFFFFFF ? 0 : request.frames;
    bool hostCounts = expected && !request.hasInPoint && !request.pluginCounts;
    auto start = std::chrono::steady_clock::now();
    for (;;) {
      rc = mHost.Call(recmod_ServiceRecord, instance, 0);
      if (mShowProgress) progress.Update(mStatusText, mFrames, expected, frameRate > 30 ? frameRate / 2 : frameRate);
      if (rc == rmFrameLimitReached) break;
      if (rc == rmAborted) {
        fail(7, "recording aborted: the recording server dropped frames");
        break;
      }
      if (rc != rmNoErr) {
        fail(8, "recording failed: " + Describe(rc));
        break;
      }
      if (mStop) break;
      if (hostCounts && mFrames >= expected) break;  // recorded from now: the host decides when enough
      if (request.timeLimitSeconds > 0 &&
          std::chrono::steady_clock::now() - start > std::chrono::duration<double>(request.timeLimitSeconds)) {
        if (expected) fail(9, "recording timed out with " + std::to_string(mFrames) + " frames: the card stopped delivering");
        break;
      }
      std::this_thread::sleep_for(kServiceInterval);
    }
    if (mShowProgress) progress.Finish();
    rc = mHost.Call(recmod_StopRecord, instance, 0);
    if (rc != rmNoErr && !outcome.exitCode) fail(10, "stopping the recording failed: " + Describe(rc));
    rc = mHost.Call(recmod_CloseRecord, instance, 0);
    if (rc != rmNoErr && !outcome.exitCode) fail(10, "closing the recording failed: " + Describe(rc));
  }
  outcome.frames = mFrames;
  outcome.status = mStatusText;
  outcome.droppedFrames = mStatusText.find("Dropped frames") != std::string::npos;
  if (activated) mHost.Call(recmod_SetActive, instance, 0);
  mHost.Call(recmod_Close, instance, 0);
  mHost.StdParms()->funcs->memoryFuncs->dispose(blob);
  return outcome;
}

}  // namespace KTN
