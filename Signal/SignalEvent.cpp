// A signal event's line in the events sidecar, written and read, and said in words.
#include "Signal/SignalEvent.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace KTN {
namespace {

struct KindEntry {
  SignalEvent::Kind kind;
  const char* name;
  const char* words;  // the sentence's start
};

constexpr KindEntry kKinds[] = {
    {SignalEvent::Kind::kBlack, "black", "black"},
    {SignalEvent::Kind::kFreeze, "freeze", "freeze"},
    {SignalEvent::Kind::kSilence, "silence", "silence"},
    {SignalEvent::Kind::kClipping, "clipping", "clipping"},
    {SignalEvent::Kind::kDropped, "dropped", "dropped"},
    {SignalEvent::Kind::kTimecodeBreak, "timecode-break", "timecode break"},
};

const KindEntry& EntryOf(SignalEvent::Kind kind) {
  for (const KindEntry& entry : kKinds) {
    if (entry.kind == kind) return entry;
  }
  return kKinds[0];
}

// The flat JSON object of one line: string and whole-number members only, which is all an
// event holds. Unknown members are passed over, so a later writer may add some.
class FlatObject {
 public:
  explicit FlatObject(const std::string& line) : mText(line) {}

  // Reads the whole object; false for anything else.
  bool Read() {
    Skip();
    if (!Take('{')) return false;
    Skip();
    if (Take('}')) return AtEnd();
    for (;;) {
      std::string key;
      if (!ReadString(&key)) return false;
      Skip();
      if (!Take(':')) return false;
      Skip();
      if (Peek() == '"') {
        std::string value;
        if (!ReadString(&value)) return false;
        if (key == "kind") mKind = value;
        if (key == "before") mBefore = value;
        if (key == "after") mAfter = value;
      } else {
        long long number = 0;
        if (!ReadNumber(&number)) return false;
        if (key == "slot") mSlot = number, mHasSlot = true;
        if (key == "frames") mFrames = number, mHasFrames = true;
        if (key == "channel") mChannel = number;
      }
      Skip();
      if (Take('}')) return AtEnd();
      if (!Take(',')) return false;
      Skip();
    }
  }

  std::string mKind, mBefore, mAfter;
  long long mSlot = 0, mFrames = 0, mChannel = 0;
  bool mHasSlot = false, mHasFrames = false;

 private:
  char Peek() const { return mAt < mText.size() ? mText[mAt] : '\0'; }
  bool Take(char c) {
    if (Peek() != c) return false;
    ++mAt;
    return true;
  }
  void Skip() {
    while (mAt < mText.size() && (mText[mAt] == ' ' || mText[mAt] == '\t')) ++mAt;
  }
  bool AtEnd() {
    Skip();
    if (Peek() == '\r') ++mAt;
    if (Peek() == '\n') ++mAt;
    return mAt == mText.size();
  }
  bool ReadString(std::string* out) {
    if (!Take('"')) return false;
    while (mAt < mText.size()) {
      char c = mText[mAt++];
      if (c == '"') return true;
      if (c == '\\') {
        if (mAt >= mText.size()) return false;
        c = mText[mAt++];
        if (c != '"' && c != '\\' && c != '/') return false;
      }
      if (static_cast<unsigned char>(c) < 0x20) return false;
      out->push_back(c);
    }
    return false;
  }
  bool ReadNumber(long long* out) {
    const char* start = mText.c_str() + mAt;
    if (*start != '-' && (*start < '0' || *start > '9')) return false;
    char* end = nullptr;
    errno = 0;
    long long value = strtoll(start, &end, 10);
    if (errno || end == start) return false;
    if (*end == '.' || *end == 'e' || *end == 'E') return false;
    mAt += static_cast<size_t>(end - start);
    *out = value;
    return true;
  }

  const std::string& mText;
  size_t mAt = 0;
};

// A timecode as the sidecar may hold it: digits and separators only, so it is written back
// without escaping.
bool IsTimecodeText(const std::string& text) {
  if (text.empty() || text.size() > 16) return false;
  for (char c : text) {
    if (!((c >= '0' && c <= '9') || c == ':' || c == ';' || c == '.')) return false;
  }
  return true;
}

}  // namespace

const char* SignalEvent::KindName(Kind kind) { return EntryOf(kind).name; }

bool SignalEvent::KindNamed(const std::string& name, Kind* kind) {
  for (const KindEntry& entry : kKinds) {
    if (name == entry.name) {
      *kind = entry.kind;
      return true;
    }
  }
  return false;
}

std::string SignalEvent::Line() const {
  char text[192];
  int n = snprintf(text, sizeof text, "{\"kind\":\"%s\",\"slot\":%lld,\"frames\":%lld", KindName(kind),
                   static_cast<long long>(slot), static_cast<long long>(frames));
  std::string line(text, n > 0 ? static_cast<size_t>(n) : 0);
  if (channel > 0) line += ",\"channel\":" + std::to_string(channel);
  if (kind == Kind::kTimecodeBreak) {
    line += ",\"before\":\"" + (IsTimecodeText(before) ? before : std::string()) + "\"";
    line += ",\"after\":\"" + (IsTimecodeText(after) ? after : std::string()) + "\"";
  }
  return line + "}\n";
}

bool SignalEvent::Parse(const std::string& line, SignalEvent* event) {
  // A last line cut off mid-write is no whole object, and is refused as such.
  FlatObject object(line);
  if (!object.Read() || !object.mHasSlot || !object.mHasFrames) return false;
  SignalEvent read;
  if (!KindNamed(object.mKind, &read.kind)) return false;
  constexpr long long kMostSlots = 1LL << 40;
  if (object.mSlot < 0 || object.mSlot > kMostSlots || object.mFrames < 0 || object.mFrames > kMostSlots) return false;
  if (object.mChannel < 0 || object.mChannel > 64) return false;
  const bool sound = read.kind == Kind::kSilence || read.kind == Kind::kClipping;
  if (sound != (object.mChannel > 0)) return false;
  read.slot = object.mSlot;
  read.frames = object.mFrames;
  read.channel = static_cast<int>(object.mChannel);
  if (read.kind == Kind::kTimecodeBreak) {
    if (!IsTimecodeText(object.mBefore) || !IsTimecodeText(object.mAfter)) return false;
    read.before = object.mBefore;
    read.after = object.mAfter;
  }
  *event = read;
  return true;
}

std::string SignalEvent::Sentence() const {
  const std::string count = std::to_string(frames) + (frames == 1 ? " frame" : " frames");
  switch (kind) {
    case Kind::kTimecodeBreak:
      return "timecode break: " + before + " then " + after;
    case Kind::kDropped:
      return "dropped " + count;
    case Kind::kSilence:
    case Kind::kClipping:
      return std::string(EntryOf(kind).words) + " on channel " + std::to_string(channel) + " for " + count;
    default:
      return std::string(EntryOf(kind).words) + " for " + count;
  }
}

}  // namespace KTN
