// Checks a take against its sidecar, or writes the sidecar of a take recorded without one.
#include "Host/VerifyCommand.h"

#include <errno.h>
#include <stdio.h>

#include <string>

#include "FrameHash/FrameHashLine.h"
#include "FrameHash/TakeVerifier.h"
#include "Host/CommandOptions.h"
#include "Host/MoviePath.h"
#include "Host/OptionParser.h"
#include "Host/TakeVerification.h"

namespace KTN {

namespace {

// The command's usage in one line, for the line of a bad command line.
std::string Synopsis() { return CommandOptions::Synopsis(*CommandOptions::Find("verify")); }

int CouldNotCheck(const std::string& line) {
  fprintf(stderr, "kestrin-capture: %s\n", line.c_str());
  return kVerifyCouldNotCheck;
}

}  // namespace

int RunVerify(int argc, char** argv) {
  bool write = false;
  std::string movie;
  ParsedOptions parsed;
  int status = 0;
  if (!OptionParser::Read("verify", argc, argv, parsed, &status,
                          [](const std::string& problem) { return CouldNotCheck(problem + " (" + Synopsis() + ")"); })) {
    return status;
  }
  write = parsed.Has("write");
  if (parsed.operands.size() > 1) return CouldNotCheck("verify needs exactly one MOVIE (" + Synopsis() + ")");
  if (!parsed.operands.empty()) movie = parsed.operands[0];
  if (movie.empty()) return CouldNotCheck("verify needs a MOVIE (" + Synopsis() + ")");
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
