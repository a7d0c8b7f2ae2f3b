// What a movie file holds, read from its boxes.
#include "Movie/MovieSummary.h"

#include "Movie/MovieFollower.h"

namespace KTN {

long MovieSummary::Read(const std::string& path) {
  MovieFollower follower(path);
  long rc = follower.Update();
  *this = follower.Summary();
  return rc;
}

}  // namespace KTN
