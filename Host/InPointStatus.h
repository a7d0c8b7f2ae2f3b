// The plug-in's reports of a recording with an in-point, read: what it waits for and where the signal is.
#pragma once

#include <string>

namespace KTN {

// While a recording with an in-point waits, the plug-in's status reports say for which
// timecode and where the signal is; when it starts without timecode, the first report after
// the start says that it was not recorded from the in-point (once: the reports after it are
// the ordinary ones, so a host keeps that note for the take). The host program ends a take
// whose in-point the signal has passed and warns of one that started without timecode; this
// reads which it is.
class InPointStatus {
 public:
  enum class State {
    kNone,                    // not an in-point report: the ordinary recording reports
    kWaiting,                 // waiting; Signal() is where the signal is, or empty before its first frame
    kPassed,                  // the signal's timecode is past the in-point: it will not come
    kDeckDecides,             // the signal carries no timecode; a deck decides when to start
    kStartedWithoutTimecode,  // no timecode and no deck: recording from the signal's first frame (said once)
  };

  // Reads one status text of the plug-in.
  explicit InPointStatus(const std::string& statusText);

  State Which() const { return mState; }
  // The take has not begun: it waits for its in-point (or for a deck), or the signal has
  // passed it.
  bool Waiting() const { return mState == State::kWaiting || mState == State::kPassed || mState == State::kDeckDecides; }
  // Both as the plug-in wrote them (HH:MM:SS:FF, ';' before the frames at drop frame).
  const std::string& InPoint() const { return mInPoint; }
  const std::string& Signal() const { return mSignal; }

 private:
  State mState = State::kNone;
  std::string mInPoint;
  std::string mSignal;
};

}  // namespace KTN
