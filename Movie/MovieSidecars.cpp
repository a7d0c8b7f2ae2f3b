// Names the sidecars of a take after its movie.
#include "Movie/MovieSidecars.h"

namespace KTN {

std::string MovieSidecars::FrameHashes(const std::string& moviePath) {
  return moviePath + ".framehash";
}

std::vector<std::string> MovieSidecars::All(const std::string& moviePath) {
  return {FrameHashes(moviePath)};
}

}  // namespace KTN
