// A recording's progress for scripts: one JSON object a line, progress, each event, and the take's end.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include <string>

#include "Host/ProgressPresenter.h"
#include "Host/TakeVerification.h"

namespace KTN {

// What the end of a take says to a script; ProgressDisplay's caller fills it once the take
// and everything after it (its check, its report picture) is done.
struct RecordEnd {
  int status = 0;             // the program's exit status
  std::string error;          // the line said on standard error; empty when none
  std::string warning;        // a warning told while recording; empty when none
  std::string moviePath;
  bool movieRemoved = false;  // nothing was recorded, and the empty movie is gone
  bool started = false;       // the recording started: the file at moviePath is this take's,
                              // not one it refused to touch
  int64_t frames = 0;         // the movie's frames by the plug-in's last count
  std::string startTimecode;  // of the first frame; empty when unknown
  bool verifyRan = false;     // --verify was given and the check ran (the take was recorded)
  TakeVerification verification;
};

// `record --progress json`: writes to out (the host program's standard output) one JSON
// object per line, flushed at once, each with "type" first:
//   {"type":"progress",...}  at most four a second: see ProgressLine;
//   {"type":"event",...}     each event as it is found (LiveSignal::EventMembers);
//   {"type":"end",...}       last, written by the caller with EndLine.
// A note (a warning for the user) is one line on notes (standard error), as in line mode.
// Neither file is owned. Main thread only.
class JsonLinesPresenter : public ProgressPresenter {
 public:
  JsonLinesPresenter(FILE* out, FILE* notes);

  void Show(const ProgressFigures::Figures& figures, Clock::time_point now) override;
  void Event(const LiveSignal::Found& found, Clock::time_point now) override;
  void Note(const std::string& line, Clock::time_point now) override;
  void Finish(Clock::time_point now) override;

  // {"type":"progress","waiting":false,"status":"...","in_point":null,"signal_timecode":null,
  //  "elapsed_seconds":1.250,"frames":31,"expected_frames":50,"slots":25,"pictures":25,
  //  "dropped":0,"fps":24.8,"disk_seconds_left":22800.0,"peak_dbfs":[-20.0,null]}
  static std::string ProgressLine(const ProgressFigures::Figures& figures);
  // {"type":"event","kind":"black","slot":9,"frames":10,"timecode":"01:00:00:10",...}
  static std::string EventLine(const LiveSignal::Found& found);
  // {"type":"end","status":0,"meaning":"...","error":null,"warning":null,"movie":"...",
  //  "movie_removed":false,"frames":50,"slots":50,"pictures":50,"dropped":0,
  //  "start_timecode":"01:00:00:01","sidecars":{...},"verification":null}; slots, pictures
  // and dropped are the movie's as it is now, and sidecars its files (null when it cannot be
  // read, and for a take that never started: a file there then is not this take's).
  static std::string EndLine(const RecordEnd& end);

  // Writes line and a line feed to out at once.
  static void Write(FILE* out, const std::string& line);

 private:
  FILE* mOut;
  FILE* mNotes;
  Clock::time_point mLastWritten;
  bool mWritten = false;  // a progress line was written
};

}  // namespace KTN
