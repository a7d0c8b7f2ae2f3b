// Checks a take against its sidecar by reading it again from the disk.
#include "FrameHash/TakeVerifier.h"

#include <errno.h>

namespace KTN {

std::string VerifyResult::Describe() const {
  return "verified " + std::to_string(pictures) + " pictures and " + std::to_string(soundFrames) + " sound samples";
}

long TakeVerifier::Verify(const std::string& moviePath, VerifyResult& result, std::string& failure) {
  result = VerifyResult();
  failure = "cannot verify " + moviePath + ": not built yet";
  return ENOSYS;
}

long TakeVerifier::WriteSidecar(const std::string& moviePath, VerifyResult& result, std::string& failure) {
  result = VerifyResult();
  failure = "cannot write the sidecar of " + moviePath + ": not built yet";
  return ENOSYS;
}

}  // namespace KTN
