// Rewrites a fragmented movie, finished or cut off, as an ordinary indexed movie in place.
#pragma once

#include <stdint.h>

#include <string>

namespace KTN {

// While recording, a movie is written as a run of self-describing fragments, each
// readable on its own, so that a writer killed or a disk pulled mid-take loses at most
// the fragment in progress. Editors expect the ordinary layout, one index for the whole
// movie; Finish gives it that index in place (InPlaceIndex), leaving every sample where it
// is. A movie whose layout that cannot index has the samples of its complete fragments
// copied into a new movie beside it, renamed over the original only once complete.
class MovieFinisher {
 public:
  // Rewrites path in place. frameDuration / timescale (seconds) is the take's frame time
  // when the caller knows it, as the writer does; 0 reads it from the movie's timestamps.
  // Returns 0 (also for a movie already in the ordinary layout, which is left alone) or
  // errno with one failure line; 61 (ENODATA) when not one sample could be read back.
  // *rewritten, when given, receives whether the movie needed the finish (and got it).
  static long Finish(const std::string& path, int64_t frameDuration = 0, int64_t timescale = 0,
                     bool* rewritten = nullptr);

  // Whether the movie at path still needs its finish: it is laid out as fragments (holds a
  // top-level 'moof' box) or was left by a finish or a stamp that was cut off (two top-level
  // 'moov' boxes). False, with one failure line, when the file cannot be read.
  static bool IsFragmented(const std::string& path);

 private:
  // Whether the movie at path still needs its finish, into unfinished: 0 or errno with one
  // failure line.
  static long NeedsFinish(const std::string& path, bool& unfinished);
  // The copy: frame time as Finish takes it.
  static long CopyIntoOrdinaryMovie(const std::string& path, int64_t frameDuration, int64_t timescale);
};

}  // namespace KTN
