// The one-writer lock: a second open of a locked movie is refused and told who holds it.
#include "Movie/MovieLock.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

// A child process that opens path, locks it and holds it until killed; its pid once locked.
pid_t HoldInChild(const std::string& path) {
  int ready[2];
  if (pipe(ready) != 0) return -1;
  pid_t child = fork();
  if (child == 0) {
    close(ready[0]);
    int fd = open(path.c_str(), O_RDWR);
    char answer = fd >= 0 && MovieLock::TryLock(fd) == 0 ? 'y' : 'n';
    if (write(ready[1], &answer, 1) != 1) _exit(1);
    for (;;) pause();
  }
  close(ready[1]);
  char answer = 0;
  ssize_t got = read(ready[0], &answer, 1);
  close(ready[0]);
  if (got != 1 || answer != 'y') {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    return -1;
  }
  return child;
}

TEST(MovieLockTest, ASecondWriterIsRefusedAndToldWhoHoldsTheMovie) {
  Util::ScratchFolder folder;
  std::string path = folder.Path() + "/take.mov";
  int fd = open(path.c_str(), O_RDWR | O_CREAT, 0644);
  ASSERT_GE(fd, 0);
  pid_t holder = HoldInChild(path);
  ASSERT_GT(holder, 0);
  EXPECT_EQ(MovieLock::TryLock(fd), EBUSY);
  std::string who = MovieLock::Holder(path);
  EXPECT_NE(who.find("process " + std::to_string(holder)), std::string::npos) << who;
  EXPECT_NE(who.find(" of user "), std::string::npos) << who;
  EXPECT_EQ(MovieLock::Holder(fd), who);
  // A holder killed outright leaves no lock behind.
  kill(holder, SIGKILL);
  waitpid(holder, nullptr, 0);
  EXPECT_EQ(MovieLock::TryLock(fd), 0);
  EXPECT_EQ(MovieLock::Holder(path).find(std::to_string(holder)), std::string::npos);
  close(fd);
}

TEST(MovieLockTest, AFreeMovieHasNoHolderAndItsLockEndsWithItsDescriptor) {
  Util::ScratchFolder folder;
  std::string path = folder.Path() + "/take.mov";
  int fd = open(path.c_str(), O_RDWR | O_CREAT, 0644);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(MovieLock::Holder(path), "");
  ASSERT_EQ(MovieLock::TryLock(fd), 0);
  int other = open(path.c_str(), O_RDWR);
  ASSERT_GE(other, 0);
  EXPECT_EQ(MovieLock::TryLock(other), EBUSY);
  close(fd);
  EXPECT_EQ(MovieLock::TryLock(other), 0);
  close(other);
  EXPECT_EQ(MovieLock::Holder(std::string("/no/such/movie.mov")), "");
}

}  // namespace
}  // namespace KTN
