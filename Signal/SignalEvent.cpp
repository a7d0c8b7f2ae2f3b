// A signal event's line in the events sidecar, written and read, and said in words.
#include "Signal/SignalEvent.h"

#include "Signal/FlatObject.h"
#include "Util/JsonWriter.h"

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
  Util::JsonWriter json;
  json.BeginObject().Key("kind").String(KindName(kind)).Key("slot").Integer(slot).Key("frames").Integer(frames);
  if (channel > 0) json.Key("channel").Integer(channel);
  if (kind == Kind::kTimecodeBreak) {
    // Only a timecode's characters, which need no escape, so the reader takes the line back.
    json.Key("before").String(IsTimecodeText(before) ? before : std::string());
    json.Key("after").String(IsTimecodeText(after) ? after : std::string());
  }
  return json.EndObject().Text() + "\n";
}

bool SignalEvent::Parse(const std::string& line, SignalEvent* event) {
  // A last line cut off mid-write is no whole object, and is refused as such.
  FlatObject object;
  if (!object.Read(line)) return false;
  SignalEvent read;
  if (!KindNamed(object.String("kind"), &read.kind)) return false;
  // A line without its slot or its length is refused with the negative ones.
  const long long slot = object.Number("slot", -1), frames = object.Number("frames", -1);
  const long long channel = object.Number("channel", 0);
  constexpr long long kMostSlots = 1LL << 40;
  if (slot < 0 || slot > kMostSlots || frames < 0 || frames > kMostSlots) return false;
  if (channel < 0 || channel > 64) return false;
  const bool sound = read.kind == Kind::kSilence || read.kind == Kind::kClipping;
  if (sound != (channel > 0)) return false;
  read.slot = slot;
  read.frames = frames;
  read.channel = static_cast<int>(channel);
  if (read.kind == Kind::kTimecodeBreak) {
    const std::string before = object.String("before"), after = object.String("after");
    if (!IsTimecodeText(before) || !IsTimecodeText(after)) return false;
    read.before = before;
    read.after = after;
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
