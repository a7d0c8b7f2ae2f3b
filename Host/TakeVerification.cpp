// A finished take checked against its frame hashes, in the host program's terms.
#include "Host/TakeVerification.h"

#include <ctype.h>
#include <stdio.h>

#include "FrameHash/TakeVerifier.h"
#include "Host/VerifyCommand.h"

namespace KTN {

TakeVerification TakeVerification::Of(const std::string& moviePath) {
  TakeVerification check;
  VerifyResult found;
  std::string failure;
  if (TakeVerifier::Verify(moviePath, found, failure) != 0) {
    check.result = Result::kNotChecked;
    check.line = failure.empty() ? "cannot verify " + moviePath : failure;
    return check;
  }
  check.result = found.Passed() ? Result::kVerified : Result::kDiffers;
  check.line = found.Describe();
  return check;
}

int TakeVerification::ExitStatus() const {
  switch (result) {
    case Result::kVerified:
      return 0;
    case Result::kDiffers:
      return 1;
    case Result::kNotChecked:
      break;
  }
  return kVerifyCouldNotCheck;
}

int TakeVerification::Report() const {
  if (result == Result::kVerified) {
    printf("%s\n", line.c_str());
  } else {
    fprintf(stderr, "kestrin-capture: %s\n", line.c_str());
  }
  return ExitStatus();
}

std::string TakeVerification::Sentence() const {
  std::string sentence = line;
  if (!sentence.empty()) sentence[0] = static_cast<char>(toupper(static_cast<unsigned char>(sentence[0])));
  if (result == Result::kVerified && sentence.compare(0, 8, "Verified") != 0) sentence = "Verified: " + sentence;
  return sentence;
}

}  // namespace KTN
