// Tests of the failure-line form.
#include <gtest/gtest.h>

#include <errno.h>

#include <string>

#include "Util/CapturedStderr.h"
#include "Util/Log.h"

namespace KTN {
namespace Util {
namespace {

void ReportStopFailure(long rc) {
  KTN_LOG("Stop returned %ld", rc);
}

TEST(LogTest, FailureLineNamesFunctionAndLine) {
  CapturedStderr captured;
  ReportStopFailure(5);
  EXPECT_EQ("*** ReportStopFailure[#]: Stop returned 5\n", captured.Text());
}

TEST(LogTest, LineNumberIsTheReportsOwn) {
  testing::internal::CaptureStderr();
  int line = __LINE__ + 1;
  KTN_LOG("here");
  EXPECT_EQ("*** TestBody[" + std::to_string(line) + "]: here\n", testing::internal::GetCapturedStderr());
}

TEST(LogTest, DeviceCodesPrintInDecimalAndHex) {
  CapturedStderr captured;
  long code = 0x80000003L;
  KTN_LOG("StartStreams returned %ld (0x%lx)", code, code);
  EXPECT_EQ("*** TestBody[#]: StartStreams returned 2147483651 (0x80000003)\n", captured.Text());
}

TEST(LogTest, RawLinesHaveNoPrefix) {
  CapturedStderr captured;
  LogRaw("pthread_key_create returned %d\n", 11);
  EXPECT_EQ("pthread_key_create returned 11\n", captured.Text());
}

TEST(LogTest, LongMessagesAreWrittenWhole) {
  std::string longText(5000, 'x');
  CapturedStderr captured;
  KTN_LOG("%s", longText.c_str());
  EXPECT_EQ("*** TestBody[#]: " + longText + "\n", captured.Text());
}

TEST(LogTest, ReportingLeavesErrnoAlone) {
  CapturedStderr captured;
  errno = EAGAIN;
  KTN_LOG("x");
  EXPECT_EQ(EAGAIN, errno);
}

}  // namespace
}  // namespace Util
}  // namespace KTN
