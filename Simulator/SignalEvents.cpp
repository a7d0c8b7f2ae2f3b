// Scripted faults of the simulated card's signal, read from text and looked up frame by frame.
#include "Simulator/SignalEvents.h"

namespace KTN {
namespace Sim {

namespace {

struct KindName {
  const char* name;
  SignalEventKind kind;
};

const KindName kKinds[] = {
    {"black", SignalEventKind::kBlack},     {"freeze", SignalEventKind::kFreeze},
    {"silence", SignalEventKind::kSilence}, {"clip", SignalEventKind::kClip},
    {"tcjump", SignalEventKind::kTimecodeJump},
};

// A decimal number of at most maximum, digits only (no sign, no spaces).
bool ParseNumber(const std::string& text, int64_t maximum, int64_t* value) {
  if (text.empty() || text.size() > 12) return false;
  int64_t parsed = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    parsed = parsed * 10 + (c - '0');
  }
  if (parsed > maximum) return false;
  *value = parsed;
  return true;
}

}  // namespace

bool SignalEvents::Parse(const std::string& text, SignalEvents* events, std::string* why) {
  events->mEvents.clear();
  if (text.empty()) return true;  // no events
  std::vector<SignalEvent> parsed;
  size_t start = 0;
  for (;;) {
    size_t end = text.find(',', start);
    if (end == std::string::npos) end = text.size();
    std::string item = text.substr(start, end - start);
    if (parsed.size() == kMaxEvents) {
      *why = "more than " + std::to_string(kMaxEvents) + " events";
      return false;
    }
    size_t at = item.find('@');
    size_t plus = item.find('+', at == std::string::npos ? 0 : at);
    if (at == std::string::npos || plus == std::string::npos) {
      *why = "\"" + item + "\" is not KIND@FIRST+COUNT";
      return false;
    }
    std::string name = item.substr(0, at);
    const KindName* kind = nullptr;
    for (const KindName& candidate : kKinds) {
      if (name == candidate.name) kind = &candidate;
    }
    if (!kind) {
      *why = "\"" + name + "\" is not black, freeze, silence, clip or tcjump";
      return false;
    }
    SignalEvent event{kind->kind, 0, 0};
    if (!ParseNumber(item.substr(at + 1, plus - at - 1), kMaxFirst, &event.first)) {
      *why = "\"" + item + "\" has no first frame from 0 to " + std::to_string(kMaxFirst);
      return false;
    }
    if (!ParseNumber(item.substr(plus + 1), kMaxCount, &event.count) || event.count == 0) {
      *why = "\"" + item + "\" has no count of frames from 1 to " + std::to_string(kMaxCount);
      return false;
    }
    parsed.push_back(event);
    if (end == text.size()) break;
    start = end + 1;
  }
  events->mEvents = std::move(parsed);
  return true;
}

bool SignalEvents::Has(SignalEventKind kind) const {
  for (const SignalEvent& event : mEvents) {
    if (event.kind == kind) return true;
  }
  return false;
}

bool SignalEvents::Covers(SignalEventKind kind, int64_t n) const {
  for (const SignalEvent& event : mEvents) {
    if (event.kind == kind && n >= event.first && n - event.first < event.count) return true;
  }
  return false;
}

bool SignalEvents::FreezeStartsAt(int64_t n) const {
  for (const SignalEvent& event : mEvents) {
    if (event.kind == SignalEventKind::kFreeze && event.first == n) return true;
  }
  return false;
}

int64_t SignalEvents::PictureOf(int64_t n) const {
  // Each step moves to an earlier frame, so this ends after at most one step an event.
  for (bool moved = true; moved;) {
    moved = false;
    for (const SignalEvent& event : mEvents) {
      if (event.kind == SignalEventKind::kFreeze && n > event.first && n - event.first < event.count) {
        n = event.first;
        moved = true;
      }
    }
  }
  return n;
}

int64_t SignalEvents::TimecodeJumpAt(int64_t n) const {
  int64_t skipped = 0;
  for (const SignalEvent& event : mEvents) {
    if (event.kind == SignalEventKind::kTimecodeJump && event.first == n) skipped += event.count;
  }
  return skipped;
}

}  // namespace Sim
}  // namespace KTN
