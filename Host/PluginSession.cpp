// One open capture instance of the plug-in, driven step by step as the editor does.
#include "Host/PluginSession.h"

#include <errno.h>
#include <iconv.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "Host/InPointStatus.h"
#include "Host/RecordingRate.h"
#include "Movie/MovieLock.h"
#include "Movie/MovieSummary.h"
#include "Util/DeviceResult.h"
#include "Util/Log.h"

namespace KTN {

namespace {

// Text from one encoding to another with iconv; empty on failure.
std::string Convert(const char* to, const char* from, const char* bytes, size_t length, size_t outUnit) {
  iconv_t converter = iconv_open(to, from);
  if (converter == reinterpret_cast<iconv_t>(-1)) return std::string();
  std::string out(length * 4 * outUnit + outUnit, '\0');
  char* in = const_cast<char*>(bytes);
  size_t inLeft = length;
  char* outPointer = &out[0];
  size_t outLeft = out.size();
  size_t rc = iconv(converter, &in, &inLeft, &outPointer, &outLeft);
  iconv_close(converter);
  if (rc == static_cast<size_t>(-1)) return std::string();
  out.resize(out.size() - outLeft);
  return out;
}

recMemoryFuncs* Memory(PluginHost& host) {
  return host.StdParms()->funcs->memoryFuncs;
}

}  // namespace

std::string PluginSession::Describe(int32_t rc) {
  switch (rc) {
    // 5 is "no capture device" only as open's answer, which Open words itself; from any
    // later step it is the recording server's end of stream.
    case rmNoCaptureDevice: return "the recording server stopped answering (5)";
    case rmOutOfMemory: return "out of memory";
    case rmBadParameter: return "the plug-in refused the request (22: invalid parameter or instance not ready)";
    case rmPrerollFailed: return "preroll failed";
    case rmPrerollCancelled: return "preroll cancelled";
    case rmAborted: return "aborted: frames were dropped";
    case 28: return "the disk is full (28)";
    case EPIPE: return "the recording server stopped taking commands (" + std::to_string(EPIPE) + ")";
    case ETIMEDOUT: return "the recording server hung and was ended (" + std::to_string(ETIMEDOUT) + ")";
    case 45: return "the card cannot capture this standard in this format (45)";
    default: break;
  }
  // The card's failures have the high bit set: in hexadecimal, as its device API writes them.
  if (rc < 0) {
    char hex[16];
    snprintf(hex, sizeof hex, "0x%08lx", Util::DeviceHex(rc));
    const char* name = Util::DeviceResultName(rc);
    return std::string("the card answered ") + hex + (name ? std::string(" (") + name + ")" : std::string());
  }
  switch (rc) {
    case EBUSY: return "the movie is being written by another process (16)";
    default: return "error " + std::to_string(rc) + " (" + strerror(rc) + ")";
  }
}

PluginSession::PluginSession(PluginHost& host, const CaptureSettings& settings) : mHost(host) {
  mBlob = Memory(mHost)->allocate(sizeof settings);
  memcpy(mBlob, &settings, sizeof settings);
}

PluginSession::~PluginSession() {
  if (mRecording) StopRecording();
  Close();
  if (mBlob) Memory(mHost)->dispose(mBlob);
}

int64_t PluginSession::FramesRecorded() const {
  return DroppedFrames() ? mFrames : mFrames * FramesPerCount(Settings());
}

const CaptureSettings& PluginSession::Settings() const {
  return *static_cast<const CaptureSettings*>(mBlob);
}

int32_t PluginSession::Status(int64_t callbackID, const char* text, int64_t frameCount) {
  PluginSession* session = reinterpret_cast<PluginSession*>(callbackID);
  if (!text) return 0;  // the plug-in's closing call at stop carries no status and no count
  session->mStatusText = text;
  if (InPointStatus(session->mStatusText).Which() == InPointStatus::State::kStartedWithoutTimecode) {
    session->mTakeNote = session->mStatusText;  // said once: the reports after it are the ordinary ones
  }
  session->mFrames = frameCount;
  return 0;
}

int32_t PluginSession::Preroll(int64_t) {
  return 0;
}

int32_t PluginSession::Timecode(int64_t, int32_t* frameNumber, int32_t*, int32_t*) {
  *frameNumber = 0;  // no deck: the host has no timecode of its own
  return 0;
}

std::string PluginSession::CardStartTimecode() const {
  // Frame 0 at any rate, drop frame or not.
  const bool hostsOwn = mStartTimecode.size() == 11 && mStartTimecode.compare(0, 8, "00:00:00") == 0 &&
                        mStartTimecode.compare(9, 2, "00") == 0;
  return hostsOwn ? std::string() : mStartTimecode;
}

int32_t PluginSession::FormatReport(int64_t, int32_t, int32_t, int32_t, int32_t, int32_t, TimeRecord) {
  return 0;
}

std::string PluginSession::Open() {
  recModuleInfo info;
  memset(&info, 0, sizeof info);
  mHost.Call(recmod_Startup, &info, 0);
  recSetupInfo setupInfo;
  memset(&setupInfo, 0, sizeof setupInfo);
  mHost.Call(recmod_GetSetupInfo, nullptr, reinterpret_cast<intptr_t>(&setupInfo));
  mOptionsLabel = Convert("UTF-8", "MACINTOSH", setupInfo.buttonLabel, strnlen(setupInfo.buttonLabel, sizeof setupInfo.buttonLabel), 1);
  recAudioInfoRec audioInfo;
  memset(&audioInfo, 0, sizeof audioInfo);
  if (mHost.Call(recmod_GetAudioIndFormat, &audioInfo, 0) == rmNoErr) Memory(mHost)->dispose(audioInfo.formatBuffer);

  recOpenParms openParms;
  memset(&openParms, 0, sizeof openParms);
  openParms.callbackID = reinterpret_cast<int64_t>(this);
  openParms.settings = mBlob;
  openParms.formatReport = FormatReport;
  int32_t rc = mHost.Call(recmod_Open, &mInstance, reinterpret_cast<intptr_t>(&openParms));
  if (rc != rmNoErr) {
    Close();  // the plug-in may have left a half-built instance
    return rc == rmNoCaptureDevice ? "no capture card found" : "cannot open the capture card: " + Describe(rc);
  }
  return std::string();
}

std::string PluginSession::Activate() {
  int32_t rc = mHost.Call(recmod_SetActive, mInstance, 1);
  if (rc != rmNoErr) return "cannot start the capture input: " + Describe(rc);
  mActive = true;
  return std::string();
}

std::string PluginSession::Deactivate() {
  if (!mActive) return std::string();
  int32_t rc = mHost.Call(recmod_SetActive, mInstance, 0);
  mActive = false;
  return rc == rmNoErr ? std::string() : "cannot stop the capture input: " + Describe(rc);
}

std::string PluginSession::ShowOptions() {
  recSetupParms parms;
  memset(&parms, 0, sizeof parms);
  parms.settings = mBlob;
  int32_t rc = mHost.Call(recmod_ShowOptions, mInstance, reinterpret_cast<intptr_t>(&parms));
  mBlob = parms.settings;  // the plug-in may have replaced it
  return rc == rmNoErr ? std::string() : "the options dialog failed: " + Describe(rc);
}

void PluginSession::SetDisplay(void* window, int width, int height) {
  pmDisplayPos display;
  memset(&display, 0, sizeof display);
  display.window = window;
  display.rect[0] = 0;       // y
  display.rect[1] = 0;       // x
  display.rect[2] = width;
  display.rect[3] = height;
  mHost.Call(recmod_SetDisplay, mInstance, reinterpret_cast<intptr_t>(&display));
}

std::string PluginSession::StartRecording(const RecordRequest& request) {
  recCapParmsRec8 parms;
  memset(&parms, 0, sizeof parms);
  parms.videoEnabled = 1;
  parms.audioEnabled = request.audio ? 1 : 0;
  parms.abortOnDroppedFrames = request.abortOnDrop ? 1 : 0;
  parms.reportDroppedFrames = 1;
  parms.statusFunc = Status;
  parms.prerollFunc = Preroll;
  parms.timecodeFunc = Timecode;
  parms.frameCount = request.hasInPoint || request.pluginCounts ? request.frames : 0x7FFFFFFF;
  parms.timecodeRate = request.timecodeRate;
  parms.dropFrame = request.dropFrame ? 1 : 0;
  parms.startFrameCount = request.inPointFrames;
  // The path as UTF-16, as the editor hands it over.
  std::string utf16 = Convert("UTF-16LE", "UTF-8", request.moviePath.data(), request.moviePath.size(), 2);
  if (utf16.empty() && !request.moviePath.empty()) return "the movie path is not valid UTF-8: " + request.moviePath;
  if (utf16.size() / 2 >= static_cast<size_t>(kRecordPathUnits)) {
    return "the movie path is longer than the host's " + std::to_string(kRecordPathUnits - 1) + " characters";
  }
  memcpy(parms.path, utf16.data(), utf16.size());
  int32_t rc = mHost.Call(recmod_PrepRecord8, mInstance, reinterpret_cast<intptr_t>(&parms));
  if (rc != rmNoErr) return "cannot prepare the recording of " + request.moviePath + ": " + Describe(rc);
  recStartReply reply;
  memset(&reply, 0, sizeof reply);
  mStatusText.clear();
  mTakeNote.clear();
  mFrames = 0;
  mMoviePath = request.moviePath;
  mMovieRemoved = false;
  mFailed = false;
  mRecording = true;  // prepared: from here on the take is stopped and closed, whatever happens
  rc = mHost.Call(recmod_StartRecord, mInstance, reinterpret_cast<intptr_t>(&reply));
  if (rc != rmNoErr) {
    // The movie prepared for it holds nothing: it goes with the take.
    StopRecording();
    return "cannot start the recording: " + Describe(rc);
  }
  mStartTimecode = reply.startTimecode;
  return std::string();
}

int32_t PluginSession::Service() {
  int32_t rc = mHost.Call(recmod_ServiceRecord, mInstance, 0);
  if (rc != rmNoErr && rc != rmFrameLimitReached) mFailed = true;
  return rc;
}

std::string PluginSession::StopRecording() {
  if (!mRecording) return std::string();
  mRecording = false;
  std::string failure;
  int32_t rc = mHost.Call(recmod_StopRecord, mInstance, 0);
  if (rc != rmNoErr) failure = "stopping the recording failed: " + Describe(rc);
  rc = mHost.Call(recmod_CloseRecord, mInstance, 0);
  if (rc != rmNoErr && failure.empty()) failure = "closing the recording failed: " + Describe(rc);
  // A take that failed keeps its movie as it is, for repair and for the failure's report;
  // one the plug-in counted frames of has a picture. Neither needs the movie read.
  if (!failure.empty() || mFailed || mFrames > 0) return failure;
  // Without a single sample the server has nothing to index: the movie is its headers alone,
  // which no reader would call a take.
  // Under the movie's lock, so that a take another process has begun on the path since is
  // never taken for this one's empty movie.
  mMovieRemoved = MovieLock::RemoveIfUnrecorded(mMoviePath);
  return failure;
}

void PluginSession::Close() {
  if (!mInstance) return;
  Deactivate();
  mHost.Call(recmod_Close, mInstance, 0);
  mInstance = nullptr;
}

}  // namespace KTN
