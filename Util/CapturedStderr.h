// Test support: captures standard error and masks the source line numbers of failure lines.
#pragma once

#include <gtest/gtest.h>

#include <regex>
#include <string>

namespace KTN {
namespace Util {

// Captures everything written to file descriptor 2 from construction until Text(). Failure
// lines carry the reporting source line, which tests never assert: "[123]: " reads "[#]: ".
class CapturedStderr {
 public:
  CapturedStderr() { testing::internal::CaptureStderr(); }
  ~CapturedStderr() {
    if (!mTaken) testing::internal::GetCapturedStderr();
  }

  // Ends the capture and returns the text with line numbers masked. Call once.
  std::string Text() {
    mTaken = true;
    return std::regex_replace(testing::internal::GetCapturedStderr(), std::regex("\\[[0-9]+\\]: "), "[#]: ");
  }

 private:
  bool mTaken = false;
};

}  // namespace Util
}  // namespace KTN
