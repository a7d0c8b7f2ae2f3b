// A finished take checked against its frame hashes, in the host program's terms: what was found, its line and exit status.
#pragma once

#include <stdint.h>

#include <string>

namespace KTN {

namespace Util {
class JsonWriter;
}

// One check of a finished movie with TakeVerifier (every sample read again from the disk and
// compared with the hashes written while it recorded). It reads the whole take, so it takes
// about as long as reading the movie: the capture window runs it off its own thread.
// Each check of a movie that is there, a regular file and not being written is kept beside it
// in its verification sidecar (MovieSidecars::Verification), one JSON line, e.g.
//   {"result":"verified","line":"verified 250 pictures and 480000 sound samples",
//    "checked":"2026-11-24T16:20:05+0000","bytes":281018368,"modified":1795530005}
// (one line in the file), the result one of "verified", "differs", "not-checked"; bytes and
// modified (seconds since 1970) are the movie's as it was checked, so that a movie replaced
// or changed since is not said to be checked. Stateless apart from what it holds; any thread.
struct TakeVerification {
  enum class Result {
    kVerified,    // every picture and sound packet matched its line
    kDiffers,     // some did not: the line says which first
    kNotChecked,  // the check could not run (no sidecar, not a finished movie, a read failed)
  };

  Result result = Result::kNotChecked;
  // The verifier's one line: "verified N pictures and M sound samples", what differs, or why
  // nothing was checked.
  std::string line;

  // When it was checked, local time as "YYYY-MM-DDTHH:MM:SS+HHMM"; empty when not known.
  std::string checkedAt;

  // moviePath: the finished movie (its sidecar lies beside it). Keeps the outcome in the
  // verification sidecar (a failure to write it is a line of its own, not the check's).
  static TakeVerification Of(const std::string& moviePath);
  // The outcome kept beside the movie at moviePath by its last check: true and *last set
  // when there is one and the movie is still the one that was checked.
  static bool Last(const std::string& moviePath, TakeVerification* last);

  // The host program's exit status for it: 0 verified, 1 differs, 6 not checked.
  int ExitStatus() const;
  // Says the line as the host program does (a verified take's on standard output, anything
  // else on standard error after "kestrin-capture: ") and returns ExitStatus().
  int Report() const;
  // The outcome as a JSON object for scripts: {"result":"verified","passed":true,"line":"...",
  // "checked":"2026-11-24T16:20:05+0000"} ("checked" null when not known).
  void WriteJson(Util::JsonWriter& json) const;
  // The result's name, as the sidecar and the JSON say it: "verified", "differs", "not-checked".
  const char* ResultName() const;
  // The line as the capture window shows it: capitalised, a verified take's starting with
  // "Verified".
  std::string Sentence() const;

 private:
  // Writes this outcome into the verification sidecar of the movie at moviePath, with the
  // movie's size and last change (seconds since 1970) as the check held it locked; nothing
  // when the check could not open it (bytes -1): 0, or errno with one failure line.
  long Keep(const std::string& moviePath, int64_t bytes, int64_t modified);
};

}  // namespace KTN
