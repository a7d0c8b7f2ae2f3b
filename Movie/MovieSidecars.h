// The files that lie beside a take and belong to it, named after the movie.
#pragma once

#include <string>
#include <vector>

namespace KTN {

// A take is its movie and the sidecars the recording server writes beside it while it
// records: take.mov, take.mov.framehash (each sample's hash), take.mov.levels (each slot's
// picture and sound levels) and take.mov.events (what the signal suffered); the host program
// adds take.mov.verify (the outcome of the take's last check against its frame hashes) and
// take.mov.report.png (the take's report drawn). They are named after the
// movie's whole file name, so a folder's listing keeps them together, and whatever replaces
// or removes a take does the same to them. No state; any thread.
class MovieSidecars {
 public:
  // Where the sidecar of frame hashes of the movie at moviePath lies.
  static std::string FrameHashes(const std::string& moviePath);
  // Where the measured levels and the signal's events of the movie at moviePath lie.
  static std::string Levels(const std::string& moviePath);
  static std::string Events(const std::string& moviePath);
  // Where the outcome of the last verify of the movie, and its report picture, lie.
  static std::string Verification(const std::string& moviePath);
  static std::string Report(const std::string& moviePath);
  // Every sidecar a take can have.
  static std::vector<std::string> All(const std::string& moviePath);
  // Removes the sidecar at path, which may not be there: 0 (also when it was not), or errno
  // with one failure line.
  static long Remove(const std::string& path);
};

}  // namespace KTN
