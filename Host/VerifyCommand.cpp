// Checks a take against its sidecar, or writes the sidecar of a take recorded without one.
#include "Host/VerifyCommand.h"

#include <errno.h>
#include <stdio.h>

#include <string>

#include "FrameHash/FrameHashLine.h"
#include "FrameHash/TakeVerifier.h"
#include "Host/MoviePath.h"
#include "Host/TakeVerification.h"

namespace KTN {

namespace {

int CouldNotCheck(const std::string& line) {
  fprintf(stderr, "kestrin-capture: %s\n", line.c_str());
  return kVerifyCouldNotCheck;
}

}  // namespace

int RunVerify(int argc, char** argv) {
  bool write = false;
  std::string movie;
  for (int i = 0; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--write") {
      write = true;
    } else if (!argument.empty() && argument[0] == '-' && argument != "-") {
      return CouldNotCheck("verify: unknown option " + argument + " (kestrin-capture verify [--write] MOVIE)");
    } else if (movie.empty()) {
      movie = argument;
    } else {
      return CouldNotCheck("verify needs exactly one MOVIE (kestrin-capture verify [--write] MOVIE)");
    }
  }
  if (movie.empty()) return CouldNotCheck("verify needs a MOVIE (kestrin-capture verify [--write] MOVIE)");
  std::string problem;
  if (!MoviePath::MakeAbsolute(movie, &problem)) return CouldNotCheck("cannot verify " + movie + ": " + problem);

  VerifyResult result;
  std::string failure;
  if (write) {
    if (TakeVerifier::WriteSidecar(movie, result, failure)) return CouldNotCheck(failure);
    printf("wrote the sidecar %s of %llu pictures and %llu sound samples\n", FrameHashSidecarPath(movie).c_str(),
           static_cast<unsigned long long>(result.pictures), static_cast<unsigned long long>(result.soundFrames));
    return 0;
  }
  return TakeVerification::Of(movie).Report();
}

}  // namespace KTN
