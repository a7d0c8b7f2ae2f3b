// A finished take checked against its frame hashes, in the host program's terms: what was found, its line and exit status.
#pragma once

#include <string>

namespace KTN {

// One check of a finished movie with TakeVerifier (every sample read again from the disk and
// compared with the hashes written while it recorded). It reads the whole take, so it takes
// about as long as reading the movie: the capture window runs it off its own thread.
// Stateless apart from what it holds; any thread.
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

  // moviePath: the finished movie (its sidecar lies beside it).
  static TakeVerification Of(const std::string& moviePath);

  // The host program's exit status for it: 0 verified, 1 differs, 6 not checked.
  int ExitStatus() const;
  // Says the line as the host program does (a verified take's on standard output, anything
  // else on standard error after "kestrin-capture: ") and returns ExitStatus().
  int Report() const;
  // The line as the capture window shows it: capitalised, a verified take's starting with
  // "Verified".
  std::string Sentence() const;
};

}  // namespace KTN
