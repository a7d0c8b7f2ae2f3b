// An unattended run of the capture window: a take clicked through, the readout's texts and pictures saved.
#pragma once

#include <stdint.h>

#include <string>

#include <QElapsedTimer>
#include <QObject>

namespace KTN {

class CaptureWindow;

// Owned by the window (a child of it); main thread only. With frames > 0 it clicks Record a
// second after it is made, clicks Stop once the plug-in has reported that many frames, and
// quits the application when the take has ended (stopped here or ended by the plug-in) and
// the window's check of it, if it makes one, and its report have come.
// Meanwhile the readout's texts are appended to labelsPath each time they change, as blocks
// of "name: text" lines after a heading "snapshot SECONDS recording|idle", each ended by an
// empty line; the window is saved as recordingShot just before Stop and as windowShot when
// the application quits. An empty path leaves that out. What fails is said in one line on
// standard error and sets status to 4. A question the window asks is answered with its
// default (keep what is there), as a "question: TEXT" line among the labels.
class UnattendedRun : public QObject {
 public:
  UnattendedRun(CaptureWindow& window, int64_t frames, std::string labelsPath, std::string recordingShot,
                std::string windowShot, int& status);

 private:
  enum class State { kIdle, kRecording, kDone };

  void Poll();
  // Answers a question the window asks (whether to replace an existing movie) with its safe
  // default, and writes it down with the labels.
  void AnswerQuestions();
  void Click(const char* name);
  void WriteLabels();
  // Appends text to the labels file (if one is kept).
  void AppendLabels(const std::string& text);
  void SaveWindow(const std::string& path);
  void Finish();

  CaptureWindow& mWindow;
  const int64_t mFrames;  // 0: no take
  std::string mLabelsPath;
  const std::string mRecordingShot;
  const std::string mWindowShot;
  int& mStatus;
  QElapsedTimer mClock;
  State mState = State::kIdle;
  std::string mLastTexts;
};

}  // namespace KTN
