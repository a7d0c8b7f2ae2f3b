// Tests of the failed recording's line: how the server ended, and what the movie holds.
#include <gtest/gtest.h>

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Host/RecordingFailure.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

TEST(RecordingFailureTest, AServerKilledBeforeItWroteAMovie) {
  Util::ScratchFolder folder;
  int ready[2];
  ASSERT_EQ(0, pipe(ready));
  pid_t server = fork();
  if (server == 0) {
    prctl(PR_SET_NAME, "QTRecordServer");
    char named = 1;
    if (write(ready[1], &named, 1) != 1) _exit(126);
    for (;;) pause();
  }
  ASSERT_GT(server, 0);
  close(ready[1]);
  char named = 0;
  ASSERT_EQ(1, read(ready[0], &named, 1));
  close(ready[0]);
  ASSERT_EQ(0, kill(server, SIGKILL));
  RecordingFailure failure(EIO);  // the server's end of stream
  waitpid(server, nullptr, 0);    // as stopping the recording does
  EXPECT_EQ("recording failed: the recording server was killed by signal 9 (Killed); no movie was written",
            failure.Line(folder.File("take.mov")));
}

TEST(RecordingFailureTest, AServerNotFoundStoppedAnswering) {
  Util::ScratchFolder folder;
  EXPECT_EQ("recording failed: the recording server stopped answering (5); no movie was written",
            RecordingFailure(EIO).Line(folder.File("take.mov")));
}

TEST(RecordingFailureTest, AHungServerAndAFileThatHoldsNoFrame) {
  Util::ScratchFolder folder;
  std::string path = folder.File("take.mov");
  FILE* file = fopen(path.c_str(), "w");
  ASSERT_NE(nullptr, file);
  fputs("not a movie", file);
  fclose(file);
  EXPECT_EQ("recording failed: the recording server hung and was ended (110); the movie holds no frame",
            RecordingFailure(ETIMEDOUT).Line(path));
}

TEST(RecordingFailureTest, OtherFailuresSayOnlyWhatFailed) {
  Util::ScratchFolder folder;
  EXPECT_EQ("recording failed: the plug-in refused the request (22: invalid parameter or instance not ready)",
            RecordingFailure(22).Line(folder.File("take.mov")));
}

TEST(RecordingFailureTest, AFullDiskSaysWhatWasKept) {
  Util::ScratchFolder folder;
  EXPECT_EQ("recording failed: the disk is full (28); no movie was written", RecordingFailure(28).Line(folder.File("take.mov")));
}

}  // namespace
}  // namespace KTN
