// Names the sidecars of a take after its movie.
#include "Movie/MovieSidecars.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include "Util/Log.h"

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

long MovieSidecars::Remove(const std::string& path) {
  if (unlink(path.c_str()) == 0 || errno == ENOENT) return 0;
  const long rc = errno;
  KTN_LOG("unlink(%s) failed with errno %ld (%s)", path.c_str(), rc, strerror(static_cast<int>(rc)));
  return rc;
}

}  // namespace KTN
