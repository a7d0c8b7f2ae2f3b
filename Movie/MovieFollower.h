// Follows a take as it is written: its summary, brought up to date by reading only what was added.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "Movie/BoxReader.h"
#include "Movie/MovieSummary.h"

namespace KTN {

class MovieFile;

// A take being recorded grows by whole fragments: each Update reads the fragments
// completed since the last, so a window or a status line can count pictures and slots every
// second of a long take at the cost of the new fragments only. The last picture's fragment
// header (a few hundred bytes) is read again each time as well: the writer lengthens that
// picture in place over the slots given up or dropped after it, which thus count as empty
// before the next picture comes. A movie that was finished (or is not a take) is read
// whole. A fragment that cannot be described (FragmentSamples says why: a track the movie
// does not have, a sample outside its data ...) counts no sample and the fragments after it
// count as usual: the summary says what can be read of a take, and repair (which refuses
// such a movie) says the rest. Used by one thread at a time.
class MovieFollower {
 public:
  explicit MovieFollower(const std::string& path);
  ~MovieFollower();

  MovieFollower(const MovieFollower&) = delete;
  MovieFollower& operator=(const MovieFollower&) = delete;

  // Reads what is new: 0, or errno with one failure line.
  long Update();
  const MovieSummary& Summary() const { return mSummary; }

 private:
  struct Tracks;
  long ReadFragments(MovieFile& file, const std::vector<Box>& boxes);
  // Reads the last picture's fragment header again, for a duration lengthened since.
  long ReadLastPictureAgain(MovieFile& file);
  long Summarise(MovieFile& file);

  std::string mPath;
  std::unique_ptr<Tracks> mTracks;
  MovieSummary mSummary;
  uint64_t mNext = 0;  // where the next fragment starts; 0: read from the start
};

}  // namespace KTN
