// One thing found wrong with a take's signal, and its line in the take's events sidecar.
#pragma once

#include <stdint.h>

#include <string>

namespace KTN {

// What a take's signal suffered over some frame slots, as the recording found it. The
// events sidecar (MOVIE.events) holds one per line, as one JSON object, in the order they
// were found (not sorted: the plug-in writes timecode breaks as it hands frames over, the
// recording server the rest as it writes), e.g.
//   {"kind":"black","slot":120,"frames":25}
//   {"kind":"silence","slot":300,"frames":50,"channel":2}
//   {"kind":"timecode-break","slot":400,"frames":1,"before":"01:00:15:24","after":"01:00:17:00"}
// Plain data; any thread.
struct SignalEvent {
  enum class Kind { kBlack, kFreeze, kSilence, kClipping, kDropped, kTimecodeBreak };

  Kind kind = Kind::kBlack;
  int64_t slot = 0;    // the first frame slot, counted from 0 in the movie
  int64_t frames = 0;  // how many slots
  int channel = 0;     // sound events: counted from 1 as users count; 0 for the others
  std::string before;  // timecode-break: the timecodes either side ("HH:MM:SS:FF")
  std::string after;

  // The kind's name in the sidecar ("black", "freeze", "silence", "clipping", "dropped",
  // "timecode-break").
  static const char* KindName(Kind kind);
  // The kind named name; false for a name of no kind.
  static bool KindNamed(const std::string& name, Kind* kind);

  // The event's line, ending in a line feed.
  std::string Line() const;
  // Reads one line (with or without its line feed); false for a line that is not a whole
  // event (a torn last line, a kind of no name, a count out of range).
  static bool Parse(const std::string& line, SignalEvent* event);

  // What happened in the user's words, without its timecode: "black for 25 frames",
  // "silence on channel 2 for 50 frames", "timecode break: 01:00:15:24 then 01:00:17:00".
  std::string Sentence() const;
};

}  // namespace KTN
