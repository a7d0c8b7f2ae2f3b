// A take's signal health followed while it records: its events as lines for the user, and its sound's peaks.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "Signal/SlotTimecodes.h"
#include "Signal/TakeSignal.h"

namespace KTN {

namespace Util {
class JsonWriter;
}

// Follows the sidecars the recording writes beside a take's movie (MOVIE.events and
// MOVIE.levels, through TakeSignal) for the status line and the capture window: each new
// event as one line, "01:00:02:10  black for 25 frames" (the timecode of its first slot, or
// "slot 1234  ..." while the take's start timecode is unknown), and the sound's peaks over
// the last moments of the take. Only reads; a few times a second is enough. Used by one
// thread at a time.
class LiveSignal {
 public:
  // frameDuration / timescale: the seconds of one picture slot, the rate timecodes count at
  // (and the slot rate until the levels say theirs).
  LiveSignal(const std::string& moviePath, uint32_t frameDuration, uint32_t timescale);

  // The timecode of the take's first slot ("HH:MM:SS:FF", ';' at drop frame); empty, or not
  // a timecode at this rate: the events are told by slot. The same text again changes nothing.
  void SetStartTimecode(const std::string& text);

  // Reads what the sidecars gained; 0, or errno with one line (a sidecar that is not a
  // regular file). The events it found wait in NewEvents (or NewLines).
  long Update();
  // An event found, with its first slot's timecode ("" while the take's start is unknown).
  struct Found {
    SignalEvent event;
    std::string timecode;
  };
  // The events found since the last call of either, in the order the recording found them.
  std::vector<Found> NewEvents();
  // The same as their lines (EventLine).
  std::vector<std::string> NewLines();

  // Each channel's highest peak (dBFS, -inf for digital silence; index 0 is channel 1) over
  // the sound slots of the last `seconds` of the take as written so far; empty before the
  // first sound slot, and for a take without sound.
  std::vector<float> ChannelPeaks(double seconds) const;
  // Each channel's highest peak (as ChannelPeaks) over the sound slots read since the last
  // call, so that a short peak between two looks is not missed however long ago it came; empty
  // when none were read, and for a take without sound.
  std::vector<float> NewPeaks();
  // The status line's part for peaks as ChannelPeaks gives them, the highest of any channel:
  // "peak -20.0 dBFS", "peak -inf dBFS" for silence; empty without sound levels.
  static std::string PeakText(const std::vector<float>& peaks);

  // "-20.0 dBFS", "-inf dBFS".
  static std::string DbText(float peakDb);
  // Decimals of a level in dBFS wherever one is said, in text and in JSON.
  static constexpr int kDbDecimals = 1;
  // The scale the capture window's meters and the report's strips draw levels on: from
  // kFloorDb to 0 dBFS.
  static constexpr float kFloorDb = -60.0f;
  // Where level db lies on that scale: 0 at kFloorDb and below (-inf and NaN too), 1 at 0
  // dBFS and above.
  static float LevelShare(float db);
  // Where an event begins as the user reads it, in the status line, the window and the
  // report: timecode (its first slot's), or "slot 1234" when that is empty.
  static std::string EventWhen(const std::string& timecode, int64_t slot);
  // An event's line: where it begins and what happened, "01:00:02:10  black for 25 frames".
  static std::string EventLine(const std::string& timecode, const SignalEvent& event);
  // An event's members in a JSON object being written, for scripts: "kind", "slot",
  // "frames", "channel" (sound events), "timecode" (its first slot's; null when unknown),
  // "before" and "after" (timecode breaks) and "sentence" (what happened, in words).
  static void EventMembers(Util::JsonWriter& json, const std::string& timecode, const SignalEvent& event);

 private:
  void Restart();

  TakeSignal mSignal;
  const uint32_t mFrameDuration;
  const uint32_t mTimescale;
  std::string mStart;
  SlotTimecodes mTimecodes;
  std::vector<Found> mNewEvents;
  size_t mSoundsSeen = 0;  // the sound slots NewPeaks has covered
};

}  // namespace KTN
