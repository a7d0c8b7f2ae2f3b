// The plug-in's reports of a recording with an in-point, read.
#include "Host/InPointStatus.h"

namespace KTN {

namespace {

const char kWaiting[] = "Waiting for ";
const char kSignalAt[] = "(signal at ";
const char kPassed[] = ": the signal has passed it ";
const char kDeck[] = ": the signal carries no timecode";
const char kStartedWithoutTimecode[] = "The signal carries no timecode: recorded from its first frame, not from ";

bool StartsWith(const std::string& text, const char* start) {
  return text.compare(0, std::char_traits<char>::length(start), start) == 0;
}

// The timecode text at `at` in text: up to a space, a ')' or the ": " that goes on with a
// sentence (the timecode's own colons are followed by digits).
std::string TimecodeAt(const std::string& text, size_t at) {
  size_t end = at;
  while (end < text.size() && text[end] != ' ' && text[end] != ')' &&
         !(text[end] == ':' && (end + 1 == text.size() || text[end + 1] == ' '))) {
    ++end;
  }
  return text.substr(at, end - at);
}

}  // namespace

InPointStatus::InPointStatus(const std::string& text) {
  if (StartsWith(text, kStartedWithoutTimecode)) {
    mState = State::kStartedWithoutTimecode;
    mInPoint = TimecodeAt(text, std::char_traits<char>::length(kStartedWithoutTimecode));
    return;
  }
  if (!StartsWith(text, kWaiting)) return;
  mInPoint = TimecodeAt(text, std::char_traits<char>::length(kWaiting));
  size_t signal = text.find(kSignalAt);
  if (signal != std::string::npos) mSignal = TimecodeAt(text, signal + std::char_traits<char>::length(kSignalAt));
  if (text.find(kPassed) != std::string::npos) {
    mState = State::kPassed;
  } else if (text.find(kDeck) != std::string::npos) {
    mState = State::kDeckDecides;
  } else {
    mState = State::kWaiting;
  }
}

}  // namespace KTN
