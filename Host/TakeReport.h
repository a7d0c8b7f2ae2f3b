// What a take holds and what its signal suffered, in figures: the report's content, before it is said or drawn.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "Host/TakeVerification.h"
#include "Movie/MovieSummary.h"
#include "Signal/SignalEvent.h"
#include "Signal/SlotLevels.h"

namespace KTN {

class TakeSignal;
namespace Util {
class JsonWriter;
}

// A finished take's report: its slots, pictures and dropped slots from the movie itself
// (MovieSummary), its events by slot with each one's timecode (the movie's start timecode
// run on through the timecode breaks, SlotTimecodes), each sound channel's peak and RMS
// over the take from the levels sidecar (RMS as the power mean of the slots' RMS), and the
// outcome of its last verify. Levels in dBFS, -infinity for digital silence. A value type;
// one thread at a time.
struct TakeReport {
  struct Event {
    SignalEvent event;
    std::string timecode;  // its first slot's, "" when the take has no timecode
  };
  struct Channel {
    float peakDb = 0;
    float rmsDb = 0;
  };

  std::string moviePath;
  MovieSummary summary;
  bool eventsThere = false;  // the events sidecar is there
  bool levelsThere = false;  // the levels sidecar is there
  std::vector<Event> events;
  std::vector<Channel> channels;  // index 0 is channel 1
  std::vector<PictureLevels> pictures;  // each picture's luma, from the levels sidecar
  std::vector<SoundLevels> sounds;      // each slot's sound levels
  bool verified = false;               // verify was run on this movie as it is
  TakeVerification verification;       // its outcome when it was

  // Reads the take at moviePath and its sidecars: 0, or errno with *problem saying in the
  // user's words why there is no report (not there, not a regular file, not a movie, being
  // written).
  long Read(const std::string& path, std::string* problem);
  // The figures of a movie already summarised and of its signal as read; the signal's levels
  // are moved into the report.
  void Gather(const std::string& path, const MovieSummary& movie, TakeSignal& signal);

  // The frame slots the report spans: the movie's (at least one).
  int64_t Slots() const;
  // The report as lines for standard output, each ending in a line feed.
  std::string Text() const;
  // "verify: passed (2026-11-24 16:20)", "verify: FAILED: ...", "verify: not run".
  std::string VerifyLine() const;
  // The report as one JSON object for scripts (without a line feed): the same figures as
  // Text, with "movie", "slots", "fps", "frame_duration", "timescale", "start_timecode" (null
  // without timecode), "pictures", "dropped", "events" (null when the sidecar is not
  // there; each as LiveSignal::EventMembers), "channels" (null when the levels are not
  // there, [] for a take without sound; each {"channel","peak_dbfs","rms_dbfs"}, null for
  // -inf), "verification" (null when none holds for the movie as it is; else as
  // TakeVerification::WriteJson) and "sidecars" (as WriteSidecars).
  std::string Json() const;

  // The paths of the sidecars beside the movie at moviePath as one JSON object: "frame_hashes",
  // "levels", "events", "verification", "report_picture", each null when it is not there, and
  // all of them null when ours is false (the files there are not the take's).
  static void WriteSidecars(Util::JsonWriter& json, const std::string& moviePath, bool ours = true);
};

}  // namespace KTN
