// One recording through the plug-in, from open to close, as the command line runs it.
#include "Host/RecordSession.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include "Host/InPointStatus.h"
#include "Host/KeptMovie.h"
#include "Host/MoviePath.h"
#include "Host/RecordingFailure.h"
#include "Host/RecordingRate.h"
#include "FrameHash/FrameHashLine.h"
#include "Movie/TimecodeTrack.h"
#include "Util/TimeCode.h"

namespace KTN {

namespace {

// The editor services a recording at its idle rate.
constexpr auto kServiceInterval = std::chrono::milliseconds(10);

}  // namespace

namespace {

// The timecode of a take's first frame as the host knows it: the in-point it started on, or
// the start the plug-in reported; empty when neither is known.
std::string StartOf(const RecordRequest& request, const PluginSession& session) {
  if (!request.hasInPoint) return session.CardStartTimecode();
  if (request.timecodeRate == 0) return std::string();
  Util::TimeCode in = {};
  in.framesPerSecond = request.timecodeRate == 23 ? 24 : request.timecodeRate;  // 23.976 counts 24 a second
  in.dropFrame = request.dropFrame;
  Util::ConvertFrameCountToTimeCode(request.inPointFrames, &in);
  char text[12];
  Util::ConvertTimeCodeToString(&in, text);
  return text;
}

}  // namespace

RecordSession::RecordSession(PluginHost& host, const CaptureSettings& settings, const std::atomic<bool>& stop,
                             bool showProgress, ProgressDisplay::Output output)
    : mHost(host), mSettings(settings), mStop(stop), mShowProgress(showProgress), mOutput(output) {}

RecordOutcome RecordSession::Run(const RecordRequest& request) {
  RecordOutcome outcome;
  auto fail = [&outcome](int code, const std::string& error) {
    if (outcome.exitCode) return;  // the first failure is the one to tell
    outcome.exitCode = code;
    outcome.error = error;
  };
  PluginSession session(mHost, mSettings);
  std::string failure = session.Open();
  if (!failure.empty()) {
    fail(3, failure);
    return outcome;
  }
  failure = session.Activate();
  if (!failure.empty()) fail(4, failure);
  if (!outcome.exitCode) {
    failure = session.StartRecording(request);
    if (!failure.empty()) fail(failure.find("path") != std::string::npos ? 2 : 5, failure);
  }
  if (session.Recording()) {
    outcome.started = true;
    outcome.startTimecode = session.StartTimecode();
    ProgressDisplay progress(mOutput, stdout, stderr, request.moviePath, mSettings);
    progress.SetStartTimecode(StartOf(request, session));  // the events' lines count from it
    int64_t expected = request.frames == 0x7FFFFFFF ? 0 : request.frames;
    bool hostCounts = expected && !request.hasInPoint && !request.pluginCounts;
    const int64_t pairs = FramesPerCount(mSettings);  // the request counts pairs above 30 fps
    std::unique_ptr<RecordingFailure> serviceFailure;
    bool untimed = false;  // an in-point take that started without timecode: its start is unknown
    auto start = std::chrono::steady_clock::now();
    for (;;) {
      auto called = std::chrono::steady_clock::now();
      int32_t rc = session.Service();
      outcome.longestServiceCall = std::max(
          outcome.longestServiceCall, std::chrono::duration<double>(std::chrono::steady_clock::now() - called).count());
      if (mShowProgress) progress.Update(session.StatusText(), session.FramesRecorded(), expected * pairs);
      if (rc == rmFrameLimitReached) break;
      if (rc == rmAborted) {
        fail(7, "recording aborted: frames were dropped");
        break;
      }
      if (rc != rmNoErr) {
        // Now, before stopping reaps the server: how it ended. The line is made once the
        // recording has stopped, when the movie no longer changes.
        serviceFailure.reset(new RecordingFailure(rc));
        fail(8, "recording failed");
        break;
      }
      InPointStatus inPoint(session.StatusText());
      if (inPoint.Which() == InPointStatus::State::kPassed) {
        // The in-point will not come: waiting on would only end at the time limit.
        fail(11, "the signal is at " + inPoint.Signal() + ", past the in-point " + inPoint.InPoint() +
                     ": nothing was recorded");
        break;
      }
      // The plug-in says this once, in its first report after the start; the session keeps it.
      const InPointStatus note(session.TakeNote());
      if (!untimed && note.Which() == InPointStatus::State::kStartedWithoutTimecode) {
        untimed = true;
        progress.SetStartTimecode(std::string());  // not the in-point's: the events are told by slot
      }
      if (note.Which() == InPointStatus::State::kStartedWithoutTimecode && outcome.warning.empty()) {
        outcome.warning = "warning: the signal carries no timecode: recording from its first frame, not from " +
                          note.InPoint();
        if (mShowProgress) progress.Note("kestrin-capture: " + outcome.warning);
      }
      if (mStop) break;
      if (hostCounts && session.FramesRecorded() >= expected * pairs) break;  // recorded from now: the host decides when enough
      if (request.timeLimitSeconds > 0 &&
          std::chrono::steady_clock::now() - start > std::chrono::duration<double>(request.timeLimitSeconds)) {
        if (inPoint.Which() == InPointStatus::State::kWaiting || inPoint.Which() == InPointStatus::State::kDeckDecides) {
          fail(9, "gave up waiting for the in-point " + inPoint.InPoint() + " after " +
                      std::to_string(static_cast<long>(request.timeLimitSeconds)) + " s" +
                      (inPoint.Signal().empty() ? std::string() : " (the signal is at " + inPoint.Signal() + ")") +
                      ": nothing was recorded");
        } else if (expected) {
          fail(9, "recording timed out with " + std::to_string(session.FramesRecorded()) + " frames: the card stopped delivering");
        }
        break;
      }
      std::this_thread::sleep_for(kServiceInterval);
    }
    if (mShowProgress) progress.Finish();
    failure = session.StopRecording();
    if (!failure.empty()) fail(10, failure);
    // The events that lasted to the take's end are written as the recording finishes.
    if (mShowProgress) progress.FinalEvents();
    const std::string firstFrame = untimed ? std::string() : StartOf(request, session);
    if (serviceFailure) outcome.error = serviceFailure->Line(request.moviePath, firstFrame);
    // A take the plug-in called stopped is finished only when its movie says so: its index
    // and its timecode are written after the last frame, where a removed folder, a full disk
    // or a file made read-only can still stop them.
    if (!outcome.exitCode && !session.MovieRemoved()) {
      const bool timed = TimecodeTrack::CountableRate(mSettings.frameDuration, mSettings.timeScale);
      std::string incomplete = KeptMovie(request.moviePath, timed ? firstFrame : std::string()).Incomplete();
      if (!incomplete.empty()) fail(12, incomplete);
    }
    // The server writes the hashes of every packet beside a completed movie unless it was
    // told not to; only one that is there is named.
    const std::string sidecarPath = FrameHashSidecarPath(request.moviePath);
    if (!outcome.exitCode && !session.MovieRemoved() && MoviePath::Exists(sidecarPath)) {
      outcome.frameHashes = sidecarPath;
    }
  }
  outcome.frames = session.FramesRecorded();
  outcome.status = session.StatusText();
  outcome.droppedFrames = session.DroppedFrames();
  outcome.movieRemoved = session.MovieRemoved();
  session.Close();
  return outcome;
}

}  // namespace KTN
