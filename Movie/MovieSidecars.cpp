// Names the sidecars of a take after its movie.
#include "Movie/MovieSidecars.h"

namespace KTN {

std::string MovieSidecars::FrameHashes(const std::string& moviePath) {
  return moviePath + ".framehash";
}

std::string MovieSidecars::Levels(const std::string& moviePath) {
  return moviePath + ".levels";
}

std::string MovieSidecars::Events(const std::string& moviePath) {
  return moviePath + ".events";
}

std::string MovieSidecars::Verification(const std::string& moviePath) {
  return moviePath + ".verify";
}

std::string MovieSidecars::Report(const std::string& moviePath) {
  return moviePath + ".report.png";
}

std::vector<std::string> MovieSidecars::All(const std::string& moviePath) {
  return {FrameHashes(moviePath), Levels(moviePath), Events(moviePath), Verification(moviePath), Report(moviePath)};
}

}  // namespace KTN
